#include "Commands.h"
#include "Saving.h"
#include "Text.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::function<Image(const Image&)> change;
};

/// One of the ways to say the new size: `make` turns a number of pixels into the change.
template <class Make>
void addSide(CLI::App& command, Request& request, const std::string& name, const std::string& help,
             Make make) {
    const auto parse = [&request, make](const std::string& text) {
        const auto pixels = parsePixels(text);
        if (!pixels) throw CLI::ValidationError("'" + text + "' is no number of pixels; write 2000");
        request.change = make(*pixels);
    };
    command.add_option_function<std::string>(name, parse, help)->type_name("N");
}

/// Keeping the proportions gives the image itself where it cannot be scaled; here that is a failure.
Image ifResized(const Image& resized, const Image& image) { return resized == image ? nullptr : resized; }

template <class Make>
void addSize(CLI::App& command, Request& request, const std::string& name, const std::string& help,
             Make make) {
    const auto parse = [&request, make](const std::string& text) {
        const auto size = parsePixelSize(text);
        if (!size) throw CLI::ValidationError("'" + text + "' is no size; write 800x600");
        request.change = make(*size);
    };
    command.add_option_function<std::string>(name, parse, help)->type_name("WxH");
}

} // namespace

void addResize(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("resize", "Makes images larger or smaller");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    CLI::App* target = command->add_option_group("New size", "One of these");
    target->require_option(1);
    addSize(*target, *request, "--size", "Exactly this size, stretched", [](pex::CGSize size) {
        return [size](const Image& image) { return image->resize({.to = size}); };
    });
    addSize(
        *target, *request, "--fit", "Whole, in the middle of a box with transparent margins",
        [](pex::CGSize size) { return [size](const Image& image) { return image->resizeWithFit(size); }; });
    addSize(*target, *request, "--fill", "Covering a box; what lies outside is cut", [](pex::CGSize size) {
        return [size](const Image& image) { return image->resizeWithFill(size); };
    });
    addSide(*target, *request, "--width", "This width, keeping the proportions", [](int n) {
        return [n](const Image& image) { return ifResized(image->resize({.toWidth = n}), image); };
    });
    addSide(*target, *request, "--height", "This height, keeping the proportions", [](int n) {
        return [n](const Image& image) { return ifResized(image->resize({.toHeight = n}), image); };
    });
    addSide(*target, *request, "--max-side", "Longer side at most this",
            [](int n) { return [n](const Image& image) { return image->resize({.withMaxSide = n}); }; });
    addSide(*target, *request, "--min-side", "Shorter side at most this", [](int n) {
        return [n](const Image& image) { return image->resize({.withMinSideBoundedTo = n}); };
    });
    command->footer("Example: peximage resize *.jpg -o web --max-side 1600");
    command->callback([request, &status] {
        status =
            runChanging(request->settings, request->writing, request->change, "cannot be made that large");
    });
}
