#include "modules/heif/CodedSize.h"

#include "modules/heif/ParameterSets.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

namespace pex::heif {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Limits = CodecModule::Limits;

/// Numbers one after the other from a stretch of the file; 0 behind its end.
class Cursor {
  public:
    Cursor(const CodecModule::Input& file, std::uint64_t begin, std::uint64_t end)
        : file_(file), at_(begin), end_(std::min<std::uint64_t>(end, file.size)) {}

    std::uint64_t number(int bytes) {
        std::uint8_t read[8] = {};
        const auto count = static_cast<std::size_t>(bytes);
        std::uint64_t value = 0;
        if (at_ > end_ || end_ - at_ < count || file_.read(file_.context, at_, read, count) != count) {
            at_ = end_ + 1;
            return 0;
        }
        for (std::size_t i = 0; i < count; ++i)
            value = value << 8 | read[i];
        at_ += count;
        return value;
    }
    void skip(std::uint64_t bytes) { at_ = bytes <= end_ - std::min(at_, end_) ? at_ + bytes : end_ + 1; }
    bool isBeyond() const { return at_ > end_; }
    bool hasMore() const { return at_ < end_; }
    std::uint64_t at() const { return at_; }
    std::uint64_t left() const { return end_ - std::min(at_, end_); }
    /// The next bytes by themselves; moves on behind them.
    Cursor part(std::uint64_t bytes) {
        const Cursor inner(file_, at_, std::min(end_, at_ + std::min(bytes, left())));
        skip(bytes);
        return inner;
    }
    Bytes rest() const {
        Bytes bytes(static_cast<std::size_t>(left()));
        bytes.resize(file_.read(file_.context, at_, bytes.data(), bytes.size()));
        return bytes;
    }

