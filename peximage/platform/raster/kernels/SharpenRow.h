#pragma once

#include <array>
#include <cstdint>

/// The steps of sharpening by luma. Luma is (54 r + 183 g + 19 b) / 256, the Rec. 709 weights, of the colours
/// as they are stored; blurring weighs five neighbours along each axis by 1 4 6 4 1.
namespace pex::kernels {

/// 256 times the luma of R G B A pixels. Reads and writes up to 16 pixels beyond the end.
void lumaRow(const std::uint8_t* rgba, int pixels, std::uint16_t* luma);

/// 256 times the alpha of R G B A pixels, and luma limited to it: what is transparent has none, whatever its
/// colours say. Reads and writes up to 16 pixels beyond the end.
void alphaRow(const std::uint8_t* rgba, int pixels, std::uint16_t* alphas, std::uint16_t* luma);

/// The sum along the row of five neighbours, weighed: 16 times the blurred samples. Needs two samples before
/// the first one and, beyond the end, reads and writes up to 18.
void blurRow(const std::uint16_t* samples, int count, std::uint32_t* blurred);

/// How strongly to sharpen: `factor` / 2^`shift`.
struct SharpenStrength {
    std::int32_t factor = 0;
    int shift = 0;

    /// Of a finite number; limited to ±64.
    static SharpenStrength of(double sharpness);
};

/// `blurRow`s of five rows, the middle one that of the row in question.
using BlurredRows = std::array<const std::uint32_t*, 5>;

/// Adds to the colours of opaque pixels, in place, what their luma is above the blurred one, times the
/// strength. Reads and writes up to 16 pixels beyond the end.
void sharpenRow(std::uint8_t* rgba, int pixels, const std::uint16_t* luma, const BlurredRows& blurredLuma,
                const SharpenStrength& strength);

/// The same for premultiplied pixels: the luma around a pixel is that of what is there, whatever lies
/// transparent beside it, and colours stay within alpha. Both are of `alphaRow`. Reads and writes up to 16
/// pixels beyond the end.
void sharpenAlphaRow(std::uint8_t* rgba, int pixels, const std::uint16_t* luma,
                     const BlurredRows& blurredLuma, const BlurredRows& blurredAlpha,
                     const SharpenStrength& strength);

} // namespace pex::kernels
