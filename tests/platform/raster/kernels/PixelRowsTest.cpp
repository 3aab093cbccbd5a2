#include "peximage/platform/raster/kernels/BlendRow.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/raster/kernels/FlattenRow.h"
#include "peximage/platform/raster/kernels/OrientRows.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace pex::kernels {
namespace {

/// x / 255, rounded.
int part(int x) { return static_cast<int>(std::floor(x / 255.0 + 0.5)); }

/// Colour counts as no more than alpha.
int seen(const Bytes& from, std::size_t i) { return std::min(from[i], from[i / 4 * 4 + 3]); }

Bytes over(const Bytes& from, Bytes to, int opacity) {
    for (std::size_t i = 0; i < to.size(); ++i) {
        const int alpha = part(from[i / 4 * 4 + 3] * opacity);
        const int sum = part(seen(from, i) * opacity) + part(to[i] * (255 - alpha));
        to[i] = static_cast<std::uint8_t>(std::min(sum, 255));
    }
    return to;
}

Bytes faded(const Bytes& from, int opacity) {
    Bytes to;
    for (std::size_t i = 0; i < from.size(); ++i)
        to.push_back(static_cast<std::uint8_t>(part(seen(from, i) * opacity)));
    return to;
}

TEST(BlendRow, EveryAlphaAtEveryOpacity) {
    // All pairs of a source's and a target's byte, the source's alpha running along.
    const int pixels = 65536;
    Bytes from, to;
    for (int i = 0; i < pixels; ++i) {
        const auto low = std::uint8_t(i), high = std::uint8_t(i >> 8);
        from.insert(from.end(), {low, std::uint8_t(255 - low), high, high});
        to.insert(to.end(), {high, low, std::uint8_t(low ^ high), low});
    }
    for (const int opacity : {0, 1, 77, 128, 254, 255}) {
        SCOPED_TRACE(opacity);
        const Bytes wantedOver = over(from, to, opacity), wantedCopy = faded(from, opacity);
        onEveryInstructionSet([&] {
            Bytes result = to;
            blendRowOver(from.data(), result.data(), pixels, opacity);
            EXPECT_EQ(result, wantedOver);
            blendRowCopy(from.data(), result.data(), pixels, opacity);
            EXPECT_EQ(result, wantedCopy);
        });
    }
}

TEST(BlendRow, AnyLengthAndNothingBeyond) {
    const Bytes from = randomBytes(4 * 70, 1), to = randomBytes(4 * 70, 2);
    onEveryInstructionSet([&] {
        for (int pixels = 0; pixels < 70; ++pixels) {
            for (const int opacity : {100, 255}) {
                Bytes wanted = to, result = to;
                const Bytes part = over({from.begin(), from.begin() + 4 * pixels},
                                        {to.begin(), to.begin() + 4 * pixels}, opacity);
                std::ranges::copy(part, wanted.begin());
                blendRowOver(from.data(), result.data(), pixels, opacity);
                EXPECT_EQ(result, wanted) << pixels;
                std::ranges::copy(faded({from.begin(), from.begin() + 4 * pixels}, opacity), wanted.begin());
                blendRowCopy(from.data(), result.data(), pixels, opacity);
                EXPECT_EQ(result, wanted) << pixels;
            }
        }
    });
}

using enum PixelLayout;
constexpr std::array layouts = {premultipliedLast, premultipliedFirst, straightLast, straightFirst,
                                skipLast,          skipFirst,          grey};

enum class Alpha { premultiplied, straight, none };

Alpha alphaOf(PixelLayout layout) {
    if (!hasAlpha(layout)) return Alpha::none;
    const bool straight = layout == PixelLayout::straightLast || layout == PixelLayout::straightFirst;
    return straight ? Alpha::straight : Alpha::premultiplied;
}

/// Every pair of a component value and an alpha, 65,536 pixels; the other components vary along.
Bytes everyPair(PixelLayout layout) {
    Bytes bytes;
    for (int a = 0; a < 256; ++a) {
        for (int c = 0; c < 256; ++c) {
            const auto v = static_cast<std::uint8_t>(c), other = static_cast<std::uint8_t>(c * 7 + a);
            const auto alpha = static_cast<std::uint8_t>(a);
            if (layout == PixelLayout::grey)
                bytes.push_back(v);
            else if (isAlphaFirst(layout))
                bytes.insert(bytes.end(), {alpha, v, other, static_cast<std::uint8_t>(255 - c)});
            else
                bytes.insert(bytes.end(), {v, other, static_cast<std::uint8_t>(255 - c), alpha});
        }
    }
    return bytes;
}

struct Real {
    std::array<double, 3> colour;
    double alpha;
};

Real realPixel(const std::uint8_t* p, PixelLayout layout) {
    if (layout == PixelLayout::grey) return {{double(p[0]), double(p[0]), double(p[0])}, 255};
    const int first = isAlphaFirst(layout) ? 1 : 0;
    const double alpha = hasAlpha(layout) ? p[first ? 0 : 3] : 255;
    return {{double(p[first]), double(p[first + 1]), double(p[first + 2])}, alpha};
}

std::uint8_t rounded(double value) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
}

