#include "Lossless.h"

#include "Photo.h"
#include "peximage/platform/codecs/CGImageSource.h"

namespace {

bool needsEncoding(const WritingOptions& options) {
    pex::JpegOptions jpeg = options.jpeg;
    jpeg.progressive = false; // an order of the same coefficients
    return options.quality || options.maxBytes || options.dpi || jpeg != pex::JpegOptions{};
}

/// With what is wanted of the photo's metadata.
std::optional<pex::Data> withMetadata(const pex::Data& bytes, const Origin& origin, pex::CGSize size,
                                      const WritingOptions& options) {
    if (options.metadata == MetadataChoice::keep) return bytes;
    return origin.metadata.uprighted(static_cast<int>(size.width), static_cast<int>(size.height))
        .replacedIn(bytes);
}

/// Absent where the library gives nothing.
std::optional<Outcome> saved(const Input& input, const Destination& destination,
                             const WritingOptions& options, const ChangeOfSize& change) {
    const auto source = openSource(input);
    const auto file = source ? pex::Data::contentsOf(pex::URL::fromPath(input.path)) : std::nullopt;
    if (!file) return std::nullopt;
    const Origin origin = fitted(originOf(input, *source, options), destination.format, options);
    pex::LosslessChange wanted = change(uprightSize(source->properties()));
    wanted.progressive = options.jpeg.progressive;
    const auto changed = pex::changedWithoutLoss(*file, wanted);
    const auto made = changed ? pex::CGImageSource::make(*changed) : std::nullopt;
    if (!made) return std::nullopt;
    const pex::CGSize size = uprightSize(made->properties());
    const auto bytes = withMetadata(*changed, origin, size, options);
    if (!bytes) return std::nullopt;
    Outcome outcome = saveBytes(input, *bytes, size, destination, options, origin);
    if (auto* result = std::get_if<Result>(&outcome)) {
        if (!result->line.empty()) result->line += "  without loss";
        result->json["lossless"] = true;
        result->notes.insert(result->notes.end(), origin.notes.begin(), origin.notes.end());
    }
    return outcome;
}

} // namespace

void addLosslessOption(CLI::App& command, bool& isWanted) {
    command.add_flag("--lossless", isWanted,
                     "Only without loss: a JPEG that would have to be encoded anew fails");
}

void checkLossless(bool isWanted, const WritingOptions& options) {
    if (isWanted && needsEncoding(options))
        throw UsageError{"--lossless does not go with options that need a new encoding: --quality, "
                         "--max-bytes, --dpi, --chroma, --effort"};
}

std::optional<Outcome> savedWithoutLoss(const Input& input, const Destination& destination,
                                        const WritingOptions& options, bool isWanted,
                                        const ChangeOfSize& change) {
    if (!isWanted && (needsEncoding(options) || destination.format != pex::ImageFormat::jpeg))
        return std::nullopt;
    if (destination.format != pex::ImageFormat::jpeg)
        return Failure{"--lossless goes from JPEG to JPEG", pex::ReasonCode::badArgument};
    forgetReason();
    auto outcome = saved(input, destination, options, change);
    if (!outcome && isWanted) return libraryFailure("cannot be done without loss");
    return outcome;
}
