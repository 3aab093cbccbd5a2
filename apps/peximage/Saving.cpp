#include "Saving.h"

#include "Incomplete.h"
#include "Printable.h"
#include "Text.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/codecs/CGImageDestination.h"

#include <cmath>
#include <cstdio>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr double defaultQuality = 0.9;

using Image = std::shared_ptr<pex::PexImage>;

/// A file that is not written yet.
struct Encoded {
    pex::Data bytes;
    pex::CGSize size;
    std::optional<double> quality = {};
};

/// The library's savers within a budget reckon from the size in points, which a file's resolution sets; here
/// a point is a pixel, and no picture is enlarged first.
Image withPixelPoints(const Image& image) {
    return image->cgImage ? pex::PexImage::make(*image->cgImage) : image;
}

std::optional<Encoded> encodeWithin(const Image& image, pex::ImageFormat format,
                                    const WritingOptions& options, const Origin& origin) {
    const long long budget = *options.maxBytes;
    const Image plain = withPixelPoints(image);
    const bool alpha = plain->cgImage && pex::hasAlpha(plain->cgImage->layout());
    auto fitted =
        format == pex::ImageFormat::jpeg
            ? pex::PexImageHelper::jpegDataWithin(plain, {.desiredSize = budget,
                                                          .dpi = origin.dpi,
                                                          .options = options.jpeg,
                                                          .metadata = origin.metadata})
            : plain->heifDataWithin({.desiredSize = budget, .useAlpha = alpha, .metadata = origin.metadata});
    if (!fitted) return std::nullopt;
    return Encoded{std::move(fitted->bytes), fitted->size, fitted->quality};
}

std::optional<pex::Data> encodePng(const Image& image, const Origin& origin) {
    constexpr double pointsPerInch = 72;
    if (!origin.dpi) return image->pngData({.metadata = origin.metadata});
    return image->pngData({.size = image->size * (pointsPerInch / *origin.dpi), .metadata = origin.metadata});
}

/// Any other format, with the profile and the alpha that the picture has.
std::optional<pex::Data> encodePlain(const Image& image, pex::ImageFormat format, double quality,
                                     const Origin& origin) {
    if (!image->cgImage) return std::nullopt;
    pex::CGImageDestination::Options how;
    how.quality = quality;
    if (origin.dpi) how.dpiWidth = how.dpiHeight = *origin.dpi;
    how.metadata = origin.metadata;
    return pex::CGImageDestination::encode(*image->cgImage, format, how);
}

bool hasQuality(pex::ImageFormat format) {
    return format != pex::ImageFormat::png && format != pex::ImageFormat::tiff;
}

std::optional<Encoded> encode(const Image& image, pex::ImageFormat format, const WritingOptions& options,
                              const Origin& origin) {
    if (options.maxBytes) return encodeWithin(image, format, options, origin);
    const double quality = options.quality.value_or(defaultQuality);
    std::optional<pex::Data> bytes;
    if (format == pex::ImageFormat::jpeg)
        bytes = pex::PexImageHelper::jpegData(
            image,
            {.quality = quality, .dpi = origin.dpi, .options = options.jpeg, .metadata = origin.metadata});
    else if (format == pex::ImageFormat::png)
        bytes = encodePng(image, origin);
    else
        bytes = encodePlain(image, format, quality, origin);
    if (!bytes) return std::nullopt;
    return Encoded{*std::move(bytes), image->size,
                   hasQuality(format) ? std::optional(quality) : std::nullopt};
}

std::string decimals(double value, int places) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", places, value);
    return text;
}

Result describe(const std::string& input, const fs::path& output, const Encoded& written) {
    const auto bytes = static_cast<long long>(written.bytes.size());
    Result result;
    result.line = printable(input + " → " + output.string()) + "  " + pixelSize(written.size) + "  " +
                  grouped(bytes) + " bytes";
    result.json = {{"file", input},
                   {"output", output.string()},
                   {"width", std::llround(written.size.width)},
                   {"height", std::llround(written.size.height)},
                   {"bytes", bytes}};
    if (written.quality) {
        result.line += "  quality " + decimals(*written.quality, 3);
        result.json["quality"] = *written.quality;
    }
    return result;
}

void setTime(const fs::path& path, const Origin& origin, Result& result) {
    std::error_code error;
    if (origin.time) fs::last_write_time(path, *origin.time, error);
    if (error) result.notes.push_back("its time cannot be set: " + error.message());
}

} // namespace

Outcome saveImage(const std::string& input, const Image& image, const Destination& destination,
                  const WritingOptions& options, const Origin& origin) {
    forgetReason();
    Origin from = fitted(origin, destination.format, options);
    if (options.dpi) from.dpi = options.dpi;
    const std::optional<Encoded> encoded = encode(image, destination.format, options, from);
    if (!encoded)
        return libraryFailure("cannot be written as " + std::string(pex::displayName(destination.format)));
    if (auto failure = incomplete::check(destination.path, options.force)) return *failure;
    if (auto failure = writeFile(destination.path, encoded->bytes)) return *failure;
    Result result = describe(input, destination.path, *encoded);
    result.notes = std::move(from.notes);
    setTime(destination.path, from, result);
    if (options.wantsAlpha && destination.format == pex::ImageFormat::jpeg)
        result.notes.emplace_back("JPEG has no transparency: what is transparent was laid over white");
    return result;
}

Outcome saveBytes(const std::string& input, const pex::Data& bytes, pex::CGSize size, const fs::path& path,
                  const Origin& origin) {
    if (auto failure = writeFile(path, bytes)) return *failure;
    Result result = describe(input, path, {bytes, size});
    setTime(path, origin, result);
    return result;
}

std::vector<Destination> planResults(const Settings& settings, const WritingOptions& options) {
    std::vector<Destination> destinations = planDestinations(settings.inputs, options.output, options.format);
    for (const Destination& destination : destinations) {
        const bool keepsBudget =
            destination.format == pex::ImageFormat::jpeg || destination.format == pex::ImageFormat::heif;
        if (options.maxBytes && !keepsBudget)
            throw UsageError{"--max-bytes goes with JPEG and HEIF, not with " + destination.path.string()};
    }
    return destinations;
}

Outcome changeAndSave(const std::string& input, const Destination& destination, const WritingOptions& options,
                      const Change& change, const std::string& changeFailed) {
    const auto opened = openImage(input);
    if (const auto* failure = std::get_if<Failure>(&opened)) return *failure;
    const auto changed = change(std::get<Image>(opened));
    if (!changed) return Failure{changeFailed};
    return saveImage(input, changed, destination, options, originOf(input, options));
}

int runChanging(const Settings& settings, const WritingOptions& options, const Change& change,
                const std::string& changeFailed) {
    const std::vector<Destination> destinations = planResults(settings, options);
    return runBatch(settings, [&](std::size_t i) {
        return changeAndSave(settings.inputs[i], destinations[i], options, change, changeFailed);
    });
}
