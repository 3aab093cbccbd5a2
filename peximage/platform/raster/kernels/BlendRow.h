#pragma once

#include <cstdint>

namespace pex::kernels {

/// Source-over on premultiplied pixels of four bytes, alpha last: to = from × opacity + to × (1 − alpha of
/// that). `opacity` is 0–255. The rows must not overlap. Here and below, colour of `from` above its alpha, as
/// replacing alpha leaves behind, counts as equal to it.
void blendRowOver(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity);

/// to = from × opacity: what lay there before is replaced.
void blendRowCopy(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity);

} // namespace pex::kernels
