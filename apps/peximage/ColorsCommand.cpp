#include "Batch.h"
#include "Commands.h"
#include "Files.h"
#include "Inputs.h"
#include "Options.h"
#include "Origin.h"
#include "Printable.h"
#include "Text.h"
#include "peximage/helpers/PexImageHelperColours.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

struct Request {
    Settings settings;
    std::optional<pex::CGSize> grid;
};

/// "#7a8b9c"
std::string hex(const pex::NSColor& color) {
    const auto byte = [](double channel) { return static_cast<int>(std::lround(channel * 255)); };
    char text[8];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", byte(color.redComponent()),
                  byte(color.greenComponent()), byte(color.blueComponent()));
    return text;
}

nlohmann::ordered_json channels(const pex::NSColor& color) {
    const auto rounded = [](double channel) { return std::round(channel * 1e6) / 1e6; };
    return {rounded(color.redComponent()), rounded(color.greenComponent()), rounded(color.blueComponent()),
            rounded(color.alphaComponent())};
}

/// The first step of reducing the image, so that it is decoded once for all that is told of it.
std::shared_ptr<pex::PexImage> quarter(const pex::PexImage& image) {
    const auto side = [](double length) { return std::max(std::floor(length / 4), 1.0); };
    return image.resize({.to = {side(image.size.width), side(image.size.height)}});
}

Outcome describe(const Input& file, const Request& request) {
    const auto opened = openImage(file);
    if (const auto* failure = std::get_if<Failure>(&opened)) return *failure;
    const auto image = std::get<std::shared_ptr<pex::PexImage>>(opened);
    const auto small = quarter(*image);
    const pex::NSColor average = pex::PexImageHelper::getAverageColorOfImage(small ? small : image);
    Result result{printable(file.shownName()) + "  " + hex(average),
                  {{"file", file.name}, {"average", channels(average)}}};
    if (const auto source = openSource(file);
        const auto note = source ? pagesLeftOut(file, *source) : std::nullopt)
        result.notes.push_back(*note);
    if (!request.grid) return result;
    const bool fits =
        small && request.grid->width <= small->size.width && request.grid->height <= small->size.height;
    const auto colors =
        pex::PexImageHelper::getColorList({.ofImage = fits ? *small : *image, .reduceToSize = *request.grid});
    if (colors.empty()) return Failure{"cannot be reduced to such a grid"};
    auto grid = nlohmann::ordered_json::array();
    const auto columns = static_cast<std::size_t>(request.grid->width);
    for (std::size_t i = 0; i < colors.size(); ++i) {
        result.line += (i % columns == 0 ? "\n  " : " ") + hex(colors[i]);
        grid.push_back(channels(colors[i]));
    }
    result.json["grid"] = std::move(grid);
    return result;
}

} // namespace

void addColors(CLI::App& program, int& status) {
    CLI::App* command =
        program.add_subcommand("colors", "Tells the average colour of images, or a grid of colours");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addParsed(*command, "--grid", "WxH", "The colours of the image reduced to so many pixels, row by row",
              "a size; write 4x3", parsePixelSize, request->grid);
    command->footer("Example: peximage colors photo.jpg --grid 4x3");
    command->callback([request, &status] {
        expandInputs(request->settings);
        status = runBatch(request->settings,
                          [&](std::size_t i) { return describe(request->settings.inputs[i], *request); });
    });
}
