#pragma once

#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/raster/kernels/ColorRow.h"

#include <memory>
#include <variant>

namespace pex {

/// What a node of the filter graph does with its input.
struct CIImage::Node {
    struct Source {
        CGImage image;
    };
    struct Transform {
        std::shared_ptr<const Node> input;
        CGAffineTransform transform;
    };
    struct Crop {
        std::shared_ptr<const Node> input;
    };

    /// Adds to the colours the difference of their luma and the luma around them, times the
    /// sharpness.
    struct Sharpen {
        std::shared_ptr<const Node> input;
        double sharpness;
    };
    /// Changes each pixel's colour by itself: by a curve, or by a cube where there is one.
    struct Recolor {
        std::shared_ptr<const Node> input;
        kernels::ByteCurve curve;
        std::shared_ptr<const ColorCube> cube;
    };

    std::variant<Source, Transform, Crop, Sharpen, Recolor> operation;
    CGRect extent;
};

} // namespace pex
