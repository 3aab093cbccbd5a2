#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Pictures for encoder tests, and what the codec library makes of them and of files.
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

/// What libjpeg-turbo reads in a file.
struct ReadFile {
    int width = 0, height = 0, warnings = 0;
    bool isProgressive = false;
    /// The sampling factors of the first component.
    int across = 0, down = 0;
    std::vector<std::uint8_t> iccProfile;
    /// Of each component in natural order: its table, and its blocks row by row.
    struct Component {
        int blocksWide = 0, blocksHigh = 0;
        std::vector<int> table, levels;
    };
    std::vector<Component> components;
};
ReadFile readFile(const std::vector<std::uint8_t>& file);

/// The picture's own coefficients, in whole steps of one: as libjpeg-turbo writes them with tables of ones.
ReadFile coefficientsOf(const Picture& picture, bool fullChroma);

/// The mean squared difference between the picture and what libjpeg-turbo decodes.
double meanSquaredError(const Picture& picture, const std::vector<std::uint8_t>& file);

} // namespace pex::jpegtest
