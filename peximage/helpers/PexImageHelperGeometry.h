#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGImage.h"

#include <memory>
#include <string>
#include <vector>

namespace pex {

class PexImage;

/// Geometry formulas. All compute with doubles as they are: a zero width, height, zoom or ratio that is
/// divided by gives an infinite result or one that is not a number. Where a formula speaks of a rectangle's
/// width, height, minX … it means the standardised rectangle, unless it says the stored size. All are safe
/// from any thread.
namespace PexImageHelper {

/// Width over height; of a rectangle its stored size, of an image its `size`.
/// @{
PEX_EXPORT double getRatio(CGSize of);
PEX_EXPORT double getRatio(const CGRect& of);
PEX_EXPORT double getRatio(const PexImage& of);
/// @}
/// a / b, computed on doubles.
PEX_EXPORT double getRatio(int of, int by);

/// The sides, truncated to whole numbers, in lowest terms: "16:9" of 1920 × 1080. Both should be at least 1
/// (a side of 0 gives "0:1", "1:0" or "0:0"). Of a file: of the image in it, the empty text when there is
/// none.
/// @{
PEX_EXPORT std::string getReadableRatio(CGSize of);
PEX_EXPORT std::string getReadableRatio(const PexImage& of);
PEX_EXPORT std::string getReadableRatio(const URL& of);
/// @}

/// The sides, truncated to whole numbers: "1920x1080". Of a file: the empty text when it is no image.
/// @{
PEX_EXPORT std::string getReadableImageSize(CGSize of);
PEX_EXPORT std::string getReadableImageSize(const PexImage& of);
PEX_EXPORT std::string getReadableImageSize(const URL& of);
/// @}

/// The largest size of the given ratio that fits into the rectangle, divided by `zoom`. A rectangle that has
/// the ratio already gives its stored size, and is not zoomed.
PEX_EXPORT CGSize getCroppingSize(const CGRect& rect, double ratio, double zoom);

/// `innerRect` in units of `boundsRect`, whose origin becomes (0, 0) and whose far corner (1, 1).
PEX_EXPORT CGRect getNormalizedTo1Rect(const CGRect& boundsRect, const CGRect& innerRect);
/// The way back: from units of `boundsRect` to absolute ones.
PEX_EXPORT CGRect getDenormalizedRect(const CGRect& boundsRect, const CGRect& normalizedTo1Rect);

/// `rect` moved to lie inside `boundRect`; one that is larger is aligned to the far edges.
PEX_EXPORT CGRect boundRect(const CGRect& boundRect, const CGRect& rect);
/// The nearest place for the centre of a thing of size `insetSize` that stays inside `rect`; a thing that is
/// larger is aligned to the far edges.
PEX_EXPORT CGPoint boundPoint(CGPoint point, const CGRect& rect, CGSize insetSize);

/// The middle of a rectangle.
PEX_EXPORT CGPoint getCenter(const CGRect& of);
/// The centre of mass of rectangles of equal density (overlaps count twice). Not a number for an empty list,
/// or when the areas add up to 0.
PEX_EXPORT CGPoint getCenterOfGravity(const std::vector<CGRect>& rects);

/// The sum of the two, coordinate by coordinate.
PEX_EXPORT CGPoint sumPoints(CGPoint a, CGPoint b);
/// Both coordinates times the factor.
PEX_EXPORT CGPoint weightedPoint(CGPoint point, double factor);

/// The rectangle of that size whose middle is the point.
PEX_EXPORT CGRect getRect(CGPoint centeredAt, CGSize withSize);
/// (0, 0) and the image's `size`.
PEX_EXPORT CGRect getRect(const PexImage& image);
/// Width and height in pixels.
PEX_EXPORT CGSize getSize(const CGImage& image);
/// The size of the image's platform image, in points.
PEX_EXPORT CGSize getRepresentedSize(const PexImage& image);

/// Pixels per point: the largest backing scale of the attached screens, and at least 1. Asked afresh on every
/// call.
PEX_EXPORT double bakingScaleFactor();
/// Pixels to points: divided by `bakingScaleFactor()`.
/// @{
PEX_EXPORT CGSize getActualSizeWithoutRetina(CGSize size);
PEX_EXPORT CGPoint getActualPointWithoutRetina(CGPoint point);
/// @}
/// A rectangle in units of the image's `size`, in points of its platform image.
PEX_EXPORT CGRect getActualRectWithRepresentation(const PexImage& image, const CGRect& rect);

} // namespace PexImageHelper

} // namespace pex
