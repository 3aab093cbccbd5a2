#include "Origin.h"

#include "Files.h"

#include <cmath>
#include <system_error>

namespace fs = std::filesystem;

namespace {

/// "EXIF and IPTC".
std::string namesOf(const std::vector<std::string_view>& parts) {
    std::string names;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) names += i + 1 == parts.size() ? " and " : ", ";
        names += parts[i];
    }
    return names;
}

void noteLoss(Origin& origin, const pex::ImageMetadata& before, const std::string& why) {
    const auto lost = before.lostIn(origin.metadata);
    if (!lost.empty()) origin.notes.push_back(why + namesOf(lost));
}

void takeOutLocation(Origin& origin) {
    const pex::ImageMetadata before = origin.metadata;
    origin.metadata = before.withoutLocation();
    // The maker's notes go on purpose.
    if (!before.exif.empty() && origin.metadata.exif.empty())
        origin.notes.emplace_back("the EXIF block is too broken to take the place out: it is left out");
    if (!before.xmp.empty() && origin.metadata.xmp.empty())
        origin.notes.emplace_back("the XMP packet is too broken to take the place out: it is left out");
}

std::optional<int> wholeDpi(const pex::ImageProperties& properties) {
    constexpr double most = 65535; // what a JPEG can hold
    const double dpi = std::round(properties.dpiWidth.value_or(0));
    return dpi >= 1 && dpi <= most ? std::optional(static_cast<int>(dpi)) : std::nullopt;
}

/// Gives up what is worth least first, until the rest takes half of the budget at most.
pex::ImageMetadata within(long long budget, pex::ImageMetadata metadata) {
    constexpr std::uint16_t makerNote = 0x927C;
    using Loss = void (*)(pex::ImageMetadata&);
    constexpr Loss losses[] = {
        [](pex::ImageMetadata& kept) { kept.extendedXmp = {}; },
        [](pex::ImageMetadata& kept) { kept.removeExifField(pex::ExifDirectory::exif, makerNote); },
        [](pex::ImageMetadata& kept) { kept.xmp = {}; },
        [](pex::ImageMetadata& kept) { kept = {}; },
    };
    for (const Loss lose : losses) {
        if (static_cast<long long>(metadata.size()) > budget / 2) lose(metadata);
    }
    return metadata;
}

} // namespace

Origin originOf(const pex::CGImageSource& source, const WritingOptions& options) {
    Origin origin;
    const pex::ImageProperties& properties = source.properties();
    origin.dpi = wholeDpi(properties);
    if (options.metadata == MetadataChoice::none) return origin;
    const pex::ImageMetadata before = source.metadata();
    origin.metadata = before.uprighted(properties.pixelWidth, properties.pixelHeight);
    noteLoss(origin, before, "broken, and left out: ");
    if (options.metadata == MetadataChoice::noLocation) takeOutLocation(origin);
    return origin;
}

Origin originOf(const Input& input, const WritingOptions& options) {
    const auto source = openSource(input);
    return source ? originOf(input, *source, options) : Origin();
}

Origin originOf(const Input& input, const pex::CGImageSource& source, const WritingOptions& options) {
    Origin origin = originOf(source, options);
    std::error_code error;
    const auto time = fs::last_write_time(input.path, error);
    if (options.keepTime && !error) origin.time = time;
    if (const auto note = pagesLeftOut(input, source)) origin.notes.push_back(*note);
    return origin;
}

std::optional<std::string> pagesLeftOut(const Input& input, const pex::CGImageSource& source) {
    const int pages = source.properties().pages;
    if (input.page || pages < 2) return std::nullopt;
    return "the first of " + std::to_string(pages) + " pages alone; --page all takes each";
}

Origin fitted(Origin origin, pex::ImageFormat format, const WritingOptions& options) {
    const pex::ImageMetadata before = origin.metadata;
    origin.metadata = before.heldBy(format);
    noteLoss(origin, before, std::string(pex::displayName(format)) + " cannot hold all, and loses ");
    if (!options.maxBytes) return origin;
    const pex::ImageMetadata held = origin.metadata;
    origin.metadata = within(*options.maxBytes, held);
    noteLoss(origin, held, "left out, for more than half of the budget: ");
    return origin;
}
