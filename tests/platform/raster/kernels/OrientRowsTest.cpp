#include "peximage/platform/raster/kernels/OrientRows.h"

#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace pex::kernels {
namespace {

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
    std::vector<std::uint8_t> stored(std::size_t(c.width) * c.height * bytes);
    std::mt19937 random(exif);
    for (auto& byte : stored)
        byte = static_cast<std::uint8_t>(random());
    const int width = swapsSides(orientation) ? c.height : c.width;
    const int height = swapsSides(orientation) ? c.width : c.height;
    const std::ptrdiff_t stride = width * bytes + 5;
    std::vector<std::uint8_t> wanted(stride * height, 99), result = wanted;
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
    const std::array cases = {
        Case{1, 1, 1, colour},
        Case{37, 23, 8, colour},
        Case{64, 96, 16, colour},
        Case{131, 70, 70, colour},
        Case{3, 200, 33, colour},
        Case{200, 1, 1, colour},
        Case{71, 300, 300, colour},
        Case{64, 256, 128, colour},
        Case{1030, 1050, 1050, colour}, // more than what goes through the caches
        Case{45, 83, 16, PixelLayout::grey},
        Case{130, 67, 67, PixelLayout::grey},
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
