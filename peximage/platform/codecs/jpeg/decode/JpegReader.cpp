#include "peximage/platform/codecs/jpeg/decode/JpegReader.h"

#include "peximage/platform/codecs/ExifBlock.h"
#include "peximage/platform/codecs/jpeg/decode/LibraryDecoder.h"
#include "peximage/platform/codecs/jpeg/decode/RowDecoder.h"
#include "peximage/platform/foundation/WorkState.h"
#include "peximage/platform/raster/ColorConversion.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace pex {
namespace {

/// A block of 64 pixels takes more than two bits in any JPEG with luma and halved chroma, but for empty scans
/// of progressive files; no honest picture comes near.
constexpr std::int64_t maxPixelsPerByte = 1024;

bool isCmyk(J_COLOR_SPACE space) { return space == JCS_CMYK || space == JCS_YCCK; }

/// What every reader of one file shares.
struct JpegFile {
    Data bytes;
    PixelSize size;
    J_COLOR_SPACE decodedSpace = JCS_EXT_RGBX;
    bool inkInverted = false;
    std::size_t maxMetadataBytes = 0;
    CGColorSpace colorSpace = CGColorSpace::sRGB();
    std::shared_ptr<const ColorConversion> fromCmyk;
};

/// C M Y K to R G B x in place.
void convertInk(const JpegFile& file, std::uint8_t* row, int pixels) {
    if (file.inkInverted) {
        for (int i = 0; i < pixels * 4; ++i)
            row[i] = static_cast<std::uint8_t>(255 - row[i]);
    }
    if (file.fromCmyk) {
        file.fromCmyk->convertRow(row, row, pixels);
        for (int i = 0; i < pixels; ++i)
            row[i * 4 + 3] = 255;
        return;
    }
    for (int i = 0; i < pixels; ++i, row += 4) {
        const int white = 255 - row[3];
        for (int c = 0; c < 3; ++c)
            row[c] = static_cast<std::uint8_t>(((255 - row[c]) * white + 127) / 255);
        row[3] = 255;
    }
}

/// How many rows there are up to the last one that is not all of one colour. Where the codes of the first
/// scan are missing from the start, later ones may still show something below the first row of blocks.
int rowsUpToDetail(PixelView rows) {
    const auto pixel = static_cast<std::size_t>(bytesPerPixel(rows.layout));
    const std::size_t rest = (static_cast<std::size_t>(rows.width) - 1) * pixel;
    int count = rows.height;
    while (count > 0 && std::memcmp(rows.row(count - 1), rows.row(count - 1) + pixel, rest) == 0)
        --count;
    return count;
}

class JpegRows final : public RowReader {
  public:
    /// Null when the decoder refuses the file after all.
    static std::unique_ptr<JpegRows> make(const JpegFile& file) {
        std::unique_ptr<JpegRows> rows(new JpegRows(file));
        return rows->start() ? std::move(rows) : nullptr;
    }

  private:
    std::optional<DecodedRows> readNext(MutablePixelView rows) override {
        const int first = rowsDone_;
        if (own_) {
            rowsDone_ += own_->read(rows);
            if (rowsDone_ == first + rows.height) return DecodedRows{rows.height};
            own_.reset();
            if (!startLibrary() || !skipDone()) damaged_ = true;
        }
        readByLibrary(rows.part(0, rowsDone_ - first, rows.width, rows.height - (rowsDone_ - first)));
        int shown = std::min(rowsDone_, library_->rowsShown()) - first;
        if (shown <= 0) {
            const int detail = rowsUpToDetail(rows.part(0, 0, rows.width, rowsDone_ - first));
            constexpr int bled = 1; // by upsampling, into the row below
            if (detail > DCTSIZE * library_->info().max_v_samp_factor + bled) shown = detail;
        }
        return DecodedRows{std::clamp(shown, 0, rows.height), !damaged_ && !library_->isDamaged()};
    }

    explicit JpegRows(const JpegFile& file) : file_(file) {}

    bool start() {
        if (!readHeader()) return false;
        if (!library_->isDamaged()) own_ = jpeg::RowDecoder::make(library_->info(), file_.bytes);
        return own_ || startDecoding();
    }

    bool startLibrary() { return readHeader() && startDecoding(); }

    bool readHeader() {
        library_ = std::make_unique<jpeg::LibraryDecoder>(CGDataProvider(file_.bytes));
        return withMemory(library_->readHeader(file_.maxMetadataBytes));
    }

    bool startDecoding() { return withMemory(library_->start(file_.decodedSpace)); }

    bool withMemory(bool good) const {
        if (library_->lacksMemory()) throw std::bad_alloc();
        return good;
    }

    void readByLibrary(MutablePixelView rows) {
        constexpr int batch = 16;
        for (int y = 0; y < rows.height; y += batch) {
            endIfStopped();
            const MutablePixelView part = rows.part(0, y, rows.width, std::min(batch, rows.height - y));
            JSAMPROW pointers[batch];
            for (int i = 0; i < part.height; ++i)
                pointers[i] = part.row(i);
            damaged_ =
                damaged_ || !withMemory(library_->readRows(pointers, static_cast<unsigned>(part.height)));
            if (damaged_) return fillMissing(rows.part(0, y, rows.width, rows.height - y));
            rowsDone_ += part.height;
            for (int i = 0; i < part.height && file_.decodedSpace == JCS_CMYK; ++i)
                convertInk(file_, part.row(i), part.width);
        }
    }

