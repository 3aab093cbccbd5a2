#pragma once

#include "peximage/image/PexImage.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/raster/CGContext.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace pex {

/// An image drawn once into a drawing context of its own, for reading single pixels; or an empty context of a
/// size, to be drawn into and read. Shared by reference and open for subclassing. Reading is safe from many
/// threads while nobody draws.
class PEX_EXPORT PexContextImage {
  public:
    /// What the image was drawn at, in pixels. Setting it later draws nothing anew.
    CGSize size;
    /// What was drawn; null for an empty context.
    const std::shared_ptr<PexImage> image;
    /// `size` truncated toward zero.
    const std::int64_t width;
    /// `size` truncated toward zero.
    const std::int64_t height;
    /// The context's memory, width × height × 4 bytes without padding: R G B A with alpha multiplied in,
    /// device RGB, row 0 on top. Empty when a side is below 1, the size passes `ImageLimits`, or the memory
    /// cannot be had. The context and this object own it together.
    const PixelBuffer bitmap;
    /// Draws into `bitmap`; null when that is empty.
    const std::shared_ptr<CGContext> context;

    /// The bitmap at its own size.
    static std::shared_ptr<PexContextImage> make(const CGImage& bitmap);

    /// Options of `make`.
    struct Size {
        /// The image's own size when absent.
        std::optional<CGSize> size = {};
    };
    /// The image, stretched to the size; all zero when it has no `cgImage`.
    static std::shared_ptr<PexContextImage> make(std::shared_ptr<PexImage> image, const Size& options);
    /// The image at its own size.
    static std::shared_ptr<PexContextImage> make(std::shared_ptr<PexImage> image);

    /// Options of `make`: an empty context.
    struct OfSize {
        /// In pixels, truncated toward zero.
        CGSize size;
    };
    /// An empty context: every pixel transparent.
    static std::shared_ptr<PexContextImage> make(const OfSize& empty);

    virtual ~PexContextImage();
    PexContextImage(const PexContextImage&) = delete;
    PexContextImage& operator=(const PexContextImage&) = delete;

    // Pixel (x, y), y from the top. Outside the bitmap all channels are 0.

    /// The four bytes of a pixel, colours with alpha multiplied in.
    struct Components {
        std::uint8_t r = 0; ///< Red, 0–255.
        std::uint8_t g = 0; ///< Green, 0–255.
        std::uint8_t b = 0; ///< Blue, 0–255.
        std::uint8_t a = 0; ///< Opacity, 0–255.
        friend constexpr bool operator==(const Components&, const Components&) = default;
    };
    /// The four bytes as they are.
    Components getPixelColorComponents(std::int64_t x, std::int64_t y) const;
    /// The 255th parts of the bytes; the colour still has alpha multiplied in.
    NSColor getPixelColor(std::int64_t x, std::int64_t y) const;
    /// 0–1.
    double getPixelAlpha(std::int64_t x, std::int64_t y) const;

  protected:
    // What the three forms of `make` call, for subclasses.
    /// What the three forms of `make` call; for subclasses.
    /// @{
    explicit PexContextImage(const CGImage& bitmap);
    PexContextImage(const std::shared_ptr<PexImage>& image, const Size& options);
    explicit PexContextImage(const OfSize& empty);
    /// @}

  private:
    PexContextImage(CGSize drawnSize, std::shared_ptr<PexImage> source,
                    const std::optional<CGImage>& picture);
};

} // namespace pex
