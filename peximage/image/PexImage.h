#pragma once

#include "peximage/budget/FittedPicture.h"
#include "peximage/image/arguments/Files.h"
#include "peximage/image/arguments/Geometry.h"
#include "peximage/image/arguments/Making.h"
#include "peximage/image/arguments/Pixels.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/toolkit/NSBitmapImageRep.h"
#include "peximage/platform/toolkit/NSColor.h"
#include "peximage/platform/toolkit/NSImage.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pex {

struct PexWatermark;

/// One raster image, held at once in the platform's representations: a desktop image, a bitmap, a bitmap
/// whose pixels can be written, and a picture for the filter graph.
///
/// `cgImage` is the pixel source of record: sizes, encoders and all operations read it, and the two caches
/// are made from it on first use and then kept, whatever is assigned to the other fields later. An operation
/// that makes an image returns a new one and leaves the receiver as it was.
///
/// Arguments are told apart by their labels: `image->resize({.withMaxSide = 2000})`. What each label means
/// stands beside it, in `arguments/`.
///
/// Shared by reference, never copied. There is no lock: threads that share an image either read `bitmapRep()`
/// and `ciImage()` once before sharing it, or take turns. Where an operation takes another image, null gives
/// the result that stands for failure: null, false, or the receiver itself. `lastReason()` then tells why.
class PEX_EXPORT PexImage : public std::enable_shared_from_this<PexImage>,
                            public arguments::Making,
                            public arguments::Geometry,
                            public arguments::Tiling,
                            public arguments::Pixels,
                            public arguments::Files {
  public:
    /// Differs from that of every other image.
    std::string id;
    /// The desktop image; never null.
    std::shared_ptr<NSImage> image;
    /// In pixels: the size of `cgImage`. (0, 0) when there is none, but for blank images, which keep the size
    /// that was asked for.
    CGSize size;
    /// Absent for blank images, and until `setSize()` for images made without auxiliary variables.
    std::optional<CGImage> cgImage;
    /// Behind `bitmapRep()`.
    mutable std::shared_ptr<NSBitmapImageRep> bitmapRep_;
    /// Behind `ciImage()`.
    mutable std::optional<CIImage> ciImage_;

    PexImage(const PexImage&) = delete;
    PexImage& operator=(const PexImage&) = delete;

    /// @name Making an image
    /// @{

    /// An image of what the argument names. Null when it is missing, unreadable, or no image. Icons
    /// (FileIcons.cpp) have no `cgImage` and the size (0, 0) until `setSize()`.
    static std::shared_ptr<PexImage> make(const URL& file, const NoTimeOut& options = {});
    static std::shared_ptr<PexImage> make(const FastUrl& file);
    static std::shared_ptr<PexImage> make(const Data& encoded, const DontCreateAuxiliaryVars& options = {});
    static std::shared_ptr<PexImage> make(const std::shared_ptr<NSImage>& image,
                                          const DontCreateAuxiliaryVars& options = {});
    static std::shared_ptr<PexImage> make(const CGImage& bitmap);
    static std::shared_ptr<PexImage> make(const CIImage& picture);
    static std::shared_ptr<PexImage> make(const FromCIImage& picture);
    static std::shared_ptr<PexImage> make(const Named& source);
    static std::shared_ptr<PexImage> make(const OfSize& blank);
    static std::shared_ptr<PexImage> make(const NotBakedNormalizedSize& blank);
    static std::shared_ptr<PexImage> make(const BundleUrl& icon);
    static std::shared_ptr<PexImage> make(const ForFile& icon);
    static std::shared_ptr<PexImage> make(const URL& file, const IconSize& icon);
    static std::shared_ptr<PexImage> make(const HttpUrl& source);
    static std::shared_ptr<PexImage> make(const HttpUrlText& source);
    /// @}

    /// The image at an address, through a cache on disk that is never refreshed: JPEG files of quality 0.75
    /// in the folder "PexImageCache" of the user's caches folder, which is asked for once. Files are known by
    /// the path of the address alone: "http://a.example/cover.png" and "https://b.example/cover.png?size=2"
    /// have one file, and whichever was fetched first answers for both. A picture that ends early is handed
    /// over but not kept, and a file that does counts as missing.
    static void getCachedImage(CachedImageRequest request);
    /// @{
    /// Read on a background thread, where the awaiting coroutine goes on, too. Null when there is nothing, or
    /// no image.
    static Task<std::shared_ptr<PexImage>> download(From source);
    static Task<std::shared_ptr<PexImage>> make(InSubFiles source);
    /// @}

    /// @name Its representations
    /// @{

    /// Made from `cgImage` on first use, or from the platform image where that is absent; null when neither
    /// has pixels.
    std::shared_ptr<NSBitmapImageRep> bitmapRep() const;
    /// Made from `cgImage` on first use; absent, and not kept, while there is none.
    std::optional<CIImage> ciImage() const;
    /// Width over height of `size` as it is.
    double aspectRatio() const { return size.width / size.height; }
    /// Derives the bitmap if it is absent and takes its size.
    void setSize();
    /// Writes one pixel of `bitmapRep()`, column `x` and row `y` from the top. Only that and the JPEG encoder
    /// see the change: every other operation reads `cgImage`, and so does a JPEG saver that has to shrink the
    /// image for its budget. Nothing happens outside the bitmap or without one.
    void setColor(int x, int y, const NSColor& color);
    /// @}

    /// @name Scaling (Resize.cpp)
    /// @{
    /// Null when there is no bitmap or rendering fails, unless the argument says otherwise.
    std::shared_ptr<PexImage> resize(const To& target) const;
    std::shared_ptr<PexImage> resize(const ToWidth& target);
    std::shared_ptr<PexImage> resize(const ToHeight& target);
    std::shared_ptr<PexImage> resize(const WithMaxSide& bound) const;
    std::shared_ptr<PexImage> resize(const WithMinSideBoundedTo& bound);
    /// The size scaled, up or down, to fit a square of `maxSide`; not rounded.
    static CGSize thumbSize(CGSize size, double maxSide);
    /// `resize` to the thumb size; null without a bitmap.
    std::shared_ptr<PexImage> thumb(double maxSide) const;
    /// @}

    /// @name Cutting and turning (Crop.cpp, Rotate.cpp)
    /// @{
    /// The pixels inside a rectangle, made integral outward and clipped to the image; they are shared, not
    /// copied. Null when nothing is left, and without a bitmap.
    std::shared_ptr<PexImage> crop(const ToRect& target) const;
    std::shared_ptr<PexImage> crop(const ToTargetRect& target) const;
    /// The same as a bitmap.
    std::optional<CGImage> cropToCGImnage(const CGRect& rect) const;
    /// Null without a bitmap, unless the argument says otherwise, and without memory for the result.
    std::shared_ptr<PexImage> rotate(RotationDirection direction);
    std::shared_ptr<PexImage> rotate(const Degrees& angle);
    /// Straightened: turned anticlockwise and enlarged just so far that no corner is empty, the size, the
    /// profile, and whether it is grey, unchanged.
    std::shared_ptr<PexImage> rotateAndZoom(double byDegrees) const;
    /// @}

    /// @name Tiles (Split.cpp)
    /// @{

    /// Splitting into more tiles than this gives an empty list: a tile takes some hundred bytes.
    static constexpr double mostTiles = 1 << 20;
    /// Tiles share the image's pixels. An image without bitmap gives rows without tiles.
    Tiles split(const ToTileSize& tile) const;
    Tiles split(const ToTileSides& tile) const;
    Tiles split(const RowsAndColumns& counts) const;
    Tiles boundedSplit(const BoundedSplit& bounds) const;
    /// @}

    /// @name Boxes and pairs (canvas/FitAndJoin.cpp)
    /// Sized in points: on a screen of two pixels a point, results in a box have twice as many pixels a side.
    /// They have an alpha channel, and the colour space that the pictures share, or sRGB where these differ
    /// or are grey.
    /// @{

    /// The whole image inside a box of the given size, centred, on transparent margins. Null without a
    /// bitmap, for a box of no size, and when memory cannot be had.
    std::shared_ptr<PexImage> resizeWithFit(CGSize to);
    /// A box of the given size covered by the image, centred; what lies outside is cut.
    std::shared_ptr<PexImage> resizeWithFill(CGSize to);
    /// Two images side by side in one of exactly their sizes, once their touching sides match. Blank when
    /// memory for it cannot be had; null where one of the two is.
    static std::shared_ptr<PexImage> join(const std::shared_ptr<PexImage>& first, const With& second);
    /// A new image of this one with a watermark over it, of as many points as this one has pixels, with
    /// alpha, in this one's colour space (a grey one's becomes sRGB). Null when the watermark cannot be
    /// resized as the settings say, or memory cannot be had. (helpers/PexWatermark.cpp)
    std::shared_ptr<PexImage> watermark(const std::shared_ptr<PexImage>& with,
                                        const PexWatermark& settings) const;
    /// @}

    /// @name Transparency (pixels/Keying.cpp)
    /// Where alpha is replaced, the colours stay as they are, with the old alpha multiplied in: the new alpha
    /// may be lower than they are. Drawing, scaling and encoding then take them as no brighter than it. Of an
    /// opaque image they are straight colours, which `CGImage::reinterpreted` can say.
    /// @{

    /// The image with the pixels of the key colour transparent. Null when it has no pixels.
    std::shared_ptr<PexImage> key(const KeyColor& with) const;
    /// The image with the opacity that a mask says.
    std::shared_ptr<PexImage> apply(const BitmapMask& by);
    std::shared_ptr<PexImage> apply(const ImageMask& by);
    /// @}

    /// @name Filters (pixels/Filters.cpp, pixels/Convolution.cpp)
    /// What says nothing else is null without a bitmap or without memory.
    /// @{

    /// Every byte of R, G, B and alpha convolved alike, divided by 3, rounded and limited to 0–255; then
    /// alpha is dropped: the result is opaque. The bytes are taken as they are stored and then stand for
    /// sRGB, whatever profile they had.
    std::shared_ptr<PexImage> convolve(const Convolution& by) const;
    std::shared_ptr<PexImage> convolve(const Kernel& by) const;
    /// Luma sharpened: see `CIImage::sharpenedLuminance`. A colour picture keeps its profile; a grey one
    /// becomes sRGB. Null, with a diagnostic line, for a sharpness that is not finite.
    std::shared_ptr<PexImage> sharpen(float sharpness) const;
    /// Brighter by `ev` stops, in linear light; the result is sRGB. The receiver itself for an `ev` that is
    /// not finite, and without a bitmap or memory.
    std::shared_ptr<PexImage> exposure(double ev);
    /// Colours looked up in a table.
    std::shared_ptr<PexImage> apply(const Lut& table) const;
    std::shared_ptr<PexImage> apply(const LutAtUrl& table) const;
    /// Every pixel in one colour, its alpha as it was, which is not multiplied in: half-transparent pixels
    /// look brighter than the colour unless the result's `cgImage` is reinterpreted as straight. The receiver
    /// itself without memory.
    std::shared_ptr<PexImage> fill(const PexColor& with);
    /// @}

    /// @name Pages of PDF documents (DocumentImport.cpp)
    /// A page of so many points, 72 an inch (or what its document says that a unit is), has dpi / 72 times as
    /// many pixels, divided by `PexImageHelper::bakingScaleFactor()` and truncated, on a transparent ground.
    /// A page without size, one larger than `ImageLimits` allow, or one that takes longer to draw, has no
    /// image. Documents that need a password cannot be read; a build without PDF reads none. DocumentImport.h
    /// loads illustrations.
    /// @{

    /// The images of all pages in order; each is drawn when its pixels are first touched, so that a long
    /// document does not fill the memory. Absent when the file cannot be read or is no PDF document.
    static std::optional<std::vector<std::shared_ptr<PexImage>>>
    pdfDocumentToPexImages(const PdfDocumentUrl& source);
    /// Drawn one after another, and handed to a function.
    static void pdfDocumentToPexImagesAsync(const PdfDocumentCallbacks& source);
    /// One page. Null when there is no such page, too.
    static std::shared_ptr<PexImage> pdfDocumentToPexImage(const PdfDocumentPage& source);
    /// @}

    /// @name Encoding and saving (Encoding.cpp, HeifSaving.cpp, helpers/Savers.cpp)
    /// HEIF has 8 bits a component with alpha, or 10 bits without, where transparency is laid over white; in
    /// sRGB. A build without HEIF, or a machine without an encoder for it, makes none.
    /// @{

    /// JPEG of `bitmapRep()`, pixel writes included. `quality` is 0 … 1, 1 best, and looks like what coders
    /// with the standard's tables make of 100 × quality, in fewer bytes. Transparency is laid over white.
    /// Absent without a bitmap.
    std::optional<Data> jpegData(double quality) const;
    /// PNG of the platform image. Absent without a bitmap.
    std::optional<Data> pngData(const PngSize& options = {}) const;
    /// Of `ciImage()`, rendered where a filter graph was assigned to it. Absent without one.
    std::optional<Data> heifData(const HeifQuality& how) const;
    /// The bytes that `saveAsHEIF` within a budget writes; absent where it gives false.
    std::optional<FittedPicture> heifDataWithin(const HeifWithin& how) const;

    /// `PexImageHelper::saveToJpeg`: at a quality, or within a byte budget that is never exceeded.
    bool saveToJpeg(const QualityToUrl& how);
    bool saveToJpeg(const ToUrlOfMaxSize& how);
    /// `PexImageHelper::saveToPNG`.
    bool saveToPNG(const URL& url) const;
    /// False when encoding or writing fails.
    bool saveAsHEIF(const ToUrlAtHeifQuality& how) const;
    /// Within a byte budget, which is never exceeded: at quality 1 where that fits, else at the quality that
    /// a `PexDicotomic` finds nearest to 0.975 of it. When even quality 0 is too large, the image is resized
    /// to 90 % a side of its size in points, not pixels, and again until it fits: a file of less than 72 dpi
    /// is first enlarged, one of more shrunk by more than it takes. An image made from `cgImage` has as many
    /// points as pixels. Prints the search's lines, "size: n" for every quality tried and "quality: q".
    bool saveAsHEIF(const DesiredHeifSize& how) const;

    /// Posts the image as "NAME.jpg" (Upload.cpp): encoded on the thread that awaits it, sent in the
    /// background, as `PexNet::upload` tells. False without a bitmap or an address to send it to, and unless
    /// the server answers with 2xx.
    Task<bool> uploadAsJpeg(UploadTarget target) const;
    /// @}

  private:
    explicit PexImage(std::shared_ptr<NSImage> platformImage);
    static std::shared_ptr<PexImage> around(std::shared_ptr<NSImage> platformImage);

    void deriveBitmap();
    std::shared_ptr<PexImage> resizedThroughCanvas(CGSize to, bool fills);
    Tiles tilesOf(CGSize tile, double border) const;
};

} // namespace pex
