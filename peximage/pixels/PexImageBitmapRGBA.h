#pragma once

#include "peximage/pixels/PexColor255.h"
#include "peximage/pixels/PexContextImage.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/geometry/Truncated.h"
#include "peximage/platform/raster/CGImage.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace pex {

namespace kernels {
enum class Gate;
}

/// A buffer of 8-bit pixels. Despite the type's name a pixel's bytes are A R G B in memory. Rows follow each
/// other without padding, the top row first. Pixels of an image have alpha multiplied in; nothing here
/// multiplies or divides.
///
/// A value: copies share the bytes until one of them is changed. Threads may work on different copies, but
/// no thread may change a copy that another one uses.
///
/// Where a call takes `invertedY`, y counts from the bottom row if that is true, else from the top row.
/// Reading outside the bitmap gives 0 in all channels; writing there does nothing.
class PEX_EXPORT PexImageBitmapRGBA {
  public:
    /// In whole pixels; made from real coordinates by truncation toward zero.
    struct Point {
        std::int64_t x = 0; ///< From the left.
        std::int64_t y = 0; ///< From the top or the bottom, as the call says.

        constexpr Point() = default;
        /// A point of whole pixels.
        constexpr Point(std::int64_t atX, std::int64_t atY) : x(atX), y(atY) {}
        /// Both coordinates truncated toward zero.
        constexpr explicit Point(CGPoint point) : x(truncated(point.x)), y(truncated(point.y)) {}
        friend constexpr bool operator==(const Point&, const Point&) = default;
    };
    /// A width and a height in whole pixels.
    struct Size {
        std::int64_t width = 0;  ///< Pixels from left to right.
        std::int64_t height = 0; ///< Pixels from top to bottom.

        constexpr Size() = default;
        /// A size of whole pixels.
        constexpr Size(std::int64_t w, std::int64_t h) : width(w), height(h) {}
        /// Both sides truncated toward zero.
        constexpr explicit Size(CGSize size) : width(truncated(size.width)), height(truncated(size.height)) {}
        friend constexpr bool operator==(const Size&, const Size&) = default;
    };
    /// A rectangle of whole pixels.
    struct Rect {
        /// The corner with the lowest coordinates.
        Point origin;
        /// How far it reaches from there.
        Size size;

        constexpr Rect() = default;
        /// By its corner and size.
        constexpr Rect(const Point& at, const Size& of) : origin(at), size(of) {}
        /// By real coordinates, each truncated toward zero.
        /// @{
        constexpr Rect(CGPoint at, CGSize of) : origin(at), size(of) {}
        constexpr explicit Rect(const CGRect& rect) : Rect(rect.origin, rect.size) {}
        /// @}
        friend constexpr bool operator==(const Rect&, const Rect&) = default;
    };

    /// Pixels in a row, and rows. Setting them does not resize the buffer; nothing outside it is ever
    /// touched.
    /// @{
    std::int64_t width = 0;
    std::int64_t height = 0;
    /// @}

    /// A new bitmap, transparent black or opaque black; it prints one diagnostic line. It has no pixels when
    /// a side is below 1, the size passes `ImageLimits`, or the memory cannot be had.
    PexImageBitmapRGBA(std::int64_t width, std::int64_t height, bool fillBlack);
    /// The picture in device RGB, its top row on top.
    explicit PexImageBitmapRGBA(const CGImage& image);
    /// The image drawn at its `size`, truncated to whole pixels; transparent when it has no `cgImage`.
    explicit PexImageBitmapRGBA(const PexImage& image);
    /// The context's pixels as they are now, upside down; its size is truncated to whole pixels.
    explicit PexImageBitmapRGBA(const PexContextImage& image);

    /// The pixels as an image, which later changes of the bitmap do not reach. Absent without pixels.
    std::optional<CGImage> cgImage() const;
    /// Null when `cgImage()` is absent.
    std::shared_ptr<PexImage> pexImage() const;

    // Single pixels.

