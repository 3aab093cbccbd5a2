#pragma once

#include "tests/support/Pictures.h"

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <tiff.h>
#include <utility>
#include <vector>

/// An entry of an EXIF directory, its value in the block's byte order already.
struct ExifField {
    std::uint16_t tag;
    std::uint16_t type; // 1 byte, 2 text, 3 short, 4 long, 5 fraction, 7 undefined, 10 signed fraction
    std::uint32_t count;
    Bytes value;
};

ExifField exifText(std::uint16_t tag, const std::string& text);
ExifField exifShort(std::uint16_t tag, std::uint16_t value);
/// Numerator, denominator, numerator …
ExifField exifFractions(std::uint16_t tag, const std::vector<std::uint32_t>& parts);

/// A little-endian EXIF block with the fields of its three directories, written by the TIFF standard's rules.
Bytes exifBlock(std::vector<ExifField> tiff, const std::vector<ExifField>& exif = {},
                const std::vector<ExifField>& gps = {});

/// The JPEG file with the block as its APP1 segment, after its first segment or right at the start.
Bytes withExif(const Bytes& jpeg, const Bytes& block);

/// One behind the other.
Bytes joined(std::initializer_list<Bytes> parts);
/// A number as PNG files hold it.
Bytes bigEndian(std::uint32_t value);
/// A PNG chunk with its length and checksum.
Bytes pngChunk(std::string_view type, const Bytes& content);
/// The file with chunks put in behind its header.
Bytes withPngChunks(Bytes png, const std::vector<std::pair<std::string_view, Bytes>>& chunks);

/// Files put together byte by byte, as their formats' documents tell.

/// 2 × 2 pixels on a canvas of 3 × 2: two colours, red and a transparent one.
Bytes smallGif();

/// Frames of greys that grow by one a row and begin again after a hundred.
Bytes gifFile(int width, int height, bool interlaced, int frames);

/// A BMP of the longer header, at 2835 pixels a metre.
Bytes bmpFile(int width, int height, int bits, std::uint8_t compression, const Bytes& tables,
              const Bytes& pixels);

/// A plain WebP file of this size in its extended form, with an EXIF block.
Bytes webpWithExif(const Bytes& plain, int width, int height, const Bytes& block);

struct HeifKind {
    bool av1 = false;
    /// As EXIF counts; the container's own boxes say it.
    int turned = 1;
    /// An EXIF block that goes along.
    Bytes exif = {};
    /// A second picture that stands by itself.
    std::optional<pex::CGImage> second = {};
};

/// A HEIF file with the picture, which has no alpha, written by the codec library itself.
Bytes heifFile(const pex::CGImage& picture, const HeifKind& kind);

/// A page of a PDF document: its size in points, and what is drawn, in the format's own operators.
struct PdfPage {
    double width = 100, height = 100;
    std::string content;
    /// More entries of the page's dictionary and of its content's, whose object has the number 3 + twice the
    /// page's index.
    std::string entries = "", contentEntries = "";
};

/// A whole document, cross-reference table and all. `trailer` is put among what the trailer says.
std::string pdfFile(const std::vector<PdfPage>& pages, const std::string& trailer = "");

/// For the trailer: encrypted by the standard's first method (40 bits), with a user's password that nobody
/// knows, or with an empty one, which lets everybody read.
extern const std::string pdfPasswordUnknown, pdfPasswordEmpty;

/// How the codec library is to lay out a TIFF file.
struct TiffKind {
    const char* mode = "w"; // and the byte order and the 64-bit form, as the library's own words
    std::uint16_t compression = COMPRESSION_NONE, photometric = PHOTOMETRIC_RGB;
    std::uint16_t samples = 3, bits = 8;
    bool planar = false, tiled = false;
    std::uint16_t extraSample = 0; // 0: none, else what the last sample is
    Bytes profile = {};
    const char* shotAt =
        nullptr; // a date, which comes with the place 33° 30' 36" N; the directories stand last
};

struct TiffPicture {
    int width, height;
    /// The samples at a place, of as many bits as the kind says.
    std::function<std::array<std::uint16_t, 4>(int x, int y)> samples;
};

/// A file with the pictures as its pages, written by the codec library itself.
Bytes tiffFile(const TiffKind& kind, const std::vector<TiffPicture>& pages);
