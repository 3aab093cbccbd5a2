#include "peximage/platform/raster/kernels/BlendRow.h"

#include "tests/platform/raster/kernels/EveryInstructionSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace pex::kernels {
namespace {

using Bytes = std::vector<std::uint8_t>;

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

Bytes randomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
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

} // namespace
} // namespace pex::kernels
