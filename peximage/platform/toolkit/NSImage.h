#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/toolkit/NSGraphicsContext.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// What drawing does with what lies there: replace it, or cover it as far as the picture is opaque.
enum class NSCompositingOperation { copy, sourceOver };

/// One picture of an image, and how many points it takes.
struct NSImageRep {
    /// The picture.
    CGImage image;
    /// In points.
    CGSize size;
};

/// The desktop's image: a size in points and a picture for it, which may be missing (a blank image) until
/// something is drawn. A photo's orientation is applied. One thread at a time; an image that nobody draws
/// into may be shared by threads.
class PEX_EXPORT NSImage {
  public:
    /// Encoded bytes; the pixels are decoded when they are first touched. The size in points is that of the
    /// pixels at the file's resolution (72 dots per inch are one pixel a point, which also holds for files
    /// that name none). Null when the bytes are no image.
    static std::shared_ptr<NSImage> make(const Data& bytes);
    /// A file, read whole. Null when it cannot be read or is no image.
    static std::shared_ptr<NSImage> make(const URL& file);
    /// One picture at a size in points. Never null.
    static std::shared_ptr<NSImage> make(const CGImage& image, CGSize sizeInPoints);
    /// A blank image; what is drawn into it has the colours of a space.
    static std::shared_ptr<NSImage> make(CGSize sizeInPoints,
                                         const CGColorSpace& colorSpace = CGColorSpace::deviceRGB());

    /// An image that comes in several sizes, such as an icon: the function gives the one that is best for a
    /// size in points, or none; it may be called on any thread.
    using Representations = std::function<std::optional<NSImageRep>(CGSize size)>;
    /// An image of several sizes, each asked for when it is needed. Never null.
    static std::shared_ptr<NSImage> make(CGSize sizeInPoints, Representations representations);

    /// An image file of this name, given with its extension or without, in the folders that were registered;
    /// the folder registered last is looked into first. Null when there is none, or when the name has a path
    /// separator.
    static std::shared_ptr<NSImage> named(std::string_view name);
    /// Adds a folder for `named`, for the whole process. Any thread.
    static void registerImageFolder(const URL& folder);

    /// In points.
    /// @{
    CGSize size() const { return size_; }
    double width() const { return size_.width; }
    double height() const { return size_.height; }
    /// @}
    /// The colour space for drawing into the image: that of its picture if that is an RGB one, or the one
    /// that a blank image was made with; otherwise sRGB.
    CGColorSpace colorSpace() const;

    /// The bitmap for a rectangle of the given size in points; absent: for the image's own size. The
    /// rectangle only matters for images that come in several sizes. Absent for a blank image.
    std::optional<CGImage> cgImageForProposedRect(const std::optional<CGRect>& rect = {}) const;

    /// Options of `bestRepresentation`.
    struct ForRect {
        /// In points; only its size matters.
        CGRect forRect;
    };
    /// The picture that is best for a rectangle in points; absent when there is none.
    std::optional<NSImageRep> bestRepresentation(const ForRect& rect) const;
    /// Gives a blank image its picture.
    void addRepresentation(const NSImageRep& representation) { bitmap_ = representation.image; }

    /// A new image of the picture turned by an angle in degrees, anticlockwise, on a canvas that is just
    /// large enough for it, with transparent corners, in `colorSpace()`. It is turned as it is seen in
    /// points: pixels keep their size where they are square, and become so, of the finer side, where they are
    /// not. Null for a blank image, an angle that is no number, and when such a bitmap cannot be had.
    std::shared_ptr<NSImage> rotate(double by) const;

    /// Directs this thread's drawing into the image until `unlockFocus`: user space is in points, and the
    /// bitmap drawn into has size × the largest screen scale pixels, rounded, with alpha, in `colorSpace()`.
    /// What the image shows already is kept. False, and nothing changes, when such a bitmap cannot be had.
    bool lockFocus();
    /// Ends drawing into the image; without `lockFocus` before it does nothing.
    void unlockFocus();

    /// Draws the part `fromRect` of the image, in points, into `rect` of the current context's user space, at
    /// an opacity of `fraction`. An empty `fromRect` stands for the whole image; what of it lies outside the
    /// image leaves its share of `rect` untouched.
    void draw(const CGRect& rect, const CGRect& fromRect, NSCompositingOperation operation,
              double fraction) const;

  private:
    explicit NSImage(CGSize size, const CGColorSpace& colorSpace = CGColorSpace::deviceRGB())
        : size_(size), blankSpace_(colorSpace) {}
    CGRect pixelsBelow(const CGImage& bitmap, const CGRect& points) const;

    CGSize size_;
    CGColorSpace blankSpace_;
    std::optional<CGImage> bitmap_;
    Representations representations_;
    std::shared_ptr<CGContext> focus_;
    std::shared_ptr<NSGraphicsContext> contextBefore_;
};

} // namespace pex