    /// Goes to the row that is due.
    bool skipDone() {
        std::vector<JSAMPLE> row(std::size_t{library_->info().output_width} * 4);
        JSAMPROW pointer = row.data();
        for (int y = 0; y < rowsDone_; ++y) {
            endIfStopped();
            if (!library_->readRows(&pointer, 1)) return false;
        }
        return true;
    }

    JpegFile file_;
    std::unique_ptr<jpeg::RowDecoder> own_; // until it comes to damage
    std::unique_ptr<jpeg::LibraryDecoder> library_;
    int rowsDone_ = 0;
    bool damaged_ = false;
};

class JpegSource final : public PixelSource {
  public:
    explicit JpegSource(JpegFile file) : file_(std::move(file)) {}

    PixelSize size() const override { return file_.size; }
    CGColorSpace colorSpace() const override { return file_.colorSpace; }
    PixelLayout layout() const override {
        return file_.decodedSpace == JCS_GRAYSCALE ? PixelLayout::grey : PixelLayout::skipLast;
    }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override { return JpegRows::make(file_); }

    JpegFile file_;
};

CGColorSpace::Model modelOf(const jpeg_decompress_struct& info) {
    if (isCmyk(info.jpeg_color_space)) return CGColorSpace::Model::cmyk;
    return info.jpeg_color_space == JCS_GRAYSCALE ? CGColorSpace::Model::gray : CGColorSpace::Model::rgb;
}

void readDensity(const jpeg_decompress_struct& info, ImageProperties& properties) {
    constexpr double inchesPerCentimetre = 2.54;
    if (!info.saw_JFIF_marker || info.density_unit == 0 || info.X_density == 0 || info.Y_density == 0) return;
    const double unit = info.density_unit == 2 ? inchesPerCentimetre : 1;
    properties.dpiWidth = info.X_density * unit;
    properties.dpiHeight = info.Y_density * unit;
}

void readExif(const ExifBlock& exif, ImageProperties& properties) {
    properties.orientation = exif.orientation().value_or(Orientation::up);
    const auto resolution = exif.resolution();
    if (properties.dpiWidth || !resolution) return;
    properties.dpiWidth = resolution->x;
    properties.dpiHeight = resolution->y;
}

/// Of several EXIF segments the first one that can be read counts: a broken one does not hide it.
void readExif(const jpeg::LibraryDecoder& decoder, OpenedImage& opened) {
    for (std::vector<std::uint8_t>& segment : decoder.exifSegments()) {
        const ExifBlock exif(segment);
        if (exif.isEmpty()) continue;
        readExif(exif, opened.properties);
        opened.exif = Data(std::move(segment));
        return;
    }
}

} // namespace

std::optional<OpenedImage> openJpeg(const CGDataProvider& bytes, const ImageLimits& limits) {
    jpeg::LibraryDecoder decoder(bytes);
    const bool isRead = decoder.readHeader(limits.maxMetadataBytes);
    if (decoder.lacksMemory()) throw std::bad_alloc();
    if (!isRead) return std::nullopt;
    const jpeg_decompress_struct& info = decoder.info();
    const std::int64_t width = info.image_width, height = info.image_height;
    if (!limits.allows(width, height)) return std::nullopt;
    if (width * height / maxPixelsPerByte > static_cast<std::int64_t>(bytes.size())) return std::nullopt;

    OpenedImage opened;
    ImageProperties& properties = opened.properties;
    properties.format = ImageFormat::jpeg;
    properties.pixelWidth = static_cast<int>(width);
    properties.pixelHeight = static_cast<int>(height);
    properties.colorModel = modelOf(info);
    readDensity(info, properties);
    readExif(decoder, opened);

    std::vector<std::uint8_t> icc = decoder.iccProfile();
    std::optional<CGColorSpace> profile;
    if (!icc.empty() && icc.size() <= limits.maxMetadataBytes)
        profile = CGColorSpace::fromICC(Data(std::move(icc)));
    if (profile && profile->model() != properties.colorModel) profile.reset();
    if (profile) properties.profileName = profile->name();
    if (bytes.data().empty()) return opened;

    JpegFile file;
    file.bytes = bytes.data();
    file.size = {properties.pixelWidth, properties.pixelHeight};
    file.maxMetadataBytes = limits.maxMetadataBytes;
    if (properties.colorModel == CGColorSpace::Model::gray) {
        file.decodedSpace = JCS_GRAYSCALE;
        file.colorSpace = profile.value_or(CGColorSpace::deviceGray());
    } else if (properties.colorModel == CGColorSpace::Model::cmyk) {
        file.decodedSpace = JCS_CMYK;
        file.inkInverted = info.saw_Adobe_marker;
        if (profile)
            file.fromCmyk =
                ColorConversion::make(*profile, ColorConversion::Pixels::cmyk, CGColorSpace::sRGB());
    } else {
        file.colorSpace = profile.value_or(CGColorSpace::sRGB());
    }
    opened.source = std::make_shared<JpegSource>(std::move(file));
    return opened;
}

} // namespace pex
