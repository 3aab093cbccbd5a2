#include "peximage/platform/codecs/metadata/ExifEditor.h"

#include "peximage/platform/codecs/metadata/ExifTags.h"

#include <algorithm>
#include <array>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Type = TiffStructure::Type;

constexpr std::size_t entryBytes = TiffStructure::entryBytes;

std::uint16_t pointerTag(ExifDirectory which) {
    return which == ExifDirectory::gps ? exifTag::gpsDirectory : exifTag::exifDirectory;
}

} // namespace

std::optional<ExifEditor> ExifEditor::open(std::span<const std::uint8_t> block) {
    ExifEditor editor;
    editor.bytes_.assign(block.begin(), block.end());
    const auto structure = TiffStructure::of(editor.bytes_);
    if (!structure || !structure->mainDirectory()) return std::nullopt;
    return editor;
}

ExifEditor::ExifEditor() : bytes_{'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0} {}

std::optional<TiffDirectory> ExifEditor::directory(ExifDirectory which) const {
    const TiffStructure block = structure();
    const auto main = block.mainDirectory();
    if (which == ExifDirectory::image || !main) return main;
    return block.directory(*main, pointerTag(which));
}

std::optional<TiffDirectory> ExifEditor::thumbnail() const {
    const auto main = directory(ExifDirectory::image);
    return main && main->nextAt ? structure().directory(structure().number(*main->nextAt, 4)) : std::nullopt;
}

ByteRanges ExifEditor::rangesOf(const TiffDirectory& directory) const {
    ByteRanges ranges{{directory.at, std::min(directory.end() + 4, bytes_.size())}};
    for (const TiffEntry& entry : directory.entries) {
        if (entry.size > 4 && entry.valueEnd() <= bytes_.size())
            ranges.push_back({entry.valueAt, entry.valueEnd()});
    }
    return ranges;
}

ByteRanges ExifEditor::rangesOfThumbnail(const TiffDirectory& directory) const {
    ByteRanges ranges = rangesOf(directory);
    constexpr std::array<std::pair<std::uint16_t, std::uint16_t>, 2> pictures{
        {{exifTag::thumbnailOffset, exifTag::thumbnailBytes}, {exifTag::stripOffsets, exifTag::stripBytes}}};
    for (const auto& [offsetTag, bytesTag] : pictures) {
        const TiffEntry *offset = directory.find(offsetTag), *bytes = directory.find(bytesTag);
        if (offset == nullptr || bytes == nullptr) continue;
        const std::size_t begin = structure().number(*offset).value_or(0);
        const std::size_t size = structure().number(*bytes).value_or(0);
        ranges.push_back({begin, std::min(begin + size, bytes_.size())});
    }
    return ranges;
}

ByteRanges ExifEditor::rangesInUse() const {
    const TiffStructure block = structure();
    ByteRanges all{{0, TiffStructure::headerBytes}};
    const auto add = [&](const ByteRanges& more) { all.insert(all.end(), more.begin(), more.end()); };
    for (const auto which : {ExifDirectory::image, ExifDirectory::exif, ExifDirectory::gps}) {
        const auto found = directory(which);
        if (found) add(rangesOf(*found));
        const auto inner = found ? block.directory(*found, exifTag::interoperabilityDirectory) : std::nullopt;
        if (inner) add(rangesOf(*inner));
    }
    if (const auto found = thumbnail()) add(rangesOfThumbnail(*found));
    return joined(std::move(all));
}

void ExifEditor::put(std::size_t at, std::uint32_t value, std::size_t bytes) {
    putTiffNumber(&bytes_[at], value, bytes, structure().isBigEndian());
}

void ExifEditor::blank(const ByteRanges& ranges) {
    const ByteRanges pieces = without(ranges, rangesInUse());
    for (const ByteRange piece : pieces)
        std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(piece.begin),
                  bytes_.begin() + static_cast<std::ptrdiff_t>(std::min(piece.end, bytes_.size())),
                  std::uint8_t{0});
    if (!pieces.empty() && pieces.back().end >= bytes_.size()) bytes_.resize(pieces.back().begin);
}

std::optional<TiffEntry> ExifEditor::find(ExifDirectory which, std::uint16_t tag) const {
    const auto found = directory(which);
    const TiffEntry* entry = found ? found->find(tag) : nullptr;
    return entry != nullptr && structure().holds(*entry) ? std::optional(*entry) : std::nullopt;
}

void ExifEditor::correctNumber(ExifDirectory which, std::uint16_t tag, std::uint32_t value) {
    const auto found = directory(which);
    if (!found) return;
    for (const TiffEntry& entry : found->entries) {
        if (entry.tag != tag || entry.count != 1 || !structure().number(entry)) continue;
        const std::size_t bytes = TiffStructure::sizeOf(entry.type);
        const bool fits = bytes == 4 || value >> (8 * bytes) == 0;
        if (!fits) put(entry.at + 2, Type::longInt, 2);
        put(entry.at + 8, value, fits ? bytes : 4);
    }
}

