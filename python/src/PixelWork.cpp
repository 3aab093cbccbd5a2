#include "Bindings.h"
#include "Failure.h"
#include "Running.h"
#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/pixels/PexConvolution.h"
#include "peximage/pixels/PexLut.h"

#include <filesystem>
#include <nanobind/stl/filesystem.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>
#include <tuple>
#include <vector>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

using pex::PexImage;
using Color = std::tuple<double, double, double>;              // 0–255
using AlphaColor = std::tuple<double, double, double, double>; // 0–255, alpha multiplied in

pex::PexColor colorOf(const Color& color) {
    const auto [red, green, blue] = color;
    for (const double channel : {red, green, blue})
        if (!(channel >= 0 && channel <= 255)) failArgument("colours are (red, green, blue) from 0 to 255");
    return pex::PexColor(red / 255, green / 255, blue / 255, 1);
}

AlphaColor tupleOf(const pex::NSColor& color) {
    return {color.redComponent() * 255, color.greenComponent() * 255, color.blueComponent() * 255,
            color.alphaComponent() * 255};
}

Image watermark(const Image& image, const Image& mark, const std::string& position, const std::string& policy,
                double scale, double maxScale, double opacity) {
    pex::PexWatermark settings;
    const auto where = pex::fromRawValue<pex::PexWatermark::Position>(position);
    const auto how = pex::fromRawValue<pex::PexWatermark::Scale::Policy>(policy);
    if (!where) failArgument("position is \"Top Left\", \"Center\", \"Bottom Right\" …");
    if (!how) failArgument("policy is \"Original Size\" or \"Largest Side Scale\"");
    if (!(opacity >= 0 && opacity <= 1)) failArgument("opacity goes from 0 to 1");
    settings.position = *where;
    settings.scale = {.policy = *how, .scale = scale, .maxScale = maxScale};
    settings.opacity = opacity;
    const Image::Picture laid = mark.picture();
    return image.changed([&](PexImage& picture) { return picture.watermark(laid, settings); },
                         "cannot be marked so");
}

Image key(const Image& image, const Color& color, double tolerance) {
    if (!(tolerance >= 0)) failArgument("a tolerance is not negative");
    return image.changed(
        [&](PexImage& picture) { return picture.key({.color = colorOf(color), .tolerance = tolerance}); },
        "cannot be keyed");
}

Image mask(const Image& image, const Image& by, const std::string& channel) {
    if (channel != "luminance" && channel != "alpha") failArgument("channel is \"luminance\" or \"alpha\"");
    const Image::Picture mask = by.picture();
    const pex::CGImage bitmap = by.bitmap();
    return image.changed(
        [&](PexImage& picture) {
            // As many points as pixels, whatever resolution the file states: the mask covers all of it.
            const auto whole = PexImage::make(*picture.cgImage);
            const auto result = channel == "alpha" ? whole->apply(PexImage::ImageMask{mask})
                                                   : whole->apply(PexImage::BitmapMask{bitmap});
            return result == whole ? nullptr : result;
        },
        "cannot be masked");
}

Image convolve(const Image& image, const std::vector<int>& kernel) {
    if (kernel.size() != 9) failArgument("a kernel has nine weights");
    std::vector<std::int16_t> weights;
    for (const int weight : kernel) {
        if (weight < INT16_MIN || weight > INT16_MAX) failArgument("weights have 16 bits");
        weights.push_back(static_cast<std::int16_t>(weight));
    }
    return image.changed([&](PexImage& picture) { return picture.convolve({.kernel = weights}); },
                         "cannot be convolved");
}

Image sharpen(const Image& image, float sharpness) {
    return image.changed([&](PexImage& picture) { return picture.sharpen(sharpness); },
                         "cannot be sharpened");
}

Image exposure(const Image& image, double stops) {
    return image.changed(
        [&](PexImage& picture) {
            const auto result = picture.exposure(stops);
            return result.get() == &picture ? nullptr : result;
        },
        "cannot be exposed so");
}

Image applyLut(const Image& image, const std::filesystem::path& path) {
    const auto table = pex::PexLut::make(pex::URL::fromPath(path.string()));
    if (!table) fail("not a lookup table", path.string());
    return image.changed([&](PexImage& picture) { return picture.apply({.lut = *table}); },
                         "the table cannot be applied");
}

Image fill(const Image& image, const Color& color) {
    const pex::PexColor with = colorOf(color);
    return image.changed(
        [&](PexImage& picture) {
            const auto result = picture.fill(with);
            return result.get() == &picture ? nullptr : result;
        },
        "cannot be filled");
}

AlphaColor averageColor(const Image& image) {
    (void)image.bitmap();
    return tupleOf(pex::PexImageHelper::getAverageColorOfImage(image.picture()));
}

std::vector<std::vector<AlphaColor>> colorGrid(const Image& image, int columns, int rows) {
    if (columns < 1 || rows < 1 || columns > 4096 || rows > 4096) failArgument("a grid has 1 to 4096 a side");
    const auto colors = pex::PexImageHelper::getColorList(
        {.ofImage = *image.picture(),
         .reduceToSize = {static_cast<double>(columns), static_cast<double>(rows)}});
    if (colors.empty()) fail("cannot be reduced to such a grid");
    std::vector<std::vector<AlphaColor>> grid(static_cast<std::size_t>(rows));
    for (std::size_t i = 0; i < colors.size(); ++i)
        grid[i / static_cast<std::size_t>(columns)].push_back(tupleOf(colors[i]));
    return grid;
}

void addColors(ImageClass& image) {
    image.def("average_color", interruptible(&averageColor),
              "(red, green, blue, alpha) of the picture's average colour, 0 to 255, alpha multiplied in.");
    image.def("color_grid", interruptible(&colorGrid), "columns"_a, "rows"_a,
              "The picture reduced to so many pixels: rows of (red, green, blue, alpha), 0 to 255, alpha\n"
              "multiplied in.");
}

} // namespace

void addPixelWork(nb::module_&, ImageClass& image) {
    image.def("watermark", interruptible(&watermark), "mark"_a, nb::kw_only(), "position"_a = "Bottom Right",
              "policy"_a = "Original Size", "scale"_a = 1.0, "max_scale"_a = 1.0, "opacity"_a = 1.0,
              "Another picture laid over this one at one of nine positions. \"Largest Side Scale\" makes it\n"
              "`scale` of the side that limits it; \"Original Size\" keeps its size, at most `max_scale` of "
              "a side.");
    image.def(
        "key", interruptible(&key), "color"_a, "tolerance"_a = 0.0,
        "Pixels of a colour (red, green, blue), 0 to 255, become transparent; the tolerance is a distance\n"
        "in the same units.");
    image.def("mask", interruptible(&mask), "by"_a, "channel"_a = "luminance",
              "Opacity taken from another picture, stretched to this one: its brightness or its \"alpha\".");
    image.def("convolve", interruptible(&convolve), "kernel"_a,
              "Convolved with nine weights, row by row from the top, divided by 3; the result is opaque.");
    image.def("sharpen", interruptible(&sharpen), "sharpness"_a, "Luma sharpened; 0.4 is usual.");
    image.def("exposure", interruptible(&exposure), "stops"_a, "Brighter by so many stops, in linear light.");
    image.def("apply_lut", interruptible(&applyLut), "path"_a,
              "Colours looked up in a table: a picture of n x n^2 pixels, or a text of the .cube format.");
    image.def("fill", interruptible(&fill), "color"_a,
              "Every pixel in one colour (red, green, blue), 0 to 255; opacity stays.");
    addColors(image);
}

} // namespace pexpy
