#include "peximage/image/PexImage.h"
#include "peximage/platform/geometry/Numbers.h"

#include <algorithm>
#include <cmath>

namespace pex {
namespace {

/// About how many tiles lie along a side; 1 if that is not a number.
double tilesAlong(double length, double tile, double border) {
    const double count = std::ceil((length - tile) / (tile - 2 * border)) + 1;
    return count > 1 ? count : 1;
}

/// The length of a tile along a side: the bound itself or, if the bound is a maximum, an equal share of the
/// side.
double boundedSide(double side, const std::optional<Length>& bound, bool isMaximum) {
    if (!bound) return side;
    if (!isMaximum || !(bound->value > 0)) return bound->value;
    const double parts = side / bound->value;
    return divided(side, toInt(isInt(parts) ? parts : parts + 1));
}

/// Tiles have to advance. An image of no size has one tile of no size.
bool isUsable(double tile, double side, double border) {
    return (tile > 0 && tile > 2 * border) || (tile == 0 && side == 0 && !(border > 0));
}

double valueOr(const std::optional<Length>& length, double fallback) {
    return length ? length->value : fallback;
}

} // namespace

PexImage::Tiles PexImage::tilesOf(CGSize tile, double border) const {
    if (!isUsable(tile.width, size.width, border) || !isUsable(tile.height, size.height, border)) return {};
    if (!(tilesAlong(size.width, tile.width, border) * tilesAlong(size.height, tile.height, border) <=
          mostTiles))
        return {};
    // Tiles may be larger than the image, up to infinity; they are cut to it anyway.
    const double width = std::min(tile.width, std::max(size.width, 1.0));
    const double height = std::min(tile.height, std::max(size.height, 1.0));
    Tiles tiles;
    for (double row = 0, y = 0;; ++row) {
        y = row * height - 2 * row * border;
        std::vector<std::shared_ptr<PexImage>> line;
        for (double column = 0, x = 0;; ++column) {
            x = column * width - 2 * column * border;
            if (const auto cut = cropToCGImnage({x, y, width, height})) line.push_back(make(*cut));
            if (!(x + width < size.width)) break;
        }
        tiles.push_back(std::move(line));
        if (!(y + height < size.height)) return tiles;
    }
}

PexImage::Tiles PexImage::split(const ToTileSize& tile) const {
    return tilesOf(tile.to, tile.tileBorder.value);
}

PexImage::Tiles PexImage::split(const ToTileSides& tile) const {
    return tilesOf({valueOr(tile.toWidth, size.width), valueOr(tile.height, size.height)},
                   tile.tileBorder.value);
}

PexImage::Tiles PexImage::split(const RowsAndColumns& counts) const {
    if (counts.rows.value_or(1) < 1 || counts.columns.value_or(1) < 1) return {};
    return tilesOf({counts.rows ? divided(size.width, *counts.rows) : size.width,
                    counts.columns ? divided(size.height, *counts.columns) : size.height},
                   0);
}

PexImage::Tiles PexImage::boundedSplit(const BoundedSplit& bounds) const {
    return tilesOf({boundedSide(size.width, bounds.toWidth, bounds.maxWidth),
                    boundedSide(size.height, bounds.height, bounds.maxHeight)},
                   0);
}

} // namespace pex
