#include "peximage/platform/codecs/jpeg/JpegMetadata.h"

#include "peximage/platform/codecs/metadata/ImageResources.h"
#include "peximage/platform/codecs/metadata/XmpPacket.h"
#include "peximage/platform/foundation/DigestModule.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t app1 = 0xE1, app13 = 0xED, startOfScan = 0xDA;

constexpr std::string_view exifMark("Exif\0\0", 6), xmpMark("http://ns.adobe.com/xap/1.0/\0", 29),
    extensionMark("http://ns.adobe.com/xmp/extension/\0", 35), resourcesMark("Photoshop 3.0\0", 14);

constexpr std::size_t digestLetters = 32, extensionHead = digestLetters + 8, mostInSegment = 0xFFFF - 2;

std::uint32_t numberAt(const std::uint8_t* at) {
    return std::uint32_t{at[0]} << 24 | at[1] << 16 | at[2] << 8 | at[3];
}

void put(Bytes& out, std::size_t value, int count) {
    for (int i = count - 1; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

/// Gathers what the segments tell.
class Gathering {
  public:
    explicit Gathering(std::size_t most) : most_(most) {}

    void add(std::uint8_t marker, std::string_view content) {
        const auto has = [&](std::string_view mark) { return content.starts_with(mark); };
        if (marker == app1 && has(exifMark) && found_.exif.empty())
            found_.exif = taken(content.substr(exifMark.size()));
        else if (marker == app1 && has(xmpMark) && found_.xmp.empty())
            found_.xmp = taken(content.substr(xmpMark.size()));
        else if (marker == app1 && has(extensionMark))
            addExtension(content.substr(extensionMark.size()));
        else if (marker == app13 && has(resourcesMark) && resources_.size() + content.size() <= most_)
            resources_ += content.substr(resourcesMark.size());
    }

    ImageMetadata take() {
        const auto* first = reinterpret_cast<const std::uint8_t*>(resources_.data());
        found_.resources = Data(describingResources({first, resources_.size()}));
        const bool isComplete = !extension_.empty() && extensionBytes_ == extension_.size() &&
                                found_.xmp.text().find(digest_) != std::string_view::npos;
        if (isComplete) found_.extendedXmp = Data(std::string_view(extension_));
        return std::move(found_);
    }

  private:
    Data taken(std::string_view content) const { return content.size() <= most_ ? Data(content) : Data(); }

    /// A digest, the length of all, the place of this part: parts of the first digest, in any order.
    void addExtension(std::string_view content) {
        if (content.size() < extensionHead) return;
        const auto* head = reinterpret_cast<const std::uint8_t*>(content.data());
        const std::size_t all = numberAt(head + digestLetters), at = numberAt(head + digestLetters + 4);
        const std::string_view part = content.substr(extensionHead);
        if (digest_.empty() && all <= most_) {
            digest_ = content.substr(0, digestLetters);
            extension_.resize(all);
        }
        if (!content.starts_with(digest_) || digest_.empty()) return;
        if (at > extension_.size() || part.size() > extension_.size() - at) return;
        extension_.replace(at, part.size(), part);
        extensionBytes_ += part.size();
    }

    std::size_t most_;
    ImageMetadata found_;
    std::string resources_, digest_, extension_;
    std::size_t extensionBytes_ = 0;
};

void putSegment(Bytes& out, std::uint8_t marker, std::string_view mark, std::string_view content) {
    out.insert(out.end(), {0xFF, marker});
    put(out, 2 + mark.size() + content.size(), 2);
    out.insert(out.end(), mark.begin(), mark.end());
    out.insert(out.end(), content.begin(), content.end());
}

/// Empty without the module.
std::string digestOf(const Data& packet) {
    const auto* module = loadModule<DigestModule>(DigestModule::name);
    std::array<std::uint8_t, 16> digest{};
    if (module == nullptr || !module->md5(packet.data(), packet.size(), digest.data())) return {};
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
    }
    return text;
}

void putExtension(Bytes& out, const Data& packet, const std::string& digest) {
    const std::size_t room = mostInSegment - extensionMark.size() - extensionHead;
    for (std::size_t at = 0; at < packet.size(); at += room) {
        Bytes head(digest.begin(), digest.end());
        put(head, packet.size(), 4);
        put(head, at, 4);
        std::string content(head.begin(), head.end());
        content += packet.text().substr(at, room);
        putSegment(out, app1, extensionMark, content);
    }
}

/// A packet that is too long goes into the second one.
void putXmp(Bytes& out, const Data& packet, const Data& second) {
    const bool isLong = packet.size() > xmpPacket::mostInJpeg;
    const Data& extension = isLong ? packet : second;
    if (extension.empty()) return putSegment(out, app1, xmpMark, packet.text());
    const std::string digest = digestOf(extension);
    const bool isKnown = !isLong && packet.text().find(digest) != std::string_view::npos;
    const auto main = isLong    ? xmpPacket::withNothingButExtension(digest)
                      : isKnown ? packet
                                : xmpPacket::withExtension(packet, digest).value_or(packet);
    if (digest.empty() || main.size() > xmpPacket::mostInJpeg) {
        if (!isLong) putSegment(out, app1, xmpMark, packet.text());
        return;
    }
    putSegment(out, app1, xmpMark, main.text());
    putExtension(out, extension, digest);
}

void putResources(Bytes& out, std::string_view resources) {
    const std::size_t room = mostInSegment - resourcesMark.size();
    for (std::size_t at = 0; at < resources.size(); at += room)
        putSegment(out, app13, resourcesMark, resources.substr(at, room));
}

/// Of the segment whose marker stands there; absent where the picture begins or the file is damaged.
struct Segment {
    std::uint8_t marker;
    std::size_t length; // behind the marker, with its own two bytes
};
std::optional<Segment> segmentAt(const CGDataProvider& bytes, std::size_t at) {
    std::array<std::uint8_t, 4> head{};
    if (bytes.read(at, head) != head.size() || head[0] != 0xFF) return std::nullopt;
    const Segment segment{head[1], std::size_t{head[2]} << 8 | head[3]};
    const bool isOver = segment.marker == startOfScan || (segment.length < 2 && segment.marker != 0xFF);
    return isOver ? std::nullopt : std::optional(segment);
}

bool isMetadata(std::uint8_t marker, std::string_view content) {
    const auto has = [&](std::string_view mark) { return content.starts_with(mark); };
    if (marker == app13) return has(resourcesMark);
    return marker == app1 && (has(exifMark) || has(xmpMark) || has(extensionMark));
}

} // namespace

