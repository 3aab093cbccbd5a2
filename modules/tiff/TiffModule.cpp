#include "peximage/platform/codecs/CodecModule.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>
#include <tiffio.h>
#include <vector>

namespace {

using Module = pex::CodecModule;
using Pixels = Module::Pixels;

/// What the codec library sees as a file: bytes to be read, or a file in memory that grows.
struct Stream {
    const Module::Input* input = nullptr;
    std::vector<std::uint8_t> written{};
    std::uint64_t position = 0;
    bool failed = false, lacksMemory = false;

    std::uint64_t size() const { return input != nullptr ? input->size : written.size(); }
};

Stream& streamOf(thandle_t handle) { return *static_cast<Stream*>(handle); }

tmsize_t readBytes(thandle_t handle, void* into, tmsize_t count) {
    Stream& stream = streamOf(handle);
    if (stream.position >= stream.size() || count <= 0) return 0;
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(count, stream.size() - stream.position));
    std::size_t got = wanted;
    if (stream.input != nullptr)
        got = stream.input->read(stream.input->context, stream.position, static_cast<std::uint8_t*>(into),
                                 wanted);
    else
        std::memcpy(into, stream.written.data() + stream.position, wanted);
    stream.position += got;
    return static_cast<tmsize_t>(got);
}

tmsize_t writeBytes(thandle_t handle, void* from, tmsize_t count) {
    Stream& stream = streamOf(handle);
    if (stream.input != nullptr || count < 0) return 0;
    const std::uint64_t end = stream.position + static_cast<std::uint64_t>(count);
    try {
        if (end > stream.written.size()) stream.written.resize(end);
    } catch (const std::bad_alloc&) {
        stream.lacksMemory = true;
        return 0;
    }
    std::memcpy(stream.written.data() + stream.position, from, static_cast<std::size_t>(count));
    stream.position = end;
    return count;
}

toff_t seek(thandle_t handle, toff_t offset, int from) {
    Stream& stream = streamOf(handle);
    stream.position = from == SEEK_CUR   ? stream.position + offset
                      : from == SEEK_END ? stream.size() + offset
                                         : offset;
    return stream.position;
}

/// Bytes in memory are used where they lie.
int map(thandle_t handle, void** bytes, toff_t* size) {
    const Module::Input* input = streamOf(handle).input;
    if (input == nullptr || input->bytes == nullptr) return 0;
    *bytes = const_cast<std::uint8_t*>(input->bytes); // which the codec library only reads
    *size = input->size;
    return 1;
}

void unmap(thandle_t, void*, toff_t) {}

int closeNothing(thandle_t) { return 0; }
toff_t sizeOf(thandle_t handle) { return streamOf(handle).size(); }

/// The codec library tells lack of memory by its words alone.
int noteError(TIFF*, void* data, const char*, const char* message, va_list) {
    Stream& stream = *static_cast<Stream*>(data);
    stream.failed = true;
    for (const char* words : {"memory", "No space for", "allocat"}) {
        if (std::strstr(message, words) != nullptr) stream.lacksMemory = true;
    }
    return 1; // and nothing is printed
}
int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffClose {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, TiffClose>;

Tiff openStream(Stream& stream, const char* mode) {
    constexpr tmsize_t mostAtOnce = tmsize_t{1} << 30;
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (options == nullptr) return nullptr;
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, mostAtOnce);
    TIFFOpenOptionsSetErrorHandlerExtR(options, noteError, &stream);
    TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreWarning, &stream);
    Tiff tiff(TIFFClientOpenExt("picture", mode, &stream, readBytes, writeBytes, seek, closeNothing, sizeOf,
                                map, unmap, options));
    TIFFOpenOptionsFree(options);
    return tiff;
}

template <class T>
T field(TIFF* tiff, std::uint32_t tag, T otherwise) {
    T value = otherwise;
    return TIFFGetFieldDefaulted(tiff, tag, &value) ? value : otherwise;
}

/// Four inks of 8 or 16 bits: read as they are, so that a profile can turn them into colours.
bool isCmyk(TIFF* tiff) {
    const int bits = field<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    return field<std::uint16_t>(tiff, TIFFTAG_PHOTOMETRIC, 0) == PHOTOMETRIC_SEPARATED &&
           field<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1) == 4 && (bits == 8 || bits == 16);
}

/// One component without alpha, of any number of bits.
bool isGrey(TIFF* tiff) {
    const int meaning = field<std::uint16_t>(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    return (meaning == PHOTOMETRIC_MINISBLACK || meaning == PHOTOMETRIC_MINISWHITE) &&
           field<std::uint16_t>(tiff, TIFFTAG_SAMPLESPERPIXEL, 1) == 1;
}

bool hasAlpha(TIFF* tiff) {
    std::uint16_t count = 0, *kinds = nullptr;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &count, &kinds);
    return count > 0 && (kinds[0] == EXTRASAMPLE_ASSOCALPHA || kinds[0] == EXTRASAMPLE_UNASSALPHA);
}

} // namespace

