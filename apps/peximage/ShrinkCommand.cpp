#include "Commands.h"
#include "Photo.h"
#include "Saving.h"
#include "Text.h"
#include "peximage/platform/codecs/CGImageSource.h"

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
std::optional<pex::Data> untouched(const std::string& input, const pex::CGImageSource& source,
                                   const WritingOptions& options) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(input));
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
std::optional<Outcome> handedOn(const std::string& input, const Destination& destination,
                                const Request& request) {
    auto source = pex::CGImageSource::make(pex::URL::fromPath(input));
    const bool asksForMore = request.writing.dpi || request.writing.jpeg != pex::JpegOptions{};
    if (!source || source->properties().format != destination.format || asksForMore) return std::nullopt;
    const pex::CGSize size = uprightSize(source->properties());
    if (request.maxSide && std::max(size.width, size.height) > *request.maxSide) return std::nullopt;
    std::error_code error;
    const auto stored = std::filesystem::file_size(input, error);
    if (error || static_cast<long long>(stored) > *request.writing.maxBytes || source->isIncomplete())
        return std::nullopt;
    const auto bytes = untouched(input, *source, request.writing);
    if (!bytes) return std::nullopt;
    return saveBytes(input, *bytes, size, destination.path, originOf(input, request.writing));
}

int shrink(const Request& request) {
    if (!request.writing.maxBytes) throw UsageError{"--max-bytes is required"};
    const auto change = [&](const std::shared_ptr<pex::PexImage>& image) {
        return request.maxSide ? image->resize({.withMaxSide = *request.maxSide}) : image;
    };
    const std::vector<Destination> destinations = planResults(request.settings, request.writing);
    return runBatch(request.settings, [&](std::size_t i) {
        const std::string& input = request.settings.inputs[i];
        if (auto outcome = handedOn(input, destinations[i], request)) return *outcome;
        return changeAndSave(input, destinations[i], request.writing, change, "cannot be resized");
    });
}

} // namespace

void addShrink(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("shrink", "Fits photos into a byte budget");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::no);
    addMetadataOptions(*command, request->writing);
    command->add_option("--max-side", request->maxSide, "Longer side in pixels, at most")
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    command->footer("Example: peximage shrink photo.jpg -o small.jpg --max-side 2000 --max-bytes 300KB");
    command->callback([request, &status] { status = shrink(*request); });
}
