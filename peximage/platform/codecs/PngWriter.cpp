#include "peximage/platform/codecs/PngWriter.h"

#include "peximage/platform/codecs/PngFilter.h"
#include "peximage/platform/codecs/PngMetadata.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <libdeflate.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Photos become 1 to 7 % smaller than with zlib's default level, about twice as fast or better.
constexpr int compressionLevel = 7;
/// Pixels of one IDAT chunk: any length would do, but readers hold a chunk in memory.
constexpr std::size_t maxDataChunk = std::size_t{1} << 20;

enum class ColourType : std::uint8_t { grey = 0, rgb = 2, rgba = 6 }; // the numbers stand in files

std::size_t bytesPerPixelOf(ColourType type) {
    if (type == ColourType::grey) return 1;
    return type == ColourType::rgb ? 3 : 4;
}

bool isOpaque(PixelView view) {
    const int alphaAt = isAlphaFirst(view.layout) ? 0 : 3;
    for (int y = 0; y < view.height; ++y) {
        const std::uint8_t* alpha = view.row(y) + alphaAt;
        std::uint8_t all = 255;
        for (int x = 0; x < view.width; ++x)
            all &= alpha[std::ptrdiff_t{x} * 4];
        if (all != 255) return false;
    }
    return true;
}

ColourType colourTypeFor(PixelView view) {
    if (view.layout == PixelLayout::grey) return ColourType::grey;
    return hasAlpha(view.layout) && !isOpaque(view) ? ColourType::rgba : ColourType::rgb;
}

/// The pixels of one view as rows of a colour type.
class RowPacker {
  public:
    RowPacker(PixelView view, ColourType type) : view_(view), type_(type) {
        if (type == ColourType::rgb) wide_.resize(static_cast<std::size_t>(view.width) * 4);
    }

    void pack(int y, std::uint8_t* out) {
        const std::uint8_t* row = view_.row(y);
        if (type_ == ColourType::grey) {
            std::memcpy(out, row, static_cast<std::size_t>(view_.width));
        } else if (type_ == ColourType::rgba) {
            kernels::convertRow(row, view_.layout, out, PixelLayout::straightLast, view_.width);
        } else {
            kernels::convertRow(row, view_.layout, wide_.data(), PixelLayout::skipLast, view_.width);
            for (int x = 0; x < view_.width; ++x)
                std::memcpy(out + std::ptrdiff_t{x} * 3, wide_.data() + std::ptrdiff_t{x} * 4, 3);
        }
    }

  private:
    PixelView view_;
    ColourType type_;
    Bytes wide_;
};

/// Filters the rows from `first` up to `last` to where they belong in the whole picture's filtered bytes.
void filterRows(PixelView view, ColourType type, int first, int last, std::uint8_t* filtered) {
    const std::size_t pixelBytes = bytesPerPixelOf(type);
    const std::size_t rowBytes = static_cast<std::size_t>(view.width) * pixelBytes;
    RowPacker packer(view, type);
    PngFilter filter(rowBytes, pixelBytes);
    Bytes row(PngFilter::padding + rowBytes), above(PngFilter::padding + rowBytes);
    if (first > 0) packer.pack(first - 1, above.data() + PngFilter::padding);
    for (int y = first; y < last; ++y) {
        packer.pack(y, row.data() + PngFilter::padding);
        filter.filter(row.data() + PngFilter::padding, above.data() + PngFilter::padding,
                      filtered + static_cast<std::size_t>(y) * (rowBytes + 1));
        row.swap(above);
    }
}

/// Empty when the memory cannot be had.
PixelBuffer filterPicture(PixelView view, ColourType type) {
    const std::size_t rowBytes = static_cast<std::size_t>(view.width) * bytesPerPixelOf(type) + 1;
    PixelBuffer filtered = PixelBuffer::make(rowBytes * static_cast<std::size_t>(view.height));
    if (!filtered) return filtered;
    constexpr int rowsAtOnce = 64;
    forEachStrip(
        view.height, [&](int begin, int end) { filterRows(view, type, begin, end, filtered.data()); },
        rowsAtOnce);
    return filtered;
}

struct CompressorFree {
    void operator()(libdeflate_compressor* compressor) const { libdeflate_free_compressor(compressor); }
};

struct Compressed {
    PixelBuffer buffer;
    std::size_t size = 0; // 0 when the memory cannot be had
    std::span<const std::uint8_t> bytes() const { return {buffer.data(), size}; }
};

