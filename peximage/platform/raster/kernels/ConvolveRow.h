#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex::kernels {

/// How many bytes beyond the end of a source row kernels may read, where they say so.
constexpr std::size_t rowSlack = 64;

/// One row of a 3 × 3 convolution of four-byte pixels, every byte alike: the sum of the nine products,
/// divided by 3, rounded and limited to 0 – 255. The weights go row by row; `rows` are the row above, the row
/// itself and the row below, each beginning one pixel to the left of the result and ending one to the right,
/// with `rowSlack` readable bytes after that.
void convolveRow(const std::array<const std::uint8_t*, 3>& rows, const std::array<std::int16_t, 9>& weights,
                 std::uint8_t* to, int pixels);

} // namespace pex::kernels
