#include "Saving.h"

#include "Budget.h"
#include "Incomplete.h"
#include "Printable.h"
#include "Text.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"

#include <cmath>
#include <cstdio>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr double defaultQuality = 0.9;

/// A file that is not written yet.
struct Encoded {
    pex::Data bytes;
    pex::CGSize size;
    std::optional<double> quality = {};
    bool madeSmaller = false; // than was asked for, to keep the least quality
};

/// The library's savers within a budget reckon from the size in points, which a file's resolution sets; here
/// a point is a pixel, and no picture is enlarged first.
Image withPixelPoints(const Image& image) {
    return image->cgImage ? pex::PexImage::make(*image->cgImage) : image;
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

/// How the format keeps budgets. The picture's points are its pixels.
BudgetCodec codecFor(pex::ImageFormat format, const WritingOptions& options, const Origin& origin) {
    const long long budget = *options.maxBytes;
    const auto fit = [=](const Image& image) {
        return pex::PexImageHelper::dataWithin(image, {.format = format,
                                                       .desiredSize = budget,
                                                       .dpi = origin.dpi,
                                                       .options = options.jpeg,
                                                       .metadata = origin.metadata});
    };
    if (format != pex::ImageFormat::jpeg)
        return {
            [=](const Image& image, double quality) { return encodePlain(image, format, quality, origin); },
            fit};
    return {[=](const Image& image, double quality) {
                return pex::PexImageHelper::jpegData(image, {.quality = quality,
                                                             .dpi = origin.dpi,
                                                             .options = options.jpeg,
                                                             .metadata = origin.metadata});
            },
            fit};
}

std::optional<Encoded> encodeWithin(const Image& image, pex::ImageFormat format,
                                    const WritingOptions& options, const Origin& origin) {
    const Image plain = withPixelPoints(image);
    auto fitted =
        fittedWithin(plain, *options.maxBytes, options.minQuality, codecFor(format, options, origin));
    if (!fitted) return std::nullopt;
    return Encoded{std::move(fitted->bytes), fitted->size, fitted->quality,
                   fitted->size.width < plain->size.width};
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

/// The file's size, 0 where it has none that is known; of a file's pages the first one stands for it.
long long bytesOf(const Input& input) {
    if (input.page.value_or(0) > 0) return 0;
    std::error_code error;
    const auto bytes = fs::file_size(input.path, error);
    return error ? 0 : static_cast<long long>(bytes);
}

/// Without a number of bytes where that is known only once the file is there.
Result describe(const Input& input, const fs::path& output, pex::CGSize size,
                std::optional<long long> bytes) {
    Result result;
    result.line = printable(input.shownName() + " → " + output.string()) + "  " + pixelSize(size);
    if (bytes) result.line += "  " + grouped(*bytes) + " bytes";
    result.json = {{"file", input.name},
                   {"output", output.string()},
                   {"width", std::llround(size.width)},
                   {"height", std::llround(size.height)}};
    if (bytes) result.json["bytes"] = *bytes;
    result.files = 1;
    if (!bytes) return result;
    result.bytesBefore = bytesOf(input);
    result.bytesAfter = *bytes;
    return result;
}

Result describe(const Input& input, const fs::path& output, const Encoded& written,
                const WritingOptions& options) {
    Result result = describe(input, output, written.size, static_cast<long long>(written.bytes.size()));
    if (written.quality) {
        result.line += "  quality " + decimals(*written.quality, 3);
        result.json["quality"] = *written.quality;
    }
    if (written.madeSmaller) result.line += "  made smaller";
    if (written.madeSmaller && options.minQuality > 0)
        result.line += ", to keep quality " + decimals(options.minQuality, 2);
    if (output == "-") result.line.clear();
    return result;
}

/// What a dry run says.
Result plan(const Input& input, const fs::path& output, pex::CGSize size, std::optional<long long> bytes,
            const WritingOptions& options) {
    Result result = describe(input, output, size, bytes);
    if (!bytes && options.maxBytes) result.line += "  at most " + grouped(*options.maxBytes) + " bytes";
    result.line += "  would be written";
    result.json["dryRun"] = true;
    return result;
}

Result leftOut(const Input& input, const fs::path& output) {
    Result result{printable(input.shownName() + " → " + output.string()) +
                      "  left out: is there and not older",
                  {{"file", input.name}, {"output", output.string()}, {"skipped", true}}};
    result.leftOut = true;
    return result;
}

void setTime(const fs::path& path, const Origin& origin, Result& result) {
    std::error_code error;
    if (origin.time && path != "-") fs::last_write_time(path, *origin.time, error);
    if (error) result.notes.push_back("its time cannot be set: " + error.message());
}

/// A single result whose format keeps no budget is asked for by mistake, unless it may be the file itself.
void checkBudget(const Settings& settings, const WritingOptions& options,
                 const std::vector<Destination>& destinations) {
    if (!options.maxBytes || settings.intoFolder || destinations.empty()) return;
    const Destination& destination = destinations[0];
    if (hasQuality(destination.format)) return;
    const Input& input = settings.inputs[0];
    if (pex::CGImageSource::formatOf(pex::URL::fromPath(input.path)) == destination.format) return;
    throw UsageError{"--max-bytes goes with JPEG, HEIF, AVIF and WebP, not with " +
                     destination.path.string()};
}

} // namespace

Outcome saveImage(const Input& input, const Image& image, const Destination& destination,
                  const WritingOptions& options, const Origin& origin) {
    const std::string format(pex::displayName(destination.format));
    if (options.maxBytes && !hasQuality(destination.format))
        return Failure{format + " keeps no byte budget; choose another format with --format",
                       pex::ReasonCode::badArgument};
    if (options.dryRun) {
        Result planned = plan(input, destination.path, image->size, {}, options);
        planned.notes = origin.notes;
        return planned;
    }
    forgetReason();
    Origin from = fitted(origin, destination.format, options);
    if (options.dpi) from.dpi = options.dpi;
    const std::optional<Encoded> encoded = encode(image, destination.format, options, from);
    if (!encoded) return libraryFailure("cannot be written as " + format);
    if (auto failure = incomplete::check(destination.path, options.force)) return *failure;
    Result result = describe(input, destination.path, *encoded, options);
    if (auto failure = writeFile(destination.path, encoded->bytes)) return *failure;
    result.notes = std::move(from.notes);
    setTime(destination.path, from, result);
    if (options.wantsAlpha && destination.format == pex::ImageFormat::jpeg)
        result.notes.emplace_back("JPEG has no transparency: what is transparent was laid over white");
    return result;
}

Outcome saveBytes(const Input& input, const pex::Data& bytes, pex::CGSize size,
                  const Destination& destination, const WritingOptions& options, const Origin& origin) {
    if (options.dryRun)
        return plan(input, destination.path, size, static_cast<long long>(bytes.size()), options);
    Result result = describe(input, destination.path, {bytes, size}, options);
    if (auto failure = writeFile(destination.path, bytes)) return *failure;
    setTime(destination.path, origin, result);
    return result;
}

bool isLeftOut(const Input& input, const fs::path& result, const WritingOptions& options) {
    std::error_code error;
    if (!options.skipExisting || !fs::is_regular_file(result, error)) return false;
    const auto made = fs::last_write_time(result, error);
    if (error) return false;
    const auto changed = fs::last_write_time(input.path, error);
    return error || made >= changed; // of an address no time is known
}

int runWriting(Settings& settings, const WritingOptions& options, const Work& work) {
    if (settings.inputs.empty()) expandInputs(settings, options.output);
    const std::vector<Destination> destinations = planDestinations(settings, options.output, options.format);
    checkBudget(settings, options, destinations);
    settings.totals = true;
    return runBatch(settings, [&](std::size_t i) -> Outcome {
        const Input& input = settings.inputs[i];
        if (isLeftOut(input, destinations[i].path, options)) return leftOut(input, destinations[i].path);
        return work(input, destinations[i]);
    });
}

Outcome changeAndSave(const Input& input, const Destination& destination, const WritingOptions& options,
                      const Change& change, const std::string& changeFailed) {
    const auto opened = openImage(input);
    if (const auto* failure = std::get_if<Failure>(&opened)) return *failure;
    const auto changed = change(std::get<Image>(opened));
    if (!changed) return Failure{changeFailed};
    return saveImage(input, changed, destination, options, originOf(input, options));
}

int runChanging(Settings& settings, const WritingOptions& options, const Change& change,
                const std::string& changeFailed) {
    return runWriting(settings, options, [&](const Input& input, const Destination& destination) {
        return changeAndSave(input, destination, options, change, changeFailed);
    });
}
