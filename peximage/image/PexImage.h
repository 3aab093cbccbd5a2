#pragma once

#include "peximage/budget/FittedPicture.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/geometry/Length.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/toolkit/NSBitmapImageRep.h"
#include "peximage/platform/toolkit/NSColor.h"
#include "peximage/platform/toolkit/NSImage.h"
#include "peximage/platform/varda/PexColor.h"
#include "peximage/platform/varda/PexSubFiles.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

class PexConvolution;
class PexLut;
struct PexWatermark;

/// One raster image, held at once in the platform's representations: a desktop image, a bitmap, a bitmap
/// whose pixels can be written, and a picture for the filter graph.
///
/// `cgImage` is the pixel source of record: sizes, encoders and all operations read it, and the two caches
/// are made from it on first use and then kept, whatever is assigned to the other fields later. An operation
/// that makes an image returns a new one and leaves the receiver as it was.
///
/// Shared by reference, never copied. There is no lock: threads that share an image either read `bitmapRep()`
/// and `ciImage()` once before sharing it, or take turns. Where an operation takes another image, null gives
/// the result that stands for failure: null, false, or the receiver itself.
class PEX_EXPORT PexImage : public std::enable_shared_from_this<PexImage> {
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

    // Making an image. All give null when absent.

    struct Named {
        std::string_view named;
    };
    /// The image of a name in the folders that were registered with `NSImage::registerImageFolder`; null when
    /// there is none.
    static std::shared_ptr<PexImage> make(const Named& source);

    struct NoTimeOut {
        /// Makes no difference: a local file is never waited for.
        bool noTimeOut = false;
    };
    /// A file; null when it is missing, unreadable or no image.
    static std::shared_ptr<PexImage> make(const URL& url, const NoTimeOut& options);

    struct FastUrl {
        URL fastUrl;
    };
    /// A file, read whole into memory and decoded from there when its pixels are first needed.
    static std::shared_ptr<PexImage> make(const FastUrl& source);

    struct DontCreateAuxiliaryVars {
        /// Leaves `cgImage` absent and `size` (0, 0) until `setSize()`.
        bool dontCreateAuxiliaryVars = false;
    };
    /// Encoded bytes; null when they are no image.
    static std::shared_ptr<PexImage> make(const Data& bytes, const DontCreateAuxiliaryVars& options);
    /// A desktop image; null for null.
    static std::shared_ptr<PexImage> make(const std::shared_ptr<NSImage>& image,
                                          const DontCreateAuxiliaryVars& options);

    /// A bitmap; the platform image around it has as many points as pixels.
    static std::shared_ptr<PexImage> make(const CGImage& bitmap);

    struct FromCIImage {
        CIImage ciImage;
    };
    /// A filter graph's picture, rendered now; null when that fails.
    static std::shared_ptr<PexImage> make(const FromCIImage& source);
    static std::shared_ptr<PexImage> make(const CIImage& picture);

    struct OfSize {
        CGSize size;
    };
    /// A blank image of so many pixels: its platform image has `size` divided by
    /// `PexImageHelper::bakingScaleFactor()` points.
    static std::shared_ptr<PexImage> make(const OfSize& blank);

    struct NotBakedNormalizedSize {
        CGSize notBakedNormalizedSize;
    };
    /// A blank image whose platform image has the given size in points.
    static std::shared_ptr<PexImage> make(const NotBakedNormalizedSize& blank);

    // The desktop's icons (FileIcons.cpp), as `NSWorkspace` gives them: `cgImage` is absent and `size` (0, 0)
    // until `setSize()`.

    struct BundleUrl {
        URL bundleUrl;
    };
    struct ForFile {
        URL forFile;
    };
    /// The icon of an application or any file, 1024 pixels a side or as large as it comes.
    static std::shared_ptr<PexImage> make(const BundleUrl& source);
    static std::shared_ptr<PexImage> make(const ForFile& source);
    /// In pixels.
    struct IconSize {
        explicit IconSize(CGSize side) : size(side) {}
        CGSize size;
    };
    /// The same for another size. Null for one below a pixel.
    static std::shared_ptr<PexImage> make(const URL& url, const IconSize& icon);

    // From elsewhere (cache/RemoteImages.cpp).

    struct HttpUrl {
        URL httpUrl;
    };
    /// What is at an address, read on this thread however long it takes: `readAddress` tells which addresses
    /// there are. Null when it cannot be read whole or is no image.
    static std::shared_ptr<PexImage> make(const HttpUrl& source);
    struct HttpUrlText {
        std::string_view httpUrl;
    };
    /// The same; null when the text is no address.
    static std::shared_ptr<PexImage> make(const HttpUrlText& source);

