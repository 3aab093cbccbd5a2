#include "peximage/platform/foundation/URL.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace pex {
namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string unescape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape =
            text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0;
        if (escape) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

/// Characters that a path may hold unescaped (RFC 3986: unreserved, sub-delimiters, ":", "@" and "/").
bool isPathCharacter(unsigned char c) {
    return std::isalnum(c) ||
           std::string_view("-._~!$&'()*+,;=:@/").find(static_cast<char>(c)) != std::string_view::npos;
}

std::string escapePath(std::string_view path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if (isPathCharacter(c)) {
            out += ch;
        } else {
            out += {'%', digits[c >> 4], digits[c & 15]};
        }
    }
    return out;
}

std::size_t schemeLength(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || !std::isalpha(static_cast<unsigned char>(text[0])))
        return 0;
    const bool wellFormed =
        std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(colon),
                    [](unsigned char c) { return std::isalnum(c) || c == '+' || c == '-' || c == '.'; });
    return wellFormed ? colon : 0;
}

/// Whether a file address names another computer; its path means nothing on this one.
bool isElsewhere(std::string_view scheme, std::string_view authority) {
    return scheme == "file" && !authority.empty() && authority != "localhost";
}

} // namespace

URL URL::fromPath(std::string_view path) {
    URL url;
    url.scheme_ = "file";
    std::error_code ignored;
    const std::filesystem::path absolute = std::filesystem::absolute(std::filesystem::path(path), ignored);
    return url.withPath(ignored ? std::string(path) : absolute.lexically_normal().string());
}

std::optional<URL> URL::parse(std::string_view text) {
    const std::size_t length = schemeLength(text);
    if (length == 0) return std::nullopt;
    URL url;
    url.scheme_ = text.substr(0, length);
    std::transform(url.scheme_.begin(), url.scheme_.end(), url.scheme_.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string_view rest = text.substr(length + 1);
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const std::size_t end = std::min(rest.find_first_of("/?#"), rest.size());
        url.authority_ = rest.substr(0, end);
        rest.remove_prefix(end);
    }
    const std::size_t pathEnd = std::min(rest.find_first_of("?#"), rest.size());
    url.suffix_ = rest.substr(pathEnd);
    if (!isElsewhere(url.scheme_, url.authority_)) url.path_ = unescape(rest.substr(0, pathEnd));
    url.text_ = std::string(text);
    return url;
}

URL URL::withPath(std::string path) const {
    URL url;
    url.scheme_ = scheme_;
    url.authority_ = authority_;
    url.text_ = scheme_ + "://" + authority_ + escapePath(path);
    if (!isElsewhere(scheme_, authority_)) url.path_ = std::move(path);
    return url;
}

std::string URL::host() const {
    std::string_view host = authority_;
    host.remove_prefix(std::min(host.rfind('@') + 1, host.size())); // npos + 1 is 0
    const std::size_t port = host.find(':', host.starts_with('[') ? host.find(']') : 0);
    return std::string(host.substr(0, port));
}

std::string URL::lastPathComponent() const {
    std::string_view path = path_;
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string URL::pathExtension() const {
    const std::string name = lastPathComponent();
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

URL URL::deletingLastPathComponent() const {
    std::string_view path = path_;
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return withPath("");
    return withPath(std::string(path.substr(0, std::max<std::size_t>(slash, 1))));
}

URL URL::deletingPathExtension() const {
    const std::string extension = pathExtension();
    return extension.empty() ? *this : withPath(path_.substr(0, path_.rfind('.')));
}

URL URL::appendingPathComponent(std::string_view component) const {
    std::string path = path_;
    if (!path.ends_with('/')) path += '/';
    while (component.starts_with('/'))
        component.remove_prefix(1);
    return withPath(path + std::string(component));
}

} // namespace pex
