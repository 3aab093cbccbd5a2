#include "Commands.h"
#include "PixelsAlone.h"
#include "Saving.h"
#include "Text.h"
#include "peximage/platform/raster/CGContext.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::optional<pex::PexColor> color;
    double tolerance = 0;
    std::string by = "luminance";
};

/// The image's colours with no alpha, so that a new one can be laid over them.
Image withoutAlpha(const Image& image) {
    if (!image->cgImage || !pex::hasAlpha(image->cgImage->layout())) return image;
    const pex::CGImage& picture = *image->cgImage;
    const auto context = pex::CGContext::make(picture.width(), picture.height(),
                                              pex::PixelLayout::straightLast, pex::CGColorSpace::sRGB());
    if (!context) return image;
    context->setBlendMode(pex::CGBlendMode::copy);
    context->draw(picture, {0, 0, 1.0 * picture.width(), 1.0 * picture.height()});
    const auto drawn = context->makeImage();
    const auto opaque = drawn ? drawn->reinterpreted(pex::PixelLayout::skipLast) : std::nullopt;
    return opaque ? pex::PexImage::make(*opaque) : image;
}

int key(Request& request) {
    const pex::PexImage::KeyColor keyed{*request.color, request.tolerance};
    const auto change = [&](const Image& image) { return image->key(keyed); };
    return runChanging(request.settings, request.writing, change, "cannot be decoded");
}

int mask(Request& request) {
    const Input file = takeLast(request.settings, "mask takes images, and a mask last");
    const auto opened = openImage(file);
    if (const auto* failure = std::get_if<Failure>(&opened))
        throw UsageError{file.name + ": " + failure->message};
    const Image mask = std::get<Image>(opened);
    const auto change = [&](const Image& opened) -> Image {
        const Image image = withoutAlpha(pixelsAlone(opened));
        const Image result =
            request.by == "alpha" ? image->apply({.mask = mask}) : image->apply({.mask = *mask->cgImage});
        return result == image ? nullptr : withStraightColours(result);
    };
    return runChanging(request.settings, request.writing, change, "the mask cannot be applied");
}

} // namespace

void addKey(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("key", "Makes a colour transparent");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    request->writing.wantsAlpha = true;
    addParsed(*command, "--color", "RRGGBB", "The colour", "a colour; write 00ff00", parseColor,
              request->color)
        ->required();
    command->add_option("--tolerance", request->tolerance, "How far off a colour may be, 0-442 (default: 0)")
        ->check(numberBetween(0, 442))
        ->type_name("T");
    command->footer("Example: peximage key actor.png -o cut.png --color 00ff00 --tolerance 60");
    command->callback([request, &status] { status = key(*request); });
}

void addMask(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("mask", "Takes the opacity of images from a mask, named last");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    request->writing.wantsAlpha = true;
    command->add_option("--by", request->by, "What of the mask counts: luminance (default) or alpha")
        ->check(CLI::IsMember({"luminance", "alpha"}))
        ->type_name("luminance|alpha");
    command->footer("Example: peximage mask photo.jpg vignette.png -o soft.png");
    command->callback([request, &status] { status = mask(*request); });
}
