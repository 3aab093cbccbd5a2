#include "peximage/platform/raster/kernels/ConvertRow.h"

#include "peximage/platform/raster/kernels/FlattenRow.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace pex::kernels {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array layouts = {
    PixelLayout::premultipliedLast,
    PixelLayout::premultipliedFirst,
    PixelLayout::straightLast,
    PixelLayout::straightFirst,
    PixelLayout::skipLast,
    PixelLayout::skipFirst,
    PixelLayout::grey,
};

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

} // namespace
} // namespace pex::kernels
