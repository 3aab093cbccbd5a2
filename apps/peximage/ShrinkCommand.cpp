#include "Commands.h"
#include "Photo.h"
#include "Saving.h"
#include "Text.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::optional<int> maxSide;
};

/// The file with what is wanted of its metadata, its picture as it is; absent where that cannot be.
std::optional<pex::Data> untouched(const Input& input, const pex::CGImageSource& source,
                                   const WritingOptions& options) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(input.path));
    if (!bytes || options.metadata == MetadataChoice::keep) return bytes;
    constexpr std::uint16_t orientation = 0x0112;
    const auto stored = static_cast<std::int64_t>(source.properties().orientation);
    pex::ImageMetadata metadata;
    if (options.metadata == MetadataChoice::noLocation)
        metadata = pex::ImageMetadata::of(*bytes).withoutLocation();
    if (stored != 1) metadata.setExifField(pex::ExifDirectory::image, orientation, stored);
    return metadata.replacedIn(*bytes);
}

/// A file that is small enough is not made worse: its picture goes over as it is. Absent where something is
/// to be changed.
std::optional<Outcome> handedOn(const Input& input, pex::CGImageSource& source,
                                const Destination& destination, const Request& request,
                                const Origin& origin) {
    const bool isPart = input.page && source.properties().pages > 1;
    const bool asksForMore = isPart || request.writing.dpi || request.writing.jpeg != pex::JpegOptions{};
    if (source.properties().format != destination.format || asksForMore) return std::nullopt;
    const pex::CGSize size = uprightSize(source.properties());
    if (request.maxSide && std::max(size.width, size.height) > *request.maxSide) return std::nullopt;
    std::error_code error;
    const auto stored = std::filesystem::file_size(input.path, error);
    if (error || static_cast<long long>(stored) > *request.writing.maxBytes) return std::nullopt;
    const auto bytes = untouched(input, source, request.writing);
    if (!bytes) return std::nullopt;
    Outcome outcome = saveBytes(input, *bytes, size, destination, request.writing, origin);
    if (auto* const result = std::get_if<Result>(&outcome); result && source.isIncomplete())
        result->notes.emplace_back("breaks off before its picture ends");
    return outcome;
}

Outcome shrunk(const Input& input, const Destination& destination, const Request& request) {
    forgetReason();
    auto source = openSource(input);
    if (!source) return libraryFailure("not an image");
    const Origin origin = originOf(input, *source, request.writing);
    if (auto outcome = handedOn(input, *source, destination, request, origin)) return *outcome;
    const auto opened = openImage(input);
    if (const auto* failure = std::get_if<Failure>(&opened)) return *failure;
    const Image& image = std::get<Image>(opened);
    const Image smaller = request.maxSide ? image->resize({.withMaxSide = *request.maxSide}) : image;
    if (!smaller) return libraryFailure("cannot be resized");
    return saveImage(input, smaller, destination, request.writing, origin);
}

int shrink(Request& request) {
    if (!request.writing.maxBytes) throw UsageError{"--max-bytes is required"};
    return runWriting(request.settings, request.writing,
                      [&](const Input& input, const Destination& destination) {
                          return shrunk(input, destination, request);
                      });
}

} // namespace

void addShrink(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("shrink", "Fits photos into a byte budget");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::no);
    addMetadataOptions(*command, request->writing);
    addPixels(*command, "--max-side", request->maxSide, "Longer side in pixels, at most");
    command->footer("Example: peximage shrink photo.jpg -o small.jpg --max-side 2000 --max-bytes 300KB");
    command->callback([request, &status] { status = shrink(*request); });
}
