#pragma once

#include <array>
#include <cstdint>

namespace pex::jpeg {

/// A quantisation table in zigzag order.
using QuantTable = std::array<std::uint8_t, 64>;

/// How values are rounded to whole steps of their table. A coefficient that is little over half a step looks
/// the same without its bits; how little depends on what its code costs.
struct Rounding {
    /// A step is spent only on magnitudes from 0.5 + `deadZone` steps on (of the highest frequencies; less
    /// for the lowest, none for the mean tone).
    double deadZone = 0;
    /// What is added to larger magnitudes before they are cut down to whole steps: 0.5 rounds to the nearest.
    double roundUp = 0.5;
    /// What a bit of the file is worth, in squared steps: a lone level of one that saves less error than its
    /// bits cost is dropped.
    double bitWorth = 0;

    bool operator==(const Rounding&) const = default;
};

/// All that a quality decides.
struct Quantisation {
    QuantTable luma, cb, cr;
    Rounding rounding;

    bool operator==(const Quantisation&) const = default;
};

/// Of a quality from 0 to 1; with Q = 100 x quality, at least 1 (also for a quality that is no number) and at
/// most 100, a picture looks like one with the standard's tables at Q. Q is not rounded: every difference
/// that changes an entry counts.
Quantisation quantisation(double quality);

} // namespace pex::jpeg