struct pex::CodecModule::Picture {
    Module::Input input;
    Stream stream{};
    Tiff tiff{};
    Module::Header header{};
};

namespace {

using Picture = Module::Picture;

void readDensity(TIFF* tiff, Module::Header& header) {
    float x = 0, y = 0;
    if (!TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) || !TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y)) return;
    const int unit = field<std::uint16_t>(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (unit == RESUNIT_NONE) return;
    const double factor = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
    header.dpiX = double(x) * factor;
    header.dpiY = double(y) * factor;
}

Module::Header readHeader(TIFF* tiff) {
    Module::Header header;
    header.width = field<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH, 0);
    header.height = field<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH, 0);
    header.depth = field<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    header.orientation = field<std::uint16_t>(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    header.pixels = isCmyk(tiff)     ? Pixels::cmyk
                    : isGrey(tiff)   ? Pixels::grey
                    : hasAlpha(tiff) ? Pixels::rgbaPremultiplied
                                     : Pixels::rgbx;
    readDensity(tiff, header);
    return header;
}

void readProfile(Picture& picture, std::size_t maxBytes) {
    void* profile = nullptr;
    std::uint32_t bytes = 0;
    if (TIFFGetField(picture.tiff.get(), TIFFTAG_ICCPROFILE, &bytes, &profile) && bytes <= maxBytes) {
        picture.header.profile = static_cast<const std::uint8_t*>(profile);
        picture.header.profileBytes = bytes;
    }
}

/// The directories that are pages: views that are kept in a smaller size beside a picture are none. Many
/// pages are only counted, which takes no more of each than where the next one is.
std::vector<int> findPages(TIFF* tiff) {
    constexpr int few = 16;
    const int count = static_cast<int>(TIFFNumberOfDirectories(tiff));
    std::vector<int> pages{0};
    for (int i = 1; i < count; ++i) {
        const bool isView = count <= few && TIFFReadDirectory(tiff) &&
                            (field<std::uint32_t>(tiff, TIFFTAG_SUBFILETYPE, 0) & FILETYPE_REDUCEDIMAGE) != 0;
        if (!isView) pages.push_back(i);
    }
    return pages;
}

/// Goes to a page among them.
bool setPage(TIFF* tiff, const std::vector<int>& pages, int page) {
    if (pages.size() == 1) return page == 0;
    return page >= 0 && page < static_cast<int>(pages.size()) &&
           TIFFSetDirectory(tiff, static_cast<tdir_t>(pages[static_cast<std::size_t>(page)]));
}

Picture* open(const Module::Input& input, const Module::Limits& limits, Module::Header* header,
              Module::Failure* failure) {
    auto picture = std::make_unique<Picture>();
    picture->input = input;
    picture->stream.input = &picture->input;
    picture->tiff = openStream(picture->stream, "r");
    const std::vector<int> pages = picture->tiff ? findPages(picture->tiff.get()) : std::vector<int>();
    const bool isOpen = !pages.empty() && setPage(picture->tiff.get(), pages, input.page);
    *failure = picture->stream.lacksMemory ? Module::Failure::outOfMemory : Module::Failure::damaged;
    if (!isOpen) return nullptr;
    picture->header = readHeader(picture->tiff.get());
    picture->header.pages = static_cast<int>(pages.size());
    *header = picture->header;
    *failure = Module::Failure::overLimit;
    if (!limits.allow(picture->header.width, picture->header.height)) return nullptr;
    readProfile(*picture, limits.metadataBytes);
    *header = picture->header;
    return picture.release();
}

void close(Picture* picture) { delete picture; }

/// True when strips or tiles lie behind the file's end.
bool breaksOff(Picture* picture) {
    TIFF* tiff = picture->tiff.get();
    const std::uint64_t fileSize = picture->input.size;
    const std::uint32_t count = TIFFIsTiled(tiff) ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint64_t at = TIFFGetStrileOffset(tiff, i), size = TIFFGetStrileByteCount(tiff, i);
        if (at > fileSize || size > fileSize - at) return true;
    }
    return false;
}

/// How the samples of a picture in inks lie.
struct Inks {
    bool wide, planar; // 16 bits; one ink after the other

    std::size_t bytes(std::size_t pixels) const { return pixels * (planar ? 1 : 4) * (wide ? 2 : 1); }

    /// Puts a row's samples, all four inks or one of them, where they belong.
    void put(const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) const {
        const auto* samples = reinterpret_cast<const std::uint16_t*>(from);
        const std::size_t count = planar ? pixels : 4 * pixels, step = planar ? 4 : 1;
        for (std::size_t i = 0; i < count; ++i)
            to[i * step] = wide ? static_cast<std::uint8_t>(samples[i] >> 8) : from[i];
    }
};

