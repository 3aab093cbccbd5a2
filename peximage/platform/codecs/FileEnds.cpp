#include "peximage/platform/codecs/FileEnds.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace pex {
namespace {

/// Numbers at a position of the file; absent beyond its end.
template <std::size_t Count>
std::optional<std::array<std::uint8_t, Count>> bytesAt(const CGDataProvider& bytes, std::size_t at) {
    std::array<std::uint8_t, Count> read{};
    return bytes.read(at, read) == Count ? std::optional(read) : std::nullopt;
}

template <std::size_t Count>
std::uint64_t bigEndian(const std::array<std::uint8_t, Count>& bytes, std::size_t first, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = first; i < first + count; ++i)
        value = value << 8 | bytes[i];
    return value;
}

template <std::size_t Count>
bool endsWith(const CGDataProvider& bytes, const std::array<std::uint8_t, Count>& end) {
    return bytes.size() >= Count && bytesAt<Count>(bytes, bytes.size() - Count) == end;
}

/// Where a JPEG's pixels begin, after all segments before them; the file's size if it has none.
std::size_t scanOf(const CGDataProvider& bytes) {
    constexpr std::uint8_t startOfScan = 0xDA;
    for (std::size_t at = 2;;) {
        const auto head = bytesAt<4>(bytes, at);
        if (!head || (*head)[0] != 0xFF) return bytes.size();
        if ((*head)[1] == 0xFF) { // a filling byte
            ++at;
            continue;
        }
        at += 2 + static_cast<std::size_t>(bigEndian(*head, 2, 2));
        if ((*head)[1] == startOfScan) return at;
    }
}

constexpr std::array<std::uint8_t, 2> endOfImage{0xFF, 0xD9};

/// Looks for the marker, which coded pixels cannot contain. Blocks overlap by its first byte.
bool hasEndOfImage(const CGDataProvider& bytes, std::size_t from) {
    std::vector<std::uint8_t> block(std::size_t{1} << 16);
    for (std::size_t at = from; at < bytes.size(); at += block.size() - 1) {
        const std::size_t got = bytes.read(at, block);
        const auto end = block.begin() + static_cast<std::ptrdiff_t>(got);
        if (std::search(block.begin(), end, endOfImage.begin(), endOfImage.end()) != end) return true;
        if (got < block.size()) break;
    }
    return false;
}

/// Skips a GIF's sub-blocks (a length and up to 255 bytes each) up to the end of the empty one.
std::optional<std::size_t> behindPieces(const CGDataProvider& bytes, std::size_t at) {
    for (;;) {
        const auto length = bytesAt<1>(bytes, at);
        if (!length) return std::nullopt;
        at += 1 + std::size_t{(*length)[0]};
        if ((*length)[0] == 0) return at;
    }
}

/// The size in bytes of the colour table that the flags announce.
std::size_t tableBytes(std::uint8_t flags) { return (flags & 0x80) != 0 ? std::size_t{6} << (flags & 7) : 0; }

} // namespace

bool jpegBreaksOff(const CGDataProvider& bytes) {
    return !endsWith(bytes, endOfImage) && !hasEndOfImage(bytes, scanOf(bytes));
}

bool pngBreaksOff(const CGDataProvider& bytes) {
    constexpr std::array<std::uint8_t, 12> end{0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
    if (endsWith(bytes, end)) return false;
    constexpr int mostChunks = 1 << 22; // no real picture has more, so the search stops
    std::size_t at = 8;
    for (int i = 0; i < mostChunks; ++i) {
        const auto head = bytesAt<8>(bytes, at);
        if (!head) return true;
        at += 12 + static_cast<std::size_t>(bigEndian(*head, 0, 4));
        if (std::memcmp(head->data() + 4, "IEND", 4) == 0) return at > bytes.size();
    }
    return false;
}

bool webpBreaksOff(const CGDataProvider& bytes) {
    const auto head = bytesAt<8>(bytes, 0);
    if (!head) return true;
    const std::uint64_t content =
        (*head)[4] | (*head)[5] << 8 | (*head)[6] << 16 | std::uint64_t{(*head)[7]} << 24;
    return content + 8 > bytes.size();
}

bool gifBreaksOff(const CGDataProvider& bytes) {
    constexpr std::uint8_t extension = 0x21, image = 0x2C, trailer = 0x3B;
    const auto screen = bytesAt<13>(bytes, 0);
    if (!screen) return true;
    for (std::optional<std::size_t> at = 13 + tableBytes((*screen)[10]); at;) {
        const auto kind = bytesAt<1>(bytes, *at);
        if (!kind) return true;
        if ((*kind)[0] == image) {
            const auto frame = bytesAt<11>(bytes, *at); // its last byte opens the pixels
            return !frame || !behindPieces(bytes, *at + 11 + tableBytes((*frame)[9]));
        }
        if ((*kind)[0] != extension) return (*kind)[0] != trailer;
        at = behindPieces(bytes, *at + 2);
    }
    return true;
}

} // namespace pex
