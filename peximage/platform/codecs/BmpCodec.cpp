#include "peximage/platform/codecs/ImageCodec.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace pex {
namespace {

constexpr std::size_t fileHeaderBytes = 14, coreHeaderBytes = 12, longestHeader = 124;
enum Compression : std::uint32_t { none = 0, rle8 = 1, rle4 = 2, bitFields = 3, alphaBitFields = 6 };

std::uint32_t number(const std::uint8_t* bytes, int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value |= std::uint32_t{bytes[i]} << (8 * i);
    return value;
}

/// Where a component lies in a pixel of 16 or 32 bits.
struct Mask {
    std::uint32_t bits = 0;

    std::uint8_t of(std::uint32_t pixel) const {
        if (bits == 0) return 0;
        const int shift = std::countr_zero(bits);
        const std::uint32_t most = bits >> shift;
        return static_cast<std::uint8_t>((std::uint64_t{(pixel & bits) >> shift} * 255 + most / 2) / most);
    }
};

struct BmpHeader {
    std::int64_t width = 0, height = 0;
    bool topDown = false;
    int bits = 0;
    std::uint32_t compression = none;
    double dpiX = 0, dpiY = 0;
    std::array<Mask, 4> masks{}; // red, green, blue, alpha
    std::vector<std::array<std::uint8_t, 3>> palette{};
    std::size_t pixelsAt = 0;

    bool hasAlpha() const { return bits >= 16 && masks[3].bits != 0; }
    std::size_t rowBytes() const { return static_cast<std::size_t>((width * bits + 31) / 32 * 4); }
    bool isRunLength() const { return compression == rle8 || compression == rle4; }
};

bool isKnown(const BmpHeader& header) {
    switch (header.compression) {
    case none:
        return header.bits == 1 || header.bits == 4 || header.bits == 8 || header.bits == 16 ||
               header.bits == 24 || header.bits == 32;
    case rle8:
        return header.bits == 8 && !header.topDown;
    case rle4:
        return header.bits == 4 && !header.topDown;
    case bitFields:
    case alphaBitFields:
        return header.bits == 16 || header.bits == 32;
    default:
        return false;
    }
}

void setUsualMasks(BmpHeader& header) {
    if (header.bits == 16) header.masks = {Mask{0x7C00}, Mask{0x03E0}, Mask{0x001F}, Mask{0}};
    if (header.bits == 32) header.masks = {Mask{0xFF0000}, Mask{0xFF00}, Mask{0xFF}, Mask{0}};
}

bool readPalette(const CGDataProvider& bytes, std::size_t at, std::uint32_t used, int entryBytes,
                 BmpHeader& header) {
    if (header.bits > 8) return true;
    const std::size_t most = std::size_t{1} << header.bits;
    std::vector<std::uint8_t> entries((used == 0 ? most : std::min<std::size_t>(used, most)) *
                                      static_cast<std::size_t>(entryBytes));
    entries.resize(bytes.read(at, entries));
    for (std::size_t i = 0; i + 2 < entries.size(); i += static_cast<std::size_t>(entryBytes))
        header.palette.push_back({entries[i + 2], entries[i + 1], entries[i]});
    header.palette.resize(most);
    return true;
}

/// Reads the old header with 16-bit sides, and the later ones that begin alike.
std::optional<BmpHeader> readHeader(const CGDataProvider& bytes) {
    std::array<std::uint8_t, fileHeaderBytes + longestHeader + 12> block{};
    const std::size_t got = bytes.read(0, block);
    if (got < fileHeaderBytes + coreHeaderBytes) return std::nullopt;
    const std::uint8_t* info = block.data() + fileHeaderBytes;
    const std::size_t size = number(info, 4);
    BmpHeader header;
    header.pixelsAt = number(block.data() + 10, 4);
    if (size == coreHeaderBytes) {
        header.width = number(info + 4, 2);
        header.height = number(info + 6, 2);
        header.bits = static_cast<int>(number(info + 10, 2));
        setUsualMasks(header);
        return isKnown(header) && readPalette(bytes, fileHeaderBytes + size, 0, 3, header)
                   ? std::optional(header)
                   : std::nullopt;
    }
    if (size < 40 || size > longestHeader || got < fileHeaderBytes + 40) return std::nullopt;
    header.width = static_cast<std::int32_t>(number(info + 4, 4));
    header.height = static_cast<std::int32_t>(number(info + 8, 4));
    header.topDown = header.height < 0;
    header.height = std::abs(header.height);
    header.bits = static_cast<int>(number(info + 14, 2));
    header.compression = number(info + 16, 4);
    constexpr double metresPerInch = 0.0254;
    header.dpiX = number(info + 24, 4) * metresPerInch;
    header.dpiY = number(info + 28, 4) * metresPerInch;
    if (!isKnown(header)) return std::nullopt;
    setUsualMasks(header);
    // The masks follow a short header, and are part of a longer one.
    if (header.compression == bitFields || header.compression == alphaBitFields) {
        const std::size_t count = header.compression == alphaBitFields || size >= 56 ? 4 : 3;
        for (std::size_t i = 0; i < count; ++i)
            header.masks[i].bits = number(info + 40 + 4 * i, 4);
    }
    const std::size_t masksBehind = size == 40 && header.compression == bitFields ? 12 : 0;
    readPalette(bytes, fileHeaderBytes + size + masksBehind, number(info + 32, 4), 4, header);
    return header;
}

void putColour(std::uint8_t* to, const std::array<std::uint8_t, 3>& colour) {
    to[0] = colour[0], to[1] = colour[1], to[2] = colour[2], to[3] = 255;
}

void convertRow(const BmpHeader& header, const std::uint8_t* from, std::uint8_t* to) {
    const auto bits = static_cast<unsigned>(header.bits);
    for (std::int64_t x = 0; x < header.width; ++x, to += 4) {
        if (bits <= 8) {
            const unsigned perByte = 8 / bits, place = static_cast<unsigned>(x) % perByte;
            const unsigned byte = from[static_cast<std::size_t>(x) / perByte];
            putColour(to, header.palette[byte >> (8 - bits * (place + 1)) & ((1U << bits) - 1)]);
        } else if (bits == 24) {
            putColour(to, {from[3 * x + 2], from[3 * x + 1], from[3 * x]});
        } else {
            const std::uint32_t pixel = number(from + x * (bits / 8), static_cast<int>(bits / 8));
            putColour(to, {header.masks[0].of(pixel), header.masks[1].of(pixel), header.masks[2].of(pixel)});
            if (header.hasAlpha()) to[3] = header.masks[3].of(pixel);
        }
    }
}

/// Decodes runs of equal pixels, from the bottom row up. Pixels that they leave out get the first colour.
class RunLengthReader {
  public:
    RunLengthReader(const BmpHeader& header, std::span<const std::uint8_t> bytes, MutablePixelView to)
        : header_(header), bytes_(bytes), to_(to) {}

