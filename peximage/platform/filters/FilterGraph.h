#pragma once

#include "peximage/platform/filters/CIImage.h"

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

    std::variant<Source, Transform, Crop> operation;
    CGRect extent;
};

} // namespace pex
