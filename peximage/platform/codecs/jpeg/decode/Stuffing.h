#pragma once

#include <cstdint>

namespace pex::jpeg {

/// Copies bytes of a scan, without the zeros that are stuffed behind bytes of 255, up to a marker or `end`;
/// `from` is left there. Returns where the copy ends.
std::uint8_t* unstuff(const std::uint8_t*& from, const std::uint8_t* end, std::uint8_t* to);

} // namespace pex::jpeg
