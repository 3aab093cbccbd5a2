#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/codecs/metadata/ExifEditor.h"
#include "peximage/platform/codecs/metadata/ExifTags.h"
#include "peximage/platform/codecs/metadata/ImageResources.h"
#include "peximage/platform/codecs/metadata/TiffMetadata.h"
#include "peximage/platform/codecs/metadata/XmpPacket.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Value = PropertyDictionary::Value;
using Type = TiffStructure::Type;

constexpr std::uint16_t signedLong = 9, signedFraction = 10;
constexpr std::size_t mostListed = 4096;

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

bool isSigned(std::uint16_t type) { return type == signedLong || type == signedFraction; }
bool isFraction(std::uint16_t type) { return type == Type::rational || type == signedFraction; }

double numberAt(const TiffStructure& block, std::size_t at, std::uint16_t type, std::size_t bytes) {
    const std::uint32_t number = block.number(at, bytes);
    if (isSigned(type)) return static_cast<std::int32_t>(number);
    return number;
}

/// The numbers of a field; none if a fraction has no value.
std::vector<double> numbersOf(const TiffStructure& block, const TiffEntry& entry) {
    const std::size_t size = TiffStructure::sizeOf(entry.type);
    std::vector<double> numbers;
    for (std::size_t i = 0; i < std::min<std::size_t>(entry.count, mostListed); ++i) {
        const std::size_t at = entry.valueAt + i * size;
        if (!isFraction(entry.type)) {
            numbers.push_back(numberAt(block, at, entry.type, size));
            continue;
        }
        const double below = numberAt(block, at + 4, entry.type, 4);
        if (below == 0) return {};
        numbers.push_back(numberAt(block, at, entry.type, 4) / below);
    }
    return numbers;
}

std::vector<double> numbersOf(const Value& value) {
    if (const auto* whole = std::get_if<std::int64_t>(&value)) return {static_cast<double>(*whole)};
    if (const auto* number = std::get_if<double>(&value)) return {*number};
    const auto* list = std::get_if<std::vector<double>>(&value);
    return list != nullptr ? *list : std::vector<double>();
}

double mostOf(std::uint16_t type) {
    if (type == Type::byte) return 255;
    if (type == Type::shortInt) return 65535;
    return isSigned(type) ? 2147483647.0 : 4294967295.0;
}

bool canHold(std::uint16_t type, const std::vector<double>& numbers) {
    constexpr std::array<std::uint16_t, 6> known{Type::byte,     Type::shortInt, Type::longInt,
                                                 Type::rational, signedLong,     signedFraction};
    if (std::ranges::find(known, type) == known.end()) return false;
    return std::ranges::all_of(numbers, [&](double number) {
        const bool isRight = isFraction(type) || number == std::floor(number);
        return isRight && number <= mostOf(type) && number >= (isSigned(type) ? -mostOf(type) : 0);
    });
}

/// The type for the numbers: that of the existing field if it can hold them, else the smallest that can;
/// 0 if none can.
std::uint16_t typeFor(const std::vector<double>& numbers, const std::optional<TiffEntry>& old) {
    if (old && canHold(old->type, numbers)) return old->type;
    constexpr std::array<std::uint16_t, 5> types{Type::shortInt, Type::longInt, signedLong, Type::rational,
                                                 signedFraction};
    const auto* found =
        std::ranges::find_if(types, [&](std::uint16_t type) { return canHold(type, numbers); });
    return found != types.end() ? *found : std::uint16_t{0};
}

/// The denominator for a number: as large as fits beside it, at most a million.
double partsFor(double number) {
    double parts = number == std::floor(number) ? 1 : 1e6;
    while (parts > 1 && std::abs(number) * parts > 2147483647.0)
        parts /= 10;
    return parts;
}

Bytes valueOf(const std::vector<double>& numbers, std::uint16_t type, bool bigEndian) {
    const std::size_t size = TiffStructure::sizeOf(type);
    Bytes value(numbers.size() * size);
    std::uint8_t* at = value.data();
    for (const double number : numbers) {
        const double parts = isFraction(type) ? partsFor(number) : 1;
        const auto above = static_cast<std::uint32_t>(std::llround(number * parts));
        putTiffNumber(at, above, std::min<std::size_t>(size, 4), bigEndian);
        if (isFraction(type)) putTiffNumber(at + 4, static_cast<std::uint32_t>(parts), 4, bigEndian);
        at += size;
    }
    return value;
}

/// Whether nothing is missed of what goes when the block is packed: its thumbnail, and how the picture lies.
bool canBePacked(const ExifEditor& block) {
    const TiffStructure structure = block.structure();
    const auto main = structure.mainDirectory();
    if (!main || (main->nextAt && structure.number(*main->nextAt, 4) != 0)) return false;
    const TiffEntry* lies = main->find(exifTag::orientation);
    return lies == nullptr || structure.number(*lies) == 1;
}

} // namespace

