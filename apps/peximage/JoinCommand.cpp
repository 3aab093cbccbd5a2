#include "Commands.h"
#include "Saving.h"

namespace {

using Image = std::shared_ptr<pex::PexImage>;

struct Request {
    Settings settings;
    WritingOptions writing;
    bool vertical = false;
    std::string scale = "min";
};

Outcome joined(const Request& request, const Destination& destination) {
    std::vector<Image> images;
    for (const std::string& input : request.settings.inputs) {
        const auto opened = openImage(input);
        if (const auto* failure = std::get_if<Failure>(&opened))
            return Failure{input + ": " + failure->message};
        images.push_back(std::get<Image>(opened));
    }
    using Joining = pex::PexImage;
    const Image result = Joining::join(
        images[0], {.with = images[1],
                    .orientation = request.vertical ? Joining::JoinOrientation::vertical
                                                    : Joining::JoinOrientation::horizontal,
                    .scaleMode = request.scale == "max" ? Joining::ScaleMode::max : Joining::ScaleMode::min});
    if (!result->cgImage) return Failure{"cannot be made that large"};
    const std::string& first = request.settings.inputs[0];
    return saveImage(first, result, destination, request.writing, originOf(first, request.writing));
}

int join(const Request& request) {
    if (request.settings.inputs.size() != 2) throw UsageError{"join takes two images"};
    Settings one = request.settings;
    one.inputs.resize(1);
    const std::vector<Destination> destinations = planResults(one, request.writing);
    return runBatch(one, [&](std::size_t i) { return joined(request, destinations[i]); });
}

} // namespace

void addJoin(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("join", "Puts two images side by side");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
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
