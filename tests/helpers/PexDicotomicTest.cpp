#include "peximage/budget/PexDicotomic.h"

#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

using namespace pex;

namespace {

/// The nearest of the points 0, 1/128 … 1, looked at one by one.
double nearestGridPoint(const std::function<double(double)>& f, double target) {
    double best = 0;
    for (int i = 0; i <= 128; ++i) {
        if (std::abs(f(i / 128.) - target) < std::abs(f(best) - target)) best = i / 128.;
    }
    return best;
}

TEST(Dicotomic, FindsTheNearestPointOfSteadyFunctions) {
    const CapturedLines quiet;
    const std::function<double(double)> functions[] = {
        [](double q) { return 1000 * std::exp(3 * q); },
        [](double q) { return 5000 - 4000 * q * q; },
        [](double q) { return q < 0.5 ? 100 : 200 + q; },
    };
    for (const auto& f : functions) {
        for (double target = 50; target < 25000; target *= 1.37) {
            PexDicotomic search;
            search.target = target;
            search.function = f;
            const double found = search.search();
            EXPECT_EQ(std::abs(f(found) - target), std::abs(f(nearestGridPoint(f, target)) - target))
                << target;
        }
    }
}

TEST(Dicotomic, PrintsEveryIntervalItLooksAt) {
    CapturedLines captured;
    PexDicotomic search{
        .low = 0, .high = 1, .target = 0.3, .intervalTolerance = 0.3, .function = [](double q) { return q; }};
    EXPECT_EQ(search.search(), 0.25);
    const std::vector<std::string> expected{
        "PexDicotomic: 0.0 - 1.0",  "PexDicotomic: 0.0 - 0.5", "PexDicotomic: 0.0 - 0.25",
        "PexDicotomic: 0.25 - 0.5", "PexDicotomic: 0.5 - 1.0",
    };
    EXPECT_EQ(captured.lines, expected);
}

TEST(Dicotomic, StopsAtTheFirstWidthBelowTheTolerance) {
    const CapturedLines quiet;
    double narrowest = 1;
    std::vector<double> asked;
    PexDicotomic search;
    search.target = 0.3;
    search.function = PexDicotomic::memoised([&](double q) {
        asked.push_back(q);
        return q;
    });
    search.search();
    for (const double a : asked) {
        for (const double b : asked) {
            if (a != b) narrowest = std::min(narrowest, std::abs(a - b));
        }
    }
    EXPECT_EQ(narrowest, 1. / 128);
}

TEST(Dicotomic, TargetBeyondTheEndsGivesTheEnd) {
    const CapturedLines quiet;
    const auto rising = [](double q) { return 10 + q; };
    const auto falling = [](double q) { return 10 - q; };
    EXPECT_EQ((PexDicotomic{.target = 5, .function = rising}.search()), 0);
    EXPECT_EQ((PexDicotomic{.target = 50, .function = rising}.search()), 1);
    EXPECT_EQ((PexDicotomic{.target = 50, .function = falling}.search()), 0);
    EXPECT_EQ((PexDicotomic{.target = 5, .function = falling}.search()), 1);
}

TEST(Dicotomic, MemoisedAsksOnceForEachArgument) {
    const CapturedLines quiet;
    std::map<double, int> calls;
    PexDicotomic search;
    search.target = 2000;
    search.function = PexDicotomic::memoised([&](double q) {
        ++calls[q];
        return 1000 * std::exp(3 * q);
    });
    search.search();
    EXPECT_LE(calls.size(), 11U);
    for (const auto& [argument, count] : calls)
        EXPECT_EQ(count, 1) << argument;
}

TEST(Dicotomic, EndsForOddRecords) {
    const CapturedLines quiet;
    const auto constant = [](double) { return 1.; };
    EXPECT_GE((PexDicotomic{.target = 3, .function = constant}.search()), 0);
    EXPECT_EQ((PexDicotomic{.target = 3}.search()), 0);
    EXPECT_TRUE(std::isfinite(PexDicotomic{.target = std::nan(""), .function = constant}.search()));
    EXPECT_NEAR((PexDicotomic{.target = 0.3, .intervalTolerance = 0, .function = [](double q) { return q; }}
                     .search()),
                0.3, 1e-12);
}

} // namespace
