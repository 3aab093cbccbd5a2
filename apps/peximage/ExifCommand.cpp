#include "Batch.h"
#include "Commands.h"
#include "Files.h"
#include "Inputs.h"
#include "Options.h"
#include "Photo.h"
#include "Printable.h"
#include "Text.h"
#include "peximage/metadata/PexExif.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Diagnostics.h"

#include <cmath>
#include <cstdio>

namespace {

struct Request {
    Settings settings;
    bool all = false;
};

using Json = nlohmann::ordered_json;

/// Whole numbers without a fraction.
Json toJson(const std::vector<double>& numbers) {
    Json list = Json::array();
    for (const double number : numbers)
        list.push_back(number == std::trunc(number) ? Json(static_cast<std::int64_t>(number)) : Json(number));
    return list;
}

Json toJson(const pex::PropertyDictionary& dictionary) {
    Json object = Json::object();
    for (const auto& [key, value] : dictionary.values()) {
        object[key] = std::visit(
            []<class T>(const T& held) -> Json {
                if constexpr (std::is_same_v<T, pex::PropertyDictionary::Nested>)
                    return toJson(*held);
                else if constexpr (std::is_same_v<T, std::vector<double>>)
                    return toJson(held);
                else
                    return held;
            },
            value);
    }
    return object;
}

void addLines(std::string& text, const std::string& prefix, const Json& object) {
    for (const auto& [key, value] : object.items()) {
        if (value.is_object()) {
            addLines(text, prefix + key + '.', value);
            continue;
        }
        text.append("\n  ").append(prefix).append(key).append("  ");
        text += value.is_string() ? printable(value.get_ref<const std::string&>()) : value.dump();
    }
}

std::string degrees(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

Outcome describe(const Input& file, const Request& request) {
    forgetReason();
    const auto source = pex::CGImageSource::make(pex::URL::fromPath(file.path));
    if (!source) return libraryFailure("not an image");
    pex::diagnostics::print(file.name + ": read " + grouped(static_cast<long long>(source->bytesRead())) +
                            " bytes");
    const pex::PropertyDictionary properties = source->copyProperties();
    pex::PexExif::BasicData data = pex::PexExif::basicData(properties);
    data.coordinates = signedPlace(properties);
    Result result{printable(file.name), {{"file", file.name}}};
    result.json.update(Json::parse(pex::encode(data)));
    if (data.shotDate) result.line += "  " + pex::localTimeText(*data.shotDate);
    if (data.coordinates.lat) result.line += "  lat " + degrees(*data.coordinates.lat);
    if (data.coordinates.lon) result.line += "  lon " + degrees(*data.coordinates.lon);
    if (!request.all) return result;
    result.json["properties"] = toJson(properties);
    addLines(result.line, {}, result.json["properties"]);
    return result;
}

} // namespace

void addExif(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("exif", "Tells when and where photos were taken");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    command->add_flag("--all", request->all, "Every property that the files tell, too");
    command->footer("Example: peximage exif --all photo.jpg");
    command->callback([request, &status] {
        expandInputs(request->settings);
        status = runBatch(request->settings,
                          [&](std::size_t i) { return describe(request->settings.inputs[i], *request); });
    });
}
