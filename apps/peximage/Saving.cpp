#include "Saving.h"

#include "Text.h"
#include "peximage/helpers/PexImageHelperSavers.h"

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
            image, {.desiredSize = *options.maxBytes, .dpi = options.dpi, .toUrl = url});
        return saved ? std::optional(Written{saved->size, saved->quality}) : std::nullopt;
    }
    const double quality = options.quality.value_or(defaultQuality);
    if (!image->saveToJpeg({.quality = quality, .dpi = options.dpi, .url = url})) return std::nullopt;
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
    const Failure failure = file.whyNotWritten();
    const bool couldWrite = failure.message == "cannot write " + destination.path.string();
    if (couldWrite && options.maxBytes)
        return {"cannot be made as small as " + grouped(*options.maxBytes) + " bytes"};
    return failure;
}

} // namespace

Outcome saveImage(const std::string& input, const std::shared_ptr<pex::PexImage>& image,
                  const Destination& destination, const WritingOptions& options) {
    PendingFile file(destination.path);
    const bool jpeg = destination.format == pex::ImageFormat::jpeg;
    const auto written =
        jpeg ? writeJpeg(image, file.path(), options) : writePng(image, file.path(), options);
    if (!written) return whyNotSaved(file, destination, options);
    std::error_code error;
    const auto bytes = static_cast<long long>(fs::file_size(file.path(), error));
    if (auto failure = file.commit()) return *failure;
    return describe(input, destination.path, *written, bytes);
}

std::vector<Destination> planResults(const Settings& settings, const WritingOptions& options) {
    std::vector<Destination> destinations = planDestinations(settings.inputs, options.output, options.format);
    for (const Destination& destination : destinations) {
        if (options.maxBytes && destination.format != pex::ImageFormat::jpeg)
            throw UsageError{"--max-bytes goes with JPEG, not with " + destination.path.string()};
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