    struct CachedImageRequest {
        URL url;
        /// Called once, later, on a background thread; null when there is no image, and then `lastReason()`
        /// on that thread tells why.
        std::function<void(std::shared_ptr<PexImage> image)> callback;
        /// Where there is none, called just before with the reason in words: "the server answered 404".
        std::function<void(const std::string& why)> failed = {};
        /// Ends the transfer, soon, when it is asked to stop; there is no image then.
        std::stop_token stop = {};
    };
    /// The image at an address, through a cache on disk that is never refreshed: JPEG files of quality 0.75
    /// in the folder "PexImageCache" of the user's caches folder, which is asked for once. Files are known by
    /// the path of the address alone: "http://a.example/cover.png" and "https://b.example/cover.png?size=2"
    /// have one file, and whichever was fetched first answers for both. A picture that ends early is handed
    /// over but not kept, and a file that does counts as missing.
    static void getCachedImage(CachedImageRequest request);

    struct From {
        URL from;
    };
    /// A local file, read on a background thread, where the awaiting coroutine goes on, too.
    static Task<std::shared_ptr<PexImage>> download(From source);

    struct InSubFiles {
        PexSubFiles subFiles;
        std::string id;
    };
    /// What a store has for an identifier, read on a background thread, where the awaiting coroutine goes on,
    /// too. Null when it has nothing, or no image.
    static Task<std::shared_ptr<PexImage>> make(InSubFiles source);

    // Reading and completing it.

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

    // Small pictures.

    /// The size scaled, up or down, to fit a square of `maxSide`; not rounded.
    static CGSize thumbSize(CGSize size, double maxSide);
    /// `resize` to the thumb size; null without a bitmap.
    std::shared_ptr<PexImage> thumb(double maxSide) const;

    // Scaling (Resize.cpp). The results are null when there is no bitmap or rendering fails, unless the
    // operation says otherwise.

    struct To {
        CGSize to;
    };
    /// Stretched to exactly this size in pixels, rounded to whole ones.
    std::shared_ptr<PexImage> resize(const To& target) const;

    struct ToWidth {
        Length toWidth;
    };
    /// The aspect ratio is kept. The receiver itself when scaling fails.
    std::shared_ptr<PexImage> resize(const ToWidth& target);

    struct ToHeight {
        Length toHeight;
    };
    /// The aspect ratio is kept. The receiver itself when scaling fails.
    std::shared_ptr<PexImage> resize(const ToHeight& target);

    struct WithMaxSide {
        Length withMaxSide;
    };
    /// The longer side at most the bound, the aspect ratio kept, sides truncated to whole pixels, at least 1.
    /// An image within the bound gives a new one of the same size.
    std::shared_ptr<PexImage> resize(const WithMaxSide& bound) const;

    struct WithMinSideBoundedTo {
        Length withMinSideBoundedTo;
    };
    /// The shorter side at most the bound; the receiver itself when it is so already.
    std::shared_ptr<PexImage> resize(const WithMinSideBoundedTo& bound);

    // Cutting and turning (Crop.cpp, Rotate.cpp). Null when there is no bitmap, or no memory for the result.

    struct ToRect {
        CGRect to;
    };
    struct ToTargetRect {
        CGRect toTargetRect;
    };
    /// The pixels inside a rectangle, in pixels with the origin at the top-left corner and y downward: made
    /// integral outward and clipped to the image. They are shared, not copied. Null when nothing is left.
    std::shared_ptr<PexImage> crop(const ToRect& target) const;
    std::shared_ptr<PexImage> crop(const ToTargetRect& target) const;
    /// The same as a bitmap.
    std::optional<CGImage> cropToCGImnage(const CGRect& rect) const;

    /// By an angle in the bitmap's own space, where y grows upward and positive angles turn anticlockwise:
    /// `r90Clockwhise` is a quarter turn by the positive angle, which a person sees as anticlockwise.
    enum class RotationDirection { r90Clockwhise, r90AntiClockWise, r180, fixHorizon, none };

    /// A quarter or half turn. `fixHorizon` gives an equal image, `none` the receiver itself.
    std::shared_ptr<PexImage> rotate(RotationDirection direction);

