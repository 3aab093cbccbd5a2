#include "peximage/platform/codecs/PngMetadata.h"

#include "peximage/platform/codecs/metadata/ImageResources.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view xmpKeyword = "XML:com.adobe.xmp", profileKeyword = "Raw profile type ";

struct DecompressorFree {
    void operator()(libdeflate_decompressor* decompressor) const {
        libdeflate_free_decompressor(decompressor);
    }
};

/// Empty when it unpacks to more than `most`, or is broken.
std::string unpacked(std::string_view packed, std::size_t most) {
    const std::unique_ptr<libdeflate_decompressor, DecompressorFree> decompressor(
        libdeflate_alloc_decompressor());
    std::string text;
    for (std::size_t room = std::max<std::size_t>(packed.size() * 4, 4096); decompressor; room *= 4) {
        text.resize(std::min(room, most));
        std::size_t size = 0;
        const auto result = libdeflate_zlib_decompress(decompressor.get(), packed.data(), packed.size(),
                                                       text.data(), text.size(), &size);
        const bool needsRoom = result == LIBDEFLATE_INSUFFICIENT_SPACE && room < most;
        if (needsRoom) continue;
        text.resize(result == LIBDEFLATE_SUCCESS ? size : 0);
        return text;
    }
    return {};
}

/// Takes what stands before the next zero byte, and the zero.
std::string_view takeText(std::string_view& from) {
    const std::string_view text = from.substr(0, from.find('\0'));
    from.remove_prefix(std::min(text.size() + 1, from.size()));
    return text;
}

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// Bytes written as digits, behind a name and a count.
Bytes profileIn(std::string_view text) {
    Bytes bytes;
    for (int line = 0; line < 3; ++line) { // an empty one, the name, the count
        const std::size_t end = text.find('\n');
        text = end != std::string_view::npos ? text.substr(end + 1) : std::string_view();
    }
    int high = -1;
    for (const char c : text) {
        const int digit = digitOf(c);
        if (digit < 0) continue;
        if (high >= 0) bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
        high = high >= 0 ? -1 : digit;
    }
    return bytes;
}

std::string textOfProfile(std::string_view name, std::string_view bytes) {
    constexpr std::size_t bytesPerLine = 36;
    char count[16];
    std::snprintf(count, sizeof count, "%8zu", bytes.size());
    std::string text = '\n' + std::string(name) + '\n' + count;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (i % bytesPerLine == 0) text += '\n';
        text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    }
    return text + '\n';
}

/// Gathers what the chunks tell.
class Gathering {
  public:
    explicit Gathering(std::size_t most) : most_(most) {}

    static bool wants(std::string_view type) {
        return type == "eXIf" || type == "iTXt" || type == "zTXt" || type == "tEXt";
    }

    void add(std::string_view type, std::string_view content) {
        if (type == "eXIf") {
            if (found.exif.empty()) found.exif = Data(content);
            return;
        }
        const std::string_view keyword = takeText(content);
        if (type == "iTXt" && keyword == xmpKeyword) return addXmp(content);
        if (type == "iTXt" || !keyword.starts_with(profileKeyword)) return;
        const bool isPacked = type == "zTXt" && !content.empty();
        addProfile(keyword.substr(profileKeyword.size()),
                   isPacked ? unpacked(content.substr(1), most_) : std::string(content));
    }

    ImageMetadata found;

  private:
    void addXmp(std::string_view content) {
        if (content.size() < 2 || !found.xmp.empty()) return;
        const bool isPacked = content[0] != 0;
        content.remove_prefix(2);
        takeText(content); // the language
        takeText(content); // the keyword in it
        found.xmp = Data(std::string_view(isPacked ? unpacked(content, most_) : std::string(content)));
    }

    void addProfile(std::string_view name, std::string_view text) {
        if (text.empty() || (name != "iptc" && name != "8bim" && name != "exif" && name != "APP1")) return;
        const Bytes bytes = profileIn(text);
        const Data all{Bytes(bytes)};
        if (name == "iptc" || name == "8bim") {
            if (!found.resources.empty()) return;
            if (all.text().starts_with("8BIM"))
                found.resources = Data(describingResources(bytes));
            else
                found.setIptc(all);
        } else if (found.exif.empty() && all.text().starts_with(std::string_view("Exif\0\0", 6))) {
            found.exif = Data(all.text().substr(6));
        }
    }

    std::size_t most_;
};

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

} // namespace

ImageMetadata readPngMetadata(const CGDataProvider& bytes, const ImageLimits& limits) {
    constexpr std::size_t signatureBytes = 8, checksumBytes = 4;
    constexpr int mostChunks = 1 << 16;
    Gathering gathering(limits.maxMetadataBytes);
    std::array<std::uint8_t, 8> head{};
    std::size_t at = signatureBytes;
    for (int i = 0; i < mostChunks && bytes.read(at, head) == head.size(); ++i) {
        const std::size_t length =
            std::size_t{head[0]} << 24 | std::size_t{head[1]} << 16 | std::size_t{head[2]} << 8 | head[3];
        const std::string_view type(reinterpret_cast<const char*>(head.data()) + 4, 4);
        at += head.size();
        if (type == "IEND") break;
        if (Gathering::wants(type) && length <= std::min(limits.maxMetadataBytes, bytes.size())) {
            std::string content(length, '\0');
            content.resize(bytes.read(at, {reinterpret_cast<std::uint8_t*>(content.data()), length}));
            gathering.add(type, content);
        }
        at += length + checksumBytes;
    }
    return std::move(gathering.found);
}

std::vector<PngChunk> pngMetadataChunks(const ImageMetadata& metadata) {
    std::vector<PngChunk> chunks;
    if (!metadata.exif.empty()) chunks.push_back({"eXIf", bytesOf(metadata.exif.text())});
    if (!metadata.xmp.empty()) {
        const std::string plain(5, '\0'); // end of the keyword, not packed, no language, no keyword in it
        chunks.push_back(
            {"iTXt", bytesOf(std::string(xmpKeyword) + plain + std::string(metadata.xmp.text()))});
    }
    if (!metadata.resources.empty()) {
        std::string text = std::string(profileKeyword) + "iptc";
        text += '\0';
        chunks.push_back({"tEXt", bytesOf(text + textOfProfile("iptc", metadata.resources.text()))});
    }
    return chunks;
}

} // namespace pex
