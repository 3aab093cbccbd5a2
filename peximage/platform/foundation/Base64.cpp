#include "peximage/platform/foundation/Base64.h"

#include <algorithm>
#include <array>

namespace pex::base64 {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> makeValues() {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    return values;
}

constexpr std::array<std::int8_t, 256> values = makeValues();

} // namespace

std::string encode(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? alphabet[group >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const std::size_t filled = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    text.remove_suffix(filled);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::int8_t value = values[static_cast<unsigned char>(c)];
        if (value < 0) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<std::uint8_t>(bits >> count));
    }
    if ((bits & ((1u << count) - 1)) != 0) return std::nullopt; // every byte run has one text only
    return bytes;
}

} // namespace pex::base64
