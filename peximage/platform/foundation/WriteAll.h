#pragma once

#include <cstdint>
#include <span>

namespace pex {

/// Writes all bytes to a descriptor, however many calls it takes. False when one of them failed.
bool writeAll(int descriptor, std::span<const std::uint8_t> bytes);

} // namespace pex