Compressed compress(std::span<const std::uint8_t> bytes) {
    const std::unique_ptr<libdeflate_compressor, CompressorFree> compressor(
        libdeflate_alloc_compressor(compressionLevel));
    if (!compressor) return {};
    const std::size_t bound = libdeflate_zlib_compress_bound(compressor.get(), bytes.size());
    Compressed packed{PixelBuffer::make(bound)};
    if (packed.buffer)
        packed.size = libdeflate_zlib_compress(compressor.get(), bytes.data(), bytes.size(),
                                               packed.buffer.data(), bound);
    return packed;
}

void putNumber(Bytes& out, std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0})
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

/// `type` has four letters.
void putChunk(Bytes& out, std::string_view type, std::span<const std::uint8_t> content) {
    putNumber(out, static_cast<std::uint32_t>(content.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type.begin(), type.end());
    out.insert(out.end(), content.begin(), content.end());
    putNumber(out, libdeflate_crc32(0, out.data() + start, out.size() - start));
}

void putHeader(Bytes& out, PixelView view, ColourType type) {
    static constexpr std::uint8_t signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    out.assign(std::begin(signature), std::end(signature));
    Bytes header;
    putNumber(header, static_cast<std::uint32_t>(view.width));
    putNumber(header, static_cast<std::uint32_t>(view.height));
    // 8 bits, the colour type, the only compression and set of filters there are, not interlaced.
    header.insert(header.end(), {8, static_cast<std::uint8_t>(type), 0, 0, 0});
    putChunk(out, "IHDR", header);
}

/// Does nothing when the profile is not for such pixels.
void putProfile(Bytes& out, const CGColorSpace& space, ColourType type) {
    const auto model = type == ColourType::grey ? CGColorSpace::Model::gray : CGColorSpace::Model::rgb;
    if (space.model() != model) return;
    const Compressed profile = compress(space.iccProfile().bytes());
    if (profile.size == 0) return;
    static constexpr std::string_view name("ICC profile\0\0", 13); // with its end, and the compression method
    Bytes content(name.begin(), name.end());
    content.insert(content.end(), profile.bytes().begin(), profile.bytes().end());
    putChunk(out, "iCCP", content);
}

void putColourSpace(Bytes& out, const CGColorSpace& space, ColourType type) {
    static constexpr std::uint8_t perceptual = 0;
    if (!space.isStandard()) {
        putProfile(out, space, type);
    } else if (type != ColourType::grey) {
        putChunk(out, "sRGB", {&perceptual, 1});
    }
}

/// Absent when the number is none that a file can hold.
std::optional<std::uint32_t> dotsPerMetre(std::optional<double> dpi) {
    const double dots = std::round(dpi.value_or(0) / 0.0254);
    if (!(dots >= 1 && dots <= std::numeric_limits<std::int32_t>::max())) return std::nullopt;
    return static_cast<std::uint32_t>(dots);
}

void putDensity(Bytes& out, const CGImageDestination::Options& options) {
    const auto x = dotsPerMetre(options.dpiWidth ? options.dpiWidth : options.dpiHeight);
    const auto y = dotsPerMetre(options.dpiHeight ? options.dpiHeight : options.dpiWidth);
    if (!x || !y) return;
    Bytes content;
    putNumber(content, *x);
    putNumber(content, *y);
    content.push_back(1); // a metre
    putChunk(out, "pHYs", content);
}

void putData(Bytes& out, std::span<const std::uint8_t> data) {
    constexpr std::size_t chunkFrame = 12;
    out.reserve(out.size() + data.size() + (data.size() / maxDataChunk + 2) * chunkFrame);
    for (std::size_t at = 0; at < data.size(); at += maxDataChunk)
        putChunk(out, "IDAT", data.subspan(at, std::min(maxDataChunk, data.size() - at)));
}

} // namespace

std::optional<Data> encodePng(const CGImage& image, const CGImageDestination::Options& options) {
    const std::optional<PixelView> view = image.pixels();
    if (!view) return std::nullopt;
    const ColourType type = colourTypeFor(*view);
    const PixelBuffer filtered = filterPicture(*view, type);
    if (!filtered) return std::nullopt;
    const Compressed data = compress({filtered.data(), filtered.size()});
    if (data.size == 0) return std::nullopt;

    Bytes out;
    putHeader(out, *view, type);
    putColourSpace(out, image.colorSpace(), type);
    putDensity(out, options);
    for (const PngChunk& chunk : pngMetadataChunks(options.metadata))
        putChunk(out, chunk.type, chunk.content);
    putData(out, data.bytes());
    putChunk(out, "IEND", {});
    return Data(std::move(out));
}

} // namespace pex
