#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

namespace pex {
namespace {

using namespace jpeg;

std::uint64_t bitsOf(const CodeDescription& code, const SymbolCounts& counts) {
    return SymbolCodes(code).bitsOf(counts);
}

/// The fewest bits that lengths of 1 to `longest` can bring these symbols to, found by trying them all: any
/// lengths make a code that leaves one of the longest free when their shares of the code space stay below 1.
std::uint64_t fewestBits(const std::vector<std::pair<int, std::uint32_t>>& symbols, std::size_t at,
                         double space, int longest) {
    if (space <= 0) return std::numeric_limits<std::uint32_t>::max();
    if (at == symbols.size()) return 0;
    std::uint64_t fewest = std::numeric_limits<std::uint32_t>::max();
    for (int length = 1; length <= longest; ++length) {
        const std::uint64_t own =
            std::uint64_t{symbols[at].second} * static_cast<std::uint64_t>(length + symbols[at].first % 16);
        fewest = std::min(fewest, own + fewestBits(symbols, at + 1, space - std::ldexp(1, -length), longest));
    }
    return fewest;
}

TEST(JpegOptimalCode, NoOtherLengthsTakeFewerBits) {
    std::mt19937 random(1);
    for (int round = 0; round < 60; ++round) {
        SymbolCounts counts{};
        std::vector<std::pair<int, std::uint32_t>> symbols;
        for (unsigned i = 0; i < 1 + random() % 6; ++i) {
            const int symbol = static_cast<int>(i * 41 + random() % 41);
            const auto count = static_cast<std::uint32_t>(1 + (random() % 40) * (random() % 40));
            counts[static_cast<std::size_t>(symbol)] = count;
            symbols.emplace_back(symbol, count);
        }
        ASSERT_EQ(bitsOf(optimalCode(counts), counts), fewestBits(symbols, 0, 1, 7)) << round;
    }
}

/// What the format asks of any code: up to 16 bits, that of ones alone unused, each symbol once.
void expectValid(const CodeDescription& code) {
    double space = 0;
    for (std::size_t i = 0; i < 16; ++i)
        space += code.counts[i] * std::ldexp(1, -static_cast<int>(i + 1));
    EXPECT_LT(space, 1);
    EXPECT_EQ(std::accumulate(code.counts.begin(), code.counts.end(), std::size_t{0}), code.symbols.size());
    auto sorted = code.symbols;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
}

TEST(JpegOptimalCode, StaysWithinSixteenBitsWhateverTheCounts) {
    SymbolCounts growing{}, equal{}, none{};
    double count = 1;
    for (std::size_t i = 0; i < 60; ++i, count = std::min(count * 1.6, 4e9))
        growing[i] = static_cast<std::uint32_t>(count);
    equal.fill(1'000'000);
    for (const SymbolCounts& counts : {growing, equal, none})
        expectValid(optimalCode(counts));
    EXPECT_EQ(optimalCode(none).symbols, std::vector<std::uint8_t>{0});
    const SymbolCodes codes(optimalCode(growing)); // the oftener, the shorter
    for (std::size_t i = 1; i < 60; ++i)
        EXPECT_LE(SymbolCodes::length(codes[i]) - static_cast<int>(i % 16),
                  SymbolCodes::length(codes[i - 1]) - static_cast<int>((i - 1) % 16));
}

} // namespace
} // namespace pex