using Buffer = std::unique_ptr<std::uint8_t[]>;

Buffer bufferOf(std::size_t bytes) { return Buffer(new std::uint8_t[bytes]); }

/// All rows of one ink, or of all; how many came before the picture broke off.
std::int64_t readInkRows(Picture& picture, const Inks& inks, std::uint16_t ink, std::uint8_t* pixels) {
    TIFF* tiff = picture.tiff.get();
    const auto width = static_cast<std::size_t>(picture.header.width);
    const auto rowBytes = static_cast<std::size_t>(TIFFScanlineSize(tiff));
    const Buffer row = rowBytes >= inks.bytes(width) ? bufferOf(rowBytes) : nullptr;
    if (!row) return 0;
    for (std::int64_t y = 0; y < picture.header.height; ++y, pixels += width * 4) {
        if (TIFFReadScanline(tiff, row.get(), static_cast<std::uint32_t>(y), ink) < 0) return y;
        inks.put(row.get(), pixels + ink, width);
    }
    return picture.header.height;
}

std::int64_t readInkTiles(Picture& picture, const Inks& inks, std::uint16_t ink, std::uint8_t* pixels) {
    TIFF* tiff = picture.tiff.get();
    const std::int64_t width = picture.header.width, height = picture.header.height,
                       tileWidth = field<std::uint32_t>(tiff, TIFFTAG_TILEWIDTH, 0),
                       tileHeight = field<std::uint32_t>(tiff, TIFFTAG_TILELENGTH, 0);
    const auto rowBytes = static_cast<std::size_t>(TIFFTileRowSize(tiff));
    if (tileWidth < 1 || tileHeight < 1 || rowBytes < inks.bytes(static_cast<std::size_t>(tileWidth)))
        return 0;
    const Buffer tile = bufferOf(static_cast<std::size_t>(TIFFTileSize(tiff)));
    if (!tile) return 0;
    for (std::int64_t top = 0; top < height; top += tileHeight) {
        for (std::int64_t left = 0; left < width; left += tileWidth) {
            const auto column = static_cast<std::uint32_t>(left), line = static_cast<std::uint32_t>(top);
            if (TIFFReadTile(tiff, tile.get(), column, line, 0, ink) < 0) return top;
            const auto columns = static_cast<std::size_t>(std::min(tileWidth, width - left));
            const std::int64_t rows = std::min(tileHeight, height - top);
            for (std::int64_t y = 0; y < rows; ++y)
                inks.put(tile.get() + static_cast<std::size_t>(y) * rowBytes,
                         pixels + ((top + y) * width + left) * 4 + ink, columns);
        }
    }
    return height;
}

/// What there is of some rows: the last ones and others may show nothing.
struct Rows {
    std::int64_t last = 0; // behind the last that shows something
    std::int64_t shown = 0;
};

Rows decodeCmyk(Picture& picture, std::uint8_t* pixels) {
    TIFF* tiff = picture.tiff.get();
    const Inks inks{picture.header.depth == 16,
                    field<std::uint16_t>(tiff, TIFFTAG_PLANARCONFIG, 1) == PLANARCONFIG_SEPARATE};
    std::int64_t rows = picture.header.height;
    for (std::uint16_t ink = 0; ink < (inks.planar ? 4 : 1) && rows > 0; ++ink) {
        const auto read = TIFFIsTiled(tiff) ? readInkTiles : readInkRows;
        rows = std::min(rows, read(picture, inks, ink, pixels));
    }
    return {rows, rows};
}

/// Turns some rows, from `first` on, into R G B A.
Rows decodeRows(Picture& picture, TIFFRGBAImage& image, std::int64_t first, std::int64_t rows,
                std::uint8_t* pixels) {
    const std::size_t rowBytes = static_cast<std::size_t>(picture.header.width) * 4;
    std::memset(pixels, 0, rowBytes * static_cast<std::size_t>(rows));
    image.row_offset = static_cast<int>(first);
    const int good = TIFFRGBAImageGet(&image, reinterpret_cast<std::uint32_t*>(pixels), image.width,
                                      static_cast<std::uint32_t>(rows));
    if (good && !picture.stream.failed) return {rows, rows};
    Rows some;
    for (std::int64_t y = 0; y < rows; ++y) {
        const std::uint8_t* row = pixels + static_cast<std::size_t>(y) * rowBytes;
        if (std::all_of(row, row + rowBytes, [](std::uint8_t byte) { return byte == 0; })) continue;
        some = {y + 1, some.shown + 1};
    }
    return some;
}

