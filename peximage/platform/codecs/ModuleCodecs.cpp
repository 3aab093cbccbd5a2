#include "peximage/platform/codecs/FileEnds.h"
#include "peximage/platform/codecs/ModuleCodec.h"
#include "peximage/platform/codecs/metadata/TiffMetadata.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace pex {
namespace {

std::string_view textOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool isTiff(std::span<const std::uint8_t> bytes) {
    const std::string_view text = textOf(bytes);
    for (const std::string_view start : {std::string_view("II*\0", 4), std::string_view("MM\0*", 4),
                                         std::string_view("II+\0", 4), std::string_view("MM\0+", 4)}) {
        if (text.starts_with(start)) return true;
    }
    return false;
}

bool isWebP(std::span<const std::uint8_t> bytes) {
    const std::string_view text = textOf(bytes);
    return text.size() >= 12 && text.starts_with("RIFF") && text.substr(8, 4) == "WEBP";
}

bool isGif(std::span<const std::uint8_t> bytes) {
    const std::string_view text = textOf(bytes);
    return text.starts_with("GIF87a") || text.starts_with("GIF89a");
}

/// The brand of a file of boxes, as its first box names it; AVIF and HEIF differ in nothing else here.
bool hasBrand(std::span<const std::uint8_t> bytes, std::span<const std::string_view> brands) {
    const std::string_view text = textOf(bytes);
    if (text.size() < 12 || text.substr(4, 4) != "ftyp") return false;
    return std::ranges::find(brands, text.substr(8, 4)) != brands.end();
}

bool isAvif(std::span<const std::uint8_t> bytes) {
    static constexpr std::array<std::string_view, 2> brands{"avif", "avis"};
    return hasBrand(bytes, brands);
}

bool isHeif(std::span<const std::uint8_t> bytes) {
    static constexpr std::array<std::string_view, 8> brands{"heic", "heix", "heim", "heis",
                                                            "hevc", "hevx", "mif1", "msf1"};
    return hasBrand(bytes, brands);
}

constexpr const char *tiff = "tiff", *webp = "webp", *gif = "gif", *heif = "heif";

template <const char* const& Module, ImageFormat Format>
std::optional<OpenedImage> open(const CGDataProvider& bytes, const ImageLimits& limits) {
    return openByModule(Module, Format, bytes, limits);
}

template <const char* const& Module, ImageFormat Format>
std::optional<OpenedImage> openPage(const CGDataProvider& bytes, const ImageLimits& limits, int page) {
    return openByModule(Module, Format, bytes, limits, page);
}

template <const char* const& Module, CodecModule::Compression Compression = CodecModule::Compression::usual>
std::optional<Data> encode(const CGImage& image, const CGImageDestination::Options& options) {
    return encodeByModule({Module, Compression}, image, options);
}

template <const char* const& Module>
ImageMetadata metadata(const CGDataProvider& bytes, const ImageLimits& limits) {
    return metadataByModule(Module, bytes, limits);
}

/// A TIFF file has the structure of an EXIF block, but is long.
std::optional<OpenedImage> openTiffPage(const CGDataProvider& bytes, const ImageLimits& limits, int page) {
    std::optional<OpenedImage> opened = openByModule(tiff, ImageFormat::tiff, bytes, limits, page);
    if (opened) opened->exif = readTiffMetadata(bytes, limits).exif;
    return opened;
}

std::optional<OpenedImage> openTiff(const CGDataProvider& bytes, const ImageLimits& limits) {
    return openTiffPage(bytes, limits, 0);
}

std::optional<Data> encodeTiff(const CGImage& image, const CGImageDestination::Options& options) {
    std::optional<Data> file = encode<tiff>(image, options);
    if (!file || options.metadata.empty()) return file;
    auto whole = tiffWithMetadata(file->bytes(), options.metadata);
    return whole ? Data(std::move(*whole)) : file;
}

bool tiffBreaksOff(const CGDataProvider& bytes) { return breaksOffByModule(tiff, bytes); }

} // namespace

const ImageCodec tiffCodec{ImageFormat::tiff, isTiff,           openTiff, encodeTiff,  tiff,
                           tiffBreaksOff,     readTiffMetadata, nullptr,  openTiffPage};
const ImageCodec webpCodec{ImageFormat::webp, isWebP,  open<webp, ImageFormat::webp>,
                           encode<webp>,      webp,    webpBreaksOff,
                           metadata<webp>,    nullptr, openPage<webp, ImageFormat::webp>};
const ImageCodec gifCodec{ImageFormat::gif, isGif,   open<gif, ImageFormat::gif>,
                          nullptr,          gif,     gifBreaksOff,
                          nullptr,          nullptr, openPage<gif, ImageFormat::gif>};
const ImageCodec heifCodec{ImageFormat::heif, isHeif,  open<heif, ImageFormat::heif>,
                           encode<heif>,      heif,    nullptr,
                           metadata<heif>,    nullptr, openPage<heif, ImageFormat::heif>};
const ImageCodec avifCodec{ImageFormat::avif,
                           isAvif,
                           open<heif, ImageFormat::avif>,
                           encode<heif, CodecModule::Compression::other>,
                           heif,
                           nullptr,
                           metadata<heif>,
                           nullptr,
                           openPage<heif, ImageFormat::avif>};

} // namespace pex