    struct Degrees {
        Length degrees;
    };
    /// Turned by any angle, anticlockwise, on a canvas that grows to hold it, with transparent corners: as it
    /// is seen at its size in points, so that a picture whose resolution differs along its sides gets square
    /// pixels of the finer one. The profile of a colour picture stays; a grey one becomes sRGB, which has
    /// room for the corners. The receiver itself when there is no bitmap or the angle is no number.
    std::shared_ptr<PexImage> rotate(const Degrees& angle);
    /// Straightened: turned anticlockwise and enlarged just so far that no corner is empty, the size, the
    /// profile, and whether it is grey, unchanged.
    std::shared_ptr<PexImage> rotateAndZoom(double byDegrees) const;

    // Tiles (Split.cpp): rows from the top, tiles in a row from the left. They share the image's pixels.

    using Tiles = std::vector<std::vector<std::shared_ptr<PexImage>>>;
    /// Splitting into more tiles than this gives an empty list: a tile takes some hundred bytes.
    static constexpr double mostTiles = 1 << 20;

    struct ToTileSize {
        CGSize to;
        /// In pixels: each tile overlaps its neighbours by twice as much.
        Length tileBorder = 0;
    };
    /// Tiles of a size in pixels, those at the right and the bottom edge as much as is left. An empty list
    /// when a tile is not larger than twice the border. An image without bitmap gives rows without tiles.
    Tiles split(const ToTileSize& tile) const;

    struct ToTileSides {
        std::optional<Length> toWidth = {};
        std::optional<Length> height = {};
        Length tileBorder = 0;
    };
    /// The same; an absent side is the image's own.
    Tiles split(const ToTileSides& tile) const;

    struct RowsAndColumns {
        std::optional<std::int64_t> rows = {};
        std::optional<std::int64_t> columns = {};
    };
    /// Tiles as wide as the width divided by `rows` and as high as the height divided by `columns`, rounded
    /// up: the first count divides the width. An absent count leaves that side whole; one below 1 gives an
    /// empty list.
    Tiles split(const RowsAndColumns& counts) const;

    struct BoundedSplit {
        std::optional<Length> toWidth = {};
        /// The width is a maximum: as few tiles as can be, of nearly equal width.
        bool maxWidth = false;
        std::optional<Length> height = {};
        bool maxHeight = false;
    };
    /// Tiles of a width and a height that are each either exact or the most a tile may have; an absent one is
    /// the image's own.
    Tiles boundedSplit(const BoundedSplit& bounds) const;

    // Through a canvas (FitAndJoin.cpp). The results are sized in points: on a screen of two pixels a point
    // they have twice as many pixels a side where a box is given. They have an alpha channel, and the colour
    // space that the pictures share, or sRGB where these differ or are grey.

    /// The whole image inside a box of the given size, centred, on transparent margins. Null without a
    /// bitmap, for a box of no size, and when memory cannot be had.
    std::shared_ptr<PexImage> resizeWithFit(CGSize to);
    /// A box of the given size covered by the image, centred; what lies outside is cut.
    std::shared_ptr<PexImage> resizeWithFill(CGSize to);

    enum class JoinOrientation {
        horizontal, ///< The second image to the right of the first.
        vertical,   ///< The second image below the first.
    };
    enum class ScaleMode {
        max, ///< The smaller one of the touching sides is enlarged to the larger.
        min, ///< The larger one is reduced to the smaller.
    };
    struct With {
        std::shared_ptr<PexImage> with;
        JoinOrientation orientation = JoinOrientation::horizontal;
        ScaleMode scaleMode = ScaleMode::min;
    };
    /// Two images side by side in one of exactly their sizes, once their touching sides match. Blank when
    /// memory for it cannot be had; null where one of the two is.
    static std::shared_ptr<PexImage> join(const std::shared_ptr<PexImage>& first, const With& second);

    // Transparency (pixels/Keying.cpp). Where alpha is replaced, the colours stay as they are, with the old
    // alpha multiplied in: the new alpha may be lower than they are. Drawing, scaling and encoding then take
    // them as no brighter than it. Of an opaque image they are straight colours, which
    // `CGImage::reinterpreted` can say.

    /// A colour to be made transparent, and how far from it colours still count as it.
    struct KeyColor {
        PexColor color{};
        /// In units of the 8-bit channels, √(Δr² + Δg² + Δb²): below 1 only the very colour counts.
        double tolerance = 0;

        friend bool operator==(const KeyColor&, const KeyColor&) = default;

        static constexpr auto documentKeys() {
            using keyed::required;
            return std::tuple(required("color", &KeyColor::color),
                              required("tolerance", &KeyColor::tolerance));
        }
    };
    /// The image with the pixels of the key colour transparent. Null when it has no pixels.
    std::shared_ptr<PexImage> key(const KeyColor& with) const;