    /// The pixel's alpha, 0–255.
    std::uint8_t getPixelAlpha(std::int64_t x, std::int64_t y, bool invertedY) const;
    /// The colour alone: its alpha is always 1.
    PexColor getPixelColor(std::int64_t x, std::int64_t y, bool invertedY) const;
    /// (red + green + blue) / 3, rounded down.
    std::uint8_t getPixelLuminance(std::int64_t x, std::int64_t y, bool invertedY) const;
    /// The pixel's four bytes.
    PexColor255 getPixelPexColor255(std::int64_t x, std::int64_t y, bool invertedY) const;

    /// A pixel and its four channels, 0–255.
    struct PixelChannels {
        /// The column from the left, and the row as `invertedY` says.
        /// @{
        std::int64_t x, y;
        /// @}
        /// The channels, 0–255.
        /// @{
        std::uint8_t r, g, b, a;
        /// @}
        /// Whether y counts from the bottom.
        bool invertedY;
    };
    /// Writes the four bytes.
    void setPixel(const PixelChannels& pixel);
    /// A pixel and its colour.
    struct PixelColor {
        /// The column from the left, and the row from where `invertedY` says.
        /// @{
        std::int64_t x, y;
        /// @}
        /// The colour to write.
        PexColor color;
        /// Whether y counts from the bottom.
        bool invertedY;
    };
    /// Writes the colour's four 0–255 accessors.
    void setPixel(const PixelColor& pixel);
    /// A pixel and its colour in bytes.
    struct PixelColor255 {
        /// The column from the left, and the row from where `invertedY` says.
        /// @{
        std::int64_t x, y;
        /// @}
        /// The four bytes to write.
        PexColor255 color;
        /// Whether y counts from the bottom.
        bool invertedY;
    };
    /// Writes the four bytes.
    void setPixel(const PixelColor255& pixel);
    /// A pixel and its alpha.
    struct PixelAlpha {
        /// The column from the left, and the row from where `invertedY` says.
        /// @{
        std::int64_t x, y;
        /// @}
        /// 0 transparent, 255 opaque.
        std::uint8_t alpha;
        /// Whether y counts from the bottom.
        bool invertedY = true;
    };
    /// Writes the alpha byte only. Unless told otherwise y counts from the bottom.
    void setPixelAlpha(const PixelAlpha& pixel);

    // The whole buffer, in one pass over its bytes on all cores.

    /// Sets the colour of every pixel and leaves alpha.
    void fill(std::uint8_t colorRed, std::uint8_t green, std::uint8_t blue);
    /// Makes every pixel opaque, whatever its colour.
    void fillAlpha();
    /// Sets all four channels inside the rectangle, of which what lies outside the bitmap is left out.
    void fillRect(const Rect& rect, const PexColor& toColor, bool invertedY);
    /// Sets all four channels of the pixels whose alpha is 0.
    void fillTransparentPixelWithColor(const PexColor& color);

    // Gates compare a pixel's red + green + blue with the threshold, 0–1, × 255 × 3, truncated. Alpha stays.
    // A threshold that is not a number changes nothing.

    /// Darker pixels become black.
    void lightGate(double threshold);
    /// Lighter pixels become white.
    void darkGate(double threshold);
    /// Darker pixels become black, all others white.
    void lightDarkGate(double threshold);

    /// Makes pixels transparent whose colour lies at most `tolerance`, in units of the 8-bit channels, from
    /// the key colour: √(Δr² + Δg² + Δb²). Their colour stays.
    void key(std::uint8_t colorRed, std::uint8_t green, std::uint8_t blue, double tolerance);

    /// The bytes, for operations that go along whole rows.
    std::span<const std::uint8_t> bytes() const { return {bytes_.data(), bytes_.size()}; }
    /// The same for writing, no longer shared with copies or images; empty when memory for that cannot be
    /// had. Valid until the bitmap is copied or made an image.
    std::span<std::uint8_t> writableBytes();

  private:
    PexImageBitmapRGBA(Size size, const std::optional<CGImage>& picture);
    std::optional<std::size_t> offsetOf(std::int64_t x, std::int64_t y, bool invertedY) const;
    PexColor255 pixelAt(std::int64_t x, std::int64_t y, bool invertedY) const;
    template <class Edit>
    void editRuns(Edit edit);
    void gate(kernels::Gate which, double threshold);

    PixelBuffer bytes_;
};

} // namespace pex
