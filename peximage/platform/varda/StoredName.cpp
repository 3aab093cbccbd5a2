#include "peximage/platform/varda/StoredName.h"

#include <charconv>

namespace pex {
namespace {

constexpr std::size_t partLength = 200; // leaves room for extensions within the 255 bytes of a file name

bool staysAsItIs(char c, bool atBegin) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    const bool inside = c == '.' || c == ' ';
    return letter || (c >= '0' && c <= '9') || c == '-' || c == '_' || (inside && !atBegin);
}

std::string escaped(std::string_view name) {
    constexpr char digits[] = "0123456789ABCDEF";
    if (name.empty()) return "%";
    std::string result;
    for (const char c : name) {
        if (staysAsItIs(c, result.size() % partLength == 0)) {
            result += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            result += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return result;
}

std::optional<std::string> unescaped(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        unsigned byte = 0;
        const std::string_view pair = text.substr(i + 1, 2);
        const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (pair.size() < 2 || error != std::errc() || end != pair.data() + 2) return std::nullopt;
        result += static_cast<char>(byte);
        i += 2;
    }
    return result;
}

} // namespace

std::string storedPath(std::string_view name) {
    const std::string whole = escaped(name);
    std::string_view rest = whole;
    std::string path;
    for (; rest.size() > partLength; rest.remove_prefix(partLength))
        path += std::string(rest.substr(0, partLength)) + "+/";
    return path += rest;
}

std::optional<std::string> nameOfStoredPath(std::string_view path) {
    std::string joined;
    std::string_view rest = path;
    for (std::size_t end; (end = rest.find("+/")) != std::string_view::npos; rest.remove_prefix(end + 2))
        joined += rest.substr(0, end);
    joined += rest;
    std::optional<std::string> name = joined == "%" ? std::string() : unescaped(joined);
    if (name && storedPath(*name) != path) return std::nullopt;
    return name;
}

} // namespace pex
