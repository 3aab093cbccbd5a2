#include "peximage/platform/codecs/metadata/TiffMetadata.h"

#include "peximage/platform/codecs/metadata/ExifTags.h"
#include "peximage/platform/codecs/metadata/ImageResources.h"
#include "peximage/platform/codecs/metadata/TiffStructure.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Type = TiffStructure::Type;

/// A maker's notes farther away than this move, since the block would be mostly empty.
constexpr std::size_t mostEmpty = std::size_t{1} << 14;

struct Field {
    std::uint16_t tag = 0, type = 0;
    std::uint32_t count = 0;
    Bytes value;        // in the order of the structure that it is for
    std::size_t at = 0; // where the value stands or stood
};
using Fields = std::vector<Field>;

/// The fields that describe the picture beside its pixels.
bool describesPhoto(std::uint16_t tag) {
    // Software, document, maker, resolution, page, date, artist, machine; ratings, copyright; texts.
    constexpr std::array<std::uint16_t, 21> tags{11,    269,   270,   271,   272,   282,   283,
                                                 285,   296,   305,   306,   315,   316,   18246,
                                                 18249, 33432, 40091, 40092, 40093, 40094, 40095};
    return std::ranges::find(tags, tag) != tags.end();
}

/// Of an EXIF block's main directory, what makes no sense in a TIFF file's.
bool belongsToPixels(std::uint16_t tag) {
    return (tag >= 254 && tag <= 268) || (tag >= 273 && tag <= 281) || (tag >= 317 && tag <= 347) ||
           (tag >= 512 && tag <= 532) || tag == exifTag::xmp || tag == exifTag::iptc ||
           tag == exifTag::imageResources || tag == exifTag::profile;
}

void makeEven(Bytes& bytes) {
    if (bytes.size() % 2 != 0) bytes.push_back(0);
}

Field pointer(std::uint16_t tag) { return {tag, Type::longInt, 1, Bytes(4)}; }

std::size_t tableBytes(const Fields& fields) { return 2 + TiffStructure::entryBytes * fields.size() + 4; }

/// Writes tables and values one behind the other, around a stretch that is kept free.
class BlockBuilder {
  public:
    BlockBuilder(bool bigEndian, const Fields& exif) : bigEndian_(bigEndian) {
        block_ = bigEndian ? Bytes{'M', 'M', 0, 42, 0, 0, 0, 0} : Bytes{'I', 'I', 42, 0, 0, 0, 0, 0};
        const auto note = std::ranges::find(exif, exifTag::makerNote, &Field::tag);
        if (note == exif.end() || note->value.size() <= 4 || note->at < block_.size()) return;
        if (note->at > mostEmpty) return;
        reserved_ = note->at;
        reservedEnd_ = note->at + note->value.size();
    }

    /// Pointers between the directories are filled in; the fields are put in order.
    Bytes build(Fields main, Fields exif, Fields interoperability, Fields gps) {
        if (!interoperability.empty()) exif.push_back(pointer(exifTag::interoperabilityDirectory));
        if (!exif.empty()) main.push_back(pointer(exifTag::exifDirectory));
        if (!gps.empty()) main.push_back(pointer(exifTag::gpsDirectory));
        const std::size_t mainAt = place(tableBytes(main));
        putTiffNumber(&block_[4], static_cast<std::uint32_t>(mainAt), 4, bigEndian_);
        const std::size_t gpsAt = putInner(main, exifTag::gpsDirectory, gps),
                          exifAt = putInner(main, exifTag::exifDirectory, exif),
                          innerAt = putInner(exif, exifTag::interoperabilityDirectory, interoperability);
        putTable(mainAt, main);
        putTable(gpsAt, gps);
        putTable(exifAt, exif);
        putTable(innerAt, interoperability);
        return std::move(block_);
    }

  private:
    std::size_t place(std::size_t bytes) {
        std::size_t at = next_;
        if (at < reservedEnd_ && at + bytes > reserved_) at = reservedEnd_ + reservedEnd_ % 2;
        next_ = at + bytes + bytes % 2;
        block_.resize(std::max(block_.size(), at + bytes));
        return at;
    }

    std::size_t putInner(Fields& outer, std::uint16_t tag, const Fields& inner) {
        if (inner.empty()) return 0;
        const std::size_t at = place(tableBytes(inner));
        const auto entry = std::ranges::find(outer, tag, &Field::tag);
        putTiffNumber(entry->value.data(), static_cast<std::uint32_t>(at), 4, bigEndian_);
        return at;
    }

    void put(std::size_t at, std::size_t value, std::size_t bytes) {
        putTiffNumber(&block_[at], static_cast<std::uint32_t>(value), bytes, bigEndian_);
    }

