#include "Commands.h"
#include "Saving.h"
#include "peximage/canvas/PexCanvas.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/foundation/Data.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
};

Outcome drawn(const std::string& file, const Destination& destination, const WritingOptions& writing) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(file));
    if (!bytes) return whyNoImage(file);
    pex::DocumentError error;
    auto canvas =
        pex::decode<pex::PexCanvas>({reinterpret_cast<const char*>(bytes->data()), bytes->size()}, &error);
    if (!canvas) return Failure{error.message()};
    canvas->shareApp = pex::PexShareApp();
    canvas->loadAllLayers().get();
    const auto image = canvas->getImage();
    // A canvas on which nothing was drawn is a blank picture of its size.
    const auto picture =
        image->cgImage ? image : pex::PexImageHelper::getFillColorImage({0, 0, 0, 0}, image->size);
    picture->setSize();
    if (!picture->cgImage) return Failure{"cannot be made that large"};
    return saveImage(file, picture, destination, writing);
}

int run(const Request& request) {
    const auto destinations = planResults(request.settings, request.writing);
    return runBatch(request.settings, [&](std::size_t i) {
        return drawn(request.settings.inputs[i], destinations[i], request.writing);
    });
}

} // namespace

void addCanvas(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("canvas", "Draws canvas documents");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    command->footer("Example: peximage canvas poster.json -o poster.png");
    command->callback([request, &status] { status = run(*request); });
}
