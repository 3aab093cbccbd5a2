#include "peximage/platform/raster/Resampler.h"

#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/ResamplerStream.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace pex {
namespace {

using kernels::onEveryInstructionSet;

/// A picture with its own memory; rows lie a little apart, and what is between them must stay as it is.
struct Picture {
    Picture(int width, int height, PixelLayout layout)
        : width(width),
          height(height),
          layout(layout),
          stride(width * bytesPerPixel(layout) + 3),
          bytes(std::size_t(stride) * height, 77) {}

    PixelView view() const { return {bytes.data(), width, height, stride, layout}; }
    MutablePixelView view() { return {bytes.data(), width, height, stride, layout}; }

    int width, height;
    PixelLayout layout;
    std::ptrdiff_t stride;
    std::vector<std::uint8_t> bytes;
};

enum class Content { noise, extremes, smooth };

/// Extremes are runs of 0 and 255, which make the filter overshoot most.
Picture makePicture(int width, int height, PixelLayout layout, Content content, unsigned seed) {
    Picture picture(width, height, layout);
    std::mt19937 random(seed);
    const int channels = bytesPerPixel(layout);
    const int alphaAt = isAlphaFirst(layout) ? 0 : 3;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* pixel = picture.view().row(y) + std::ptrdiff_t{x} * channels;
            for (int c = 0; c < channels; ++c) {
                const int value = content == Content::noise      ? int(random() % 256)
                                  : content == Content::extremes ? (random() % 4 == 0 ? 255 : 0)
                                                                 : (x + 2 * y + 40 * c) % 256;
                pixel[c] = static_cast<std::uint8_t>(value);
            }
            for (int c = 0; hasAlpha(layout) && c < channels; ++c)
                pixel[c] = std::min(pixel[c], pixel[alphaAt]);
        }
    }
    return picture;
}

double lanczos(double x) {
    if (x == 0) return 1;
    if (std::abs(x) >= 3) return 0;
    const double a = std::numbers::pi * x;
    return 3 * std::sin(a) * std::sin(a / 3) / (a * a);
}

struct Taps {
    int first;
    std::vector<double> weights;
};

/// The filter's definition, tap by tap.
Taps tapsOf(int i, int from, int to) {
    const double scale = double(from) / to, stretch = std::max(1.0, scale);
    const double centre = (i + 0.5) * scale;
    Taps taps{std::max(0, int(centre - 3 * stretch) - 1), {}};
    const int end = std::min(from, int(centre + 3 * stretch) + 2);
    double sum = 0;
    for (int j = taps.first; j < end; ++j)
        sum += taps.weights.emplace_back(lanczos((j + 0.5 - centre) / stretch));
    for (double& weight : taps.weights)
        weight /= sum;
    return taps;
}

/// The result in double precision, one value for each channel of each pixel.
std::vector<double> reference(const Picture& from, int width, int height) {
    const int channels = bytesPerPixel(from.layout);
    std::vector<double> tall(std::size_t(width) * from.height * channels);
    for (int x = 0; x < width; ++x) {
        const Taps taps = tapsOf(x, from.width, width);
        for (int y = 0; y < from.height; ++y) {
            for (int c = 0; c < channels; ++c) {
                double sum = 0;
                for (std::size_t k = 0; k < taps.weights.size(); ++k)
                    sum += taps.weights[k] * from.view().row(y)[(taps.first + k) * channels + c];
                tall[(std::size_t(y) * width + x) * channels + c] = sum;
            }
        }
    }
    std::vector<double> result(std::size_t(width) * height * channels);
    const std::size_t row = std::size_t(width) * channels;
    for (int y = 0; y < height; ++y) {
        const Taps taps = tapsOf(y, from.height, height);
        for (std::size_t k = 0; k < taps.weights.size(); ++k) {
            for (std::size_t at = 0; at < row; ++at)
                result[y * row + at] += taps.weights[k] * tall[(taps.first + k) * row + at];
        }
    }
    for (std::size_t at = 0; at < result.size(); at += channels) {
        const int alphaAt = isAlphaFirst(from.layout) ? 0 : 3;
        for (int c = 0; c < channels; ++c)
            result[at + c] = std::clamp(result[at + c], 0.0, 255.0);
        if (channels == 4 && !hasAlpha(from.layout)) result[at + alphaAt] = 255;
        for (int c = 0; c < channels; ++c)
            result[at + c] = channels == 4 ? std::min(result[at + c], result[at + alphaAt]) : result[at + c];
    }
    return result;
}

