#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

/// What a decoder makes of a JPEG file.
struct DecodedJpeg {
    std::vector<std::vector<std::uint8_t>> rows; // R G B x, or grey
    bool isDamaged = false;
};
/// By the codec library alone.
DecodedJpeg decodeByLibrary(const std::vector<std::uint8_t>& file);
/// By our own decoder alone: no rows when it leaves the file to the library, and fewer when it meets damage.
DecodedJpeg decodeByOurs(const std::vector<std::uint8_t>& file);
/// As the library's users get it, damage and all.
DecodedJpeg decodeForUsers(const std::vector<std::uint8_t>& file);

/// Expects that our own decoder makes the same of the file as the codec library.
void expectSame(const std::vector<std::uint8_t>& file, const std::string& what);
/// Expects that users get the pixels that the codec library makes of a damaged file, and are told so; returns
/// whether it is damaged after all.
bool expectSameOfDamaged(const std::vector<std::uint8_t>& file, const std::string& what);

/// Cuts the file, or changes some bytes, behind the first `header` ones.
std::vector<std::uint8_t> damaged(std::vector<std::uint8_t> file, std::size_t header, std::mt19937& random);

// Pictures for `makeJpeg`.
std::uint8_t noise(int x, int y, int c);
std::uint8_t extremes(int x, int y, int c);
std::uint8_t smooth(int x, int y, int c);
std::uint8_t flat(int x, int y, int c);
