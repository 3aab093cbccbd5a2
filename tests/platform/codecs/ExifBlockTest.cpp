#include "peximage/platform/codecs/ExifBlock.h"

#include <gtest/gtest.h>

#include <optional>
#include <span>
#include <vector>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// A TIFF header and one directory with one entry, the orientation, written by hand.
Bytes littleEndianExif(std::uint8_t orientation) {
    return {'I', 'I', 42, 0, 8, 0,           0, 0, 1, 0, 0x12, 0x01, 3,
            0,   1,   0,  0, 0, orientation, 0, 0, 0, 0, 0,    0,    0};
}

Bytes bigEndianExif(std::uint8_t orientation) {
    return {'M', 'M', 0, 42, 0, 0, 0,           8, 0, 1, 0x01, 0x12, 0,
            3,   0,   0, 0,  1, 0, orientation, 0, 0, 0, 0,    0,    0};
}

std::optional<Orientation> orientationIn(std::span<const std::uint8_t> exif) {
    return ExifBlock(exif).orientation();
}

Bytes withSignature(const Bytes& exif) {
    Bytes bytes{'E', 'x', 'i', 'f', 0, 0};
    bytes.insert(bytes.end(), exif.begin(), exif.end());
    return bytes;
}

TEST(ExifBlock, orientationIsReadInBothByteOrdersWithAndWithoutSignature) {
    for (int value = 1; value <= 8; ++value) {
        const auto expected = static_cast<Orientation>(value);
        for (const Bytes& exif : {littleEndianExif(static_cast<std::uint8_t>(value)),
                                  bigEndianExif(static_cast<std::uint8_t>(value))}) {
            EXPECT_EQ(orientationIn(exif), expected);
            EXPECT_EQ(orientationIn(withSignature(exif)), expected);
        }
    }
}

TEST(ExifBlock, orientationIsAbsentForNumbersThatAreNone) {
    for (const int value : {0, 9, 255})
        EXPECT_EQ(orientationIn(littleEndianExif(static_cast<std::uint8_t>(value))), std::nullopt);
}

TEST(ExifBlock, orientationIsAbsentForAnotherTypeAndForADirectoryWithoutIt) {
    Bytes ascii = littleEndianExif(6);
    ascii[12] = ascii[14] = 2; // a type of as many bytes
    EXPECT_EQ(orientationIn(ascii), std::nullopt);
    Bytes width = littleEndianExif(6);
    width[10] = 0x00;
    EXPECT_EQ(orientationIn(width), std::nullopt);
}

TEST(ExifBlock, survivesBytesThatBreakOffOrPointOutside) {
    const Bytes whole = littleEndianExif(6);
    for (std::size_t length = 0; length < 20; ++length)
        EXPECT_EQ(orientationIn({whole.data(), length}), std::nullopt) << length;
    Bytes farDirectory = whole;
    farDirectory[7] = 0x7f;
    EXPECT_EQ(orientationIn(farDirectory), std::nullopt);
    Bytes manyEntries = whole;
    manyEntries[8] = manyEntries[9] = 0xff;
    EXPECT_EQ(orientationIn(manyEntries), Orientation::right);
}

} // namespace
} // namespace pex
