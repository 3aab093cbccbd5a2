#pragma once

#include <array>
#include <cstdint>

/// Colours changed one pixel at a time, in rows of straight R G B A; alpha stays.
namespace pex::kernels {

/// A value for every byte.
using ByteCurve = std::array<std::uint8_t, 256>;

/// Every colour byte becomes the curve's value for it.
void curveRow(std::uint8_t* rgba, int pixels, const ByteCurve& values);

/// A cube of colours to be looked up.
struct CubeTables {
    /// R G B and 0 in 128ths, red running fastest; one entry more than the cube has can be read.
    const std::int16_t* entries = nullptr;
    /// Colours along a side, at least 2.
    std::uint32_t side = 2;
    /// For each byte of red, green, blue: 65536 times the entry below it, at most `side` − 2, and how far it
    /// lies towards the next one, 0 to 16384.
    std::array<std::array<std::uint32_t, 256>, 3> axes{};
};

/// Every colour becomes that of the cube, interpolated in the tetrahedron of the four entries around it. The
/// same bytes on every instruction set, within 0.52 / 255 of exact interpolation.
void cubeRow(std::uint8_t* rgba, int pixels, const CubeTables& tables);

} // namespace pex::kernels
