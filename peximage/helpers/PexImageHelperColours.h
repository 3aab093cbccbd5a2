#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/toolkit/NSColor.h"
#include "peximage/platform/varda/PexColor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace pex {

class PexImage;

/// Images reduced to a few pixels, and the colours read from them. Colours have channels from 0 to 1, with
/// alpha multiplied in where they are read from an image. Some operations print what they are at. All are
/// safe from any thread, as far as the image is.
namespace PexImageHelper {

/// A list of colours as a document.
struct PexColorList {
    std::vector<PexColor> list;

    static constexpr auto documentKeys() { return std::tuple(keyed::required("list", &PexColorList::list)); }
};

/// The image drawn at exactly so many pixels, truncated to whole ones; its size in points is that divided by
/// `bakingScaleFactor()`. Null for a size below 1 or one that passes `ImageLimits`.
PEX_EXPORT std::shared_ptr<PexImage> resizeImage_v3(const PexImage& image, CGSize size);
/// The image drawn at medium quality into a size in points, from as many points as it has pixels. Never null,
/// but without pixels when they cannot be had.
PEX_EXPORT std::shared_ptr<PexImage> resizeImage_v4(const PexImage& image, CGSize size);

/// Reduced to the target, in pixels, in steps to a quarter of either side. Where a step gives no image, what
/// the steps before it gave; null for null, here and below.
PEX_EXPORT std::shared_ptr<PexImage> reduceImageToSize(const std::shared_ptr<PexImage>& image,
                                                       CGSize targetSize);
/// Reduced to a single pixel in steps to a quarter of either side, each by the mean of the areas below the
/// pixels; where a step gives no image, what the steps before it gave.
PEX_EXPORT std::shared_ptr<PexImage> reduceImageTo1x1Pixels(const std::shared_ptr<PexImage>& image);

/// The colour of that single pixel; transparent black without a bitmap.
PEX_EXPORT NSColor getAverageColorOfImage(const std::shared_ptr<PexImage>& image);

struct OfImage {
    const PexImage& ofImage;
    std::int64_t x, y;
};
/// One pixel of the image as it is drawn at its `size`, y from the top; transparent black outside it.
PEX_EXPORT NSColor getColor(const OfImage& pixel);

struct OfImageReducedToSize {
    const PexImage& ofImage;
    CGSize reduceToSize;
};
/// The image stretched to so many pixels, and their colours row by row from the top. Empty when there is no
/// bitmap or no such size.
PEX_EXPORT std::vector<NSColor> getColorList(const OfImageReducedToSize& grid);

/// A `PexColorList` as JSON text without spaces.
PEX_EXPORT std::string encodeColorList(const std::vector<NSColor>& colors);
/// Absent when the text is no such document.
PEX_EXPORT std::optional<std::vector<NSColor>> decodeColorList(std::string_view text);

/// (red + green + blue) / 3.
PEX_EXPORT float getColorAverage(const NSColor& color);
/// √(Δr² + Δg² + Δb²), from 0 to √3; alpha does not count.
PEX_EXPORT float getTwoColorsDistance(const NSColor& a, const NSColor& b);
/// The mean distance of the pairs that both lists have; not a number where one is empty.
PEX_EXPORT float getTwoColorListDistance(const std::vector<NSColor>& a, const std::vector<NSColor>& b);

} // namespace PexImageHelper

} // namespace pex
