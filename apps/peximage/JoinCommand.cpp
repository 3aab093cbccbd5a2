#include "Commands.h"
#include "Saving.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    bool vertical = false;
    std::string scale = "min";
};

Outcome joined(const std::vector<Input>& inputs, const Request& request, const Destination& destination) {
    std::vector<Image> images;
    for (const Input& input : inputs) {
        const auto opened = openImage(input);
        if (const auto* failure = std::get_if<Failure>(&opened))
            return Failure{input.shownName() + ": " + failure->message, failure->code};
        images.push_back(std::get<Image>(opened));
    }
    using Joining = pex::PexImage;
    const Image result = Joining::join(
        images[0], {.with = images[1],
                    .orientation = request.vertical ? Joining::JoinOrientation::vertical
                                                    : Joining::JoinOrientation::horizontal,
                    .scaleMode = request.scale == "max" ? Joining::ScaleMode::max : Joining::ScaleMode::min});
    if (!result->cgImage) return Failure{"cannot be made that large"};
    return saveImage(inputs[0], result, destination, request.writing, originOf(inputs[0], request.writing));
}

int join(Request& request) {
    expandInputs(request.settings);
    const std::vector<Input> both = request.settings.inputs;
    if (both.size() != 2) throw UsageError{"join takes two images"};
    request.settings.inputs.resize(1);
    request.settings.intoFolder = false;
    return runWriting(request.settings, request.writing, [&](const Input&, const Destination& destination) {
        return joined(both, request, destination);
    });
}

} // namespace

void addJoin(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("join", "Puts two images side by side");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    command->add_flag("--vertical", request->vertical, "The second below the first");
    command
        ->add_option("--scale", request->scale,
                     "Reduce the larger touching side (min, the default) or enlarge the smaller")
        ->check(CLI::IsMember({"min", "max"}))
        ->type_name("min|max");
    command->footer("Example: peximage join before.jpg after.jpg -o both.jpg");
    command->callback([request, &status] { status = join(*request); });
}
