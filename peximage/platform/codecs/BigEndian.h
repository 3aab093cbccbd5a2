#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace pex {

/// Eight bytes as a number, the highest first.
inline std::uint64_t loadBigEndian(const std::uint8_t* at) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    return value;
}

inline void storeBigEndian(std::uint8_t* at, std::uint64_t value) {
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    std::memcpy(at, &value, sizeof value);
}

} // namespace pex
