#pragma once

#include <png.h>

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

/// PNG files written by the codec library, and files picked apart by hand.
namespace pex::pngtest {

using Bytes = std::vector<std::uint8_t>;

struct File {
    int width = 1, height = 1;
    int colourType = PNG_COLOR_TYPE_RGB;
    int depth = 8;
    bool interlaced = false;
    /// Random palettes and transparent colours come with it.
    bool transparency = false;
    unsigned seed = 1;
};

/// A component of 16 bits at most for every pixel and channel, as the file holds it: palette indices, grey or
/// colours, alpha last.
struct Samples {
    File file;
    int channels = 0;
    std::vector<std::uint16_t> values;
    std::vector<png_color> palette;
    std::vector<png_byte> paletteAlpha;
    png_color_16 transparent{};

    std::uint16_t at(int x, int y, int channel) const {
        return values[(static_cast<std::size_t>(y) * static_cast<std::size_t>(file.width) +
                       static_cast<std::size_t>(x)) *
                          static_cast<std::size_t>(channels) +
                      static_cast<std::size_t>(channel)];
    }
};

/// Random samples; a transparent colour of grey or RGB is that of the first pixel.
Samples randomSamples(const File& file);
/// Written by the codec library.
Bytes write(const Samples& samples);
/// R G B A of one pixel in 8 bits, worked out from the samples by the definition.
std::vector<std::uint8_t> expectedPixel(const Samples& samples, int x, int y);

/// A chunk with its length and checksum.
Bytes chunk(std::string_view type, const Bytes& content);
/// `file` with chunks put in behind its header.
Bytes withChunks(const Bytes& file, const std::vector<std::pair<std::string_view, Bytes>>& chunks);
/// The names of a file's chunks in order.
std::vector<std::string_view> chunkNames(const Bytes& file);
/// A number as files hold it.
Bytes bigEndian(std::uint32_t value);
Bytes operator+(Bytes a, const Bytes& b);

} // namespace pex::pngtest
