#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <span>

namespace pex {
namespace {

using namespace jpeg;

/// The fewest bits that codes of up to 7 bits can bring these counts to, found by trying all lengths: any
/// make a code that leaves one of the longest free when their shares of the code space stay below 1.
double fewestBits(std::span<const std::uint32_t> counts, double space = 1) {
    if (space <= 0) return INFINITY;
    double fewest = counts.empty() ? 0 : INFINITY;
    for (int length = 1; length <= 7 && !counts.empty(); ++length)
        fewest = std::min(fewest, length * double(counts[0]) +
                                      fewestBits(counts.subspan(1), space - std::ldexp(1, -length)));
    return fewest;
}

TEST(JpegOptimalCode, NoOtherLengthsTakeFewerBits) {
    std::mt19937 random(1);
    for (int round = 0; round < 60; ++round) {
        SymbolCounts counts{};
        std::vector<std::uint32_t> some(1 + random() % 6);
        double values = 0; // bits that symbols announce
        for (std::size_t i = 0; i < some.size(); ++i) {
            const std::size_t symbol = i * 41 + random() % 41;
            counts[symbol] = some[i] = static_cast<std::uint32_t>(1 + (random() % 40) * (random() % 40));
            values += some[i] * static_cast<double>(symbol % 16);
        }
        ASSERT_EQ(SymbolCodes(optimalCode(counts)).bitsOf(counts), fewestBits(some) + values) << round;
    }
}

TEST(JpegOptimalCode, StaysWithinSixteenBitsWhateverTheCounts) {
    SymbolCounts growing{}, equal{}, none{};
    double count = 1;
    for (std::size_t i = 0; i < 60; ++i, count = std::min(count * 1.6, 4e9))
        growing[i] = static_cast<std::uint32_t>(count);
    equal.fill(1'000'000);
    for (const SymbolCounts& counts : {growing, equal, none}) {
        const CodeDescription code = optimalCode(counts);
        double space = 0, codes = 0;
        for (std::size_t i = 0; i < 16; ++i) {
            space += std::ldexp(code.counts[i], -static_cast<int>(i + 1));
            codes += code.counts[i];
        }
        EXPECT_LT(space, 1) << "that of ones alone stays free";
        EXPECT_EQ(codes, code.symbols.size());
        EXPECT_EQ(std::set(code.symbols.begin(), code.symbols.end()).size(), code.symbols.size());
    }
    EXPECT_EQ(optimalCode(none).symbols, std::vector<std::uint8_t>{0});
}

} // namespace
} // namespace pex
