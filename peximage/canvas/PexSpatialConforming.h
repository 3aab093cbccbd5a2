#pragma once

#include "peximage/platform/foundation/Enumeration.h"

#include <array>

namespace pex {

/// How an image is scaled to a canvas.
enum class PexSpatialConforming {
    none, ///< It keeps its own size in pixels.
    fit,  ///< The whole image lies inside the canvas and touches two of its sides.
    fill, ///< It covers the whole canvas; what lies outside is cut.
};

template <>
struct Enumeration<PexSpatialConforming> {
    static constexpr bool capitalized = false;
    static constexpr std::array<EnumerationCase<PexSpatialConforming>, 3> cases{
        {{PexSpatialConforming::none, "None"},
         {PexSpatialConforming::fit, "Fit"},
         {PexSpatialConforming::fill, "Fill"}}};
};

} // namespace pex