ImageMetadata readJpegMetadata(const CGDataProvider& bytes, const ImageLimits& limits) {
    Gathering gathering(limits.maxMetadataBytes);
    std::size_t at = 2;
    while (const auto segment = segmentAt(bytes, at)) {
        if (segment->marker == 0xFF) { // a filling byte
            ++at;
            continue;
        }
        if (segment->marker == app1 || segment->marker == app13) {
            std::string content(segment->length - 2, '\0');
            auto* into = reinterpret_cast<std::uint8_t*>(content.data());
            if (bytes.read(at + 4, {into, content.size()}) != content.size()) break;
            gathering.add(segment->marker, content);
        }
        at += 2 + segment->length;
    }
    return gathering.take();
}

std::vector<std::uint8_t> jpegMetadataSegments(const ImageMetadata& metadata) {
    Bytes out;
    if (!metadata.exif.empty()) putSegment(out, app1, exifMark, metadata.exif.text());
    if (!metadata.xmp.empty()) putXmp(out, metadata.xmp, metadata.extendedXmp);
    putResources(out, metadata.resources.text());
    return out;
}

std::optional<Data> jpegWithMetadata(const Data& file, const ImageMetadata& metadata) {
    constexpr std::uint8_t jfif = 0xE0;
    const std::string_view text = file.text();
    if (!text.starts_with("\xFF\xD8\xFF")) return std::nullopt;
    const CGDataProvider bytes(file);
    Bytes out{0xFF, 0xD8};
    const auto put = [&](std::string_view part) { out.insert(out.end(), part.begin(), part.end()); };
    const Bytes segments = jpegMetadataSegments(metadata);
    std::size_t at = 2, place = 2;
    while (const auto segment = segmentAt(bytes, at)) {
        const std::size_t length = segment->marker == 0xFF ? 1 : 2 + segment->length;
        const std::string_view whole = text.substr(std::min(at, text.size()), length);
        if (whole.size() < length) return std::nullopt;
        const bool isOld = length > 4 && isMetadata(segment->marker, whole.substr(4));
        if (!isOld) put(whole);
        at += length;
        if (segment->marker == jfif && place == 2) place = out.size();
    }
    put(text.substr(std::min(at, text.size())));
    out.insert(out.begin() + static_cast<std::ptrdiff_t>(place), segments.begin(), segments.end());
    return Data(std::move(out));
}

} // namespace pex
