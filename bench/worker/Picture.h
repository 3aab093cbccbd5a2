#pragma once

#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/PixelView.h"

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// Opaque pixels, R G B and possibly a byte that means nothing, without padding.
struct Picture {
    int width = 0, height = 0, channels = 3;
    std::vector<std::uint8_t> bytes = {};

    Picture(int w, int h, int n)
        : width(w), height(h), channels(n), bytes(std::size_t(w) * std::size_t(h) * std::size_t(n)) {}

    std::size_t rowBytes() const { return std::size_t(width) * std::size_t(channels); }
    std::uint8_t* row(int y) { return bytes.data() + rowBytes() * std::size_t(y); }
    const std::uint8_t* row(int y) const { return bytes.data() + rowBytes() * std::size_t(y); }

    /// For pictures of four channels.
    pex::MutablePixelView view() {
        return {bytes.data(), width, height, std::ptrdiff_t(rowBytes()), pex::PixelLayout::skipLast};
    }
};

/// The same pixels with three or four channels.
Picture withChannels(const Picture& picture, int channels);

Picture readPpm(const std::string& path);
void writePpm(const Picture& picture, const std::string& path);

std::vector<std::uint8_t> readFile(const std::string& path);

} // namespace bench
