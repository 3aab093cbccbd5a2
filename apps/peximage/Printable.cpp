#include "Printable.h"

#include "peximage/platform/foundation/Base64.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

/// How many bytes the first character takes; 0 when they are no UTF-8 (RFC 3629). The text is not empty.
std::size_t characterLength(std::string_view text) {
    const auto byte = [&](std::size_t at) {
        return static_cast<unsigned char>(at < text.size() ? text[at] : 0);
    };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (first < 0xC2 || first > 0xF4) return 0;
    const unsigned char least = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned char most = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (byte(1) < least || byte(1) > most) return 0;
    for (std::size_t at = 2; at < length; ++at) {
        if (byte(at) < 0x80 || byte(at) > 0xBF) return 0;
    }
    return length;
}

/// U+0000 to U+001F and U+007F to U+009F.
bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    return character.size() == 2 && first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

void appendHex(std::string& out, std::string_view start, char byte) {
    static constexpr char digits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    out += start;
    out += {digits[value >> 4], digits[value & 15]};
}

/// Puts `start` and the last two digits of its number in the place of every control character, but `kept`.
std::string withoutControls(std::string_view text, std::string_view start, char kept) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0 || (isControl(character) && character[0] != kept))
            appendHex(out, start, character.back());
        else
            out += character;
        text.remove_prefix(character.size());
    }
    return out;
}

constexpr char none = 'n'; // is no control character

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

} // namespace

std::string printable(std::string_view text) { return withoutControls(text, "\\x", none); }

std::string printableLines(std::string_view text) { return withoutControls(text, "\\x", '\n'); }

std::string printableJson(std::string_view text) { return withoutControls(text, "\\u00", '\n'); }

std::string jsonText(const nlohmann::ordered_json& value) {
    return printableJson(value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

nlohmann::ordered_json withFileBytes(nlohmann::ordered_json object) {
    const auto file = object.is_object() ? object.find("file") : object.end();
    if (file == object.end() || !file->is_string()) return object;
    const auto& name = file->get_ref<const std::string&>();
    if (!isUtf8(name))
        object["fileBytes"] =
            pex::base64::encode({reinterpret_cast<const std::uint8_t*>(name.data()), name.size()});
    return object;
}
