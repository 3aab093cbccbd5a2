#include "peximage/platform/codecs/PngReader.h"

#include "peximage/platform/codecs/ExifBlock.h"
#include "peximage/platform/codecs/PngColorSpace.h"
#include "peximage/platform/codecs/PngDecoder.h"
#include "peximage/platform/foundation/WorkState.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <string_view>
#include <vector>

namespace pex {
namespace {

/// Deflate cannot pack tighter than 1032 to one.
constexpr std::size_t maxRawBytesPerByte = 1100;

/// Chunks up to this size are read whatever the limit for profiles: a palette is a chunk, too.
constexpr std::size_t leastChunkLimit = std::size_t{1} << 20;

constexpr double metresPerInch = 0.0254;

/// The data that all readers of one file share.
struct PngFile {
    Data bytes;
    PixelSize size;
    PixelLayout layout = PixelLayout::skipLast;
    bool interlaced = false;
    std::size_t maxChunkBytes = 0;
    CGColorSpace colorSpace = CGColorSpace::sRGB();
};

bool begin(PngDecoder& decoder, const PngFile& file) {
    const bool good = decoder.readHeader(file.maxChunkBytes) && decoder.start(file.layout);
    if (decoder.lacksMemory()) throw std::bad_alloc();
    return good;
}

class PngRows final : public RowReader {
  public:
    /// Null when the decoder refuses the file after all.
    static std::unique_ptr<PngRows> make(const PngFile& file) {
        std::unique_ptr<PngRows> rows(new PngRows(file.bytes));
        return begin(rows->decoder_, file) ? std::move(rows) : nullptr;
    }

  private:
    std::optional<DecodedRows> readNext(MutablePixelView rows) override {
        const int done = decoder_.readRows(rows);
        endIfStopped();
        if (decoder_.lacksMemory()) throw std::bad_alloc();
        fillMissing(rows.part(0, done, rows.width, rows.height - done));
        return DecodedRows{done, !decoder_.isDamaged()};
    }

    explicit PngRows(const Data& bytes) : decoder_(CGDataProvider(bytes)) {}

    PngDecoder decoder_;
};

class PngSource final : public PixelSource {
  public:
    explicit PngSource(PngFile file) : file_(std::move(file)) {}

    PixelSize size() const override { return file_.size; }
    PixelLayout layout() const override { return file_.layout; }
    CGColorSpace colorSpace() const override { return file_.colorSpace; }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override {
        return file_.interlaced ? nullptr : PngRows::make(file_);
    }
    std::optional<DecodedRows> decodeAll(MutablePixelView pixels) const override {
        if (!file_.interlaced) return PixelSource::decodeAll(pixels);
        fillMissing(pixels);
        PngDecoder decoder{CGDataProvider(file_.bytes)};
        const int shown = begin(decoder, file_) ? decoder.readInterlaced(pixels) : 0;
        endIfStopped();
        if (decoder.lacksMemory()) throw std::bad_alloc();
        return DecodedRows{shown, !decoder.isDamaged()};
    }

