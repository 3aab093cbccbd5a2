#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// An entry of an EXIF directory, its value in the block's byte order already.
struct ExifField {
    std::uint16_t tag;
    std::uint16_t type; // 1 byte, 2 text, 3 short, 4 long, 5 fraction, 7 undefined, 10 signed fraction
    std::uint32_t count;
    std::vector<std::uint8_t> value;
};

ExifField exifText(std::uint16_t tag, const std::string& text);
ExifField exifShort(std::uint16_t tag, std::uint16_t value);
/// Numerator, denominator, numerator …
ExifField exifFractions(std::uint16_t tag, const std::vector<std::uint32_t>& parts);

/// A little-endian EXIF block with the fields of its three directories, written by the TIFF standard's rules.
std::vector<std::uint8_t> exifBlock(std::vector<ExifField> tiff, const std::vector<ExifField>& exif = {},
                                    const std::vector<ExifField>& gps = {});

/// The JPEG file with the block as its APP1 segment, after its first segment or right at the start.
std::vector<std::uint8_t> withExif(const std::vector<std::uint8_t>& jpeg,
                                   const std::vector<std::uint8_t>& block);