    void putTable(std::size_t at, Fields& fields) {
        if (fields.empty()) return;
        std::ranges::stable_sort(fields, {}, &Field::tag);
        put(at, fields.size(), 2);
        at += 2;
        for (const Field& field : fields) {
            const bool isNote = field.tag == exifTag::makerNote && field.at == reserved_ && reserved_ > 0;
            const std::size_t size = field.value.size();
            std::size_t valueAt = at + 8;
            if (isNote) block_.resize(std::max(block_.size(), reservedEnd_));
            if (size > 4) valueAt = isNote ? reserved_ : place(size);
            put(at, field.tag, 2);
            put(at + 2, field.type, 2);
            put(at + 4, field.count, 4);
            if (size > 4) put(at + 8, valueAt, 4);
            std::ranges::copy(field.value, block_.begin() + static_cast<std::ptrdiff_t>(valueAt));
            at += TiffStructure::entryBytes;
        }
    }

    bool bigEndian_;
    Bytes block_;
    std::size_t next_ = TiffStructure::headerBytes, reserved_ = 0, reservedEnd_ = 0;
};

/// The fields of a directory with their values; a value that would take more than is left of `most` is not
/// read.
template <class Wanted>
Fields fieldsOf(const TiffStructure& file, const std::optional<TiffDirectory>& directory, std::size_t& most,
                const Wanted& wanted) {
    Fields fields;
    if (!directory) return fields;
    for (const TiffEntry& entry : directory->entries) {
        if (!wanted(entry.tag) || entry.size == 0 || entry.size > most || !file.holds(entry)) continue;
        Field field{entry.tag, entry.type, entry.count, file.bytes(entry.valueAt, entry.size), entry.valueAt};
        if (field.value.size() < entry.size) continue;
        most -= entry.size;
        fields.push_back(std::move(field));
    }
    return fields;
}

Data exifOf(const TiffStructure& file, const TiffDirectory& main, std::size_t most) {
    const auto exifDirectory = file.directory(main, exifTag::exifDirectory);
    const auto innerDirectory =
        exifDirectory ? file.directory(*exifDirectory, exifTag::interoperabilityDirectory) : std::nullopt;
    const auto all = [](std::uint16_t) { return true; };
    const auto notPointer = [](std::uint16_t tag) { return tag != exifTag::interoperabilityDirectory; };
    Fields photo = fieldsOf(file, main, most, describesPhoto);
    Fields exif = fieldsOf(file, exifDirectory, most, notPointer);
    Fields inner = fieldsOf(file, innerDirectory, most, all);
    Fields gps = fieldsOf(file, file.directory(main, exifTag::gpsDirectory), most, all);
    if (photo.empty() && exif.empty() && gps.empty()) return {};
    BlockBuilder builder(file.isBigEndian(), exif);
    return Data(builder.build(std::move(photo), std::move(exif), std::move(inner), std::move(gps)));
}

Bytes valueOf(const TiffStructure& file, const TiffDirectory& directory, std::uint16_t tag,
              std::size_t most) {
    const TiffEntry* entry = directory.find(tag);
    if (entry == nullptr || entry->size > most || !file.holds(*entry)) return {};
    return file.bytes(entry->valueAt, entry->size);
}

/// Some writers store the records as 4-byte numbers in the other byte order.
void straightenRecords(Bytes& records) {
    constexpr std::uint8_t mark = 0x1C;
    if (records.size() < 4 || records[0] == mark || records[3] != mark) return;
    for (std::size_t i = 0; i + 4 <= records.size(); i += 4)
        std::reverse(records.begin() + static_cast<std::ptrdiff_t>(i),
                     records.begin() + static_cast<std::ptrdiff_t>(i + 4));
}

/// Bytes of one number of a type; those of a text stand as they are.
std::size_t unitOf(std::uint16_t type) {
    constexpr std::uint16_t signedFraction = 10;
    return type == Type::rational || type == signedFraction ? 4 : TiffStructure::sizeOf(type);
}

/// The directory that the codec library has written, for another byte order, and for pixels that stand
/// `shift` bytes later.
Fields shiftedFields(const TiffStructure& file, const TiffDirectory& main, bool bigEndian,
                     std::size_t shift) {
    std::size_t most = std::numeric_limits<std::size_t>::max();
    Fields fields = fieldsOf(file, main, most, [](std::uint16_t) { return true; });
    for (Field& field : fields) {
        const std::size_t unit = unitOf(field.type);
        if (field.tag == exifTag::stripOffsets) {
            const Bytes old = std::exchange(field.value, Bytes(std::size_t{field.count} * 4));
            for (std::size_t i = 0; i < field.count; ++i) {
                std::uint32_t offset = 0;
                for (std::size_t k = 0; k < unit; ++k)
                    offset |= std::uint32_t{old[i * unit + k]} << 8 * (file.isBigEndian() ? unit - 1 - k : k);
                putTiffNumber(&field.value[i * 4], static_cast<std::uint32_t>(offset + shift), 4, bigEndian);
            }
            field.type = Type::longInt;
        } else if (bigEndian != file.isBigEndian()) {
            for (std::size_t i = 0; i + unit <= field.value.size(); i += unit)
                std::reverse(field.value.begin() + static_cast<std::ptrdiff_t>(i),
                             field.value.begin() + static_cast<std::ptrdiff_t>(i + unit));
        }
    }
    return fields;
}