/// A whole number of strips or rows of tiles, none of which would otherwise be unpacked twice.
std::int64_t rowsAtOnce(TIFF* tiff, std::int64_t height) {
    constexpr std::int64_t about = 64;
    const std::int64_t unit =
        field<std::uint32_t>(tiff, TIFFIsTiled(tiff) ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, 1);
    return std::min(height, std::max<std::int64_t>(1, unit) * (unit < about ? about : 1));
}

Rows decodeGrey(Picture& picture, TIFFRGBAImage& image, std::uint8_t* pixels) {
    const std::int64_t height = picture.header.height, most = rowsAtOnce(picture.tiff.get(), height);
    const auto width = static_cast<std::size_t>(picture.header.width);
    const Buffer colours = bufferOf(width * 4 * static_cast<std::size_t>(most));
    Rows all;
    for (std::int64_t y = 0; y < height; y += most) {
        const std::int64_t rows = std::min(most, height - y);
        const Rows some = decodeRows(picture, image, y, rows, colours.get());
        for (std::size_t i = 0; i < width * static_cast<std::size_t>(rows); ++i)
            *pixels++ = colours[4 * i];
        if (some.shown > 0) all = {y + some.last, all.shown + some.shown};
    }
    return all;
}

Rows decodeColours(Picture* picture, std::uint8_t* pixels) {
    TIFF* tiff = picture->tiff.get();
    TIFFRGBAImage image{};
    char message[1024];
    if (!TIFFRGBAImageOK(tiff, message) || !TIFFRGBAImageBegin(&image, tiff, 0, message)) return {};
    image.req_orientation = image.orientation; // the rows as they are stored
    const Rows rows = picture->header.pixels == Pixels::grey
                          ? decodeGrey(*picture, image, pixels)
                          : decodeRows(*picture, image, 0, picture->header.height, pixels);
    TIFFRGBAImageEnd(&image);
    return rows;
}

Module::Decoded decode(Picture* picture, std::uint8_t* pixels) {
    Stream& stream = picture->stream;
    stream.failed = stream.lacksMemory = false;
    const Rows rows = picture->header.pixels == Pixels::cmyk ? decodeCmyk(*picture, pixels)
                                                             : decodeColours(picture, pixels);
    if (stream.lacksMemory) return {0, false, Module::Failure::outOfMemory};
    return {rows.last, !stream.failed && rows.shown == picture->header.height, Module::Failure::none,
            rows.last - rows.shown};
}

bool putTags(TIFF* tiff, const Module::Encoding& picture) {
    constexpr std::uint16_t straightAlpha = EXTRASAMPLE_UNASSALPHA;
    constexpr int differences = 2;
    bool good = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, picture.width) &&
                TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, picture.height) &&
                TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8) &&
                TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, picture.hasAlpha ? 4 : 3) &&
                TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB) &&
                TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
                TIFFSetField(tiff, TIFFTAG_PREDICTOR, differences) &&
                TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 1 << 18));
    if (picture.hasAlpha) good = good && TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &straightAlpha);
    if (picture.dpiX > 0 && picture.dpiY > 0)
        good = good && TIFFSetField(tiff, TIFFTAG_XRESOLUTION, picture.dpiX) &&
               TIFFSetField(tiff, TIFFTAG_YRESOLUTION, picture.dpiY) &&
               TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (picture.profileBytes > 0)
        good = good && TIFFSetField(tiff, TIFFTAG_ICCPROFILE,
                                    static_cast<std::uint32_t>(picture.profileBytes), picture.profile);
    return good;
}

bool putRows(TIFF* tiff, const Module::Encoding& picture) {
    const std::size_t samples = picture.hasAlpha ? 4 : 3;
    std::vector<std::uint8_t> row(static_cast<std::size_t>(picture.width) * samples);
    for (int y = 0; y < picture.height; ++y) {
        const std::uint8_t* from = picture.pixels + y * picture.bytesPerRow;
        for (std::size_t x = 0; x < static_cast<std::size_t>(picture.width); ++x)
            std::memcpy(row.data() + x * samples, from + x * 4, samples);
        if (TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y)) < 0) return false;
    }
    return true;
}

Module::Failure encode(const Module::Encoding& picture,
                       void (*write)(void*, const std::uint8_t*, std::size_t), void* context) {
    Stream stream;
    Tiff tiff = openStream(stream, "wm");
    const bool isPut =
        tiff && putTags(tiff.get(), picture) && putRows(tiff.get(), picture) && TIFFFlush(tiff.get());
    tiff.reset();
    if (stream.lacksMemory) return Module::Failure::outOfMemory;
    if (!isPut || stream.failed) return Module::Failure::damaged;
    write(context, stream.written.data(), stream.written.size());
    return Module::Failure::none;
}

constexpr Module functions{open, close, decode, breaksOff, encode};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