    PngFile file_;
};

/// A whole number of dpi is stored as the nearest number a metre, and is whole again when it is read.
double dotsPerInch(png_uint_32 dotsPerMetre) {
    const double exact = dotsPerMetre * metresPerInch, whole = std::round(exact);
    return std::round(whole / metresPerInch) == dotsPerMetre ? whole : exact;
}

void readDensity(const PngDecoder& decoder, ImageProperties& properties) {
    png_uint_32 x = 0, y = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    if (!png_get_pHYs(decoder.png(), decoder.info(), &x, &y, &unit)) return;
    if (unit != PNG_RESOLUTION_METER || x == 0 || y == 0) return;
    properties.dpiWidth = dotsPerInch(x);
    properties.dpiHeight = dotsPerInch(y);
}

/// The EXIF chunk wherever it stands: cameras' software puts it behind the pixels, too. Only the heads of the
/// other chunks are read.
Data findExif(const CGDataProvider& bytes, std::size_t maxBytes) {
    constexpr std::size_t signatureBytes = 8, headBytes = 8, checksumBytes = 4;
    constexpr int mostChunks = 1 << 16;
    std::size_t at = signatureBytes;
    for (int i = 0; i < mostChunks; ++i) {
        std::array<std::uint8_t, headBytes> head{};
        if (bytes.read(at, head) != head.size()) break;
        const std::size_t length = png_get_uint_32(head.data());
        const std::string_view type(reinterpret_cast<const char*>(head.data()) + 4, 4);
        at += headBytes;
        if (type == "eXIf" && length <= std::min(maxBytes, bytes.size())) {
            std::vector<std::uint8_t> exif(length);
            exif.resize(bytes.read(at, exif));
            return Data(std::move(exif));
        }
        if (type == "IEND") break;
        at += length + checksumBytes;
    }
    return {};
}

ImageProperties readProperties(const PngDecoder& decoder) {
    const png_const_structp png = decoder.png();
    const int colourType = png_get_color_type(png, decoder.info());
    ImageProperties properties;
    properties.format = ImageFormat::png;
    properties.pixelWidth = static_cast<int>(png_get_image_width(png, decoder.info()));
    properties.pixelHeight = static_cast<int>(png_get_image_height(png, decoder.info()));
    properties.hasAlpha =
        (colourType & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, decoder.info(), PNG_INFO_tRNS) != 0;
    // The colours of a palette have 8 bits, however few the indices have.
    properties.depth = colourType == PNG_COLOR_TYPE_PALETTE ? 8 : png_get_bit_depth(png, decoder.info());
    const bool colour = (colourType & PNG_COLOR_MASK_COLOR) != 0;
    properties.colorModel = colour ? CGColorSpace::Model::rgb : CGColorSpace::Model::gray;
    readDensity(decoder, properties);
    return properties;
}

PixelLayout layoutFor(const ImageProperties& properties) {
    if (properties.hasAlpha) return PixelLayout::straightLast;
    return properties.colorModel == CGColorSpace::Model::gray ? PixelLayout::grey : PixelLayout::skipLast;
}

/// False if the remaining bytes cannot hold so many pixels, however well packed.
bool canHoldPixels(const PngDecoder& decoder, std::size_t fileSize) {
    const std::size_t raw = png_get_rowbytes(decoder.png(), decoder.info()) *
                            std::size_t{png_get_image_height(decoder.png(), decoder.info())};
    return raw / maxRawBytesPerByte <= fileSize - std::min(fileSize, decoder.position());
}

} // namespace

std::optional<OpenedImage> openPng(const CGDataProvider& bytes, const ImageLimits& limits) {
    const std::size_t maxChunkBytes = std::max(limits.maxMetadataBytes, leastChunkLimit);
    PngDecoder decoder(bytes);
    const bool isRead = decoder.readHeader(maxChunkBytes);
    if (decoder.lacksMemory()) throw std::bad_alloc();
    if (!isRead) return std::nullopt;
    OpenedImage opened{readProperties(decoder), nullptr, findExif(bytes, limits.maxMetadataBytes)};
    opened.properties.orientation = ExifBlock(opened.exif.bytes()).orientation().value_or(Orientation::up);
    const PixelSize size{opened.properties.pixelWidth, opened.properties.pixelHeight};
    if (!limits.allows(size.width, size.height) || !canHoldPixels(decoder, bytes.size())) return std::nullopt;

    const auto profile = embeddedPngProfile(decoder, limits.maxMetadataBytes);
    if (profile) opened.properties.profileName = profile->name();
    if (bytes.data().empty()) return opened;

    PngFile file{bytes.data(), size, layoutFor(opened.properties)};
    file.interlaced = png_get_interlace_type(decoder.png(), decoder.info()) != PNG_INTERLACE_NONE;
    file.maxChunkBytes = maxChunkBytes;
    file.colorSpace = pngColorSpace(decoder, file.layout, profile);
    opened.source = std::make_shared<PngSource>(std::move(file));
    return opened;
}

} // namespace pex
