#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

// clang-format off: it needs what stands before it
#include <jpeglib.h>
// clang-format on

/// A file made by the codec library itself.
struct Recipe {
    J_COLOR_SPACE colors = JCS_RGB;
    int components = 3;
    std::function<void(jpeg_compress_struct&)> settings = [](jpeg_compress_struct&) {};
    std::vector<std::uint8_t> exif = {};
    std::vector<std::uint8_t> icc = {};
};

/// `sample` gives the component c of the pixel at (x, y), rows top first.
std::vector<std::uint8_t> makeJpeg(int width, int height, const Recipe& recipe,
                                   const std::function<std::uint8_t(int x, int y, int c)>& sample);