double largestError(const Picture& result, const std::vector<double>& wanted) {
    double largest = 0;
    const int row = result.width * bytesPerPixel(result.layout);
    for (int y = 0; y < result.height; ++y) {
        for (int at = 0; at < row; ++at)
            largest =
                std::max(largest, std::abs(result.view().row(y)[at] - wanted[std::size_t(y) * row + at]));
    }
    return largest;
}

Picture resampled(const Picture& from, int width, int height) {
    Picture to(width, height, from.layout);
    const auto resampler = Resampler::make(from.width, from.height, width, height, from.layout);
    EXPECT_TRUE(resampler && resampler->resample(from.view(), to.view()));
    return to;
}

Picture streamed(const Picture& from, int width, int height, unsigned seed) {
    Picture to(width, height, from.layout);
    const auto resampler = Resampler::make(from.width, from.height, width, height, from.layout);
    auto stream = ResamplerStream::make(*resampler, to.view());
    std::mt19937 random(seed);
    for (int y = 0; stream->rowsLeft() > 0;) {
        const MutablePixelView room = stream->room();
        const int rows = 1 + int(random() % room.height);
        for (int r = 0; r < rows; ++r)
            std::copy_n(from.view().row(y++), from.width * bytesPerPixel(from.layout), room.row(r));
        EXPECT_TRUE(stream->commit(rows));
    }
    EXPECT_EQ(stream->rowsDone(), height);
    return to;
}

struct Case {
    int fromWidth, fromHeight, toWidth, toHeight;
};

std::string nameOf(const Case& c) {
    return std::to_string(c.fromWidth) + "x" + std::to_string(c.fromHeight) + " to " +
           std::to_string(c.toWidth) + "x" + std::to_string(c.toHeight);
}

/// Compares one picture with the reference, and every other way to make it with the plain code's bytes.
void checkCase(const Case& c, PixelLayout layout, Content content, unsigned seed) {
    SCOPED_TRACE(nameOf(c) + ", layout " + std::to_string(int(layout)));
    const Picture from = makePicture(c.fromWidth, c.fromHeight, layout, content, seed);
    const auto wanted = reference(from, c.toWidth, c.toHeight);
    std::vector<std::uint8_t> plain;
    onEveryInstructionSet([&] {
        const Picture to = resampled(from, c.toWidth, c.toHeight);
        EXPECT_LE(largestError(to, wanted), 0.55);
        if (plain.empty()) plain = to.bytes;
        EXPECT_EQ(to.bytes, plain);
        EXPECT_EQ(streamed(from, c.toWidth, c.toHeight, seed).bytes, plain);
    });
}

constexpr std::array layouts = {PixelLayout::premultipliedLast, PixelLayout::premultipliedFirst,
                                PixelLayout::skipLast, PixelLayout::skipFirst, PixelLayout::grey};

TEST(Resampler, RandomSizesAreExact) {
    std::mt19937 random(2024);
    const auto side = [&] { return 1 + int(std::exp((random() % 1000) / 1000.0 * std::log(260))); };
    for (unsigned i = 0; i < 60; ++i) {
        const Case c{side(), side(), side(), side()};
        checkCase(c, layouts[i % layouts.size()], Content(i / 5 % 3), i);
    }
}

TEST(Resampler, ThinLongAndExtremeSizesAreExact) {
    const std::array cases = {
        Case{1, 1, 1, 1},     Case{1, 1, 70, 33},       Case{1, 300, 1, 20},    Case{300, 1, 20, 1},
        Case{2, 2, 37, 41},   Case{100, 100, 100, 100}, Case{97, 64, 97, 31},   Case{5, 4000, 3, 1},
        Case{4000, 5, 1, 3},  Case{3, 700, 40, 9},      Case{65535, 2, 300, 1}, Case{65535, 1, 65534, 2},
        Case{3, 65535, 2, 5}, Case{20, 1, 65535, 1},    Case{65535, 1, 1, 1},   Case{640, 480, 19, 470},
    };
    unsigned seed = 0;
    for (const Case& c : cases) {
        ++seed;
        for (const PixelLayout layout : {PixelLayout::premultipliedLast, PixelLayout::grey})
            checkCase(c, layout, Content(seed % 3), seed);
    }
}

