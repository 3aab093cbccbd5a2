#include "Commands.h"
#include "Saving.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/platform/foundation/Data.h"

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    pex::PexWatermark mark{
        .position = pex::PexWatermark::Position::bottomRight,
        .scale = {.policy = pex::PexWatermark::Scale::Policy::originalSize, .scale = 0.25, .maxScale = 0.5}};
    std::string document;
};

void readSettings(Request& request) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(request.document));
    if (!bytes) throw UsageError{request.document + ": cannot be read"};
    pex::DocumentError error;
    const auto text = std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    const auto read = pex::decode<pex::PexWatermark>(text, &error);
    if (!read) throw UsageError{request.document + ": " + error.message()};
    request.mark = *read;
}

int watermark(Request& request) {
    if (!request.document.empty()) readSettings(request);
    const Input markFile = takeLast(request.settings, "watermark takes images and, last, the mark");
    const auto opened = openImage(markFile);
    if (const auto* failure = std::get_if<Failure>(&opened))
        return runWriting(request.settings, request.writing, [&](const Input&, const Destination&) {
            return Failure{markFile.name + ": " + failure->message, failure->code};
        });
    const Image mark = std::get<Image>(opened);
    mark->ciImage(); // made before the images' threads share it
    return runChanging(
        request.settings, request.writing,
        [&](const Image& image) { return image->watermark(mark, request.mark); }, "cannot be marked");
}

/// An option whose values are an enumeration's raw values.
template <class E>
CLI::Option* addChoice(CLI::App& command, const std::string& name, E& target, const std::string& help) {
    std::vector<std::string> names;
    for (const E each : pex::allCases<E>())
        names.emplace_back(pex::rawValue(each));
    return command
        .add_option_function<std::string>(
            name, [&target](const std::string& text) { target = *pex::fromRawValue<E>(text); }, help)
        ->check(CLI::IsMember(names))
        ->type_name(CLI::detail::join(names, "|"));
}

} // namespace

void addWatermark(CLI::App& program, int& status) {
    CLI::App* command =
        program.add_subcommand("watermark", "Lays a mark, the last of the files, over images");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    CLI::Option* document =
        command->add_option("--settings", request->document, "All of the below, from a document")
            ->type_name("FILE.json");
    addChoice(*command, "--position", request->mark.position, "Where it goes (default: Bottom Right)")
        ->excludes(document);
    addChoice(*command, "--policy", request->mark.scale.policy, "Its size (default: Original Size)")
        ->excludes(document);
    const auto add = [&](const char* name, double& target, const char* help, double most) {
        command->add_option(name, target, help)
            ->check(numberBetween(0, most))
            ->type_name("S")
            ->excludes(document);
    };
    constexpr double mostScale = 1000;
    add("--scale", request->mark.scale.scale,
        "With Largest Side Scale: the share of the image that it takes (default 0.25)", mostScale);
    add("--max-scale", request->mark.scale.maxScale,
        "With Original Size: the share that it takes at most (default 0.5)", mostScale);
    add("--opacity", request->mark.opacity, "0 to 1 (default 1)", 1);
    command->footer(
        "Example: peximage watermark *.jpg logo.png -o marked --position \"Top Left\" --opacity 0.6");
    command->callback([request, &status] { status = watermark(*request); });
}
