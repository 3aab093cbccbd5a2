#include "peximage/platform/codecs/metadata/XmpPacket.h"

#include "peximage/platform/codecs/metadata/ByteRanges.h"
#include "peximage/platform/codecs/metadata/XmpModule.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <utility>
#include <vector>

namespace pex::xmpPacket {
namespace {

constexpr std::string_view rdf = "http://www.w3.org/1999/02/22-rdf-syntax-ns#",
                           tiff = "http://ns.adobe.com/tiff/1.0/", exif = "http://ns.adobe.com/exif/1.0/",
                           xmp = "http://ns.adobe.com/xap/1.0/", note = "http://ns.adobe.com/xmp/note/";

constexpr int ofThePicture = 2;

constexpr std::string_view emptyStart = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"
                                        "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\""
                                        "http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
                                        "rdf:about=\"\"";
constexpr std::string_view emptyEnd = "/></rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>";

/// A node whose text is kept.
struct Node {
    std::string nameSpace, name;
    std::optional<std::string> text;
    ByteRange whole, value;
    int depth;
    bool isAttribute;

    bool is(std::string_view inSpace, std::string_view ofName) const {
        return nameSpace == inSpace && name == ofName;
    }
};

using Wanted = std::function<bool(std::string_view nameSpace, std::string_view name, int depth)>;

/// The wanted nodes; absent when the packet cannot be read.
std::optional<std::vector<Node>> nodes(const Data& packet, const Wanted& wanted) {
    const auto* module = loadModule<XmpModule>("xmp");
    if (module == nullptr) return std::nullopt;
    std::string_view text = packet.text();
    while (!text.empty() && text.back() == '\0')
        text.remove_suffix(1);
    struct Gathering {
        const Wanted& wanted;
        std::vector<Node> nodes;
    } gathering{wanted, {}};
    const auto found = [](void* context, const XmpModule::Node& node) {
        const std::string_view full(node.name);
        const std::size_t split = std::min(full.find('\n'), full.size());
        const auto nameSpace = full.substr(0, split == full.size() ? 0 : split);
        const auto name = full.substr(split == full.size() ? 0 : split + 1);
        auto& to = *static_cast<Gathering*>(context);
        if (!to.wanted(nameSpace, name, node.depth)) return;
        to.nodes.push_back({std::string(nameSpace),
                            std::string(name),
                            node.text != nullptr ? std::optional<std::string>(node.text) : std::nullopt,
                            {node.begin, node.end},
                            {node.valueBegin, node.valueEnd},
                            node.depth,
                            node.isAttribute});
    };
    if (!module->scan(text.data(), text.size(), found, &gathering)) return std::nullopt;
    return std::move(gathering.nodes);
}

struct Change {
    ByteRange range;
    std::string text;
};

/// The packet itself where there is nothing to change. A change inside another is lost with it.
Data changed(const Data& packet, std::vector<Change> changes) {
    if (changes.empty()) return packet;
    std::ranges::sort(changes, {},
                      [](const Change& change) { return std::pair(change.range.begin, change.range.end); });
    const std::string_view from = packet.text();
    std::string to;
    std::size_t at = 0;
    for (const Change& change : changes) {
        if (change.range.begin < at) continue;
        to += from.substr(at, change.range.begin - at);
        to += change.text;
        at = change.range.end;
    }
    to += from.substr(at);
    return Data(std::string_view(to));
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

bool contains(const Data& packet, std::string_view word) {
    return packet.text().find(word) != std::string_view::npos;
}

bool isLocation(std::string_view nameSpace, std::string_view name) {
    // Coordinates by any name that ends or begins like these, in any maker's namespace.
    std::string lower(name);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return std::tolower(c); });
    for (const std::string_view part : {"gps", "latitude", "longitude", "longtitude"}) {
        if (lower.find(part) != std::string::npos) return true;
    }
    constexpr std::array<std::string_view, 16> places{
        "City",          "State",           "Country",     "CountryCode", "CountryName",  "Location",
        "LocationShown", "LocationCreated", "Sublocation", "LocationId",  "LocationName", "ProvinceState",
        "WorldRegion",   "coverage",        "lat",         "long"};
    return nameSpace != rdf && std::ranges::find(places, name) != places.end();
}

/// What tells of more than the picture in the file, or of what was made from its old pixels.
bool isOutdated(std::string_view nameSpace, std::string_view name) {
    if (nameSpace == xmp && name == "Thumbnails") return true;
    if (nameSpace == "http://ns.google.com/photos/1.0/camera/")
        return name.starts_with("MotionPhoto") || name.starts_with("MicroVideo");
    return nameSpace == "http://ns.google.com/photos/1.0/container/" ||
           nameSpace == "http://ns.adobe.com/hdr-gain-map/1.0/";
}

bool mayBeOutdated(const Data& packet) {
    constexpr std::array<std::string_view, 10> words{
        "Orientation", "ImageWidth",  "ImageLength", "PixelXDimension",       "PixelYDimension",
        "Thumbnails",  "MotionPhoto", "MicroVideo",  "photos/1.0/container/", "hdr-gain-map"};
    return std::ranges::any_of(words, [&](std::string_view word) { return contains(packet, word); });
}

} // namespace