ByteRanges ExifEditor::unlink(ExifDirectory which, std::uint16_t tag) {
    const auto found = directory(which);
    if (!found || found->find(tag) == nullptr) return {};
    ByteRanges values;
    const auto at = [&](std::size_t place) { return bytes_.begin() + static_cast<std::ptrdiff_t>(place); };
    std::size_t to = found->at + 2;
    for (const TiffEntry& entry : found->entries) {
        if (entry.tag != tag)
            to = static_cast<std::size_t>(std::copy(at(entry.at), at(entry.at + entryBytes), at(to)) -
                                          bytes_.begin());
        else if (entry.size > 4)
            values.push_back({entry.valueAt, entry.valueEnd()});
    }
    put(found->at, static_cast<std::uint32_t>((to - found->at - 2) / entryBytes), 2);
    const std::size_t end = found->nextAt ? found->end() + 4 : found->end();
    std::fill(std::copy(at(found->end()), at(end), at(to)), at(end), std::uint8_t{0});
    return values;
}

void ExifEditor::remove(ExifDirectory which, std::uint16_t tag) { blank(unlink(which, tag)); }

void ExifEditor::removeThumbnail() {
    const auto main = directory(ExifDirectory::image), found = thumbnail();
    if (!main || !main->nextAt) return;
    put(*main->nextAt, 0, 4);
    if (found) blank(rangesOfThumbnail(*found));
}

bool ExifEditor::removeLocation() {
    const auto gps = directory(ExifDirectory::gps);
    const ByteRanges places = gps ? rangesOf(*gps) : ByteRanges();
    for (const std::uint16_t tag : {exifTag::gpsDirectory, exifTag::subDirectories, exifTag::xmp,
                                    exifTag::iptc, exifTag::imageResources, exifTag::privateData})
        unlink(ExifDirectory::image, tag);
    unlink(ExifDirectory::exif, exifTag::makerNote);
    unlink(ExifDirectory::exif, exifTag::gpsDirectory);
    const auto last = thumbnail();
    if (last && last->nextAt) put(*last->nextAt, 0, 4);
    std::size_t bytes = 0, left = 0;
    for (const ByteRange range : joined(places))
        bytes += range.end - range.begin;
    for (const ByteRange range : without(places, rangesInUse()))
        left += range.end - range.begin;
    blank({{0, bytes_.size()}});
    return left == bytes;
}

std::size_t ExifEditor::append(std::span<const std::uint8_t> bytes) {
    bytes_.resize(bytes_.size() + bytes_.size() % 2);
    const std::size_t at = bytes_.size();
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return at;
}

void ExifEditor::addDirectory(ExifDirectory which) {
    Bytes pointer(4);
    const std::size_t at = append(Bytes(6));
    putTiffNumber(pointer.data(), static_cast<std::uint32_t>(at), 4, structure().isBigEndian());
    set(ExifDirectory::image, pointerTag(which), Type::longInt, 1, pointer);
}

void ExifEditor::addEntry(ExifDirectory which, std::uint16_t tag) {
    if (!directory(which)) addDirectory(which);
    const TiffDirectory old = *directory(which);
    const auto place = static_cast<std::size_t>(
        std::ranges::find_if(old.entries, [&](const TiffEntry& entry) { return entry.tag > tag; }) -
        old.entries.begin());
    Bytes table = structure().bytes(old.at, old.end() + 4 - old.at);
    table.resize(old.end() + 4 - old.at);
    table.insert(table.begin() + static_cast<std::ptrdiff_t>(2 + place * entryBytes), entryBytes, 0);
    const std::size_t at = append(table);
    put(at, static_cast<std::uint32_t>(old.entries.size() + 1), 2);
    put(at + 2 + place * entryBytes, tag, 2);
    if (which == ExifDirectory::image)
        put(4, static_cast<std::uint32_t>(at), 4);
    else
        correctNumber(ExifDirectory::image, pointerTag(which), static_cast<std::uint32_t>(at));
    blank({{old.at, old.end() + 4}});
}

void ExifEditor::set(ExifDirectory which, std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                     std::span<const std::uint8_t> value) {
    if (!find(which, tag)) {
        unlink(which, tag);
        addEntry(which, tag);
    }
    const TiffEntry old = *find(which, tag);
    std::size_t at = old.at + 8;
    const bool fits = value.size() <= old.size && old.valueAt >= TiffStructure::headerBytes;
    if (value.size() > 4) at = fits ? old.valueAt : append(value);
    put(old.at + 2, type, 2);
    put(old.at + 4, count, 4);
    put(old.at + 8, value.size() > 4 ? static_cast<std::uint32_t>(at) : 0, 4);
    std::ranges::copy(value, bytes_.begin() + static_cast<std::ptrdiff_t>(at));
    if (old.size > 4) blank({{old.valueAt, old.valueEnd()}});
}

} // namespace pex
