#include "tests/support/TiffFiles.h"

#include "tests/support/DataFolder.h"

#include <stdexcept>
#include <string>
#include <tiffio.h>

namespace {

constexpr int tileSide = 16, rowsPerStrip = 16;

/// The rectangle's samples side by side, those outside the picture 0; of a planar file one component's.
std::vector<std::uint8_t> block(const TiffKind& kind, const TiffPicture& picture, int left, int top,
                                int width, int height, int component) {
    std::vector<std::uint8_t> bytes;
    const int first = kind.planar ? component : 0, end = kind.planar ? first + 1 : kind.samples;
    for (int y = top; y < top + height; ++y) {
        unsigned pending = 0, held = 0;
        for (int x = left; x < left + width; ++x) {
            const bool inside = x < picture.width && y < picture.height;
            const auto samples = inside ? picture.samples(x, y) : std::array<std::uint16_t, 4>{};
            for (int c = first; c < end; ++c) {
                const unsigned value = samples[static_cast<std::size_t>(c)];
                if (kind.bits == 16) { // in this machine's order; the library turns it
                    bytes.insert(bytes.end(),
                                 {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)});
                    continue;
                }
                pending = pending << kind.bits | value;
                held += kind.bits;
                if (held == 8) bytes.push_back(static_cast<std::uint8_t>(pending)), held = 0;
            }
        }
        if (held > 0) bytes.push_back(static_cast<std::uint8_t>(pending << (8 - held)));
    }
    return bytes;
}

void putTags(TIFF* tiff, const TiffKind& kind, const TiffPicture& picture) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, picture.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, picture.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, kind.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, kind.samples);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kind.photometric);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, kind.compression);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, kind.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    if (kind.photometric == PHOTOMETRIC_YCBCR) {
        TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        TIFFSetField(tiff, TIFFTAG_JPEGQUALITY, 95);
    }
    if (kind.extraSample != 0) TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind.extraSample);
    if (!kind.profile.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(kind.profile.size()),
                     kind.profile.data());
    if (kind.tiled) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, tileSide);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, tileSide);
    } else {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
    }
}

bool putTiles(TIFF* tiff, const TiffKind& kind, const TiffPicture& picture, std::uint16_t component) {
    for (int y = 0; y < picture.height; y += tileSide) {
        for (int x = 0; x < picture.width; x += tileSide) {
            auto bytes = block(kind, picture, x, y, tileSide, tileSide, component);
            if (TIFFWriteTile(tiff, bytes.data(), static_cast<std::uint32_t>(x),
                              static_cast<std::uint32_t>(y), 0, component) < 0)
                return false;
        }
    }
    return true;
}

bool putRows(TIFF* tiff, const TiffKind& kind, const TiffPicture& picture, std::uint16_t component) {
    for (int y = 0; y < picture.height; ++y) {
        auto bytes = block(kind, picture, 0, y, picture.width, 1, component);
        if (TIFFWriteScanline(tiff, bytes.data(), static_cast<std::uint32_t>(y), component) < 0) return false;
    }
    return true;
}

/// Writes the directory that was begun, and lets its fields go.
bool finishDirectory(TIFF* tiff, std::uint64_t& offset) {
    const bool good = TIFFWriteCustomDirectory(tiff, &offset) != 0;
    TIFFFreeDirectory(tiff);
    return good;
}

/// Behind everything else; the first page's directory is written again behind them.
bool putPhotoData(TIFF* tiff, const char* shotAt) {
    const double latitude[] = {33, 30, 36};
    std::uint64_t exif = 0, gps = 0;
    return TIFFCreateEXIFDirectory(tiff) == 0 && TIFFSetField(tiff, EXIFTAG_DATETIMEORIGINAL, shotAt) &&
           finishDirectory(tiff, exif) && TIFFCreateGPSDirectory(tiff) == 0 &&
           TIFFSetField(tiff, GPSTAG_LATITUDE, latitude) && finishDirectory(tiff, gps) &&
           TIFFSetDirectory(tiff, 0) && TIFFSetField(tiff, TIFFTAG_EXIFIFD, exif) &&
           TIFFSetField(tiff, TIFFTAG_GPSIFD, gps) && TIFFRewriteDirectory(tiff);
}

} // namespace

std::vector<std::uint8_t> tiffFile(const TiffKind& kind, const std::vector<TiffPicture>& pages) {
    const TempFolder folder;
    const auto path = folder.path() / "a.tif";
    TIFFSetWarningHandler(nullptr);
    TIFF* tiff = TIFFOpen(path.c_str(), kind.mode);
    bool good = tiff != nullptr;
    for (const TiffPicture& page : pages) {
        if (!good) break;
        putTags(tiff, kind, page);
        for (std::uint16_t c = 0; c < (kind.planar ? kind.samples : 1); ++c)
            good = good && (kind.tiled ? putTiles(tiff, kind, page, c) : putRows(tiff, kind, page, c));
        good = good && TIFFWriteDirectory(tiff);
    }
    if (good && kind.shotAt) good = putPhotoData(tiff, kind.shotAt);
    if (tiff != nullptr) TIFFClose(tiff);
    if (!good) throw std::runtime_error("no TIFF file");
    const std::string bytes = readFile(path);
    return {bytes.begin(), bytes.end()};
}
