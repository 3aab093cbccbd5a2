#pragma once

#include "peximage/budget/FittedPicture.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/ImageFormat.h"
#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/codecs/JpegOptions.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/toolkit/NSColor.h"

#include <memory>
#include <optional>
#include <utility>

namespace pex {

class PexImage;

/// Making helper images, loading, and saving. All run on the caller's thread; images are null when absent.
namespace PexImageHelper {

/// What a file is saved as.
enum class FileType { jpeg, png, tif, heif };

/// A blank image of `size` pixels: its platform image has `size` divided by `bakingScaleFactor()` points. The
/// new object's own `size` stays (0, 0) until something is drawn and `setSize()` called. Prints "createImage
/// (withSize: (w, h))".
PEX_EXPORT std::shared_ptr<PexImage> createImage(CGSize withSize);

/// An image of `size` pixels whose platform image is filled with a colour.
PEX_EXPORT std::shared_ptr<PexImage> getFillColorImage(const NSColor& color, CGSize size);

/// The part inside `to`, in units of the image's `size`, origin at the bottom-left corner, drawn into a new
/// image of that many pixels. What lies outside the image stays transparent. A rectangle that is not positive
/// gives an image without bitmap.
PEX_EXPORT std::shared_ptr<PexImage> crop(const PexImage& image, const CGRect& to);

/// A crop of the given size centred at a point, moved to lie inside the image. One wider or higher than the
/// image begins left of or below it, and the uncovered part is transparent.
PEX_EXPORT std::shared_ptr<PexImage> cropToPoint(const PexImage& image, CGPoint toPoint, CGSize size);

/// Null when the file is missing or no image.
PEX_EXPORT std::shared_ptr<PexImage> load(const URL& url);

/// Width and height in pixels, as stored, learned from the header alone. Absent when the file is no image.
PEX_EXPORT std::optional<std::pair<int, int>> resolution(const URL& of);

/// The whole extent rendered; absent when that fails.
PEX_EXPORT std::optional<CGImage> ciImageToCGImage(const CIImage& image);

/// How `saveToJpeg` saves at a given quality.
struct JpegAtQuality {
    /// 0 … 1, 1 best.
    double quality;
    /// Dots per inch written into the file (its low 16 bits); absent leaves what the encoder wrote.
    std::optional<int> dpi = {};
    /// The file, under one of three names.
    /// @{
    std::optional<URL> url = {}, toUrl = {}, to = {};
    /// @}
    /// Effort, resolution of colour, order of the file.
    JpegOptions options = {};
    /// What the file says about the picture beside its pixels; it counts in a byte budget.
    ImageMetadata metadata = {};
};
/// Saves as JPEG. Folders on the way are made, and a file at the address is deleted before encoding: when
/// that fails, neither the old file nor a new one is there. The bytes are written atomically. Prints
/// "saveToJpeg (quality: q)". False when there is no image or no bitmap, the format cannot hold it, or
/// writing fails.
PEX_EXPORT bool saveToJpeg(const std::shared_ptr<PexImage>& image, const JpegAtQuality& how);

/// How `jpegData` encodes; the fields are those of `JpegAtQuality`.
struct JpegBytes {
    /// 0 … 1, 1 best.
    double quality;
    /// Dots per inch written into the file; absent leaves what the encoder wrote.
    std::optional<int> dpi = {};
    /// Effort, resolution of colour, order of the file.
    JpegOptions options = {};
    /// What the file says about the picture beside its pixels.
    ImageMetadata metadata = {};
};
/// The bytes that `saveToJpeg` writes, with the line that it prints; absent where they cannot be made.
PEX_EXPORT std::optional<Data> jpegData(const std::shared_ptr<PexImage>& image, const JpegBytes& how);

/// How `saveToJpeg` saves within a budget.
struct JpegOfSize {
    /// The most bytes that the file may have.
    long long desiredSize;
    /// Dots per inch written into the file; absent leaves what the encoder wrote.
    std::optional<int> dpi = {};
    /// The file, under one of three names.
    /// @{
    std::optional<URL> toUrl = {}, to = {}, url = {};
    /// @}
    /// Effort, resolution of colour, order of the file.
    JpegOptions options = {};
    /// What the file says about the picture beside its pixels; it counts in the budget.
    ImageMetadata metadata = {};
};
/// Saves as JPEG of at most `desiredSize` bytes: at quality 1 where that fits, else at the quality between 0
/// and 1 that a `PexDicotomic` finds nearest to 0.975 of the size. When even quality 0 is too large, the
/// image is shrunk to 90 % a side until it fits; it is shrunk from `cgImage`, so that what `setColor` wrote
/// is lost then. Prints the search's lines and "quality: q". Never writes a larger file: when the nearest
/// quality is too large, the best one tried that fits takes its place. A file at the address is deleted once
/// the quality is found. False as `saveToJpeg` above, and when the image cannot be shrunk enough.
PEX_EXPORT bool saveToJpeg(const std::shared_ptr<PexImage>& image, const JpegOfSize& how);

/// How `jpegDataWithin` encodes.
struct JpegWithin {
    /// The most bytes.
    long long desiredSize;
    /// Dots per inch written into the file; absent leaves what the encoder wrote.
    std::optional<int> dpi = {};
    /// Effort, resolution of colour, order of the file.
    JpegOptions options = {};
    /// What the file says about the picture beside its pixels; it counts in the budget.
    ImageMetadata metadata = {};
};
/// The bytes that this `saveToJpeg` writes, with the lines that it prints; absent where it gives false.
PEX_EXPORT std::optional<FittedPicture> jpegDataWithin(const std::shared_ptr<PexImage>& image,
                                                       const JpegWithin& how);

/// How `dataWithin` encodes.
struct DataWithin {
    /// The format of the file.
    ImageFormat format;
    /// The most bytes.
    long long desiredSize;
    /// Dots per inch written into the file; absent leaves what the encoder wrote.
    std::optional<int> dpi = {};
    /// Of a JPEG.
    JpegOptions options = {};
    /// What the file says about the picture beside its pixels; it counts in the budget.
    ImageMetadata metadata = {};
};
/// A file of any format that is written, at most so large: JPEG as `jpegDataWithin` has it; of others the
/// quality is searched for `cgImage`, with its alpha, in the same way. A picture that does not fit at quality
/// 0, or in a format without qualities, is shrunk to 90 % a side until it does. Prints the same lines. Absent
/// with its reason.
PEX_EXPORT std::optional<FittedPicture> dataWithin(const std::shared_ptr<PexImage>& image,
                                                   const DataWithin& how);

/// Saves the platform image as PNG, which records the resolution that its size in points gives. Folders are
/// made and an existing file is deleted first. False when there is no bitmap or writing fails.
PEX_EXPORT bool saveToPNG(const PexImage& image, const URL& toUrl, const ImageMetadata& metadata = {});
/// The same as TIFF, packed without loss. False in a build without TIFF, too.
PEX_EXPORT bool saveToTIFF(const PexImage& image, const URL& toUrl, const ImageMetadata& metadata = {});

} // namespace PexImageHelper

} // namespace pex
