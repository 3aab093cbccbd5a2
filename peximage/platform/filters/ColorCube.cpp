#include "peximage/platform/filters/ColorCube.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/kernels/ColorRow.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <algorithm>
#include <cmath>

namespace pex {
namespace {

using Color = ColorCube::Color;

std::size_t cubed(int side) {
    const auto n = static_cast<std::size_t>(side);
    return n * n * n;
}

/// A place between entries at equal steps of a channel's domain.
struct Place {
    double below; // the entry below, never the last one
    double along; // how far towards the next one

    static Place of(double value, std::size_t channel, const ColorCube::Domain& domain, std::size_t entries) {
        const double least = domain.least[channel], most = domain.most[channel];
        const double steps = static_cast<double>(entries) - 1;
        const double at = std::clamp((value - least) / (most - least), 0.0, 1.0) * steps;
        const double below = std::min(std::floor(at), steps - 1);
        return {below, at - below};
    }
};

double bent(double value, std::size_t channel, const ColorCube::Curves& curves) {
    if (curves.entries.empty()) return value;
    const Place place = Place::of(value, channel, curves.domain, curves.entries.size());
    const auto entry = static_cast<std::size_t>(place.below);
    return std::lerp(curves.entries[entry][channel], curves.entries[entry + 1][channel], place.along);
}

/// For each byte the entry below it and, in 16384ths, how far it lies towards the next one.
std::array<std::uint32_t, 256> axis(int side, std::size_t channel, const ColorCube::Domain& domain,
                                    const ColorCube::Curves& curves) {
    std::array<std::uint32_t, 256> places{};
    for (std::size_t byte = 0; byte < places.size(); ++byte) {
        const double value = bent(static_cast<double>(byte) / 255, channel, curves);
        const Place place = Place::of(value, channel, domain, static_cast<std::size_t>(side));
        const auto along = static_cast<std::uint32_t>(std::lround(place.along * 16384));
        places[byte] = static_cast<std::uint32_t>(place.below) << 16 | along;
    }
    return places;
}

bool isUsable(const ColorCube::Domain& domain) {
    for (std::size_t c = 0; c < 3; ++c) {
        const double width = domain.most[c] - domain.least[c];
        if (!(width > 0) || !std::isfinite(width)) return false;
    }
    return true;
}

bool areUsable(const ColorCube::Curves& curves) {
    const std::size_t count = curves.entries.size();
    const auto isFinite = [](const Color& entry) {
        return std::ranges::all_of(entry, [](double channel) { return std::isfinite(channel); });
    };
    return count == 0 || (count >= 2 && count <= ColorCube::mostCurveEntries && isUsable(curves.domain) &&
                          std::ranges::all_of(curves.entries, isFinite));
}

/// Entries along a side of a square picture of this side, or 0.
int sideOfSquare(int pixels) {
    const int root = static_cast<int>(std::lround(std::cbrt(pixels)));
    return root * root * root == pixels ? root * root : 0;
}

bool isSide(int side) { return side >= ColorCube::smallestSide && side <= ColorCube::largestSide; }

/// The pixels of the picture in reading order.
std::vector<Color> colours(const PixelView& pixels) {
    std::vector<Color> all;
    all.reserve(static_cast<std::size_t>(pixels.width) * static_cast<std::size_t>(pixels.height));
    std::vector<std::uint8_t> row(static_cast<std::size_t>(pixels.width) * 4);
    for (int y = 0; y < pixels.height; ++y) {
        kernels::convertRow(pixels.row(y), pixels.layout, row.data(), PixelLayout::straightLast,
                            pixels.width);
        for (std::size_t i = 0; i < row.size(); i += 4)
            all.push_back({row[i] / 255.0, row[i + 1] / 255.0, row[i + 2] / 255.0});
    }
    return all;
}

/// Squares that lie side by side, one after the other.
std::vector<Color> untangled(const std::vector<Color>& strip, int side) {
    const auto n = static_cast<std::size_t>(side);
    std::vector<Color> entries;
    entries.reserve(strip.size());
    for (std::size_t blue = 0; blue < n; ++blue) {
        for (std::size_t green = 0; green < n; ++green) {
            const auto row = strip.begin() + static_cast<std::ptrdiff_t>((green * n + blue) * n);
            entries.insert(entries.end(), row, row + side);
        }
    }
    return entries;
}

} // namespace

ColorCube::ColorCube() : tables_(std::make_shared<kernels::CubeTables>()) {}

std::shared_ptr<const ColorCube> ColorCube::make(int side, const std::vector<Color>& entries,
                                                 const Domain& domain, const Curves& curves) {
    if (!isSide(side) || entries.size() != cubed(side) || !isUsable(domain) || !areUsable(curves))
        return nullptr;
    std::shared_ptr<ColorCube> cube(new ColorCube);
    cube->entries_.reserve((entries.size() + 1) * 4);
    for (const Color& entry : entries) {
        for (const double channel : entry) {
            if (!std::isfinite(channel)) return nullptr;
            const double limited = std::clamp(channel, 0.0, 1.0);
            cube->entries_.push_back(static_cast<std::int16_t>(std::lround(limited * 255 * 128)));
        }
        cube->entries_.push_back(0);
    }
    cube->entries_.resize(cube->entries_.size() + 4);
    cube->tables_->entries = cube->entries_.data();
    cube->tables_->side = static_cast<std::uint32_t>(side);
    for (std::size_t c = 0; c < 3; ++c)
        cube->tables_->axes[c] = axis(side, c, domain, curves);
    return cube;
}

std::shared_ptr<const ColorCube> ColorCube::make(const Curves& curves) {
    std::vector<Color> corners; // a cube that changes nothing
    for (int corner = 0; corner < 8; ++corner)
        corners.push_back({corner % 2 * 1.0, corner / 2 % 2 * 1.0, corner / 4 * 1.0});
    return curves.entries.empty() ? nullptr : make(2, corners, Domain{}, curves);
}

std::shared_ptr<const ColorCube> ColorCube::fromPicture(const CGImage& picture) {
    const std::int64_t width = picture.width(), height = picture.height();
    const bool isColumn = height == width * width, isStrip = width == height * height;
    const int side = isColumn          ? picture.width()
                     : isStrip         ? picture.height()
                     : width == height ? sideOfSquare(picture.width())
                                       : 0;
    if (!isSide(side)) return nullptr; // before the pixels are decoded
    const std::optional<PixelView> pixels = picture.pixels();
    if (!pixels || picture.isIncomplete()) return nullptr;
    const std::vector<Color> read = colours(*pixels);
    return make(side, isStrip ? untangled(read, side) : read);
}

std::shared_ptr<const ColorCube> ColorCube::fromBytes(const Data& file) {
    return absentWithoutMemory([&]() -> std::shared_ptr<const ColorCube> {
        const auto source = CGImageSource::make(file);
        if (!source) return fromText(file.text());
        const std::optional<CGImage> picture = source->createImage();
        return picture ? fromPicture(*picture) : nullptr;
    });
}

} // namespace pex
