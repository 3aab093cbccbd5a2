#pragma once

#include <cstdint>

/// The numbers that the TIFF and EXIF standards give their tags, as far as they mean something here.
namespace pex::exifTag {

inline constexpr std::uint16_t imageWidth = 0x0100, imageHeight = 0x0101, stripOffsets = 0x0111,
                               orientation = 0x0112, stripBytes = 0x0117, xResolution = 0x011A,
                               yResolution = 0x011B, resolutionUnit = 0x0128, subDirectories = 0x014A,
                               thumbnailOffset = 0x0201, thumbnailBytes = 0x0202, xmp = 0x02BC, iptc = 0x83BB,
                               imageResources = 0x8649, exifDirectory = 0x8769, profile = 0x8773,
                               gpsDirectory = 0x8825, makerNote = 0x927C, pixelWidth = 0xA002,
                               pixelHeight = 0xA003, interoperabilityDirectory = 0xA005, privateData = 0xC634;

} // namespace pex::exifTag