    struct BitmapMask {
        CGImage mask;
    };
    /// The image with its opacity taken from the mask's brightness, the mean of its channels: white is
    /// opaque. The mask is stretched to the platform image's size in points, which for a file that states a
    /// resolution is not its size in pixels: where it is smaller, the two meet at the lower left and the rest
    /// is transparent. An image made from `cgImage` has as many points as pixels. The receiver itself when
    /// that is impossible.
    std::shared_ptr<PexImage> apply(const BitmapMask& by);

    struct ImageMask {
        std::shared_ptr<PexImage> mask;
    };
    /// The image with the mask's own opacity, the mask stretched to it. The receiver itself when the mask has
    /// no pixels.
    std::shared_ptr<PexImage> apply(const ImageMask& by);

    // Watermarks (helpers/PexWatermark.cpp).

    /// A new image of this one with a watermark over it, of as many points as this one has pixels, with
    /// alpha, in this one's colour space (a grey one's becomes sRGB). Null when the watermark cannot be
    /// resized as the settings say, or memory cannot be had.
    std::shared_ptr<PexImage> watermark(const std::shared_ptr<PexImage>& with,
                                        const PexWatermark& settings) const;

    // Filters (pixels/Filters.cpp, pixels/Convolution.cpp). What "Null" says is the result without a bitmap
    // or without memory, too.

    struct Convolution {
        const PexConvolution& convolution;
    };
    /// Every byte of R, G, B and alpha convolved alike, divided by 3, rounded and limited to 0–255; then
    /// alpha is dropped: the result is opaque. The bytes are taken as they are stored and then stand for
    /// sRGB, whatever profile they had. Null for a kernel of fewer than nine weights or a background of fewer
    /// than four bytes.
    std::shared_ptr<PexImage> convolve(const Convolution& how) const;
    struct Kernel {
        const std::vector<std::int16_t>& kernel;
    };
    /// The same with a transparent black background.
    std::shared_ptr<PexImage> convolve(const Kernel& how) const;

    /// Luma sharpened: see `CIImage::sharpenedLuminance`. A colour picture keeps its profile; a grey one
    /// becomes sRGB. Null, with a diagnostic line, for a sharpness that is not finite.
    std::shared_ptr<PexImage> sharpen(float sharpness) const;
    /// Brighter by `ev` stops, in linear light; the result is sRGB. The receiver itself for an `ev` that is
    /// not finite, and without a bitmap or memory.
    std::shared_ptr<PexImage> exposure(double ev);

    struct Lut {
        const PexLut& lut;
    };
    /// Colours, as sRGB, looked up in a table; the result is sRGB.
    std::shared_ptr<PexImage> apply(const Lut& table) const;
    struct LutAtUrl {
        URL lutAtUrl;
    };
    /// Null when the file is no table.
    std::shared_ptr<PexImage> apply(const LutAtUrl& table) const;

    /// Every pixel in one colour, its alpha as it was, which is not multiplied in: half-transparent pixels
    /// look brighter than the colour unless the result's `cgImage` is reinterpreted as straight. The receiver
    /// itself without memory.
    std::shared_ptr<PexImage> fill(const PexColor& with);

    // Pages of PDF documents (DocumentImport.cpp; illustration files are loaded by what DocumentImport.h
    // declares). A page of so many points, 72 an inch (or what its document says that a unit is), has dpi /
    // 72 times as many pixels, divided by `PexImageHelper::bakingScaleFactor()` and truncated, on a
    // transparent ground. A page without size, one larger than `ImageLimits` allow, or one that takes longer
    // to draw, has no image. Documents that need a password cannot be read; a build without PDF reads none.

    struct PdfDocumentUrl {
        URL pdfDocumentUrl;
        int dpi;
    };
    /// The images of all pages in order; each is drawn when its pixels are first touched, so that a long
    /// document does not fill the memory. Absent when the file cannot be read or is no PDF document.
    static std::optional<std::vector<std::shared_ptr<PexImage>>>
    pdfDocumentToPexImages(const PdfDocumentUrl& source);

    struct PdfDocumentCallbacks {
        URL pdfDocumentUrl;
        int dpi;
        /// Called on the caller's thread for each page that was drawn, in order: its index from 0, how many
        /// pages the document has, and the image. While it runs some more pages may lie drawn: one for each
        /// core, or fewer where they are large (256 MB together, or a single one).
        std::function<void(int page, int count, std::shared_ptr<PexImage> image)> callback;
        /// Called once, last: false when the file cannot be read or is no PDF document.
        std::function<void(bool success)> finalCallback;
    };
    static void pdfDocumentToPexImagesAsync(const PdfDocumentCallbacks& source);

