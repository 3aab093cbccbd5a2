#pragma once

#include "peximage/platform/raster/CGColorSpace.h"

#include <array>
#include <cstdint>
#include <memory>

namespace pex {

namespace kernels {
struct MatrixTables;
}

/// R G B and one byte more of every grey.
using GreyColours = std::array<std::array<std::uint8_t, 4>, 256>;

/// Converts rows of colours between spaces with relative colorimetric intent and black point compensation,
/// within 1 / 255 of exact arithmetic where profiles are curves and a matrix, or grey. Alpha is not touched.
/// Immutable; one object serves many threads.
class ColorConversion {
  public:
    enum class Pixels { rgba, gray, cmyk }; // rgba: R G B x, straight; cmyk: C M Y K, 255 = full ink

    /// Null when the spaces cannot be converted. `from` must hold colours of `pixels`; the result is R G B x.
    static std::shared_ptr<const ColorConversion> make(const CGColorSpace& from, Pixels pixels,
                                                       const CGColorSpace& to);

    /// `from` and `to` may be the same row when a pixel has four bytes in both. The fourth byte of `to` is
    /// copied from rgba and left alone otherwise.
    void convertRow(const std::uint8_t* from, std::uint8_t* to, int pixels) const;

  private:
    struct Closer {
        void operator()(void* transform) const;
    };
    using Transform = std::unique_ptr<void, Closer>;

    ColorConversion() = default;

    // One of these.
    Transform transform_;
    std::shared_ptr<const kernels::MatrixTables> matrix_;
    GreyColours greyColours_{};
};

} // namespace pex