    DecodedRows read() {
        const bool isWhole = readRuns();
        const std::int64_t reached = std::min<std::int64_t>(y_ + (x_ > 0), to_.height);
        return {isWhole ? to_.height : static_cast<int>(reached), isWhole};
    }

  private:
    /// False when the file breaks off.
    bool readRuns() {
        for (int y = 0; y < to_.height; ++y) {
            for (int x = 0; x < to_.width; ++x)
                putColour(to_.row(y) + 4 * x, header_.palette[0]);
        }
        while (at_ + 1 < bytes_.size()) {
            const std::uint8_t count = bytes_[at_], value = bytes_[at_ + 1];
            at_ += 2;
            if (count > 0) {
                for (int i = 0; i < count; ++i)
                    put(header_.bits == 8 ? value : i % 2 == 0 ? value >> 4 : value & 15);
            } else if (value == 1) {
                return true; // the end
            } else if (!escape(value)) {
                return false;
            }
        }
        return false;
    }

    bool escape(std::uint8_t code) {
        if (code == 0) {
            x_ = 0;
            ++y_;
        } else if (code == 2) {
            if (at_ + 1 >= bytes_.size()) return false;
            x_ += bytes_[at_];
            y_ += bytes_[at_ + 1];
            at_ += 2;
        } else {
            const std::size_t length = header_.bits == 8 ? code : (std::size_t{code} + 1) / 2;
            if (at_ + length > bytes_.size()) return false;
            for (std::size_t i = 0; i < code; ++i) {
                const std::uint8_t byte = bytes_[at_ + (header_.bits == 8 ? i : i / 2)];
                put(header_.bits == 8 ? byte : i % 2 == 0 ? byte >> 4 : byte & 15);
            }
            at_ += length + length % 2;
        }
        return y_ <= to_.height;
    }

