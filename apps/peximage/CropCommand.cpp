#include "Commands.h"
#include "Lossless.h"
#include "Saving.h"
#include "Text.h"

#include <algorithm>
#include <cmath>

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::optional<pex::CGRect> rect;
    std::optional<double> ratio;
    double zoom = 1;
    bool lossless = false;
};

/// The largest part of the given shape, in the middle; smaller by the zoom.
pex::CGRect centred(pex::CGSize whole, double ratio, double zoom) {
    pex::CGSize size = whole;
    if (whole.width / whole.height != ratio || zoom != 1)
        size = whole.width / whole.height > ratio
                   ? pex::CGSize{whole.height / zoom * ratio, whole.height / zoom}
                   : pex::CGSize{whole.width / zoom, whole.width / zoom / ratio};
    const pex::CGSize pixels{std::max(std::round(size.width), 1.0), std::max(std::round(size.height), 1.0)};
    return {{std::floor((whole.width - pixels.width) / 2), std::floor((whole.height - pixels.height) / 2)},
            pixels};
}

int crop(Request& request) {
    checkLossless(request.lossless, request.writing);
    const auto partOf = [&](pex::CGSize whole) {
        return request.rect ? *request.rect : centred(whole, *request.ratio, request.zoom);
    };
    return runWriting(
        request.settings, request.writing,
        [&](const Input& input, const Destination& destination) -> Outcome {
            const auto change = [&](pex::CGSize whole) { return pex::LosslessChange{.part = partOf(whole)}; };
            if (const auto outcome =
                    savedWithoutLoss(input, destination, request.writing, request.lossless, change))
                return *outcome;
            return changeAndSave(
                input, destination, request.writing,
                [&](const Image& image) { return image->crop({.to = partOf(image->size)}); },
                "nothing of it lies in the rectangle");
        });
}

} // namespace

void addCrop(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("crop", "Cuts a part out of images");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    CLI::App* part = command->add_option_group("Part", "One of these");
    part->require_option(1);
    addParsed(*part, "--rect", "X,Y,W,H", "In pixels, from the top-left corner",
              "a rectangle; write 10,20,300,200", parseRect, request->rect);
    addParsed(*part, "--ratio", "W:H", "The largest part of this shape, in the middle", "a ratio; write 16:9",
              parseRatio, request->ratio);
    command->add_option("--zoom", request->zoom, "With --ratio: so many times smaller a part")
        ->check(numberBetween(1, 1e6))
        ->type_name("Z")
        ->needs(part->get_option("--ratio"));
    addLosslessOption(*command, request->lossless);
    command->footer("Example: peximage crop photo.jpg -o wide.jpg --ratio 16:9");
    command->callback([request, &status] { status = crop(*request); });
}
