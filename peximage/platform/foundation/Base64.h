#pragma once

#include "peximage/platform/Export.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pex::base64 {

/// Bytes as text of the alphabet A–Z a–z 0–9 + /, filled up with = to whole groups of four (RFC 4648).
PEX_EXPORT std::string encode(std::span<const std::uint8_t> bytes);
/// The bytes of such a text; absent when it is none.
PEX_EXPORT std::optional<std::vector<std::uint8_t>> decode(std::string_view text);

} // namespace pex::base64
