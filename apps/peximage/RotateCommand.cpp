#include "Commands.h"
#include "PixelsAlone.h"
#include "Saving.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::optional<int> turn;
    std::optional<double> degrees, straighten;
};

/// The command's angles go clockwise, as people turn a picture; the library's go the other way.
Image turned(const Image& image, const Request& request) {
    using enum pex::PexImage::RotationDirection;
    if (request.turn)
        return image->rotate(*request.turn == 180  ? r180
                             : *request.turn == 90 ? r90AntiClockWise
                                                   : r90Clockwhise);
    if (request.straighten) return image->rotateAndZoom(-*request.straighten);
    const Image pixels = pixelsAlone(image), rotated = pixels->rotate({.degrees = -*request.degrees});
    return rotated == pixels ? nullptr : rotated;
}

} // namespace

void addRotate(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("rotate", "Turns images, clockwise for positive angles");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    CLI::App* angle = command->add_option_group("Angle", "One of these");
    angle->require_option(1);
    angle->add_option("--turn", request->turn, "A quarter or half turn, without loss of pixels")
        ->check(CLI::IsMember({90, -90, 180}))
        ->type_name("90|-90|180");
    angle->add_option("--degrees", request->degrees, "Any angle, on a canvas that grows")
        ->check(numberBetween(-1e6, 1e6))
        ->type_name("D");
    angle->add_option("--straighten", request->straighten, "Any angle, enlarged so that no corner is empty")
        ->check(numberBetween(-1e6, 1e6))
        ->type_name("D");
    command->footer("Example: peximage rotate photo.jpg -o level.jpg --straighten -1.5");
    command->callback([request, &status] {
        status = runChanging(
            request->settings, request->writing, [&](const Image& image) { return turned(image, *request); },
            "cannot be turned");
    });
}
