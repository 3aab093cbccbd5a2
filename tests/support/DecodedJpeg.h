#pragma once

#include "peximage/platform/codecs/jpeg/decode/JpegDecompressor.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

/// What a decoder makes of a JPEG file.
struct DecodedJpeg {
    std::vector<std::vector<std::uint8_t>> rows; // four bytes a pixel
    bool isDamaged = false, isForLibrary = false;
};
DecodedJpeg decodeJpeg(const std::vector<std::uint8_t>& file, unsigned eighths,
                       pex::JpegDecompressor::Codes codes, J_COLOR_SPACE space = JCS_EXT_RGBX);

/// Expects the same of our decoder and of the codec library, at every scale.
void expectSame(const std::vector<std::uint8_t>& file, const std::string& what,
                J_COLOR_SPACE space = JCS_EXT_RGBX);

/// Cuts the file, or changes some bytes, behind the first `header` ones.
std::vector<std::uint8_t> damaged(std::vector<std::uint8_t> file, std::size_t header, std::mt19937& random);
/// Expects that the library's users get the pixels that the codec library makes of a damaged file, and are
/// told so; returns whether it is damaged after all.
bool expectSameOfDamaged(const std::vector<std::uint8_t>& file, const std::string& what);

// Pictures for `makeJpeg`.
std::uint8_t noise(int x, int y, int c);
std::uint8_t extremes(int x, int y, int c);
std::uint8_t smooth(int x, int y, int c);
