#pragma once

#include "bench/worker/Picture.h"

#include <cstdint>
#include <span>
#include <vector>

/// The codec libraries as a program would plainly use them: the peers of this library's own codecs.
namespace bench {

/// By libjpeg-turbo, at so many eighths of the size.
Picture decodeJpeg(std::span<const std::uint8_t> jpeg, int eighths, int channels);
/// By libjpeg-turbo with its defaults: accurate transform, chroma at half size. The size of the file.
std::size_t encodeJpeg(const Picture& picture, int quality);

/// By libpng.
Picture decodePng(std::span<const std::uint8_t> png, int channels);
/// By libpng with its default filters and compression. The size of the file.
std::size_t encodePng(const Picture& picture);

} // namespace bench
