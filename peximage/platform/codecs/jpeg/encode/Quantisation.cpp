#include "peximage/platform/codecs/jpeg/encode/Quantisation.h"

#include "peximage/platform/raster/kernels/JpegDct.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace pex::jpeg {
namespace {

/// A table's entry for the lowest frequencies, and how entries rise with the frequency. That of the mean tone
/// is `mean` times `start`.
struct Shape {
    double start, mean, slope, power, diagonal;
};

/// What is best at one coarseness. All numbers were found by bench/jpeg-tables/search.py over parts of
/// photos, which looks for most SSIMULACRA2 and least Butteraugli for the bytes.
struct Knot {
    double coarseness;
    Shape luma, cb, cr;
    Rounding rounding;
};

constexpr Knot knots[] = {
    {0.35,
     {9.0, 0.93, 0.195, 1.28, 0.3},
     {12.2, 0.81, 0.24, 0.89, 0.4},
     {8.9, 0.81, 0.24, 0.89, 0.4},
     {0.066, 0.67, 0.068}},
    {0.8,
     {9.0, 1.04, 0.15, 1.5, 0.4},
     {12.5, 0.91, 0.24, 0.86, 0.3},
     {9.45, 0.91, 0.24, 0.86, 0.3},
     {0.086, 0.61, 0.056}},
    {1.8,
     {9.0, 0.93, 0.15, 1.5, 0.3},
     {11.5, 0.81, 0.24, 0.98, 0.3},
     {8.9, 0.81, 0.24, 0.98, 0.3},
     {0.106, 0.58, 0.068}},
};

/// How coarse tables have to be to look like the standard's at a quality, 100 times which is `q`.
struct Step {
    double q, coarseness;
};
constexpr Step steps[] = {{1, 40},    {10, 7.2},   {30, 2.3},   {50, 1.36}, {70, 0.92},
                          {80, 0.65}, {90, 0.345}, {95, 0.185}, {98, 0.08}, {100, 0.02}};

/// Below it rounding gets plainer, down to the nearest of whole values at quality 1.
constexpr double coarseEnoughToChoose = 0.2;

double mixed(double a, double b, double share) { return a + (b - a) * share; }

Shape mixed(const Shape& a, const Shape& b, double share) {
    return {mixed(a.start, b.start, share), mixed(a.mean, b.mean, share), mixed(a.slope, b.slope, share),
            mixed(a.power, b.power, share), mixed(a.diagonal, b.diagonal, share)};
}

Rounding mixed(const Rounding& a, const Rounding& b, double share) {
    return {mixed(a.deadZone, b.deadZone, share), mixed(a.roundUp, b.roundUp, share),
            mixed(a.bitWorth, b.bitWorth, share)};
}

double coarsenessAt(double quality) {
    const double q = quality >= 0.01 ? std::min(100 * quality, 100.0) : 1;
    const Step* next = steps + 1;
    while (q > next->q)
        ++next;
    const Step& last = next[-1];
    return last.coarseness * std::pow(next->coarseness / last.coarseness, (q - last.q) / (next->q - last.q));
}

Knot knotAt(double coarseness) {
    const double within =
        std::clamp(coarseness, std::begin(knots)->coarseness, std::rbegin(knots)->coarseness);
    const Knot* next = knots + 1;
    while (within > next->coarseness)
        ++next;
    const Knot& last = next[-1];
    const double share = std::log(within / last.coarseness) / std::log(next->coarseness / last.coarseness);
    return {coarseness, mixed(last.luma, next->luma, share), mixed(last.cb, next->cb, share),
            mixed(last.cr, next->cr, share), mixed(last.rounding, next->rounding, share)};
}

QuantTable tableOf(const Shape& shape, double coarseness) {
    QuantTable table;
    for (std::size_t k = 0; k < 64; ++k) {
        const int u = kernels::zigzag[k] % 8, v = kernels::zigzag[k] / 8;
        const double frequency = std::sqrt(u * u + v * v + shape.diagonal * u * v);
        const double rise = k == 0 ? shape.mean : 1 + shape.slope * std::pow(frequency, shape.power);
        table[k] =
            static_cast<std::uint8_t>(std::clamp(std::round(coarseness * shape.start * rise), 1.0, 255.0));
    }
    return table;
}

} // namespace

Quantisation quantisation(double quality) {
    const double coarseness = coarsenessAt(quality);
    const Knot best = knotAt(coarseness);
    constexpr Rounding nearest;
    const double share =
        std::clamp((coarseness - std::rbegin(steps)->coarseness) / coarseEnoughToChoose, 0.0, 1.0);
    return {tableOf(best.luma, coarseness), tableOf(best.cb, coarseness), tableOf(best.cr, coarseness),
            mixed(nearest, best.rounding, share)};
}

} // namespace pex::jpeg
