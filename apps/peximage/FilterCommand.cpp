#include "Commands.h"
#include "PixelsAlone.h"
#include "Saving.h"
#include "Text.h"
#include "peximage/pixels/PexConvolution.h"
#include "peximage/pixels/PexImageBitmapRGBA.h"
#include "peximage/pixels/PexLut.h"

#include <charconv>
#include <variant>

namespace {

using BitmapStep = std::function<Image(const Image&)>;
using GraphStep = std::function<std::optional<pex::CIImage>(const pex::CIImage&)>;
using Step = std::variant<BitmapStep, GraphStep>;

struct Request {
    Settings settings;
    WritingOptions writing;
    std::vector<Step> steps; // in the order of the command line
};

std::optional<double> number(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value > -1e6 && value < 1e6))
        return std::nullopt;
    return value;
}

/// Convolving takes the numbers of colours as they are and gives sRGB: they have to be that.
Image inStandardColours(const Image& image) {
    const bool isStandard = !image->cgImage || image->cgImage->colorSpace().isStandard();
    return isStandard ? image : pex::PexImageBitmapRGBA(*image).pexImage();
}

/// Nine whole numbers with commas between them.
std::optional<std::vector<std::int16_t>> weights(std::string_view text) {
    std::vector<std::int16_t> all;
    const char *at = text.data(), *end = at + text.size();
    for (std::int16_t weight = 0; at < end; ++at) {
        const auto [behind, error] = std::from_chars(at, end, weight);
        if (error != std::errc() || (behind < end && *behind != ',')) return std::nullopt;
        all.push_back(weight);
        at = behind;
    }
    return all.size() == 9 ? std::optional(all) : std::nullopt;
}

/// "light:0.5", "dark:0.5" or "both:0.5".
std::optional<Step> gate(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    const std::string_view which = text.substr(0, colon);
    const std::optional<double> limit = number(text.substr(colon + 1));
    void (pex::PexImageBitmapRGBA::*change)(double) = nullptr;
    if (which == "light") change = &pex::PexImageBitmapRGBA::lightGate;
    if (which == "dark") change = &pex::PexImageBitmapRGBA::darkGate;
    if (which == "both") change = &pex::PexImageBitmapRGBA::lightDarkGate;
    if (change == nullptr || !limit) return std::nullopt;
    return BitmapStep([=](const Image& image) {
        pex::PexImageBitmapRGBA bitmap(*image);
        (bitmap.*change)(*limit);
        return bitmap.pexImage();
    });
}

/// Adds an option whose every use becomes a step; `make` gives absent for what is none.
void addStep(CLI::App& command, Request& request, const std::string& name, const std::string& form,
             const std::string& help, const std::string& what,
             const std::function<std::optional<Step>(const std::string&)>& make) {
    const auto read = [=, &request](const std::string& text) {
        auto step = make(text);
        if (!step) throw CLI::ValidationError("'" + text + "' is not " + what);
        request.steps.push_back(std::move(*step));
    };
    command.add_option_function<std::string>(name, read, help)
        ->type_name(form)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->trigger_on_parse();
}

void addSteps(CLI::App& command, Request& request) {
    addStep(command, request, "--sharpen", "S", "Sharpen, 0.4 is usual", "a number",
            [](const std::string& text) {
                const auto strength = number(text);
                return strength ? std::optional(GraphStep([=](const pex::CIImage& image) {
                    return image.sharpenedLuminance(*strength);
                }))
                                : std::nullopt;
            });
    addStep(command, request, "--exposure", "EV", "Brighter by so many stops, in linear light", "a number",
            [](const std::string& text) {
                const auto stops = number(text);
                return stops ? std::optional(GraphStep(
                                   [=](const pex::CIImage& image) { return image.exposureAdjusted(*stops); }))
                             : std::nullopt;
            });
    addStep(command, request, "--convolve", "K1,…,K9", "Convolve with nine weights, divided by 3",
            "nine whole numbers with commas", [](const std::string& text) {
                const auto kernel = weights(text);
                return kernel ? std::optional(BitmapStep([=](const Image& image) {
                    const Image standard = inStandardColours(image);
                    return standard ? standard->convolve({.convolution = pex::PexConvolution(*kernel)})
                                    : nullptr;
                }))
                              : std::nullopt;
            });
    addStep(command, request, "--lut", "FILE", "Look colours up in a table: a picture, or .cube",
            "the file of a lookup table", [](const std::string& text) {
                const auto lut = pex::PexLut::make(pex::URL::fromPath(text));
                return lut ? std::optional(
                                 GraphStep([=](const pex::CIImage& image) { return lut->applyTo(image); }))
                           : std::nullopt;
            });
    addStep(command, request, "--fill", "RRGGBB", "One colour, transparency kept", "a colour; write 00ff00",
            [](const std::string& text) {
                const auto color = parseColor(text);
                return color ? std::optional(BitmapStep([=](const Image& image) {
                    return withStraightColours(image->fill(*color));
                }))
                             : std::nullopt;
            });
    addStep(command, request, "--gate", "WHICH:T",
            "light: dark pixels black; dark: light ones white; both. T is from 0 to 1",
            "a gate; write light:0.5, dark:0.5 or both:0.5",
            [](const std::string& text) { return gate(text); });
}

/// Steps of the filter graph that follow each other are computed together, in one picture's memory.
Image filtered(Image image, const std::vector<Step>& steps) {
    std::optional<pex::CIImage> graph;
    const auto compute = [&] {
        if (graph) image = pex::PexImage::make(*graph);
        graph.reset();
        return image != nullptr;
    };
    for (const Step& step : steps) {
        if (const auto* add = std::get_if<GraphStep>(&step)) {
            if (!graph) graph = image->ciImage();
            if (graph) graph = (*add)(*graph);
            if (!graph) return nullptr;
            continue;
        }
        if (compute()) image = std::get<BitmapStep>(step)(image);
        if (!image) return nullptr;
    }
    return compute() ? image : nullptr;
}

int filter(Request& request) {
    if (request.steps.empty()) throw UsageError{"give one filter at least"};
    const auto change = [&](const Image& image) { return filtered(image, request.steps); };
    return runChanging(request.settings, request.writing, change, "cannot be filtered");
}

} // namespace

void addFilter(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("filter", "Filters images, in the order given");
    const auto request = std::make_shared<Request>();
    addCommonOptions(*command, request->settings);
    addPageOption(*command, request->settings);
    addWritingOptions(*command, request->writing, QualityOption::yes);
    addMetadataOptions(*command, request->writing);
    addSteps(*command, *request);
    command->footer(
        "Example: peximage filter photo.jpg -o film.jpg --exposure 0.3 --lut film.cube --sharpen 0.4");
    command->callback([request, &status] { status = filter(*request); });
}
