#include "Commands.h"
#include "Lossless.h"
#include "PixelsAlone.h"
#include "Saving.h"
#include "peximage/platform/raster/Turning.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::optional<int> turn;
    std::string mirror;
    std::optional<double> degrees, straighten;
    bool lossless = false;
};

/// The turn or mirror that needs no new pixels; absent for other angles.
std::optional<pex::Orientation> exactTurn(const Request& request) {
    using enum pex::Orientation;
    if (request.turn) return *request.turn == 180 ? down : *request.turn == 90 ? right : left;
    if (request.mirror.empty()) return std::nullopt;
    return request.mirror == "horizontal" ? upMirrored : downMirrored;
}

/// The command's angles go clockwise, as people turn a picture; the library's go the other way.
Image turned(const Image& image, const Request& request) {
    if (const auto exact = exactTurn(request)) {
        const auto pixels = image->cgImage ? pex::turnedImage(*image->cgImage, *exact) : std::nullopt;
        return pixels ? pex::PexImage::make(*pixels) : nullptr;
    }
    if (request.straighten) return image->rotateAndZoom(-*request.straighten);
    const Image pixels = pixelsAlone(image), rotated = pixels->rotate({.degrees = -*request.degrees});
    return rotated == pixels ? nullptr : rotated;
}

int rotate(Request& request) {
    const auto exact = exactTurn(request);
    if (request.lossless && !exact) throw UsageError{"--lossless goes with --turn and --mirror"};
    checkLossless(request.lossless, request.writing);
    return runWriting(
        request.settings, request.writing,
        [&](const Input& input, const Destination& destination) -> Outcome {
            const auto change = [&](pex::CGSize) { return pex::LosslessChange{.turn = *exact}; };
            const auto outcome =
                exact ? savedWithoutLoss(input, destination, request.writing, request.lossless, change)
                      : std::nullopt;
            if (outcome) return *outcome;
            return changeAndSave(
                input, destination, request.writing,
                [&](const Image& image) { return turned(image, request); }, "cannot be turned");
        });
}

} // namespace

void addRotate(CLI::App& program, int& status) {
    CLI::App* command =
        program.add_subcommand("rotate", "Turns images, clockwise for positive angles, or mirrors them");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    CLI::App* angle = command->add_option_group("Angle", "One of these");
    angle->require_option(1);
    angle
        ->add_option("--turn", request->turn,
                     "A quarter or half turn; of a JPEG whose sides allow it without loss")
        ->check(CLI::IsMember({90, -90, 180}))
        ->type_name("90|-90|180");
    angle
        ->add_option("--mirror", request->mirror,
                     "Left and right, or top and bottom, change places; without loss as --turn")
        ->check(CLI::IsMember({"horizontal", "vertical"}))
        ->type_name("horizontal|vertical");
    angle->add_option("--degrees", request->degrees, "Any angle, on a canvas that grows")
        ->check(numberBetween(-1e6, 1e6))
        ->type_name("D");
    angle->add_option("--straighten", request->straighten, "Any angle, enlarged so that no corner is empty")
        ->check(numberBetween(-1e6, 1e6))
        ->type_name("D");
    addLosslessOption(*command, request->lossless);
    command->footer("Example: peximage rotate photo.jpg -o level.jpg --straighten -1.5");
    command->callback([request, &status] { status = rotate(*request); });
}