  private:
    const CodecModule::Input& file_;
    std::uint64_t at_, end_;
};

struct Box {
    std::uint32_t type = 0;
    Cursor content;
};

constexpr std::uint32_t named(const char (&name)[5]) {
    return std::uint32_t{static_cast<std::uint8_t>(name[0])} << 24 |
           std::uint32_t{static_cast<std::uint8_t>(name[1])} << 16 |
           std::uint32_t{static_cast<std::uint8_t>(name[2])} << 8 | static_cast<std::uint8_t>(name[3]);
}

std::optional<Box> nextBox(Cursor& boxes) {
    if (!boxes.hasMore()) return std::nullopt;
    const std::uint64_t start = boxes.at();
    std::uint64_t size = boxes.number(4);
    const auto type = static_cast<std::uint32_t>(boxes.number(4));
    if (size == 1) size = boxes.number(8);
    if (boxes.isBeyond()) return std::nullopt;
    const std::uint64_t head = boxes.at() - start;
    if (size != 0 && size < head) return std::nullopt;
    return Box{type, boxes.part(size == 0 ? boxes.left() : size - head)};
}

std::optional<Cursor> findBox(Cursor boxes, std::uint32_t type) {
    while (const auto box = nextBox(boxes)) {
        if (box->type == type) return box->content;
    }
    return std::nullopt;
}

/// The types of all items, by their numbers.
std::map<std::uint64_t, std::uint32_t> itemTypes(Cursor meta) {
    std::map<std::uint64_t, std::uint32_t> types;
    auto list = findBox(meta, named("iinf"));
    if (!list) return types;
    const bool isLong = list->number(1) != 0;
    list->skip(3);
    list->number(isLong ? 4 : 2);
    while (auto entry = nextBox(*list)) {
        const int version = static_cast<int>(entry->content.number(1));
        if (entry->type != named("infe") || version < 2) continue;
        entry->content.skip(3);
        const std::uint64_t item = entry->content.number(version == 2 ? 2 : 4);
        entry->content.skip(2);
        types[item] = static_cast<std::uint32_t>(entry->content.number(4));
    }
    return types;
}

/// Calls `visit(item, bytes)` for each item's bytes. False when a call is false, or when the places overlap
/// so much that they make up more than the file.
template <class Visit>
bool forEachItem(const CodecModule::Input& file, Cursor meta, const Visit& visit) {
    auto places = findBox(meta, named("iloc"));
    if (!places) return true;
    const auto ownData = findBox(meta, named("idat"));
    const int version = static_cast<int>(places->number(1));
    places->skip(3);
    const auto sizes = static_cast<int>(places->number(2));
    const int offsetBytes = sizes >> 12, lengthBytes = sizes >> 8 & 15, baseBytes = sizes >> 4 & 15,
              indexBytes = version > 0 ? sizes & 15 : 0;
    if (std::max({offsetBytes, lengthBytes, baseBytes, indexBytes}) > 8) return false;
    std::uint64_t total = 0;
    for (std::uint64_t items = places->number(version < 2 ? 2 : 4); items > 0 && !places->isBeyond();
         --items) {
        const std::uint64_t item = places->number(version < 2 ? 2 : 4);
        const bool isOwn = version > 0 && (places->number(2) & 15) == 1;
        places->skip(2);
        const std::uint64_t base = places->number(baseBytes);
        Bytes bytes;
        for (std::uint64_t extents = places->number(2); extents > 0 && !places->isBeyond(); --extents) {
            places->number(indexBytes);
            const std::uint64_t offset = base + places->number(offsetBytes);
            const std::uint64_t length = places->number(lengthBytes);
            Cursor data = isOwn && ownData ? *ownData : Cursor(file, 0, file.size);
            data.skip(offset);
            const Bytes more = data.part(length == 0 ? data.left() : length).rest();
            total += more.size();
            if (total > 2 * file.size) return false;
            bytes.insert(bytes.end(), more.begin(), more.end());
        }
        if (!visit(item, bytes)) return false;
    }
    return true;
}

/// Pictures are coded in whole blocks, which reach over their edges.
bool fits(const std::vector<CodedSize>& sizes, const Limits& limits) {
    constexpr std::int64_t over = 63;
    return std::all_of(sizes.begin(), sizes.end(), [&](const CodedSize& size) {
        return limits.allow(std::max<std::int64_t>(1, size.width - over),
                            std::max<std::int64_t>(1, size.height - over));
    });
}

/// What stands with the properties rather than with the pixels.
bool configurationsFit(Cursor meta, const Limits& limits) {
    const auto properties = findBox(meta, named("iprp"));
    auto list = properties ? findBox(*properties, named("ipco")) : std::nullopt;
    while (const auto box = list ? nextBox(*list) : std::nullopt) {
        if (box->type == named("hvcC") && !fits(sizesInHevcConfiguration(box->content.rest()), limits))
            return false;
        if (box->type == named("av1C") && !fits(sizesInAv1Configuration(box->content.rest()), limits))
            return false;
    }
    return true;
}

/// The pictures that each item is made of, or has as its alpha.
using Parts = std::multimap<std::uint64_t, std::uint64_t>;

Parts partsOfItems(Cursor meta) {
    Parts parts;
    auto list = findBox(meta, named("iref"));
    if (!list) return parts;
    const int numberBytes = list->number(1) == 0 ? 2 : 4;
    list->skip(3);
    while (auto reference = nextBox(*list)) {
        const std::uint64_t from = reference->content.number(numberBytes);
        std::uint64_t count = reference->content.number(2);
        for (; count > 0 && !reference->content.isBeyond(); --count) {
            const std::uint64_t to = reference->content.number(numberBytes);
            if (reference->type == named("dimg")) parts.emplace(from, to);
            if (reference->type == named("auxl")) parts.emplace(to, from); // an alpha names its picture
        }
    }
    return parts;
}

/// Decodes nothing, but goes where a decoder would. False when it goes too deep, or `left` does not suffice.
bool comesToAnEnd(const Parts& parts, std::uint64_t item, int depth, int& left) {
    constexpr int deepest = 8;
    if (depth > deepest || --left < 0) return false;
    const auto [begin, end] = parts.equal_range(item);
    return std::all_of(begin, end,
                       [&](const auto& part) { return comesToAnEnd(parts, part.second, depth + 1, left); });
}

} // namespace

bool derivationsEnd(const CodecModule::Input& file) {
    auto meta = findBox(Cursor(file, 0, file.size), named("meta"));
    if (!meta) return true;
    meta->skip(4);
    const Parts parts = partsOfItems(*meta);
    int left = 20'000; // a picture in tiles of 512 pixels has about a thousand
    for (auto part = parts.begin(); part != parts.end(); part = parts.upper_bound(part->first)) {
        if (!comesToAnEnd(parts, part->first, 0, left)) return false;
    }
    return true;
}

bool codedSizesFit(const CodecModule::Input& file, const Limits& limits) {
    auto meta = findBox(Cursor(file, 0, file.size), named("meta"));
    if (!meta) return true;
    meta->skip(4);
    const auto types = itemTypes(*meta);
    return configurationsFit(*meta, limits) &&
           forEachItem(file, *meta, [&](std::uint64_t item, const Bytes& bytes) {
               const auto type = types.find(item);
               if (type == types.end()) return true;
               if (type->second == named("av01")) return fits(sizesInAv1(bytes), limits);
               const bool isHevc = type->second == named("hvc1") || type->second == named("hev1");
               return !isHevc || fits(sizesInHevc(bytes), limits);
           });
}

} // namespace pex::heif
