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

/// One line for each layer that has no picture to draw.
std::vector<std::string> missingPictures(const pex::PexCanvas& canvas) {
    using Source = pex::PexCanvasLayer::Source;
    std::vector<std::string> missing;
    for (std::size_t i = 0; i < canvas.layerList.size(); ++i) {
        const Source& source = canvas.layerList[i].source;
        if (canvas.layerList[i].image) continue;
        std::string what = "names no picture";
        if (source.identification == Source::Identification::url && source.url)
            what = source.url->absoluteString() + " is missing or no picture";
        if (source.identification == Source::Identification::shareAppId && source.shareAppId)
            what = "the shared file " + *source.shareAppId + " is missing or no picture";
        missing.push_back("layer " + std::to_string(i + 1) + ": " + what);
    }
    return missing;
}

Outcome drawn(const Input& file, const Destination& destination, const WritingOptions& writing) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(file.path));
    if (!bytes) return libraryFailure("cannot be read");
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
    Outcome outcome = saveImage(file, picture, destination, writing);
    if (auto* const result = std::get_if<Result>(&outcome)) result->problems = missingPictures(*canvas);
    return outcome;
}

int run(Request& request) {
    return runWriting(request.settings, request.writing,
                      [&](const Input& input, const Destination& destination) {
                          return drawn(input, destination, request.writing);
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
