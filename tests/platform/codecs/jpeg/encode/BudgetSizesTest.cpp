#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"

#include "tests/platform/codecs/jpeg/encode/EncoderReference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace pex {
namespace {

using namespace jpegtest;

constexpr double tolerance = 0.01;

/// A whole encoding that knows nothing of any other.
std::vector<std::uint8_t> plain(const Picture& picture, double quality) {
    return jpeg::Encoder::make(inputOf(picture))->encode(quality);
}

/// The bisection as it is defined, asking for every size it needs; remembers the intervals it saw.
struct Bisection {
    std::function<double(double)> size;
    double target;
    std::vector<std::pair<double, double>> intervals{};

    double nearer(double x, double y) const {
        return std::abs(size(x) - target) / target < std::abs(size(y) - target) / target ? x : y;
    }

    double search(double a, double b) {
        intervals.emplace_back(a, b);
        const double fa = size(a), fb = size(b);
        if (b - a < tolerance) return nearer(a, b);
        if (fa < fb && target < fa) return a;
        if (fa < fb && target > fb) return b;
        if (fa > fb && target > fa) return a;
        if (fa > fb && target < fb) return b;
        const double middle = (a + b) / 2;
        const double lower = search(a, middle), upper = search(middle, b);
        return nearer(lower, upper);
    }
};

/// Budgets from below the smallest file to above the largest, and some at the very sizes that files have.
std::vector<double> budgets(double smallest, double largest, double some) {
    std::vector<double> all{0.9 * smallest, smallest, smallest / 0.975, some,
                            some / 0.975,   largest,  1.1 * largest};
    for (double budget = 1.1 * smallest; budget < largest; budget *= 1.35)
        all.push_back(std::floor(budget));
    return all;
}

TEST(JpegBudgetSizes, TheSearchTakesTheSameCourseAsWithTheSizesOfRealFiles) {
    const Picture pictures[] = {mixed(640, 480, false), mixed(333, 1000, true), noise(120, 90, false, 4),
                                mixed(900, 300, false), gradient(9, 9, true),   mixed(1300, 900, false)};
    for (const auto& picture : pictures) {
        std::map<double, double> memo;
        const auto real = [&](double quality) {
            double& size = memo[quality];
            if (size == 0) size = static_cast<double>(plain(picture, quality).size());
            return size;
        };
        for (const double budget : budgets(real(0), real(1), real(0.75))) {
            const auto encoder = jpeg::Encoder::make(inputOf(picture));
            jpeg::BudgetSizes sizes(encoder, budget, 0.975 * budget, tolerance);
            const auto asked = [&](double quality) { return sizes.sizeForSearch(quality); };
            const auto label = testing::Message()
                               << picture.width << " x " << picture.height << " in " << budget;
            ASSERT_EQ(asked(1) < budget, real(1) < budget) << label;
            ASSERT_EQ(asked(0) > budget, real(0) > budget) << label;
            if (real(1) < budget || real(0) > budget) continue;
            Bisection ours{asked, 0.975 * budget}, plain{real, 0.975 * budget};
            ASSERT_EQ(ours.search(0, 1), plain.search(0, 1)) << label;
            ASSERT_EQ(ours.intervals, plain.intervals) << label;
        }
    }
}

TEST(JpegBudgetSizes, OnlyAFewQualitiesAreEncoded) {
    const Picture picture = mixed(1600, 1200, false);
    const auto encoder = jpeg::Encoder::make(inputOf(picture));
    const double budget = 0.1 * picture.width * picture.height;
    jpeg::BudgetSizes sizes(encoder, budget, 0.975 * budget, tolerance);
    int encoded = 0;
    for (int i = 0; i <= 128; ++i) {
        sizes.sizeForSearch(i / 128.0);
        encoded += encoder->knowsByteCount(i / 128.0) ? 1 : 0;
    }
    EXPECT_GE(encoded, 2);
    EXPECT_LE(encoded, 4);
}

TEST(JpegBudgetSizes, AnswersGrowWithTheQualityWhateverTheBudget) {
    const Picture picture = mixed(400, 330, false);
    for (const double budget : {-5.0, 0.0, 1.0, 3000.0, 1e9, std::nan("")}) {
        jpeg::BudgetSizes sizes(jpeg::Encoder::make(inputOf(picture)), budget, 0.975 * budget, tolerance);
        double last = -1e9;
        for (int i = 0; i <= 200; ++i) {
            const double size = sizes.sizeForSearch(i / 200.0);
            EXPECT_GE(size, last) << i << " for " << budget;
            last = size;
        }
    }
}

} // namespace
} // namespace pex
