#include "tests/support/HandmadeFiles.h"

#include <utility>

using Bytes = std::vector<std::uint8_t>;

namespace {

void putLittleEndian(Bytes& out, std::uint32_t number, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
}

void append(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }

} // namespace

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
    putLittleEndian(file, static_cast<std::uint32_t>(width), 2);
    putLittleEndian(file, static_cast<std::uint32_t>(height), 2);
    append(file, {0xF6, 0, 0}); // 128 colours
    for (int i = 0; i < 128; ++i)
        file.insert(file.end(), 3, static_cast<std::uint8_t>(i));
    for (int frame = 0; frame < frames; ++frame) {
        append(file, {0x21, 0xF9, 4, 0, 5, 0, 0, 0, 0x2C, 0, 0, 0, 0});
        putLittleEndian(file, static_cast<std::uint32_t>(width), 2);
        putLittleEndian(file, static_cast<std::uint32_t>(height), 2);
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
    putLittleEndian(file, static_cast<std::uint32_t>(54 + tables.size()), 4);
    putLittleEndian(file, 40, 4);
    putLittleEndian(file, static_cast<std::uint32_t>(width), 4);
    putLittleEndian(file, static_cast<std::uint32_t>(height), 4);
    append(file, {1, 0, static_cast<std::uint8_t>(bits), 0, compression, 0, 0, 0, 0, 0, 0, 0});
    append(file, {0x13, 0x0B, 0, 0, 0x13, 0x0B, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    append(file, tables);
    append(file, pixels);
    return file;
}

Bytes webpWithExif(const Bytes& plain, int width, int height, const Bytes& block) {
    constexpr std::uint8_t hasExif = 8;
    Bytes content{'W', 'E', 'B', 'P', 'V', 'P', '8', 'X', 10, 0, 0, 0, hasExif, 0, 0, 0};
    putLittleEndian(content, static_cast<std::uint32_t>(width - 1), 3);
    putLittleEndian(content, static_cast<std::uint32_t>(height - 1), 3);
    content.insert(content.end(), plain.begin() + 12, plain.end());
    append(content, {'E', 'X', 'I', 'F'});
    putLittleEndian(content, static_cast<std::uint32_t>(block.size()), 4);
    append(content, block);
    if (block.size() % 2) content.push_back(0);
    Bytes file{'R', 'I', 'F', 'F'};
    putLittleEndian(file, static_cast<std::uint32_t>(content.size()), 4);
    append(file, content);
    return file;
}
