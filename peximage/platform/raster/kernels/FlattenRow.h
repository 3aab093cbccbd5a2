#pragma once

#include "peximage/platform/raster/PixelLayout.h"

#include <cstdint>

namespace pex::kernels {

/// Lays a row of pixels of any layout over white and writes it as R G B 255, for whoever takes no alpha. The
/// result is rounded correctly; premultiplied colour above its alpha is limited to 255. Both may be the same
/// row unless `from` is grey.
void flattenRow(const std::uint8_t* from, PixelLayout fromLayout, std::uint8_t* toSkipLast, int pixels);

} // namespace pex::kernels