std::optional<Data> withoutLocation(const Data& packet) {
    const auto found = nodes(packet, [](auto space, auto name, int) { return isLocation(space, name); });
    if (!found) return std::nullopt;
    std::vector<Change> changes;
    for (const Node& node : *found)
        changes.push_back({node.whole, ""});
    return changed(packet, std::move(changes));
}

std::optional<Data> uprighted(const Data& packet, int pixelWidth, int pixelHeight) {
    if (!mayBeOutdated(packet)) return packet;
    struct Right {
        std::string_view nameSpace, name;
        std::string text;
    };
    const std::string width = std::to_string(pixelWidth), height = std::to_string(pixelHeight);
    const std::array<Right, 5> rights{{{tiff, "Orientation", "1"},
                                       {tiff, "ImageWidth", width},
                                       {tiff, "ImageLength", height},
                                       {exif, "PixelXDimension", width},
                                       {exif, "PixelYDimension", height}}};
    const auto rightOf = [&](std::string_view space, std::string_view name) {
        return std::ranges::find_if(
            rights, [&](const Right& right) { return right.nameSpace == space && right.name == name; });
    };
    const auto found = nodes(packet, [&](auto space, auto name, int depth) {
        return isOutdated(space, name) || (depth == ofThePicture && rightOf(space, name) != rights.end());
    });
    if (!found) return std::nullopt;
    std::vector<Change> changes;
    for (const Node& node : *found) {
        const auto* right = rightOf(node.nameSpace, node.name);
        if (right == rights.end() || node.value.begin == 0)
            changes.push_back({node.whole, ""});
        else if (node.text != right->text)
            changes.push_back({node.value, right->text});
    }
    return changed(packet, std::move(changes));
}

std::optional<Data> withExtension(const Data& packet, std::string_view digest) {
    return withProperty(packet, note, "HasExtendedXMP", digest);
}

Data withNothingButExtension(std::string_view digest) {
    std::string packet(emptyStart);
    packet += " xmlns:xmpNote=\"" + std::string(note) + "\" xmpNote:HasExtendedXMP=\"" + std::string(digest);
    return Data(std::string_view(packet + '"' + std::string(emptyEnd)));
}

std::optional<Data> merged(const Data& packet, const Data& second) {
    const auto isFrame = [](auto space, auto name, int depth) {
        return (space == rdf && name == "RDF" && depth == 0) || (space == note && name == "HasExtendedXMP");
    };
    const auto into = nodes(packet, isFrame), from = nodes(second, isFrame);
    if (!into || !from) return std::nullopt;
    const auto frame = [](const std::vector<Node>& all) {
        return std::ranges::find_if(all, [](const Node& node) { return node.name == "RDF"; });
    };
    const auto to = frame(*into), added = frame(*from);
    if (to == into->end() || added == from->end() || to->value.begin == 0) return std::nullopt;
    // Its content can stand alone only if the elements around it declare no namespaces.
    const std::string_view text = second.text(), around = text.substr(0, added->value.begin);
    std::size_t declared = 0;
    for (std::size_t at = around.find("xmlns:"); at != std::string_view::npos;
         at = around.find("xmlns:", at + 1))
        declared += around.substr(at + 6, 2) != "x=";
    if (declared != 1 || around.find("xmlns:rdf=") == std::string_view::npos) return std::nullopt;
    std::vector<Change> changes{
        {{to->value.end, to->value.end},
         std::string(text.substr(added->value.begin, added->value.end - added->value.begin))}};
    for (const Node& node : *into) {
        if (node.nameSpace == note) changes.push_back({node.whole, ""});
    }
    return changed(packet, std::move(changes));
}

std::optional<std::string> property(const Data& packet, std::string_view nameSpace, std::string_view name) {
    const auto found = nodes(packet, [&](auto space, auto local, int depth) {
        return depth == ofThePicture && space == nameSpace && local == name;
    });
    return found && !found->empty() ? found->front().text : std::nullopt;
}

std::optional<Data> withProperty(const Data& packet, std::string_view nameSpace, std::string_view name,
                                 std::string_view text) {
    const Data base =
        packet.empty() ? Data(std::string_view(std::string(emptyStart) + std::string(emptyEnd))) : packet;
    const auto found = nodes(base, [&](auto space, auto local, int depth) {
        return depth > 0 && depth <= ofThePicture &&
               ((space == nameSpace && local == name) || (space == rdf && local == "Description"));
    });
    if (!found) return std::nullopt;
    std::vector<Change> changes;
    std::optional<std::size_t> place;
    for (const Node& node : *found) {
        if (node.is(nameSpace, name) && node.depth == ofThePicture)
            changes.push_back({node.whole, ""});
        else if (node.depth == 1 && !place)
            place = base.text().find_first_of(" \t\r\n/>", node.whole.begin);
    }
    if (!place) return std::nullopt;
    std::string prefix = "p";
    while (contains(base, "xmlns:" + prefix))
        prefix += 'p';
    changes.push_back({{*place, *place},
                       " xmlns:" + prefix + "=\"" + escaped(nameSpace) + "\" " + prefix + ':' +
                           std::string(name) + "=\"" + escaped(text) + '"'});
    return changed(base, std::move(changes));
}

} // namespace pex::xmpPacket
