#pragma once

#include <cstddef>
#include <cstdint>

namespace scene {

/// Where the picture goes: R, G, B and one byte that means nothing a pixel, rows top first.
struct Frame {
    std::uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;

    std::uint8_t* pixel(int x, int y) const {
        return pixels + (std::size_t(y) * std::size_t(width) + std::size_t(x)) * 4;
    }
};

/// Takes the picture on all cores. The same size gives the same bytes each time.
void takePhoto(const Frame& frame);

} // namespace scene