    void put(int index) {
        if (x_ < to_.width && y_ < to_.height)
            putColour(to_.row(static_cast<int>(to_.height - 1 - y_)) + 4 * x_,
                      header_.palette[static_cast<std::size_t>(index)]);
        ++x_;
    }

    const BmpHeader& header_;
    std::span<const std::uint8_t> bytes_;
    MutablePixelView to_;
    std::size_t at_ = 0;
    std::int64_t x_ = 0, y_ = 0;
};

class BmpSource final : public PixelSource {
  public:
    BmpSource(Data bytes, BmpHeader header) : bytes_(std::move(bytes)), header_(std::move(header)) {}

    PixelSize size() const override {
        return {static_cast<int>(header_.width), static_cast<int>(header_.height)};
    }
    PixelLayout layout() const override {
        return header_.hasAlpha() ? PixelLayout::straightLast : PixelLayout::skipLast;
    }
    CGColorSpace colorSpace() const override { return CGColorSpace::sRGB(); }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override { return nullptr; }

    std::optional<DecodedRows> decodeAll(MutablePixelView pixels) const override {
        const std::size_t at = std::min(header_.pixelsAt, bytes_.size());
        const auto stored = bytes_.bytes().subspan(at);
        if (header_.isRunLength()) return RunLengthReader(header_, stored, pixels).read();
        const std::size_t rowBytes = header_.rowBytes();
        const auto whole = static_cast<int>(
            std::min<std::size_t>(stored.size() / rowBytes, static_cast<std::size_t>(pixels.height)));
        for (int i = 0; i < pixels.height; ++i) {
            const int y = header_.topDown ? i : pixels.height - 1 - i;
            if (i < whole)
                convertRow(header_, stored.data() + static_cast<std::size_t>(i) * rowBytes, pixels.row(y));
            else
                fillMissing(pixels.part(0, y, pixels.width, 1));
        }
        return DecodedRows{whole, whole == pixels.height};
    }

    Data bytes_;
    BmpHeader header_;
};

/// Many texts begin with these letters, so the header's size has to be a known one, too.
bool isBmp(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 18 || bytes[0] != 'B' || bytes[1] != 'M') return false;
    const std::uint32_t size = number(bytes.data() + fileHeaderBytes, 4);
    return size == coreHeaderBytes || (size >= 40 && size <= longestHeader);
}

std::optional<OpenedImage> openBmp(const CGDataProvider& bytes, const ImageLimits& limits) {
    std::optional<BmpHeader> header = readHeader(bytes);
    if (!header || !limits.allows(header->width, header->height)) return std::nullopt;
    // A pixel takes at least a bit; runs of 255 take two bytes.
    constexpr std::int64_t mostPixelsPerByte = 128;
    if (header->width * header->height / mostPixelsPerByte > static_cast<std::int64_t>(bytes.size()) + 1)
        return std::nullopt;

    OpenedImage opened;
    opened.properties.format = ImageFormat::bmp;
    opened.properties.pixelWidth = static_cast<int>(header->width);
    opened.properties.pixelHeight = static_cast<int>(header->height);
    opened.properties.hasAlpha = header->hasAlpha();
    if (header->dpiX > 0 && header->dpiY > 0) {
        opened.properties.dpiWidth = header->dpiX;
        opened.properties.dpiHeight = header->dpiY;
    }
    if (!bytes.data().empty()) opened.source = std::make_shared<BmpSource>(bytes.data(), std::move(*header));
    return opened;
}

/// Where runs end is only known by decoding them.
bool bmpBreaksOff(const CGDataProvider& bytes) {
    const std::optional<BmpHeader> header = readHeader(bytes);
    if (!header || header->isRunLength() || header->width < 1) return false;
    const std::size_t stored = bytes.size() - std::min(bytes.size(), header->pixelsAt);
    return stored / header->rowBytes() < static_cast<std::size_t>(header->height);
}

} // namespace

const ImageCodec bmpCodec{ImageFormat::bmp, isBmp, openBmp, nullptr, nullptr, bmpBreaksOff};

} // namespace pex
