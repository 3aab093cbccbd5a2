#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace pex::jpeg {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t startOfImage = 0xD8, jfif = 0xE0, iccSegment = 0xE2, quantisation = 0xDB,
                       baseline = 0xC0, huffman = 0xC4, startOfScan = 0xDA;

void put16(Bytes& out, std::size_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

void putSegment(Bytes& out, std::uint8_t marker, const Bytes& content) {
    out.push_back(0xFF);
    out.push_back(marker);
    put16(out, content.size() + 2);
    out.insert(out.end(), content.begin(), content.end());
}

void putProfile(Bytes& out, const Bytes& profile) {
    constexpr std::size_t most = 65519; // what a segment holds beside its length and the 14 bytes below
    const std::size_t segments = (profile.size() + most - 1) / most;
    if (segments > 255) return; // they are numbered with one byte
    for (std::size_t i = 0; i < segments; ++i) {
        Bytes content{'I', 'C', 'C', '_', 'P', 'R', 'O', 'F', 'I', 'L', 'E', 0};
        content.push_back(static_cast<std::uint8_t>(i + 1));
        content.push_back(static_cast<std::uint8_t>(segments));
        const std::size_t from = i * most, to = std::min(profile.size(), from + most);
        content.insert(content.end(), profile.data() + from, profile.data() + to);
        putSegment(out, iccSegment, content);
    }
}

void putQuantTable(Bytes& out, std::uint8_t id, const QuantTable& table) {
    Bytes content{id};
    content.insert(content.end(), table.begin(), table.end());
    putSegment(out, quantisation, content);
}

void putFrame(Bytes& out, const FrameHeader& frame) {
    Bytes content{8};
    put16(content, static_cast<std::size_t>(frame.height));
    put16(content, static_cast<std::size_t>(frame.width));
    const std::uint8_t components = frame.grey ? 1 : 3;
    content.push_back(components);
    for (std::uint8_t c = 0; c < components; ++c) {
        const bool doubled = c == 0 && !frame.grey && !frame.fullChroma;
        const std::uint8_t table = c == 0 ? 0 : 1;
        content.insert(content.end(), {static_cast<std::uint8_t>(c + 1),
                                       static_cast<std::uint8_t>(doubled ? 0x22 : 0x11), table});
    }
    putSegment(out, baseline, content);
}

void putHuffmanTable(Bytes& out, std::uint8_t id, const HuffmanTable& table) {
    Bytes content{id};
    content.insert(content.end(), table.counts.begin(), table.counts.end());
    content.insert(content.end(), table.symbols, table.symbols + table.symbolCount);
    putSegment(out, huffman, content);
}

void putScan(Bytes& out, bool grey) {
    if (grey)
        putSegment(out, startOfScan, {1, 1, 0x00, 0, 63, 0});
    else
        putSegment(out, startOfScan, {3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});
}

} // namespace

std::vector<std::uint8_t> fileHeader(const FrameHeader& frame, const QuantTables& tables,
                                     const Bytes& metadata, const Bytes& iccProfile) {
    Bytes out{0xFF, startOfImage};
    putSegment(out, jfif, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
    out.insert(out.end(), metadata.begin(), metadata.end());
    putProfile(out, iccProfile);
    putQuantTable(out, 0, tables.luma);
    if (!frame.grey) putQuantTable(out, 1, tables.chroma);
    putFrame(out, frame);
    putHuffmanTable(out, 0x00, dcTable(Channel::luma));
    putHuffmanTable(out, 0x10, acTable(Channel::luma));
    if (!frame.grey) {
        putHuffmanTable(out, 0x01, dcTable(Channel::chroma));
        putHuffmanTable(out, 0x11, acTable(Channel::chroma));
    }
    putScan(out, frame.grey);
    return out;
}

} // namespace pex::jpeg
