#include "Commands.h"
#include "Saving.h"
#include "Text.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::optional<int> maxSide;
};

int shrink(const Request& request) {
    if (!request.writing.maxBytes) throw UsageError{"--max-bytes is required"};
    const auto change = [&](const std::shared_ptr<pex::PexImage>& image) {
        return request.maxSide ? image->resize({.withMaxSide = *request.maxSide}) : image;
    };
    return runChanging(request.settings, request.writing, change, "cannot be resized");
}

} // namespace

void addShrink(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("shrink", "Fits photos into a byte budget");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::no);
    command->add_option("--max-side", request->maxSide, "Longer side in pixels, at most")
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    command->footer("Example: peximage shrink photo.jpg -o small.jpg --max-side 2000 --max-bytes 300KB");
    command->callback([request, &status] { status = shrink(*request); });
}
