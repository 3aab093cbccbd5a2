#include "Bindings.h"
#include "Failure.h"
#include "Running.h"

#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>
#include <tuple>
#include <utility>
#include <vector>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

using pex::PexImage;
using Sides = std::pair<double, double>;
using Tiles = std::vector<std::vector<Image>>;

/// The ways to say a new size; one of them is given.
struct Sizing {
    std::optional<double> maxSide, minSide, width, height;
    std::optional<Sides> size, fit, fill;

    int given() const {
        return int(maxSide.has_value()) + int(minSide.has_value()) + int(width.has_value()) +
               int(height.has_value()) + int(size.has_value()) + int(fit.has_value()) + int(fill.has_value());
    }
};

Image::Picture resized(PexImage& picture, const Sizing& to) {
    const auto unlessItself = [&](Image::Picture result) { // what the library says by the receiver itself
        return result.get() == &picture ? nullptr : result;
    };
    if (to.maxSide) return picture.resize({.withMaxSide = *to.maxSide});
    if (to.minSide) return picture.resize({.withMinSideBoundedTo = *to.minSide});
    if (to.width) return unlessItself(picture.resize({.toWidth = *to.width}));
    if (to.height) return unlessItself(picture.resize({.toHeight = *to.height}));
    if (to.fit) return picture.resizeWithFit({to.fit->first, to.fit->second});
    if (to.fill) return picture.resizeWithFill({to.fill->first, to.fill->second});
    return picture.resize({.to = {to.size->first, to.size->second}});
}

void checkSide(std::optional<double> side) {
    if (side && !(*side > 0 && *side <= 1e9)) failArgument("a side is a positive number of pixels");
}

Image resize(const Image& image, std::optional<double> maxSide, std::optional<Sides> size,
             std::optional<double> width, std::optional<double> height, std::optional<double> minSide,
             std::optional<Sides> fit, std::optional<Sides> fill) {
    const Sizing to{maxSide, minSide, width, height, size, fit, fill};
    for (const auto& side : {maxSide, minSide, width, height})
        checkSide(side);
    for (const auto& sides : {size, fit, fill})
        if (sides) checkSide(sides->first), checkSide(sides->second);
    if (to.given() != 1) failArgument("give one of max_side, min_side, width, height, size, fit and fill");
    return image.changed([&](PexImage& picture) { return resized(picture, to); }, "cannot be resized so");
}

/// The pixels are not touched: a cut picture shows when those of the part are.
Image crop(const Image& image, std::tuple<double, double, double, double> box) {
    const auto [left, top, right, bottom] = box;
    const Image::Picture part =
        image.picture()->crop({.to = pex::CGRect{{left, top}, {right - left, bottom - top}}});
    if (!part) failArgument("nothing of the picture lies in the box");
    return image.derived(part);
}

Image turn(const Image& image, int degrees) {
    using enum PexImage::RotationDirection;
    if (degrees % 90 != 0) failArgument("turn takes multiples of 90; rotate takes any angle");
    const int quarters = ((degrees / 90) % 4 + 4) % 4;
    if (quarters == 0) return image;
    const auto direction = quarters == 2 ? r180 : quarters == 1 ? r90AntiClockWise : r90Clockwhise;
    return image.changed([&](PexImage& picture) { return picture.rotate(direction); }, "cannot be turned");
}

Image rotate(const Image& image, double degrees) {
    return image.changed(
        [&](PexImage& picture) {
            const auto result = picture.rotate({.degrees = -degrees});
            return result.get() == &picture ? nullptr : result;
        },
        "cannot be rotated");
}

Image straighten(const Image& image, double degrees) {
    return image.changed([&](PexImage& picture) { return picture.rotateAndZoom(-degrees); },
                         "cannot be straightened");
}

Tiles tilesOf(const Image& whole, const PexImage::Tiles& tiles) {
    if (tiles.empty()) failArgument("the picture cannot be cut into such tiles");
    Tiles images;
    for (const auto& row : tiles) {
        images.emplace_back();
        for (const auto& tile : row)
            images.back().push_back(whole.derived(tile));
    }
    return images;
}

/// The library's rows divide the width; here they are what the word says.
Tiles split(const Image& image, std::optional<int> rows, std::optional<int> columns,
            std::optional<Sides> tile, double border) {
    if (tile.has_value() == (rows || columns)) failArgument("give rows and columns, or tile");
    const Image::Picture picture = image.picture();
    if (tile)
        return tilesOf(image, picture->split({.to = {tile->first, tile->second}, .tileBorder = border}));
    return tilesOf(image, picture->split({.rows = columns, .columns = rows}));
}

Image join(const Image& image, const Image& other, bool vertical, const std::string& scale) {
    if (scale != "min" && scale != "max") failArgument("scale is \"min\" or \"max\"");
    const Image::Picture second = other.picture();
    return image.changed(
        [&](PexImage& picture) {
            return PexImage::join(
                picture.shared_from_this(),
                {.with = second,
                 .orientation =
                     vertical ? PexImage::JoinOrientation::vertical : PexImage::JoinOrientation::horizontal,
                 .scaleMode = scale == "min" ? PexImage::ScaleMode::min : PexImage::ScaleMode::max});
        },
        "cannot be joined");
}

} // namespace

void addGeometry(ImageClass& image) {
    image.def("resize", interruptible(&resize), nb::kw_only(), "max_side"_a = nb::none(),
              "size"_a = nb::none(), "width"_a = nb::none(), "height"_a = nb::none(),
              "min_side"_a = nb::none(), "fit"_a = nb::none(), "fill"_a = nb::none(),
              "The picture resampled by an antialiased Lanczos filter; give one of:\n\n"
              "- max_side, min_side: the longer (shorter) side at most so many pixels, never enlarged\n"
              "- width, height: the other side follows\n"
              "- size: (width, height), stretched\n"
              "- fit: inside a box (width, height), centred on transparent margins\n"
              "- fill: covering a box (width, height), centred, the rest cut");
    image.def("crop", &crop, "box"_a, Unlocked(),
              "The part inside (left, top, right, bottom) in pixels, made whole outward and clipped to the\n"
              "picture. The pixels are shared, not copied.");
    image.def("turn", interruptible(&turn), "degrees"_a,
              "Turned clockwise by a multiple of 90 degrees, without loss.");
    image.def("rotate", interruptible(&rotate), "degrees"_a,
              "Turned clockwise by any angle, on a canvas that grows, with transparent corners.");
    image.def("straighten", interruptible(&straighten), "degrees"_a,
              "Turned clockwise and enlarged just so far that no corner is empty; the size stays.");
    image.def(
        "split", &split, nb::kw_only(), "rows"_a = nb::none(), "columns"_a = nb::none(),
        "tile"_a = nb::none(), "border"_a = 0.0, Unlocked(),
        "Rows of tiles: so many rows and columns, or tiles of (width, height) pixels that overlap their\n"
        "neighbours by twice the border. The pixels are shared, not copied.");
    image.def("join", interruptible(&join), "other"_a, nb::kw_only(), "vertical"_a = false, "scale"_a = "min",
              "This picture and another to its right (below it where vertical); the touching sides are made\n"
              "equal by reducing the larger (\"min\") or enlarging the smaller (\"max\").");
}

} // namespace pexpy
