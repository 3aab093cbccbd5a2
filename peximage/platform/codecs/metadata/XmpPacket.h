#pragma once

#include "peximage/platform/foundation/Data.h"

#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// Changes of an XMP packet, made in its text: what they do not touch stays byte for byte. They are absent
/// for what is no well-formed packet in UTF-8, and without the module "xmp" (which no packet is read with
/// that needs no change).
namespace xmpPacket {

/// The longest packet that one segment of a JPEG holds.
inline constexpr std::size_t mostInJpeg = 65502;

std::optional<Data> withoutLocation(const Data& packet);
/// Orientation upright, the sizes those of the pixels; no thumbnails, and nothing appended to the file.
std::optional<Data> uprighted(const Data& packet, int pixelWidth, int pixelHeight);
/// The digest that tells a JPEG's second packet.
std::optional<Data> withExtension(const Data& packet, std::string_view digest);
/// A packet that says no more than that there is a second one.
Data withNothingButExtension(std::string_view digest);
/// The packet with what the second one says.
std::optional<Data> merged(const Data& packet, const Data& second);

std::optional<std::string> property(const Data& packet, std::string_view nameSpace, std::string_view name);
/// An empty packet is made.
std::optional<Data> withProperty(const Data& packet, std::string_view nameSpace, std::string_view name,
                                 std::string_view text);

} // namespace xmpPacket

} // namespace pex