Bytes expected(const Bytes& from, PixelLayout fromLayout, PixelLayout toLayout) {
    Bytes to;
    for (std::size_t at = 0; at < from.size(); at += bytesPerPixel(fromLayout)) {
        Real p = realPixel(&from[at], fromLayout);
        for (double& c : p.colour) {
            if (alphaOf(fromLayout) == Alpha::straight && alphaOf(toLayout) == Alpha::premultiplied)
                c = c * p.alpha / 255;
            if (alphaOf(fromLayout) == Alpha::premultiplied && alphaOf(toLayout) == Alpha::straight)
                c = p.alpha == 0 ? 0 : c * 255 / p.alpha;
            if (alphaOf(fromLayout) == Alpha::premultiplied && alphaOf(toLayout) == Alpha::premultiplied)
                c = std::min(c, p.alpha);
        }
        if (!hasAlpha(toLayout)) p.alpha = 255;
        if (toLayout == PixelLayout::grey) {
            to.push_back(rounded(0.299 * p.colour[0] + 0.587 * p.colour[1] + 0.114 * p.colour[2]));
            continue;
        }
        if (isAlphaFirst(toLayout)) to.push_back(rounded(p.alpha));
        for (const double c : p.colour)
            to.push_back(rounded(c));
        if (!isAlphaFirst(toLayout)) to.push_back(rounded(p.alpha));
    }
    return to;
}

