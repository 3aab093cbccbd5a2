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

/// `row` gives the components of row y, from the top.
std::vector<std::uint8_t> writeJpeg(int width, int height, const Recipe& recipe,
                                    const std::function<const JSAMPLE*(int y)>& row);
/// `sample` gives the component c of the pixel at (x, y), rows top first.
std::vector<std::uint8_t> makeJpeg(int width, int height, const Recipe& recipe,
                                   const std::function<std::uint8_t(int x, int y, int c)>& sample);
