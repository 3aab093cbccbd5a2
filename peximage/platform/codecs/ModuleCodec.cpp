#include "peximage/platform/codecs/ModuleCodec.h"

#include "peximage/platform/codecs/ExifBlock.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/ColorConversion.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/IccProfile.h"
#include "peximage/platform/raster/StripImage.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/FlattenRow.h"

#include <limits>
#include <utility>
#include <vector>

namespace pex {
namespace {

using Pixels = CodecModule::Pixels;

PixelLayout layoutOf(Pixels pixels) {
    switch (pixels) {
    case Pixels::grey:
        return PixelLayout::grey;
    case Pixels::rgbaStraight:
        return PixelLayout::straightLast;
    case Pixels::rgbaPremultiplied:
        return PixelLayout::premultipliedLast;
    case Pixels::rgbx:
    case Pixels::cmyk:
        break;
    }
    return PixelLayout::skipLast;
}

CGColorSpace::Model modelOf(Pixels pixels) {
    if (pixels == Pixels::grey) return CGColorSpace::Model::gray;
    return pixels == Pixels::cmyk ? CGColorSpace::Model::cmyk : CGColorSpace::Model::rgb;
}

using Failure = CodecModule::Failure;

void giveReasonOf(Failure failure) {
    switch (failure) {
    case Failure::outOfMemory:
        return giveReason(ReasonCode::outOfMemory, "out of memory");
    case Failure::noThread:
        return giveReason(ReasonCode::noThread, "no thread can be started");
    case Failure::overLimit:
        return giveReason(ReasonCode::overLimit, "over a limit of its format");
    case Failure::none:
    case Failure::damaged:
        return giveReason(ReasonCode::damaged, "damaged: its header cannot be read");
    }
}

/// About what the hungriest take, beside the pixels that they are given.
constexpr std::size_t bytesToOpen = std::size_t{1} << 20, bytesToCode = std::size_t{16} << 20;
constexpr std::size_t bytesToDecodePixel = 12, bytesToEncodePixel = 24;

std::size_t pixelCount(std::int64_t width, std::int64_t height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

/// A picture that a module has opened.
class OpenPicture {
  public:
    OpenPicture(const CodecModule& module, CGDataProvider bytes, const ImageLimits& limits, int page = 0)
        : module_(module), bytes_(std::move(bytes)) {
        expectMemory(bytesToOpen);
        const CodecModule::Input input{&bytes_, bytes_.size(), bytes_.data().data(), read, page};
        picture_ =
            module_.open(input, {limits.maxMetadataBytes, std::numeric_limits<int>::max(), limits.maxPixels},
                         &header_, &failure_);
        if (picture_ != nullptr) return;
        if (failure_ == Failure::overLimit)
            limits.allows(header_.width, header_.height); // gives the reason with the numbers
        else
            giveReasonOf(failure_);
    }
    ~OpenPicture() {
        if (picture_ != nullptr) module_.close(picture_);
    }
    OpenPicture(const OpenPicture&) = delete;
    OpenPicture& operator=(const OpenPicture&) = delete;

    explicit operator bool() const { return picture_ != nullptr; }
    const CodecModule::Header& header() const { return header_; }
    bool breaksOff() { return module_.breaksOff != nullptr && module_.breaksOff(picture_); }
    CodecModule::Decoded decode(std::uint8_t* pixels) {
        expectMemory(bytesToCode + bytesToDecodePixel * pixelCount(header_.width, header_.height));
        return module_.decode(picture_, pixels);
    }

  private:
    static std::size_t read(void* context, std::size_t offset, std::uint8_t* into, std::size_t count) {
        return static_cast<CGDataProvider*>(context)->read(offset, {into, count});
    }

    const CodecModule& module_;
    CGDataProvider bytes_;
    CodecModule::Header header_;
    Failure failure_ = Failure::damaged;
    CodecModule::Picture* picture_ = nullptr;
};

/// The data that all decodings of one file share.
struct ModuleFile {
    const CodecModule* module;
    Data bytes;
    ImageLimits limits;
    int page;
    PixelSize size;
    Pixels pixels;
    CGColorSpace colorSpace = CGColorSpace::sRGB();
    std::shared_ptr<const ColorConversion> fromCmyk{};
};

/// Converts C M Y K to R G B x in place, by the profile or, without one, as inks that take away light.
void convertInk(const ModuleFile& file, std::uint8_t* row, int pixels) {
    if (file.fromCmyk) file.fromCmyk->convertRow(row, row, pixels);
    for (int i = 0; i < pixels; ++i, row += 4) {
        const int white = 255 - row[3];
        for (int c = 0; c < 3 && !file.fromCmyk; ++c)
            row[c] = static_cast<std::uint8_t>(((255 - row[c]) * white + 127) / 255);
        row[3] = 255;
    }
}

class ModuleSource final : public PixelSource {
  public:
    explicit ModuleSource(ModuleFile file) : file_(std::move(file)) {}

    PixelSize size() const override { return file_.size; }
    PixelLayout layout() const override { return layoutOf(file_.pixels); }
    CGColorSpace colorSpace() const override { return file_.colorSpace; }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override { return nullptr; }

    std::optional<DecodedRows> decodeAll(MutablePixelView pixels) const override {
        OpenPicture picture(*file_.module, CGDataProvider(file_.bytes), file_.limits, file_.page);
        const CodecModule::Header& header = picture.header();
        const bool isSame = header.width == file_.size.width && header.height == file_.size.height &&
                            header.pixels == file_.pixels;
        if (!picture) return std::nullopt;
        const auto decoded = isSame ? picture.decode(pixels.row(0)) : CodecModule::Decoded{};
        if (decoded.failure != Failure::none) {
            giveReasonOf(decoded.failure);
            return std::nullopt;
        }
        const auto rows = static_cast<int>(decoded.rows);
        if (file_.pixels == Pixels::cmyk) {
            forEachStrip(rows, [&](int begin, int end) {
                for (int y = begin; y < end; ++y)
                    convertInk(file_, pixels.row(y), pixels.width);
            });
        }
        fillMissing(pixels.part(0, rows, pixels.width, pixels.height - rows));
        return DecodedRows{rows - static_cast<int>(decoded.blank), decoded.isSound};
    }

    ModuleFile file_;
};

std::vector<std::uint8_t> copied(const std::uint8_t* bytes, std::size_t count) {
    return bytes != nullptr ? std::vector<std::uint8_t>(bytes, bytes + count) : std::vector<std::uint8_t>();
}

ImageProperties propertiesOf(const CodecModule::Header& header, ImageFormat format) {
    ImageProperties properties;
    properties.format = format;
    properties.pixelWidth = static_cast<int>(header.width);
    properties.pixelHeight = static_cast<int>(header.height);
    if (header.dpiX > 0 && header.dpiY > 0) {
        properties.dpiWidth = header.dpiX;
        properties.dpiHeight = header.dpiY;
    }
    properties.orientation = orientationFromExif(header.orientation).value_or(Orientation::up);
    properties.hasAlpha = hasAlpha(layoutOf(header.pixels));
    properties.depth = header.depth;
    properties.pages = header.pages;
    properties.colorModel = modelOf(header.pixels);
    return properties;
}

/// A grey profile goes with colours, too: it is of a grey picture with alpha that the module has widened.
bool fits(const CGColorSpace& profile, Pixels pixels) {
    return profile.model() == modelOf(pixels) ||
           (profile.model() == CGColorSpace::Model::gray && hasAlpha(layoutOf(pixels)));
}

ModuleFile fileOf(const CodecModule& module, const Data& bytes, const ImageLimits& limits, int page,
                  const CodecModule::Header& header, const std::optional<CGColorSpace>& profile) {
    ModuleFile file{&module, bytes, limits, page, {int(header.width), int(header.height)}, header.pixels};
    if (header.pixels == Pixels::grey) file.colorSpace = CGColorSpace::deviceGray();
    if (header.pixels == Pixels::cmyk && profile)
        file.fromCmyk = ColorConversion::make(*profile, ColorConversion::Pixels::cmyk, CGColorSpace::sRGB());
    else if (profile && profile->model() == CGColorSpace::Model::gray && header.pixels != Pixels::grey)
        file.colorSpace = rgbSpaceForGrey(*profile).value_or(file.colorSpace);
    else if (profile)
        file.colorSpace = *profile;
    return file;
}

/// A row of R G B x, transparency laid over white.
std::optional<CGImage> flattened(const CGImage& image, const CGColorSpace& space) {
    if (!hasAlpha(image.layout())) return convertedImage(image, PixelLayout::skipLast, space);
    const std::optional<PixelView> from = image.pixels();
    if (!from) return std::nullopt;
    const auto fill = [&](MutablePixelView strip, int firstRow) {
        for (int y = 0; y < strip.height; ++y)
            kernels::flattenRow(from->row(firstRow + y), from->layout, strip.row(y), from->width);
    };
    return imageOfStrips({from->width, from->height}, PixelLayout::skipLast, space, fill);
}

void append(void* context, const std::uint8_t* bytes, std::size_t count) {
    auto& file = *static_cast<std::vector<std::uint8_t>*>(context);
    file.insert(file.end(), bytes, bytes + count);
}

} // namespace

std::optional<OpenedImage> openByModule(const char* name, ImageFormat format, const CGDataProvider& bytes,
                                        const ImageLimits& limits, int page) {
    const auto* module = loadModule<CodecModule>(name);
    if (module == nullptr) return std::nullopt;
    const OpenPicture picture(*module, bytes, limits, page);
    const CodecModule::Header& header = picture.header();
    if (!picture) return std::nullopt;

    OpenedImage opened{propertiesOf(header, format), nullptr, Data(copied(header.exif, header.exifBytes))};
    if (header.orientation == 0)
        opened.properties.orientation =
            ExifBlock(opened.exif.bytes()).orientation().value_or(Orientation::up);
    std::optional<CGColorSpace> profile;
    if (header.profileBytes > 0)
        profile = CGColorSpace::fromICC(Data(copied(header.profile, header.profileBytes)));
    if (profile && !fits(*profile, header.pixels)) profile.reset();
    if (profile) opened.properties.profileName = profile->name();
    if (!bytes.data().empty())
        opened.source =
            std::make_shared<ModuleSource>(fileOf(*module, bytes.data(), limits, page, header, profile));
    return opened;
}

ImageMetadata metadataByModule(const char* name, const CGDataProvider& bytes, const ImageLimits& limits) {
    const auto* module = loadModule<CodecModule>(name);
    if (module == nullptr) return {};
    const OpenPicture picture(*module, bytes, limits);
    if (!picture) return {};
    const CodecModule::Header& header = picture.header();
    ImageMetadata metadata;
    metadata.exif = Data(copied(header.exif, header.exifBytes));
    metadata.xmp = Data(copied(header.xmp, header.xmpBytes));
    return metadata;
}

bool breaksOffByModule(const char* name, const CGDataProvider& bytes) {
    const auto* module = loadModule<CodecModule>(name);
    if (module == nullptr) return false;
    OpenPicture picture(*module, bytes, ImageLimits::current());
    return picture && picture.breaksOff();
}

std::optional<Data> encodeByModule(const ModuleEncoding& how, const CGImage& image,
                                   const CGImageDestination::Options& options) {
    const auto* module = loadModule<CodecModule>(how.module);
    if (module == nullptr || module->encode == nullptr) return std::nullopt;
    const bool alpha = options.keepsAlpha && hasAlpha(image.layout());
    const bool isColour = image.colorSpace().model() == CGColorSpace::Model::rgb;
    const CGColorSpace space = isColour ? image.colorSpace() : CGColorSpace::sRGB();
    const auto converted =
        alpha ? convertedImage(image, PixelLayout::straightLast, space) : flattened(image, space);
    const auto pixels = converted ? converted->pixels() : std::nullopt;
    if (!pixels) return std::nullopt;
    const auto profile = space.isStandard() ? std::span<const std::uint8_t>() : space.iccProfile().bytes();
    const CodecModule::Encoding encoding{pixels->width,
                                         pixels->height,
                                         pixels->data,
                                         pixels->bytesPerRow,
                                         alpha,
                                         options.tenBits && !alpha,
                                         options.quality,
                                         how.compression,
                                         options.dpiWidth.value_or(options.dpiHeight.value_or(0)),
                                         options.dpiHeight.value_or(options.dpiWidth.value_or(0)),
                                         profile.data(),
                                         profile.size(),
                                         Workers::count(),
                                         options.metadata.exif.data(),
                                         options.metadata.exif.size(),
                                         options.metadata.xmp.data(),
                                         options.metadata.xmp.size()};
    expectMemory(bytesToCode + bytesToEncodePixel * pixelCount(pixels->width, pixels->height));
    std::vector<std::uint8_t> file;
    const Failure failure = module->encode(encoding, append, &file);
    if (failure == Failure::none && !file.empty()) return Data(std::move(file));
    if (failure == Failure::outOfMemory || failure == Failure::noThread)
        giveReasonOf(failure);
    else
        giveReason(ReasonCode::cannotEncode, "the encoder refuses the picture");
    return std::nullopt;
}

} // namespace pex