int largestDifference(const Bytes& a, const Bytes& b) {
    int largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        largest = std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

TEST(ConvertRow, EveryPairOfLayoutsIsExact) {
    for (const PixelLayout from : layouts) {
        const Bytes source = everyPair(from);
        for (const PixelLayout to : layouts) {
            SCOPED_TRACE(std::to_string(int(from)) + " to " + std::to_string(int(to)));
            const Bytes wanted = expected(source, from, to);
            // Luma in 15-bit weights may round a near half the other way; all else is exact.
            const int tolerance = to == PixelLayout::grey && from != PixelLayout::grey ? 1 : 0;
            Bytes plain;
            onEveryInstructionSet([&] {
                Bytes result(wanted.size());
                convertRow(source.data(), from, result.data(), to, 65536);
                EXPECT_LE(largestDifference(result, wanted), tolerance);
                if (plain.empty()) plain = result;
                EXPECT_EQ(result, plain);
            });
        }
    }
}

TEST(ConvertRow, AnyLengthInPlaceAndNothingBeyond) {
    const Bytes source = everyPair(PixelLayout::straightFirst);
    onEveryInstructionSet([&] {
        for (int pixels = 0; pixels < 70; ++pixels) {
            Bytes row(source.end() - 4 * 70, source.end());
            Bytes wanted = row;
            const Bytes part(row.begin(), row.begin() + 4 * pixels);
            std::ranges::copy(expected(part, PixelLayout::straightFirst, PixelLayout::premultipliedLast),
                              wanted.begin());
            convertRow(row.data(), PixelLayout::straightFirst, row.data(), PixelLayout::premultipliedLast,
                       pixels);
            EXPECT_EQ(row, wanted) << pixels;
        }
    });
}

TEST(ConvertRow, GreysStayGrey) {
    onEveryInstructionSet([] {
        for (int v = 0; v < 256; ++v) {
            const auto byte = static_cast<std::uint8_t>(v);
            const std::uint8_t rgba[] = {byte, byte, byte, 7};
            std::uint8_t grey = 0;
            convertRow(rgba, PixelLayout::skipLast, &grey, PixelLayout::grey, 1);
            EXPECT_EQ(grey, v);
        }
    });
}

TEST(FlattenRow, LaysEveryLayoutOverWhite) {
    for (const PixelLayout layout : layouts) {
        SCOPED_TRACE(int(layout));
        const Bytes source = everyPair(layout);
        Bytes wanted;
        for (std::size_t at = 0; at < source.size(); at += bytesPerPixel(layout)) {
            const Real p = realPixel(&source[at], layout);
            const double factor = alphaOf(layout) == Alpha::straight ? p.alpha / 255 : 1;
            for (const double c : p.colour)
                wanted.push_back(rounded(c * factor + 255 - p.alpha));
            wanted.push_back(255);
        }
        onEveryInstructionSet([&] {
            Bytes result(wanted.size());
            flattenRow(source.data(), layout, result.data(), 65536);
            EXPECT_EQ(result, wanted);
        });
    }
}

struct Place {
    int x, y;
};

/// Where the stored pixel (x, y) of a w by h picture shows in the upright one.
Place uprightPlace(int exif, int x, int y, int w, int h) {
    const std::array<Place, 8> places = {{{x, y},
                                          {w - 1 - x, y},
                                          {w - 1 - x, h - 1 - y},
                                          {x, h - 1 - y},
                                          {y, x},
                                          {h - 1 - y, x},
                                          {h - 1 - y, w - 1 - x},
                                          {y, w - 1 - x}}};
    return places[exif - 1];
}

struct Case {
    int width, height, strip;
    PixelLayout layout;
};

void checkCase(const Case& c, int exif) {
    const int bytes = bytesPerPixel(c.layout);
    const auto orientation = *orientationFromExif(exif);
    const Bytes stored = randomBytes(std::size_t(c.width) * c.height * bytes, exif);
    const int width = swapsSides(orientation) ? c.height : c.width;
    const int height = swapsSides(orientation) ? c.width : c.height;
    const std::ptrdiff_t stride = width * bytes + 5;
    Bytes wanted(stride * height, 99), result = wanted;
    for (int y = 0; y < c.height; ++y) {
        for (int x = 0; x < c.width; ++x) {
            const Place to = uprightPlace(exif, x, y, c.width, c.height);
            std::memcpy(&wanted[to.y * stride + to.x * bytes], &stored[(y * c.width + x) * bytes], bytes);
        }
    }
    const PixelView all{stored.data(), c.width, c.height, c.width * bytes, c.layout};
    const MutablePixelView upright{result.data(), width, height, stride, c.layout};
    for (int y = 0; y < c.height; y += c.strip) {
        const int rows = std::min(c.strip, c.height - y);
        orientRows(all.part(0, y, c.width, rows), y, orientation, upright);
    }
    EXPECT_EQ(result, wanted);
}

TEST(OrientRows, PlacesEveryPixelWhateverTheStrips) {
    const auto colour = PixelLayout::straightFirst;
    const Case cases[] = {
        {1, 1, 1, colour},
        {37, 23, 8, colour},
        {64, 96, 16, colour},
        {131, 70, 70, colour},
        {3, 200, 33, colour},
        {200, 1, 1, colour},
        {71, 300, 300, colour},
        {64, 256, 128, colour},
        {1030, 1050, 1050, colour}, // more than what goes through the caches
        {45, 83, 16, PixelLayout::grey},
        {130, 67, 67, PixelLayout::grey},
    };
    onEveryInstructionSet([&] {
        for (const Case& c : cases) {
            for (int exif = 1; exif <= 8; ++exif) {
                SCOPED_TRACE(std::to_string(c.width) + " x " + std::to_string(c.height) + ", orientation " +
                             std::to_string(exif));
                checkCase(c, exif);
            }
        }
    });
}

TEST(Orientation, OnlyTheEightExifValues) {
    for (const int value : {-1, 0, 9, 256})
        EXPECT_FALSE(orientationFromExif(value)) << value;
}

} // namespace
} // namespace pex::kernels
