#pragma once

#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/raster/PixelView.h"
#include "peximage/platform/raster/kernels/ColorRow.h"
#include "peximage/platform/raster/kernels/SharpenRow.h"

#include <memory>
#include <variant>
#include <vector>

namespace pex {

/// A sequence of filters, ready to run over strips of rows. A filter that changes each pixel by itself is
/// fused with the one before it, so that a strip is passed over once for each sharpening. Between two
/// filters pixels are rounded to bytes: a chain gives the same as its steps one by one.
class FilterChain {
  public:
    void sharpen(double sharpness);
    void bend(const kernels::ByteCurve& curve);
    void lookUp(std::shared_ptr<const ColorCube> cube);

    /// True when some step works on colours, which have to be sRGB then.
    bool changesColours() const;
    /// How many rows above and below a strip it takes to make it.
    int reach() const;

    /// The rows from `begin` to before `end` of a picture `height` rows high, in place. `window` holds them
    /// in premultiplied R G B A, with `kernels::rowSlack` bytes after each row, and around them as many more
    /// rows as the chain reaches, or as there are; `first` is the picture's row at its top.
    void run(MutablePixelView window, int first, int begin, int end, int height) const;

  private:
    /// A curve for each channel and then a cube; or a curve alone.
    struct Recolor {
        kernels::ByteCurve curve;
        std::shared_ptr<const ColorCube> cube; // keeps the entries
        std::shared_ptr<const kernels::CubeTables> tables;
    };
    using Step = std::variant<kernels::SharpenStrength, Recolor>;

    std::vector<Step> steps_;
};

} // namespace pex
