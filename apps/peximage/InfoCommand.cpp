#include "Batch.h"
#include "Commands.h"
#include "Files.h"
#include "Inputs.h"
#include "Options.h"
#include "Photo.h"
#include "Printable.h"
#include "Text.h"
#include "peximage/helpers/PexImageHelperExifDates.h"
#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/platform/foundation/Diagnostics.h"

#include <cmath>
#include <utility>

namespace {

std::string decimalsIfNeeded(double value) {
    const double rounded = std::round(value * 100) / 100;
    std::string text = std::to_string(rounded);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
}

/// "+02:00", as the photo states it; empty where it does not.
std::string zoneOf(const pex::PropertyDictionary& properties) {
    const std::string* zone =
        properties.dictionary(pex::kCGImagePropertyExifDictionary).text("OffsetTimeOriginal");
    const bool isZone = zone && zone->size() == 6 && ((*zone)[0] == '+' || (*zone)[0] == '-') &&
                        (*zone)[3] == ':' && zone->find_first_not_of("0123456789:", 1) == std::string::npos;
    return isZone ? *zone : std::string();
}

/// When and where it was taken.
void addShot(Result& result, const pex::PropertyDictionary& properties) {
    if (const auto date = pex::PexImageHelper::getShotDateFromExif(properties)) {
        std::string text = pex::localTimeText(*date);
        result.line += "  " + text;
        text[text.find(' ')] = 'T';
        result.json["shotDate"] = text + zoneOf(properties);
    }
    const auto place = signedPlace(properties);
    const auto addDegrees = [&](const char* name, std::optional<double> degrees) {
        if (!degrees) return;
        result.line += std::string("  ") + name + ' ' + std::to_string(*degrees);
        result.json[name] = *degrees;
    };
    addDegrees("lat", place.lat);
    addDegrees("lon", place.lon);
}

Outcome describe(const Input& file) {
    forgetReason();
    auto source = openSource(file);
    if (!source) return libraryFailure("not an image");
    const bool incomplete = source->isIncomplete();
    pex::diagnostics::print(file.name + ": read " + grouped(static_cast<long long>(source->bytesRead())) +
                            " bytes");
    const pex::ImageProperties& properties = source->properties();
    const pex::CGSize size = uprightSize(properties);
    const std::string format(pex::displayName(properties.format));
    const std::string ratio = pex::PexImageHelper::getReadableRatio(size);

    Result result;
    result.line = printable(file.shownName()) + "  " + format + "  " + pixelSize(size) + "  " + ratio;
    result.json = {{"file", file.name},
                   {"format", format},
                   {"width", std::llround(size.width)},
                   {"height", std::llround(size.height)},
                   {"ratio", ratio}};
    if (properties.dpiWidth) {
        result.line += "  " + decimalsIfNeeded(*properties.dpiWidth) + " dpi";
        result.json["dpi"] = std::round(*properties.dpiWidth * 100) / 100;
    }
    result.json["bits"] = properties.depth;
    result.json["pages"] = properties.pages;
    if (properties.depth != 8) result.line += "  " + std::to_string(properties.depth) + " bits";
    if (properties.pages > 1) result.line += "  " + std::to_string(properties.pages) + " pages";
    result.line += properties.hasAlpha ? "  alpha" : "";
    result.json["alpha"] = properties.hasAlpha;
    if (properties.profileName) {
        result.line += "  profile " + printable(*properties.profileName);
        result.json["profile"] = *properties.profileName;
    }
    const int orientation = static_cast<int>(properties.orientation);
    if (orientation != 1) result.line += "  orientation " + std::to_string(orientation);
    result.json["orientation"] = orientation;
    addShot(result, source->copyProperties());
    if (incomplete) {
        result.line += "  incomplete";
        result.json["incomplete"] = true;
    }
    return result;
}

} // namespace

void addInfo(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("info", "Tells what images are, from their headers");
    const auto settings = std::make_shared<Settings>();
    addCommonOptions(*command, *settings);
    addPageOption(*command, *settings);
    command->footer("Example: peximage info --json photo.jpg");
    command->callback([settings, &status] {
        expandInputs(*settings);
        status = runBatch(*settings, [&](std::size_t i) { return describe(settings->inputs[i]); });
    });
}