/// Halving makes all windows begin at odd samples, so that pairs of taps do, too; and the sides go through
/// all that vectors and groups of rows can leave over.
TEST(Resampler, HalvedSidesAreExact) {
    for (int side = 1; side <= 70; ++side) {
        const int height = side % 18 + 1;
        for (const PixelLayout layout : {PixelLayout::skipFirst, PixelLayout::grey})
            checkCase({2 * side, 2 * height, side, height}, layout, Content(side % 3), unsigned(side));
    }
}

/// Heights at which a strip ends just before, with or just after the source, and pairs begin at odd rows in
/// some.
TEST(Resampler, StripsEndAnywhere) {
    for (const int height : {62, 63, 64, 65, 66, 126, 127, 128, 129, 130, 190, 191, 192, 193, 254}) {
        for (const int toHeight : {(height + 1) / 2, height, 7}) {
            for (const PixelLayout layout : {PixelLayout::premultipliedLast, PixelLayout::grey})
                checkCase({5, height, 6, toHeight}, layout, Content(height % 3), unsigned(height));
        }
    }
}

/// So many source rows for each result row, and so wide ones, that groups of rows are made together.
TEST(Resampler, WideReductionsAreExact) {
    const Workers::Limit single(1);
    checkCase({4000, 640, 2000, 40}, PixelLayout::skipLast, Content::extremes, 1);
    checkCase({6001, 480, 9, 37}, PixelLayout::premultipliedFirst, Content::noise, 2);
    checkCase({2100, 1600, 5, 128}, PixelLayout::grey, Content::noise, 3);
}

TEST(Resampler, FlatColourStaysItself) {
    onEveryInstructionSet([] {
        for (const Case c : {Case{31, 57, 13, 100}, Case{500, 300, 7, 3}, Case{9, 9, 200, 90}}) {
            Picture from(c.fromWidth, c.fromHeight, PixelLayout::premultipliedLast);
            std::ranges::fill(from.bytes, 201);
            const Picture to = resampled(from, c.toWidth, c.toHeight);
            for (int y = 0; y < c.toHeight; ++y) {
                for (int at = 0; at < 4 * c.toWidth; ++at)
                    ASSERT_EQ(to.view().row(y)[at], 201) << nameOf(c);
            }
        }
    });
}

TEST(Resampler, ThreadsDoNotMatter) {
    const Picture from = makePicture(1200, 900, PixelLayout::premultipliedLast, Content::noise, 5);
    const Picture many = resampled(from, 500, 700);
    const Picture manyStreamed = streamed(from, 500, 700, 1);
    const Workers::Limit single(1);
    EXPECT_EQ(resampled(from, 500, 700).bytes, many.bytes);
    EXPECT_EQ(manyStreamed.bytes, many.bytes);
}

TEST(Resampler, RefusesWhatItCannotDo) {
    EXPECT_FALSE(Resampler::make(0, 5, 5, 5, PixelLayout::grey));
    EXPECT_FALSE(Resampler::make(5, 5, 5, -1, PixelLayout::grey));
    EXPECT_FALSE(Resampler::make(5, 5, Resampler::longestSide + 1, 5, PixelLayout::grey));
    EXPECT_FALSE(Resampler::make(5, 5, 5, 5, PixelLayout::straightLast));
    const auto resampler = Resampler::make(5, 5, 3, 3, PixelLayout::grey);
    Picture from(5, 5, PixelLayout::grey), wrong(4, 3, PixelLayout::grey);
    EXPECT_FALSE(resampler->resample(from.view(), wrong.view()));
    EXPECT_FALSE(ResamplerStream::make(*resampler, wrong.view()));
}

} // namespace
} // namespace pex