void addBytes(Fields& fields, std::uint16_t tag, std::uint16_t type, const Data& bytes) {
    if (!bytes.empty())
        fields.push_back({tag, type, static_cast<std::uint32_t>(bytes.size()),
                          Bytes(bytes.bytes().begin(), bytes.bytes().end())});
}

/// Those of the block's main directory that the file's own has not; their values are there already.
void addExif(Fields& fields, const TiffStructure& block) {
    const auto main = block.mainDirectory();
    for (const TiffEntry& entry : main ? main->entries : std::vector<TiffEntry>()) {
        const bool isThere = std::ranges::find(fields, entry.tag, &Field::tag) != fields.end();
        if (isThere || belongsToPixels(entry.tag)) continue;
        fields.push_back({entry.tag, entry.type, entry.count, block.bytes(entry.at + 8, 4)});
    }
}

void appendDirectory(Bytes& file, Fields fields, bool bigEndian) {
    const auto put = [&](std::size_t value, std::size_t bytes) {
        file.resize(file.size() + bytes);
        putTiffNumber(&file[file.size() - bytes], static_cast<std::uint32_t>(value), bytes, bigEndian);
    };
    std::ranges::stable_sort(fields, {}, &Field::tag);
    for (Field& field : fields) {
        makeEven(file);
        field.at = file.size();
        if (field.value.size() > 4) file.insert(file.end(), field.value.begin(), field.value.end());
    }
    makeEven(file);
    putTiffNumber(&file[4], static_cast<std::uint32_t>(file.size()), 4, bigEndian);
    put(fields.size(), 2);
    for (Field& field : fields) {
        put(field.tag, 2);
        put(field.type, 2);
        put(field.count, 4);
        if (field.value.size() > 4) {
            put(field.at, 4);
            continue;
        }
        field.value.resize(4);
        file.insert(file.end(), field.value.begin(), field.value.end());
    }
    put(0, 4);
}

} // namespace

ImageMetadata readTiffMetadata(const CGDataProvider& bytes, const ImageLimits& limits) {
    const auto file = TiffStructure::of(bytes);
    const auto main = file ? file->mainDirectory() : std::nullopt;
    if (!main) return {};
    const std::size_t most = limits.maxMetadataBytes;
    ImageMetadata metadata;
    metadata.exif = exifOf(*file, *main, most);
    metadata.xmp = Data(valueOf(*file, *main, exifTag::xmp, most));
    metadata.resources = Data(describingResources(valueOf(*file, *main, exifTag::imageResources, most)));
    Bytes records = valueOf(*file, *main, exifTag::iptc, most);
    straightenRecords(records);
    if (!records.empty() && metadata.iptc().empty()) metadata.setIptc(Data(std::move(records)));
    return metadata;
}

Data compactExif(std::span<const std::uint8_t> block) {
    const auto structure = TiffStructure::of(block);
    const auto main = structure ? structure->mainDirectory() : std::nullopt;
    return main ? exifOf(*structure, *main, block.size()) : Data();
}

std::optional<Bytes> tiffWithMetadata(std::span<const std::uint8_t> file, const ImageMetadata& metadata) {
    const auto own = TiffStructure::of(file);
    const auto main = own ? own->mainDirectory() : std::nullopt;
    if (!main) return std::nullopt;
    constexpr std::size_t header = TiffStructure::headerBytes;
    const auto block = TiffStructure::of(metadata.exif.bytes());
    const auto first = block ? metadata.exif.bytes() : file.first(header);
    Bytes whole(first.begin(), first.end());
    makeEven(whole);
    const bool bigEndian = block ? block->isBigEndian() : own->isBigEndian();
    Fields fields = shiftedFields(*own, *main, bigEndian, whole.size() - header);
    if (block) addExif(fields, *block);
    addBytes(fields, exifTag::xmp, Type::byte, metadata.xmp);
    addBytes(fields, exifTag::iptc, Type::undefined, metadata.iptc());
    addBytes(fields, exifTag::imageResources, Type::byte, metadata.resources);
    whole.insert(whole.end(), file.begin() + header, file.end());
    appendDirectory(whole, std::move(fields), bigEndian);
    if (whole.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return whole;
}

} // namespace pex
