#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Pictures for encoder tests, and the codec library's own encoding of them.
namespace pex::jpegtest {

/// Rows top first, of R G B x or of grey; black when made.
struct Picture {
    int width, height;
    bool grey;
    std::vector<std::uint8_t> bytes, iccProfile;

    Picture(int w, int h, bool isGrey);
    std::size_t bytesPerRow() const { return static_cast<std::size_t>(width) * (grey ? 1 : 4); }
    const std::uint8_t* row(int y) const {
        return bytes.data() + bytesPerRow() * static_cast<std::size_t>(y);
    }
};

Picture noise(int width, int height, bool grey, unsigned seed);
/// Noise of nothing but 0 and 255: the largest coefficients there are.
Picture extremes(int width, int height, bool grey);
Picture gradient(int width, int height, bool grey);
/// Something like a photo: smooth tones, edges, and noise that differs from place to place.
Picture mixed(int width, int height, bool grey);

/// Reads the rows in place; the picture has to outlive the input.
jpeg::EncoderInput inputOf(const Picture& picture);

/// Written by libjpeg-turbo with quantisation tables worked out here, chroma of full size from quality 0.9.
std::vector<std::uint8_t> reference(const Picture& picture, double quality);

} // namespace pex::jpegtest