    struct PdfDocumentPage {
        URL pdfDocumentUrl;
        /// From 0.
        int pageN;
        int dpi;
    };
    /// Null when there is no such page, too.
    static std::shared_ptr<PexImage> pdfDocumentToPexImage(const PdfDocumentPage& source);

    // Encoding and saving (Encoding.cpp). `metadata` is what the file says about the picture beside its
    // pixels, such as `CGImageSource::metadata` of the one that it was made from.

    /// JPEG of `bitmapRep()`, pixel writes included. `quality` is 0 … 1, 1 best, and looks like what coders
    /// with the standard's tables make of 100 × quality, in fewer bytes. Transparency is laid over white.
    /// Absent without a bitmap.
    std::optional<Data> jpegData(double quality) const;

    struct PngSize {
        /// In points; the platform image's own size when absent. Pixels over points × 72 is the resolution
        /// that the file records.
        std::optional<CGSize> size = {};
        ImageMetadata metadata = {};
    };
    /// PNG of the platform image. Absent without a bitmap.
    std::optional<Data> pngData(const PngSize& options) const;
    std::optional<Data> pngData() const { return pngData(PngSize{}); }

    struct QualityToUrl {
        double quality;
        std::optional<int> dpi = {};
        URL url;
        ImageMetadata metadata = {};
    };
    /// `PexImageHelper::saveToJpeg` at a quality.
    bool saveToJpeg(const QualityToUrl& how);

    struct ToUrlOfMaxSize {
        URL toUrl;
        std::optional<int> dpi = {};
        /// Bytes.
        long long maxSize;
        ImageMetadata metadata = {};
    };
    /// `PexImageHelper::saveToJpeg` within a byte budget: the file is never larger.
    bool saveToJpeg(const ToUrlOfMaxSize& how);

    /// `PexImageHelper::saveToPNG`.
    bool saveToPNG(const URL& url) const;

    struct UploadTarget {
        /// Absent: "quarn/filePost.php" on the application's server (`PexNet::setServer`).
        std::optional<URL> to = {};
        /// The file's name, without extension.
        std::string withName;
        double quality;
    };
    /// Posts the image as "NAME.jpg" (Upload.cpp): encoded on the thread that awaits it, sent in the
    /// background, as `PexNet::upload` tells. False without a bitmap or an address to send it to, and unless
    /// the server answers with 2xx.
    Task<bool> uploadAsJpeg(UploadTarget target) const;

    // HEIF (HeifSaving.cpp): 8 bits a component with alpha, or 10 bits without, where transparency is laid
    // over white; in sRGB. A build without HEIF, or a machine without an encoder for it, makes none.

    struct HeifQuality {
        /// 0 … 1, 1 best.
        double quality;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };
    /// Of `ciImage()`, rendered where a filter graph was assigned to it. Absent without one.
    std::optional<Data> heifData(const HeifQuality& how) const;

    struct ToUrlAtHeifQuality {
        URL to;
        double quality;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };
    /// False when encoding or writing fails.
    bool saveAsHEIF(const ToUrlAtHeifQuality& how) const;

    struct DesiredHeifSize {
        /// The most bytes that the file may have.
        long long desiredSize;
        URL to;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };
    /// Within a byte budget, which is never exceeded: at quality 1 where that fits, else at the quality that
    /// a `PexDicotomic` finds nearest to 0.975 of it. When even quality 0 is too large, the image is resized
    /// to 90 % a side of its size in points, not pixels, and again until it fits: a file of less than 72 dpi
    /// is first enlarged, one of more shrunk by more than it takes. An image made from `cgImage` has as many
    /// points as pixels. Prints the search's lines, "size: n" for every quality tried and "quality: q".
    bool saveAsHEIF(const DesiredHeifSize& how) const;

    struct HeifWithin {
        /// The most bytes.
        long long desiredSize;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };
    /// The bytes that this `saveAsHEIF` writes; absent where it gives false.
    std::optional<FittedPicture> heifDataWithin(const HeifWithin& how) const;

  private:
    explicit PexImage(std::shared_ptr<NSImage> platformImage);
    static std::shared_ptr<PexImage> around(std::shared_ptr<NSImage> platformImage);

    void deriveBitmap();
    std::shared_ptr<PexImage> resizedThroughCanvas(CGSize to, bool fills);
    Tiles tilesOf(CGSize tile, double border) const;
};

} // namespace pex
