#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/geometry/CGSize.h"

#include <tuple>

namespace pex {

class PexImage;

/// How a watermark is placed on an image (`PexImage::watermark`). A value that applications keep in their
/// settings as a document; all its keys are required when reading.
struct PexWatermark {
    /// Where the watermark goes: a corner, the middle of an edge, or the middle of the image.
    enum class Position {
        topLeft,
        topCenter,
        topRight,
        centerLeft,
        center,
        centerRight,
        bottomLeft,
        bottomCenter,
        bottomRight,
    };

    /// How large the watermark is drawn.
    struct PEX_EXPORT Scale {
        /// By what rule.
        enum class Policy {
            originalSize,     ///< Its own size, reduced where it takes more than `maxScale` of either side.
            largestSideScale, ///< `scale` of the image's side that limits it; grows or shrinks.
        };

        /// The rule that `scaleOf` follows.
        Policy policy = Policy::originalSize;
        /// A fraction of the image, for `largestSideScale`.
        double scale = 1;
        /// A fraction of the image, for `originalSize`.
        double maxScale = 1;
        /// Kept and written; no rule reads it.
        double minScale = 0;

        /// The size in pixels at which the watermark is drawn; not finite for images of no size.
        CGSize scaleOf(const PexImage& watermarkImage, const PexImage& whenAppliedTo) const;

        friend bool operator==(const Scale&, const Scale&) = default;

        static constexpr auto documentKeys() {
            using keyed::required;
            return std::tuple(required("policy", &Scale::policy), required("scale", &Scale::scale),
                              required("maxScale", &Scale::maxScale), required("minScale", &Scale::minScale));
        }
    };

    /// Where it goes.
    Position position = Position::topLeft;
    /// How large it is drawn.
    Scale scale{};
    /// From 0, invisible, to 1, opaque.
    double opacity = 1;

    friend bool operator==(const PexWatermark&, const PexWatermark&) = default;

    static constexpr auto documentKeys() {
        using keyed::required;
        return std::tuple(required("position", &PexWatermark::position),
                          required("scale", &PexWatermark::scale),
                          required("opacity", &PexWatermark::opacity));
    }
};

template <>
struct Enumeration<PexWatermark::Position> {
    using E = PexWatermark::Position;
    static constexpr bool capitalized = false;
    static constexpr EnumerationCase<E> cases[] = {
        {E::topLeft, "Top Left"},        {E::topCenter, "Top Center"},
        {E::topRight, "Top Right"},      {E::centerLeft, "Center Left"},
        {E::center, "Center"},           {E::centerRight, "Center Right"},
        {E::bottomLeft, "Bottom Left"},  {E::bottomCenter, "Bottom Center"},
        {E::bottomRight, "Bottom Right"}};
};

template <>
struct Enumeration<PexWatermark::Scale::Policy> {
    using E = PexWatermark::Scale::Policy;
    static constexpr bool capitalized = false;
    static constexpr EnumerationCase<E> cases[] = {{E::originalSize, "Original Size"},
                                                   {E::largestSideScale, "Largest Side Scale"}};
};

} // namespace pex
