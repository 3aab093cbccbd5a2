#include "bench/worker/Jobs.h"

#include "bench/worker/Caches.h"
#include "bench/worker/Filters.h"
#include "bench/worker/Geometry.h"
#include "bench/worker/Picture.h"
#include "bench/worker/PlainCodecs.h"
#include "bench/worker/Resizing.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace bench {
namespace {

using JobMap = std::map<std::string, Prepare>;

template <class Work>
Run withoutFile(Work work) {
    return [work]() -> std::size_t {
        work();
        return 0;
    };
}

Picture photo(const std::string& folder, int width, int channels) {
    return withChannels(readPpm(fmt::format("{}/photo-{}.ppm", folder, width)), channels);
}

std::shared_ptr<pex::PexImage> imageOf(const Picture& picture) {
    const auto memory = pex::PixelBuffer::make(picture.bytes.size());
    std::memcpy(memory.data(), picture.bytes.data(), picture.bytes.size());
    const auto rowBytes = static_cast<std::ptrdiff_t>(picture.rowBytes());
    const auto bitmap = pex::CGImage::make(picture.width, picture.height, rowBytes,
                                           pex::PixelLayout::skipLast, pex::CGColorSpace::sRGB(), memory);
    if (!bitmap) throw std::runtime_error("no picture");
    return pex::PexImage::make(*bitmap);
}

std::size_t sizeOf(const std::optional<pex::Data>& file) {
    if (!file) throw std::runtime_error("cannot be encoded");
    return file->bytes().size();
}

void touchPixels(const std::optional<pex::CGImage>& image) {
    if (!image || !image->pixels()) throw std::runtime_error("cannot be decoded");
}

void addResampling(JobMap& jobs, const std::string& folder) {
    for (const auto& [from, to] :
         std::array<std::pair<int, int>, 3>{{{4000, 2000}, {4000, 500}, {1000, 2000}}}) {
        const std::string name = fmt::format("resample/{}-{}/", from, to);
        jobs[name + "ours"] = [=, from = from, to = to]() -> Run {
            const auto picture = std::make_shared<Picture>(photo(folder, from, 4));
            const auto result = std::make_shared<Picture>(to, to * 3 / 4, 4);
            return withoutFile([=] { resizeByOurs(*picture, *result); });
        };
        jobs[name + "vips"] = [=, from = from, to = to]() -> Run {
            const auto picture = std::make_shared<Picture>(photo(folder, from, 3));
            return withoutFile([=] { runVips(*picture, to, to * 3 / 4); });
        };
    }
}

struct Budget {
    int width;
    long long bytes;
    std::string file;
};

pex::FittedPicture searchAndWrite(const std::shared_ptr<pex::PexImage>& image, const Budget& how) {
    // A new object around the pixels, as nothing of an earlier search may help.
    auto fitted = pex::PexImageHelper::jpegDataWithin(pex::PexImage::make(*image->cgImage),
                                                      {.desiredSize = how.bytes, .dpi = {}});
    if (!fitted || !fitted->bytes.write(pex::URL::fromPath(how.file), pex::Data::Writing::atomically))
        throw std::runtime_error("cannot be saved");
    return std::move(*fitted);
}

void addSearch(JobMap& jobs, const std::string& folder) {
    for (const auto& [megapixels, width, bytes] : {std::tuple{3, 2000, 300'000LL}, {12, 4000, 1'500'000LL}}) {
        const std::string name = fmt::format("search/{}/", megapixels);
        const Budget budget{width, bytes, folder + "/searched.jpg"};
        jobs[name + "ours"] = [=]() -> Run {
            const auto image = imageOf(photo(folder, budget.width, 4));
            return [=] { return static_cast<std::size_t>(searchAndWrite(image, budget).bytes.size()); };
        };
        // One encoding at the whole quality nearest to the one that the search finds.
        jobs[name + "turbo"] = [=]() -> Run {
            const auto picture = std::make_shared<Picture>(photo(folder, budget.width, 4));
            const int quality = int(std::lround(searchAndWrite(imageOf(*picture), budget).quality * 100));
            return [=] { return encodeJpeg(*picture, quality); };
        };
    }
}

void addThumbnail(JobMap& jobs, const std::string& name, const std::string& file) {
    jobs[name + "/ours"] = [=]() -> Run {
        return withoutFile([=] {
            const auto image = pex::PexImage::make({.fastUrl = pex::URL::fromPath(file)});
            touchPixels(image->resize({.withMaxSide = 256})->cgImage);
        });
    };
    jobs[name + "/turbo"] = [=]() -> Run { return withoutFile([=] { decodeJpeg(readFile(file), 1, 3); }); };
}

using PlainDecode = std::function<Picture(std::span<const std::uint8_t>)>;

void addDecoding(JobMap& jobs, const std::string& name, const std::string& file,
                 const PlainDecode& plainDecode) {
    jobs[name + "/ours"] = [=]() -> Run {
        const pex::Data bytes(readFile(file));
        return
            [=]() -> std::size_t { return touchPixels(pex::CGImageSource::make(bytes)->createImage()), 0; };
    };
    jobs[name + "/plain"] = [=]() -> Run {
        const auto bytes = std::make_shared<std::vector<std::uint8_t>>(readFile(file));
        return withoutFile([=] { plainDecode(*bytes); });
    };
}

/// Whole pictures in one format or the other, decoded and encoded by this library and by the codec's own.
void addCodecs(JobMap& jobs, const std::string& folder, const std::string& format, int width,
               const std::function<std::size_t(pex::PexImage&)>& encode, const PlainDecode& plainDecode,
               const std::function<std::size_t(const Picture&)>& plainEncode) {
    addDecoding(jobs, "decode-" + format, folder + "/photo." + format, plainDecode);
    jobs["encode-" + format + "/ours"] = [=]() -> Run {
        const auto image = imageOf(photo(folder, width, 4));
        return [=] { return encode(*image); };
    };
    jobs["encode-" + format + "/plain"] = [=]() -> Run {
        const auto picture = std::make_shared<Picture>(photo(folder, width, 4));
        return [=] { return plainEncode(*picture); };
    };
}

} // namespace

std::map<std::string, Prepare> jobs(const std::string& folder) {
    JobMap all;
    addResampling(all, folder);
    addSearch(all, folder);
    const std::string photo = folder + "/photo.jpg", progressive = folder + "/progressive.jpg";
    const PlainDecode decodePlainJpeg = [](std::span<const std::uint8_t> jpeg) {
        return decodeJpeg(jpeg, 8, 4);
    };
    addThumbnail(all, "thumbnail", photo);
    addThumbnail(all, "thumbnail-progressive", progressive);
    addDecoding(all, "decode-progressive", progressive, decodePlainJpeg);
    addCodecs(
        all, folder, "jpg", 4000, [](pex::PexImage& image) { return sizeOf(image.jpegData(0.75)); },
        decodePlainJpeg, [](const Picture& picture) { return encodeJpeg(picture, 75); });
    addCodecs(
        all, folder, "png", 2000, [](pex::PexImage& image) { return sizeOf(image.pngData()); },
        [](std::span<const std::uint8_t> png) { return decodePng(png, 4); },
        [](const Picture& picture) { return encodePng(picture); });
    addGeometry(all, folder);
    addFilters(all, folder);
    addCaches(all, folder);
    return all;
}

} // namespace bench
