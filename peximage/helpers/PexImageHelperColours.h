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
/// alpha multiplied in where they are read from an image. Some operations print diagnostic lines. All are
/// safe from any thread, as far as the image is.
namespace PexImageHelper {

/// A list of colours as a document.
struct PexColorList {
    /// The colours, in order.
    std::vector<PexColor> list;

    static constexpr auto documentKeys() { return std::tuple(keyed::required("list", &PexColorList::list)); }
};

/// The image drawn at exactly so many pixels, truncated to whole ones; its size in points is that divided by
/// `bakingScaleFactor()`. Null for a size below 1 or one that passes `ImageLimits`.
PEX_EXPORT std::shared_ptr<PexImage> resizeImage_v3(const PexImage& image, CGSize size);
/// The image drawn at medium quality into a size in points, from as many points as it has pixels. Never null,
/// but without pixels when they cannot be had.
PEX_EXPORT std::shared_ptr<PexImage> resizeImage_v4(const PexImage& image, CGSize size);

/// The image reduced to a size in pixels, in steps to a quarter of either side. When a step fails, the result
/// of the steps before it; null for null.
PEX_EXPORT std::shared_ptr<PexImage> reduceImageToSize(const std::shared_ptr<PexImage>& image,
                                                       CGSize targetSize);
/// The image reduced to a single pixel, in steps to a quarter of either side; each pixel is the mean of the
/// area that it stands for. When a step fails, the result of the steps before it; null for null.
PEX_EXPORT std::shared_ptr<PexImage> reduceImageTo1x1Pixels(const std::shared_ptr<PexImage>& image);

/// The colour of that single pixel; transparent black without a bitmap.
PEX_EXPORT NSColor getAverageColorOfImage(const std::shared_ptr<PexImage>& image);

/// One pixel of an image.
struct OfImage {
    /// The image that is read.
    const PexImage& ofImage;
    /// Its column from the left and its row from the top, in pixels.
    std::int64_t x;
    /// The row from the top, in pixels.
    std::int64_t y;
};
/// One pixel of the image as it is drawn at its `size`, y from the top; transparent black outside it.
PEX_EXPORT NSColor getColor(const OfImage& pixel);

/// An image, and the grid that it is reduced to.
struct OfImageReducedToSize {
    /// The image that is read.
    const PexImage& ofImage;
    /// Columns and rows, truncated to whole numbers.
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
