#include "peximage/helpers/PexDicotomic.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/jpeg/JpegMetadata.h"
#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"
#include "peximage/platform/codecs/jpeg/encode/ImageEncoder.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/varda/FileUtilities.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

namespace pex {
namespace {

/// The search aims a little below the budget, so that what it finds fits as a rule.
constexpr double budgetShare = 0.975;
constexpr double shrinkFactor = 0.9;

/// Makes the folder and clears the place.
void prepareDestination(const URL& url) {
    fu_createFolder(url.deletingLastPathComponent());
    if (fu_fileExists(url)) fu_deleteFile(url);
}

/// Writes the density into the JFIF segment that begins the file: its unit (1: dots per inch) at byte 13,
/// then both densities with their high bytes first. Bytes that begin otherwise are left alone.
void stampDpi(std::vector<std::uint8_t>& jpeg, int dpi) {
    static constexpr std::uint8_t jfifStart[] = {0xFF, 0xD8, 0xFF, 0xE0};
    constexpr std::size_t unit = 13, segmentEnd = 20, identifier = 6;
    if (jpeg.size() < segmentEnd || !std::equal(std::begin(jfifStart), std::end(jfifStart), jpeg.begin()))
        return;
    if (std::string_view(reinterpret_cast<const char*>(&jpeg[identifier]), 5) !=
        std::string_view("JFIF\0", 5))
        return;
    jpeg[unit] = 1;
    for (const std::size_t density : {unit + 1, unit + 3}) {
        jpeg[density] = static_cast<std::uint8_t>(dpi >> 8);
        jpeg[density + 1] = static_cast<std::uint8_t>(dpi);
    }
}

/// Absent when there is no encoder or it gives up.
std::optional<Data> encoded(jpeg::Encoder* encoder, double quality, std::optional<int> dpi) {
    diagnostics::print("saveToJpeg (quality: " + decimalText(quality) + ")");
    std::vector<std::uint8_t> bytes = encoder ? encoder->encode(quality) : std::vector<std::uint8_t>();
    if (bytes.empty()) return std::nullopt;
    if (dpi) stampDpi(bytes, *dpi);
    return Data(std::move(bytes));
}

bool saveEncoded(jpeg::Encoder* encoder, double quality, std::optional<int> dpi, const URL& url) {
    prepareDestination(url);
    const std::optional<Data> bytes = encoded(encoder, quality, dpi);
    return bytes && bytes->write(url, Data::Writing::atomically);
}

/// What goes into the file beside the pixels: with orientation, sizes and resolution of this picture.
std::vector<std::uint8_t> segmentsFor(const CGImage& picture, const ImageMetadata& metadata,
                                      std::optional<int> dpi) {
    if (metadata.empty()) return {};
    const ImageMetadata upright = metadata.uprighted(picture.width(), picture.height());
    const ImageMetadata told = dpi ? upright.withResolution(*dpi, *dpi) : upright;
    return jpegMetadataSegments(told.heldBy(ImageFormat::jpeg));
}

/// Null with the reason.
template <class How>
std::shared_ptr<jpeg::Encoder> encoderFor(const PexImage* image, const How& how) {
    const auto rep = image ? image->bitmapRep() : nullptr;
    if (rep)
        return jpeg::encoderOf(rep->cgImage(), segmentsFor(rep->cgImage(), how.metadata, how.dpi),
                               how.options);
    giveReason(ReasonCode::badArgument, image ? "has no bitmap" : "there is no image");
    return nullptr;
}

PexDicotomic searchFor(long long budget) {
    PexDicotomic search;
    search.target = static_cast<double>(budget) * budgetShare;
    return search;
}

/// The best of the qualities that fits, given that the lowest one does.
double bestThatFits(jpeg::Encoder& encoder, const std::set<double>& tried, long long budget) {
    const auto best = std::find_if(tried.rbegin(), tried.rend(), [&](double quality) {
        return static_cast<long long>(encoder.byteCount(quality)) <= budget;
    });
    return best != tried.rend() ? *best : 0;
}

/// The quality to write for a budget that quality 0 keeps and quality 1 does not.
double searchQuality(jpeg::Encoder& encoder, jpeg::BudgetSizes& sizes, long long budget) {
    std::set<double> tried;
    PexDicotomic search = searchFor(budget);
    search.function = PexDicotomic::memoised([&](double quality) {
        tried.insert(quality);
        return sizes.sizeForSearch(quality);
    });
    const double found = search.search();
    const bool fits = static_cast<long long>(encoder.byteCount(found)) <= budget;
    const double quality = fits ? found : bestThatFits(encoder, tried, budget);
    diagnostics::print("quality: " + decimalText(quality));
    return quality;
}

/// What keeps a budget: a picture, perhaps smaller than the one given, at a quality.
struct Fit {
    std::shared_ptr<jpeg::Encoder> encoder;
    double quality;
    CGSize size;
};

std::optional<Fit> fitInto(const PexImageHelper::JpegWithin& how, const std::shared_ptr<PexImage>& image) {
    const long long budget = how.desiredSize;
    std::shared_ptr<PexImage> current = image;
    do {
        const auto encoder = encoderFor(current.get(), how);
        if (!encoder) return std::nullopt;
        const auto limit = static_cast<double>(budget);
        const PexDicotomic search = searchFor(budget);
        jpeg::BudgetSizes sizes(encoder, limit, search.target, search.intervalTolerance);
        if (sizes.sizeForSearch(1) < limit) return Fit{encoder, 1, current->size};
        if (sizes.sizeForSearch(0) <= limit)
            return Fit{encoder, searchQuality(*encoder, sizes, budget), current->size};
        current = current->resize({.to = (current->size * shrinkFactor).boundToInt()});
    } while (current);
    giveReason(ReasonCode::budgetTooSmall, "cannot be made as small as " + std::to_string(budget) + " bytes");
    return std::nullopt;
}

} // namespace

bool PexImageHelper::saveToJpeg(const std::shared_ptr<PexImage>& image, const JpegAtQuality& how) {
    return absentWithoutMemory([&] {
        const auto encoder = encoderFor(image.get(), how);
        return image && saveEncoded(encoder.get(), how.quality, how.dpi, how.url);
    });
}

std::optional<Data> PexImageHelper::jpegData(const std::shared_ptr<PexImage>& image, const JpegBytes& how) {
    return absentWithoutMemory(
        [&] { return encoded(encoderFor(image.get(), how).get(), how.quality, how.dpi); });
}

bool PexImageHelper::saveToJpeg(const std::shared_ptr<PexImage>& image, const JpegOfSize& how) {
    return absentWithoutMemory([&] {
        const std::optional<Fit> fit = fitInto({how.desiredSize, how.dpi, how.options, how.metadata}, image);
        return fit && saveEncoded(fit->encoder.get(), fit->quality, how.dpi, how.toUrl);
    });
}

std::optional<FittedPicture> PexImageHelper::jpegDataWithin(const std::shared_ptr<PexImage>& image,
                                                            const JpegWithin& how) {
    return absentWithoutMemory([&]() -> std::optional<FittedPicture> {
        const std::optional<Fit> fit = fitInto(how, image);
        auto bytes = fit ? encoded(fit->encoder.get(), fit->quality, how.dpi) : std::nullopt;
        if (!bytes) return std::nullopt;
        return FittedPicture{std::move(*bytes), fit->quality, fit->size};
    });
}

bool PexImageHelper::saveToPNG(const PexImage& image, const URL& toUrl, const ImageMetadata& metadata) {
    prepareDestination(toUrl);
    const std::optional<Data> png = image.pngData({.metadata = metadata});
    return png && png->write(toUrl, Data::Writing::inPlace);
}

bool PexImageHelper::saveToTIFF(const PexImage& image, const URL& toUrl, const ImageMetadata& metadata) {
    prepareDestination(toUrl);
    const std::optional<CGImage> bitmap = image.image->cgImageForProposedRect();
    if (!bitmap) return false;
    NSBitmapImageRep rep(*bitmap);
    rep.setSize(image.image->size());
    const std::optional<Data> tiff = rep.representation(ImageFormat::tiff, {.metadata = metadata});
    return tiff && tiff->write(toUrl, Data::Writing::inPlace);
}

} // namespace pex
