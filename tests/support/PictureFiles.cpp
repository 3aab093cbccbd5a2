#include "tests/support/PictureFiles.h"

#include "modules/heif/Held.h"
#include "tests/support/TempFolder.h"

#include <algorithm>
#include <cstdio>
#include <libheif/heif.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <tiffio.h>
#include <utility>
#include <zlib.h>

namespace {

void put(Bytes& bytes, std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

Bytes number(std::uint32_t value) {
    Bytes bytes;
    put(bytes, value, 4);
    return bytes;
}

/// A directory that begins at `offset`: entries by tag, and behind them the values that do not fit inside.
Bytes directory(std::vector<ExifField> fields, std::size_t offset) {
    std::ranges::sort(fields, {}, &ExifField::tag);
    Bytes entries, values;
    const std::size_t behind = offset + 2 + 12 * fields.size() + 4;
    put(entries, static_cast<std::uint32_t>(fields.size()), 2);
    for (const ExifField& field : fields) {
        put(entries, field.tag, 2);
        put(entries, field.type, 2);
        put(entries, field.count, 4);
        Bytes inside = field.value;
        if (inside.size() > 4) {
            inside = number(static_cast<std::uint32_t>(behind + values.size()));
            append(values, field.value);
        }
        inside.resize(4);
        append(entries, inside);
    }
    put(entries, 0, 4);
    append(entries, values);
    return entries;
}

} // namespace

ExifField exifText(std::uint16_t tag, const std::string& text) {
    Bytes value(text.begin(), text.end());
    value.push_back(0);
    return {tag, 2, static_cast<std::uint32_t>(value.size()), value};
}

ExifField exifShort(std::uint16_t tag, std::uint16_t value) {
    Bytes bytes;
    put(bytes, value, 2);
    return {tag, 3, 1, bytes};
}

ExifField exifFractions(std::uint16_t tag, const std::vector<std::uint32_t>& parts) {
    Bytes value;
    for (const std::uint32_t part : parts)
        put(value, part, 4);
    return {tag, 5, static_cast<std::uint32_t>(parts.size() / 2), value};
}

Bytes exifBlock(std::vector<ExifField> tiff, const std::vector<ExifField>& exif,
                const std::vector<ExifField>& gps) {
    constexpr std::uint16_t exifPointer = 0x8769, gpsPointer = 0x8825;
    constexpr std::size_t header = 8;
    tiff.push_back({exifPointer, 4, 1, number(0)});
    tiff.push_back({gpsPointer, 4, 1, number(0)});
    // Sizes do not depend on what the pointers say.
    const std::size_t exifAt = header + directory(tiff, header).size();
    const std::size_t gpsAt = exifAt + directory(exif, exifAt).size();
    tiff[tiff.size() - 2].value = number(static_cast<std::uint32_t>(exifAt));
    tiff[tiff.size() - 1].value = number(static_cast<std::uint32_t>(gpsAt));
    Bytes block{'I', 'I', 42, 0, header, 0, 0, 0};
    for (const Bytes& part : {directory(tiff, header), directory(exif, exifAt), directory(gps, gpsAt)})
        append(block, part);
    return block;
}

Bytes withExif(const Bytes& jpeg, const Bytes& block) {
    Bytes segment{0xFF, 0xE1};
    const std::size_t length = block.size() + 8;
    segment.push_back(static_cast<std::uint8_t>(length >> 8));
    segment.push_back(static_cast<std::uint8_t>(length));
    for (const char c : std::string("Exif\0\0", 6))
        segment.push_back(static_cast<std::uint8_t>(c));
    append(segment, block);
    Bytes file = jpeg;
    file.insert(file.begin() + 2, segment.begin(), segment.end());
    return file;
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
        append(all, part);
    return all;
}

Bytes bigEndian(std::uint32_t value) {
    Bytes bytes = number(value);
    std::ranges::reverse(bytes);
    return bytes;
}

Bytes pngChunk(std::string_view type, const Bytes& content) {
    const Bytes checked = joined({{type.begin(), type.end()}, content});
    const auto sum =
        static_cast<std::uint32_t>(::crc32(0, checked.data(), static_cast<unsigned>(checked.size())));
    return joined({bigEndian(static_cast<std::uint32_t>(content.size())), checked, bigEndian(sum)});
}

Bytes withPngChunks(Bytes png, const std::vector<std::pair<std::string_view, Bytes>>& chunks) {
    constexpr std::ptrdiff_t headerEnd = 8 + 25; // signature and IHDR
    Bytes made;
    for (const auto& [type, content] : chunks)
        append(made, pngChunk(type, content));
    png.insert(png.begin() + headerEnd, made.begin(), made.end());
    return png;
}

Bytes smallGif() {
    // The codes are 4 0 1 1 0 5, three and then four bits each.
    return {'G',  'I',  'F', '8', '9', 'a', 3, 0, 2, 0, 0x80, 0, 0,    255,  0,    0, 0,
            0,    255,                            // the colours
            0x21, 0xF9, 4,   1,   0,   0,   1, 0, // the second is transparent
            0x2C, 1,    0,   0,   0,   2,   0, 2, 0, 0, 2,    3, 0x44, 0x02, 0x05, 0, 0x3B};
}

namespace {

/// The rows of a frame in the order in which they are stored.
std::vector<int> gifRows(int height, bool interlaced) {
    std::vector<int> rows;
    for (const auto& [first, step] : interlaced
                                         ? std::vector<std::pair<int, int>>{{0, 8}, {4, 8}, {2, 4}, {1, 2}}
                                         : std::vector<std::pair<int, int>>{{0, 1}}) {
        for (int y = first; y < height; y += step)
            rows.push_back(y);
    }
    return rows;
}

} // namespace

Bytes gifFile(int width, int height, bool interlaced, int frames) {
    Bytes file{'G', 'I', 'F', '8', '9', 'a'};
    put(file, static_cast<std::uint32_t>(width), 2);
    put(file, static_cast<std::uint32_t>(height), 2);
    append(file, {0xF6, 0, 0}); // 128 colours
    for (int i = 0; i < 128; ++i)
        file.insert(file.end(), 3, static_cast<std::uint8_t>(i));
    for (int frame = 0; frame < frames; ++frame) {
        append(file, {0x21, 0xF9, 4, 0, 5, 0, 0, 0, 0x2C, 0, 0, 0, 0});
        put(file, static_cast<std::uint32_t>(width), 2);
        put(file, static_cast<std::uint32_t>(height), 2);
        append(file, {static_cast<std::uint8_t>(interlaced ? 0x40 : 0), 7});
        // Codes keep to eight bits where the table of them is cleared in time.
        for (const int y : gifRows(height, interlaced)) {
            append(file, {static_cast<std::uint8_t>(width + 1), 128});
            file.insert(file.end(), static_cast<std::size_t>(width), static_cast<std::uint8_t>(y % 100));
        }
        append(file, {1, 129, 0});
    }
    file.push_back(0x3B);
    return file;
}

Bytes bmpFile(int width, int height, int bits, std::uint8_t compression, const Bytes& tables,
              const Bytes& pixels) {
    Bytes file{'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0};
    put(file, static_cast<std::uint32_t>(54 + tables.size()), 4);
    put(file, 40, 4);
    put(file, static_cast<std::uint32_t>(width), 4);
    put(file, static_cast<std::uint32_t>(height), 4);
    append(file, {1, 0, static_cast<std::uint8_t>(bits), 0, compression, 0, 0, 0, 0, 0, 0, 0});
    append(file, {0x13, 0x0B, 0, 0, 0x13, 0x0B, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    append(file, tables);
    append(file, pixels);
    return file;
}

Bytes webpWithExif(const Bytes& plain, int width, int height, const Bytes& block) {
    constexpr std::uint8_t hasExif = 8;
    Bytes content{'W', 'E', 'B', 'P', 'V', 'P', '8', 'X', 10, 0, 0, 0, hasExif, 0, 0, 0};
    put(content, static_cast<std::uint32_t>(width - 1), 3);
    put(content, static_cast<std::uint32_t>(height - 1), 3);
    content.insert(content.end(), plain.begin() + 12, plain.end());
    append(content, {'E', 'X', 'I', 'F'});
    put(content, static_cast<std::uint32_t>(block.size()), 4);
    append(content, block);
    if (block.size() % 2) content.push_back(0);
    Bytes file{'R', 'I', 'F', 'F'};
    put(file, static_cast<std::uint32_t>(content.size()), 4);
    append(file, content);
    return file;
}

namespace {

using pex::heif::Held;

void check(const heif_error& error) {
    if (error.code != heif_error_Ok) throw std::runtime_error(error.message);
}

Held<heif_image> imageOf(const pex::CGImage& picture) {
    heif_image* made = nullptr;
    check(heif_image_create(picture.width(), picture.height(), heif_colorspace_RGB,
                            heif_chroma_interleaved_RGB, &made));
    Held<heif_image> image(made);
    check(heif_image_add_plane(made, heif_channel_interleaved, picture.width(), picture.height(), 8));
    int stride = 0;
    std::uint8_t* rows = heif_image_get_plane(made, heif_channel_interleaved, &stride);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            std::copy_n(pixelAt(picture, x, y).begin(), 3, rows + y * stride + 3 * x);
    }
    return image;
}

heif_error keep(heif_context*, const void* bytes, std::size_t count, void* file) {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    static_cast<Bytes*>(file)->assign(first, first + count);
    return {heif_error_Ok, heif_suberror_Unspecified, ""};
}

} // namespace

Bytes heifFile(const pex::CGImage& picture, const HeifKind& kind) {
    const Held<heif_context> context(heif_context_alloc());
    heif_encoder* found = nullptr;
    check(heif_context_get_encoder_for_format(
        context.get(), kind.av1 ? heif_compression_AV1 : heif_compression_HEVC, &found));
    const Held<heif_encoder> encoder(found);
    const Held<heif_encoding_options> options(heif_encoding_options_alloc());
    options->image_orientation = static_cast<heif_orientation>(kind.turned);
    heif_image_handle* handle = nullptr;
    check(heif_context_encode_image(context.get(), imageOf(picture).get(), found, options.get(), &handle));
    const Held<heif_image_handle> made(handle);
    if (!kind.exif.empty())
        check(heif_context_add_exif_metadata(context.get(), handle, kind.exif.data(),
                                             static_cast<int>(kind.exif.size())));
    if (kind.second)
        check(heif_context_encode_image(context.get(), imageOf(*kind.second).get(), found, nullptr, nullptr));
    heif_writer writer{1, keep};
    Bytes file;
    check(heif_context_write(context.get(), &writer, &file));
    return file;
}

namespace {

/// The owner's entry for an empty password, and what follows from it, by the algorithms of ISO
/// 32000-1, 7.6.3.
const std::string owner = "2055c756c72e1ad702608e8196acad447ad32d17cff583235f6dd15fed7dab67";

std::string encryption(const std::string& user) {
    return "/ID [<00000000000000000000000000000000> <00000000000000000000000000000000>] "
           "/Encrypt << /Filter /Standard /V 1 /R 2 /P -4 /O <" +
           owner + "> /U <" + user + "> >>";
}

} // namespace

const std::string pdfPasswordUnknown = encryption(std::string(64, '5'));
const std::string pdfPasswordEmpty =
    encryption("b52db6cbc9fa9661e8edd0dbcd2af26acd5fab84f28cee99883b186b67a60b7b");

std::string pdfFile(const std::vector<PdfPage>& pages, const std::string& trailer) {
    std::vector<std::string> objects{"<< /Type /Catalog /Pages 2 0 R >>", ""};
    std::string kids;
    for (const PdfPage& page : pages) {
        const std::string content = std::to_string(objects.size() + 1);
        objects.push_back("<< /Length " + std::to_string(page.content.size()) + ' ' + page.contentEntries +
                          " >>\nstream\n" + page.content + "\nendstream");
        kids += std::to_string(objects.size() + 1) + " 0 R ";
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(page.width) + ' ' +
                          std::to_string(page.height) + "] /Contents " + content + " 0 R " + page.entries +
                          " >>");
    }
    objects[1] = "<< /Type /Pages /Count " + std::to_string(pages.size()) + " /Kids [" + kids + "] >>";

    std::string file = "%PDF-1.4\n", table;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", file.size());
        table += entry;
        file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::string count = std::to_string(objects.size() + 1), start = std::to_string(file.size());
    return file + "xref\n0 " + count + "\n0000000000 65535 f \n" + table + "trailer\n<< /Size " + count +
           " /Root 1 0 R " + trailer + " >>\nstartxref\n" + start + "\n%%EOF\n";
}

namespace {

constexpr int tileSide = 16, rowsPerStrip = 16;

/// The rectangle's samples side by side, those outside the picture 0; of a planar file one component's.
Bytes block(const TiffKind& kind, const TiffPicture& picture, int left, int top, int width, int height,
            int component) {
    Bytes bytes;
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

Bytes tiffFile(const TiffKind& kind, const std::vector<TiffPicture>& pages) {
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
