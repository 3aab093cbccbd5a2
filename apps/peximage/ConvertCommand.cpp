#include "Commands.h"
#include "Saving.h"

void addConvert(CLI::App& program, int& status) {
    struct Request {
        Settings settings;
        WritingOptions writing;
    };
    CLI::App* command = program.add_subcommand("convert", "Writes images in another format or quality");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    command->footer("Example: peximage convert drawing.png -o drawing.jpg --quality 0.85");
    command->callback([request, &status] {
        status = runChanging(
            request->settings, request->writing, [](const auto& image) { return image; }, "");
    });
}