std::optional<Value> ImageMetadata::exifField(ExifDirectory directory, std::uint16_t tag) const {
    const auto editor = ExifEditor::open(exif.bytes());
    const auto entry = editor ? editor->find(directory, tag) : std::nullopt;
    if (!entry || entry->size == 0) return std::nullopt;
    if (entry->type == Type::ascii || entry->type == Type::undefined) {
        const Bytes bytes = editor->structure().bytes(entry->valueAt, entry->size);
        const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return std::string(entry->type == Type::ascii ? text.substr(0, text.find('\0')) : text);
    }
    if (!canHold(entry->type, {})) return std::nullopt;
    const std::vector<double> numbers = numbersOf(editor->structure(), *entry);
    if (numbers.empty()) return std::nullopt;
    if (numbers.size() > 1) return numbers;
    if (isFraction(entry->type)) return numbers[0];
    return static_cast<std::int64_t>(numbers[0]);
}

bool ImageMetadata::setExifField(ExifDirectory directory, std::uint16_t tag, const Value& value) {
    auto editor = exif.empty() ? ExifEditor() : ExifEditor::open(exif.bytes());
    if (!editor) return false;
    const auto old = editor->find(directory, tag);
    if (const auto* text = std::get_if<std::string>(&value)) {
        const bool isRaw = old && old->type == Type::undefined;
        const std::size_t bytes = text->size() + (isRaw ? 0 : 1);
        editor->set(directory, tag, isRaw ? Type::undefined : Type::ascii, static_cast<std::uint32_t>(bytes),
                    {bytesOf(*text).data(), bytes});
    } else {
        const std::vector<double> numbers = numbersOf(value);
        const std::uint16_t type = typeFor(numbers, old);
        if (numbers.empty() || type == 0) return false;
        editor->set(directory, tag, type, static_cast<std::uint32_t>(numbers.size()),
                    valueOf(numbers, type, editor->structure().isBigEndian()));
    }
    exif = Data(Bytes(editor->bytes()));
    return true;
}

/// A maker's notes leave a large gap, and were what referred to places in the block: the rest moves together.
void ImageMetadata::removeExifField(ExifDirectory directory, std::uint16_t tag) {
    auto editor = ExifEditor::open(exif.bytes());
    if (!editor) return;
    editor->remove(directory, tag);
    exif = tag == exifTag::makerNote && canBePacked(*editor) ? compactExif(editor->bytes())
                                                             : Data(Bytes(editor->bytes()));
}

std::optional<std::string> ImageMetadata::xmpProperty(std::string_view nameSpace,
                                                      std::string_view name) const {
    return xmp.empty() ? std::nullopt : xmpPacket::property(xmp, nameSpace, name);
}

bool ImageMetadata::setXmpProperty(std::string_view nameSpace, std::string_view name, std::string_view text) {
    auto changed = xmpPacket::withProperty(xmp, nameSpace, name, text);
    if (changed) xmp = *changed;
    return changed.has_value();
}

Data ImageMetadata::iptc() const {
    for (const ImageResource& resource : imageResources(resources.bytes())) {
        if (resource.id == ImageResource::iptc)
            return Data(Bytes(resource.content.begin(), resource.content.end()));
    }
    return {};
}

void ImageMetadata::setIptc(const Data& records) {
    Bytes all = records.empty() ? Bytes() : imageResource(ImageResource::iptc, records.bytes());
    for (const ImageResource& resource : imageResources(resources.bytes())) {
        const bool isOld = resource.id == ImageResource::iptc || resource.id == ImageResource::iptcDigest;
        if (!isOld) all.insert(all.end(), resource.whole.begin(), resource.whole.end());
    }
    resources = Data(std::move(all));
}

std::vector<std::string> ImageMetadata::iptcField(std::uint8_t number) const {
    const Data records = iptc();
    std::vector<std::string> texts;
    for (const IptcField& field : iptcFields(records.bytes())) {
        if (field.record == 2 && field.number == number)
            texts.emplace_back(field.content.begin(), field.content.end());
    }
    return texts;
}

void ImageMetadata::setIptcField(std::uint8_t number, const std::vector<std::string>& texts) {
    constexpr std::uint8_t application = 2;
    const Data records = iptc();
    Bytes before, behind;
    for (const IptcField& field : iptcFields(records.bytes())) {
        const bool isBefore =
            field.record < application || (field.record == application && field.number < number);
        if (field.record == application && field.number == number) continue;
        Bytes& to = isBefore ? before : behind;
        to.insert(to.end(), field.whole.begin(), field.whole.end());
    }
    for (const std::string& text : texts) {
        const Bytes field = pex::iptcField(application, number, bytesOf(text));
        before.insert(before.end(), field.begin(), field.end());
    }
    before.insert(before.end(), behind.begin(), behind.end());
    setIptc(Data(std::move(before)));
}

} // namespace pex
