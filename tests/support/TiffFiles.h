#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <tiff.h>
#include <vector>

/// How the codec library is to lay out a TIFF file.
struct TiffKind {
    const char* mode = "w"; // and the byte order and the 64-bit form, as the library's own words
    std::uint16_t compression = COMPRESSION_NONE, photometric = PHOTOMETRIC_RGB;
    std::uint16_t samples = 3, bits = 8;
    bool planar = false, tiled = false;
    std::uint16_t extraSample = 0; // 0: none, else what the last sample is
    std::vector<std::uint8_t> profile = {};
    const char* shotAt =
        nullptr; // a date, which comes with the place 33° 30' 36" N; the directories stand last
};

struct TiffPicture {
    int width, height;
    /// The samples at a place, of as many bits as the kind says.
    std::function<std::array<std::uint16_t, 4>(int x, int y)> samples;
};

/// A file with the pictures as its pages, written by the codec library itself.
std::vector<std::uint8_t> tiffFile(const TiffKind& kind, const std::vector<TiffPicture>& pages);
