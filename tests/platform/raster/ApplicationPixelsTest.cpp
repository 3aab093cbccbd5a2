#include "peximage/platform/raster/ApplicationPixels.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace pex {
namespace {

/// Two rows of three pixels with their bytes in an order, a gap behind each row.
struct Memory {
    std::vector<std::uint8_t> bytes;
    std::ptrdiff_t stride;
    PixelBytes order;

    explicit Memory(PixelBytes o) : stride(3 * byteCount(o) + 5), order(o) {
        bytes.resize(static_cast<std::size_t>(2 * stride), 77);
    }
    ApplicationPixels pixels() { return {bytes.data(), 3, 2, stride, order}; }
    std::uint8_t* at(int x, int y) {
        return &bytes[static_cast<std::size_t>(y * stride + x * byteCount(order))];
    }
};

/// Where red, green, blue and alpha stand; -1 where there is none.
std::array<int, 4> positions(PixelBytes order) {
    switch (order) {
    case PixelBytes::rgb:
        return {0, 1, 2, -1};
    case PixelBytes::bgr:
        return {2, 1, 0, -1};
    case PixelBytes::bgra:
        return {2, 1, 0, 3};
    case PixelBytes::argb:
        return {1, 2, 3, 0};
    case PixelBytes::bgrx:
        return {2, 1, 0, -1};
    case PixelBytes::rgbx:
        return {0, 1, 2, -1};
    default:
        return {0, 1, 2, 3};
    }
}

constexpr PixelBytes coloured[] = {PixelBytes::rgb,  PixelBytes::bgr,  PixelBytes::rgba, PixelBytes::bgra,
                                   PixelBytes::argb, PixelBytes::rgbx, PixelBytes::bgrx};

TEST(ApplicationPixels, EveryOrderComesBackInEveryOther) {
    for (const PixelBytes from : coloured) {
        Memory source(from);
        for (int i = 0; i < 6; ++i)
            for (int c = 0; c < 4; ++c)
                if (const int at = positions(from)[static_cast<std::size_t>(c)]; at >= 0)
                    source.at(i % 3, i / 3)[at] = static_cast<std::uint8_t>(40 * i + 10 * c + 1);
        const auto p = source.pixels();
        const auto image = imageOfCopied({p.data, p.width, p.height, p.bytesPerRow, p.bytes});
        ASSERT_TRUE(image);
        for (const PixelBytes to : coloured) {
            Memory target(to);
            ASSERT_TRUE(copyPixels(*image, target.pixels()));
            for (int i = 0; i < 6; ++i)
                for (int c = 0; c < 4; ++c) {
                    const int there = positions(to)[static_cast<std::size_t>(c)];
                    const bool known = positions(from)[static_cast<std::size_t>(c)] >= 0;
                    if (there < 0) continue;
                    EXPECT_EQ(target.at(i % 3, i / 3)[there], known ? 40 * i + 10 * c + 1 : 255)
                        << int(from) << " to " << int(to) << ", pixel " << i << ", channel " << c;
                }
            EXPECT_EQ(target.bytes.back(), 77); // the gap is left alone
        }
    }
}

TEST(ApplicationPixels, SharedMemoryIsShownAndLetGoOnce) {
    std::vector<std::uint8_t> bytes(2 * 16, 9);
    int released = 0;
    const auto release = [&] { ++released; };
    {
        auto image = imageOfShared({bytes.data(), 3, 2, 16, PixelBytes::rgba}, release);
        ASSERT_TRUE(image);
        const auto part = image->cropping({{1, 1}, {2, 1}});
        EXPECT_EQ(image->pixels()->data, bytes.data());
        EXPECT_FALSE(image->takePixels()); // nobody may write them
        image.reset();
        EXPECT_EQ(released, 0);
        EXPECT_EQ(part->pixels()->row(0), bytes.data() + 16 + 4);
    }
    EXPECT_EQ(released, 1);
    EXPECT_FALSE(
        imageOfShared({bytes.data(), 3, 2, 16, PixelBytes::bgra}, release)); // in no layout of images
    EXPECT_EQ(released, 2);
    for (const auto& broken : {ConstApplicationPixels{nullptr, 3, 2, 16},
                               {bytes.data(), 0, 2, 16},
                               {bytes.data(), 3, 2, 11},
                               {bytes.data(), 3, 2, -16}})
        EXPECT_FALSE(imageOfCopied(broken));
}

} // namespace
} // namespace pex
