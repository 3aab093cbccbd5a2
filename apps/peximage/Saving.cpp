#include "Saving.h"

#include "Incomplete.h"
#include "Text.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/codecs/CGImageDestination.h"

#include <cmath>
#include <cstdio>

namespace fs = std::filesystem;

namespace {

constexpr double defaultQuality = 0.9;

struct Written {
    pex::CGSize size;
    std::optional<double> quality;
};

std::optional<Written> writeJpeg(const std::shared_ptr<pex::PexImage>& image, const fs::path& path,
                                 const WritingOptions& options) {
    const pex::URL url = pex::URL::fromPath(path.string());
    if (options.maxBytes) {
        const auto saved = pex::PexImageHelper::saveToJpegWithin(
            image,
            {.desiredSize = *options.maxBytes, .dpi = options.dpi, .toUrl = url, .options = options.jpeg});
        return saved ? std::optional(Written{saved->size, saved->quality}) : std::nullopt;
    }
    const double quality = options.quality.value_or(defaultQuality);
    if (!pex::PexImageHelper::saveToJpeg(
            image, {.quality = quality, .dpi = options.dpi, .url = url, .options = options.jpeg}))
        return std::nullopt;
    return Written{image->size, quality};
}

std::optional<Written> writePng(const std::shared_ptr<pex::PexImage>& image, const fs::path& path,
                                const WritingOptions& options) {
    constexpr double pointsPerInch = 72;
    const pex::URL url = pex::URL::fromPath(path.string());
    if (!options.dpi) {
        if (!image->saveToPNG(url)) return std::nullopt;
    } else {
        const auto png = image->pngData({.size = image->size * (pointsPerInch / *options.dpi)});
        if (!png || !png->write(url, pex::Data::Writing::inPlace)) return std::nullopt;
    }
    return Written{image->size, std::nullopt};
}

bool hasQuality(pex::ImageFormat format) {
    return format != pex::ImageFormat::png && format != pex::ImageFormat::tiff;
}

std::optional<Written> writeHeif(const std::shared_ptr<pex::PexImage>& image, const fs::path& path,
                                 const WritingOptions& options) {
    const bool alpha = image->cgImage && pex::hasAlpha(image->cgImage->layout());
    const auto saved = image->saveAsHEIFWithin(
        {.desiredSize = *options.maxBytes, .to = pex::URL::fromPath(path.string()), .useAlpha = alpha});
    return saved ? std::optional(Written{saved->size, saved->quality}) : std::nullopt;
}

/// Any other format, with the profile and the alpha that the picture has.
std::optional<Written> writePlain(const std::shared_ptr<pex::PexImage>& image, const fs::path& path,
                                  pex::ImageFormat format, const WritingOptions& options) {
    if (!image->cgImage) return std::nullopt;
    pex::CGImageDestination::Options how;
    how.quality = options.quality.value_or(defaultQuality);
    how.jpeg = options.jpeg;
    if (options.dpi) how.dpiWidth = how.dpiHeight = *options.dpi;
    const auto bytes = pex::CGImageDestination::encode(*image->cgImage, format, how);
    if (!bytes || !bytes->write(pex::URL::fromPath(path.string()), pex::Data::Writing::inPlace))
        return std::nullopt;
    return Written{image->size, hasQuality(format) ? std::optional(how.quality) : std::nullopt};
}

std::optional<Written> write(const std::shared_ptr<pex::PexImage>& image, const fs::path& path,
                             pex::ImageFormat format, const WritingOptions& options) {
    if (format == pex::ImageFormat::jpeg) return writeJpeg(image, path, options);
    if (format == pex::ImageFormat::png) return writePng(image, path, options);
    if (format == pex::ImageFormat::heif && options.maxBytes) return writeHeif(image, path, options);
    return writePlain(image, path, format, options);
}

std::string decimals(double value, int places) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", places, value);
    return text;
}

Result describe(const std::string& input, const fs::path& output, const Written& written, long long bytes) {
    Result result;
    result.line =
        input + " → " + output.string() + "  " + pixelSize(written.size) + "  " + grouped(bytes) + " bytes";
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

Failure whyNotSaved(const PendingFile& file, const Destination& destination, const WritingOptions& options) {
    Failure failure = file.whyNotWritten();
    const bool couldWrite = failure.message == "cannot write " + destination.path.string();
    if (couldWrite && options.maxBytes)
        return {"cannot be made as small as " + grouped(*options.maxBytes) + " bytes"};
    return failure;
}

} // namespace

Outcome saveImage(const std::string& input, const std::shared_ptr<pex::PexImage>& image,
                  const Destination& destination, const WritingOptions& options) {
    PendingFile file(destination.path);
    const auto written = write(image, file.path(), destination.format, options);
    if (!written) return whyNotSaved(file, destination, options);
    if (auto failure = incomplete::check(destination.path, options.force)) return *failure;
    std::error_code error;
    const auto bytes = static_cast<long long>(fs::file_size(file.path(), error));
    if (auto failure = file.commit()) return *failure;
    return describe(input, destination.path, *written, bytes);
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

int runChanging(
    const Settings& settings, const WritingOptions& options,
    const std::function<std::shared_ptr<pex::PexImage>(const std::shared_ptr<pex::PexImage>&)>& change,
    const std::string& changeFailed) {
    const std::vector<Destination> destinations = planResults(settings, options);
    return runBatch(settings, [&](std::size_t i) -> Outcome {
        const auto opened = openImage(settings.inputs[i]);
        if (const auto* failure = std::get_if<Failure>(&opened)) return *failure;
        const auto changed = change(std::get<std::shared_ptr<pex::PexImage>>(opened));
        if (!changed) return Failure{changeFailed};
        return saveImage(settings.inputs[i], changed, destinations[i], options);
    });
}
