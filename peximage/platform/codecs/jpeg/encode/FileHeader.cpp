#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace pex::jpeg {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t startOfImage = 0xD8, jfif = 0xE0, iccSegment = 0xE2, quantisation = 0xDB,
                       baseline = 0xC0, progressive = 0xC2, huffman = 0xC4, startOfScan = 0xDA;

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

/// Three tables of colour pictures: for Y, Cb and Cr.
void putQuantTables(Bytes& out, const FileHeader& header) {
    Bytes content;
    std::uint8_t id = 0;
    for (const QuantTable* table : {&header.tables.luma, &header.tables.cb, &header.tables.cr}) {
        if (header.grey && id > 0) break;
        content.push_back(id++);
        content.insert(content.end(), table->begin(), table->end());
    }
    putSegment(out, quantisation, content);
}

void putFrame(Bytes& out, const FileHeader& header) {
    Bytes content{8};
    put16(content, static_cast<std::size_t>(header.height));
    put16(content, static_cast<std::size_t>(header.width));
    const std::uint8_t components = header.grey ? 1 : 3;
    content.push_back(components);
    for (std::uint8_t c = 0; c < components; ++c) {
        const bool doubled = c == 0 && !header.grey && header.chroma == ChromaSize::half;
        content.insert(content.end(), {static_cast<std::uint8_t>(c + 1),
                                       static_cast<std::uint8_t>(doubled ? 0x22 : 0x11), c});
    }
    putSegment(out, header.progressive ? progressive : baseline, content);
}

void addCode(Bytes& content, std::uint8_t id, const CodeDescription& code) {
    content.push_back(id);
    content.insert(content.end(), code.counts.begin(), code.counts.end());
    content.insert(content.end(), code.symbols.begin(), code.symbols.end());
}

constexpr std::uint8_t ofOthers = 0x10; // beside the number of a table: not for the blocks' first levels

} // namespace

std::vector<std::uint8_t> fileStart(const FileHeader& header, const Bytes& metadata,
                                    const Bytes& iccProfile) {
    Bytes out{0xFF, startOfImage};
    putSegment(out, jfif, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
    out.insert(out.end(), metadata.begin(), metadata.end());
    putProfile(out, iccProfile);
    putQuantTables(out, header);
    putFrame(out, header);
    return out;
}

void appendScanHeader(Bytes& bytes, bool grey, const ScanDescription& codes) {
    Bytes content;
    for (std::uint8_t channel = 0; channel < (grey ? 1 : 2); ++channel) {
        addCode(content, channel, codes.first[channel]);
        addCode(content, ofOthers | channel, codes.others[channel]);
    }
    putSegment(bytes, huffman, content);
    if (grey)
        putSegment(bytes, startOfScan, {1, 1, 0x00, 0, 63, 0});
    else
        putSegment(bytes, startOfScan, {3, 1, 0x00, 2, 0x11, 3, 0x11, 0, 63, 0});
}

void appendScanHeader(Bytes& bytes, const PartOfPicture& part, const std::vector<CodeDescription>& codes) {
    Bytes content;
    const std::uint8_t kind = part.first == 0 ? 0 : ofOthers;
    for (std::uint8_t i = 0; i < codes.size(); ++i)
        addCode(content, kind | i, codes[i]);
    putSegment(bytes, huffman, content);
    content = {static_cast<std::uint8_t>(part.components.size())};
    for (const std::uint8_t component : part.components) {
        const bool second = codes.size() > 1 && component > 0;
        content.insert(content.end(), {static_cast<std::uint8_t>(component + 1),
                                       static_cast<std::uint8_t>(second ? 0x11 : 0)});
    }
    for (const int byte : {part.first, part.last, part.high << 4 | part.low})
        content.push_back(static_cast<std::uint8_t>(byte));
    putSegment(bytes, startOfScan, content);
}

} // namespace pex::jpeg
