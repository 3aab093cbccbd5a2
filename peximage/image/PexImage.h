#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/geometry/Length.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/toolkit/NSBitmapImageRep.h"
#include "peximage/platform/toolkit/NSColor.h"
#include "peximage/platform/toolkit/NSImage.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// One raster image, held at once in the platform's representations: a desktop image, a bitmap, a bitmap
/// whose pixels can be written, and a picture for the filter graph.
///
/// `cgImage` is the pixel source of record: sizes, encoders and all operations read it, and the two caches
/// are made from it on first use and then kept, whatever is assigned to the other fields later. An operation
/// that makes an image returns a new one and leaves the receiver as it was.
///
/// Shared by reference. There is no lock: threads that share an image either read `bitmapRep()` and
/// `ciImage()` once before sharing it, or take turns.
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
    /// A desktop image, which must not be null.
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
    /// Writes one pixel of `bitmapRep()`, column `x` and row `y` from the top. Only that and the encoders
    /// that read it see the change. Nothing happens outside the bitmap or without one.
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

    // Encoding and saving (Encoding.cpp).

    /// JPEG of `bitmapRep()`, pixel writes included. `quality` is 0 … 1, 1 best: Q = 100 × quality scales the
    /// standard tables; from 0.9 up colour is kept at full resolution. Transparency is laid over white.
    /// Absent without a bitmap.
    std::optional<Data> jpegData(double quality) const;

    struct PngSize {
        /// In points; the platform image's own size when absent. Pixels over points × 72 is the resolution
        /// that the file records.
        std::optional<CGSize> size = {};
    };
    /// PNG of the platform image. Absent without a bitmap.
    std::optional<Data> pngData(const PngSize& options) const;
    std::optional<Data> pngData() const { return pngData(PngSize{}); }

    struct QualityToUrl {
        double quality;
        std::optional<int> dpi = {};
        URL url;
    };
    /// `PexImageHelper::saveToJpeg` at a quality.
    bool saveToJpeg(const QualityToUrl& how);

    struct ToUrlOfMaxSize {
        URL toUrl;
        std::optional<int> dpi = {};
        /// Bytes.
        long long maxSize;
    };
    /// `PexImageHelper::saveToJpeg` within a byte budget: the file is never larger.
    bool saveToJpeg(const ToUrlOfMaxSize& how);

    /// `PexImageHelper::saveToPNG`.
    bool saveToPNG(const URL& url) const;

  private:
    explicit PexImage(std::shared_ptr<NSImage> platformImage);
    static std::shared_ptr<PexImage> around(std::shared_ptr<NSImage> platformImage);

    void deriveBitmap();
};

} // namespace pex
