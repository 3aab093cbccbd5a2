#include "Text.h"

#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <set>
#include <utility>
#include <vector>

std::string grouped(long long number) {
    std::string text = std::to_string(number);
    for (auto at = static_cast<std::ptrdiff_t>(text.size()) - 3; at > (number < 0 ? 1 : 0); at -= 3)
        text.insert(static_cast<std::size_t>(at), " ");
    return text;
}

std::string pixelSize(pex::CGSize size) {
    return std::to_string(std::llround(size.width)) + "×" + std::to_string(std::llround(size.height));
}

std::string knownFormats() {
    std::string read = "reads", written = "writes";
    for (const auto& names : pex::imageFormats) {
        const std::string name = ' ' + std::string(names.name);
        read += pex::CGImageSource::reads(names.format) ? name : "";
        written += pex::CGImageDestination::writes(names.format) ? name : "";
    }
    return read + '\n' + written;
}

std::string writableExtensions(std::string_view separator) {
    std::string list;
    for (const auto& names : pex::imageFormats) {
        if (!pex::CGImageDestination::writes(names.format)) continue;
        for (const std::string_view extension : std::set(names.extensions.begin(), names.extensions.end()))
            list.append(list.empty() ? "" : separator).append(extension);
    }
    return list;
}

std::optional<long long> parseByteSize(std::string_view text) {
    static constexpr std::array<std::pair<std::string_view, double>, 4> units{
        {{"", 1}, {"k", 1e3}, {"m", 1e6}, {"g", 1e9}}};
    static constexpr std::array<std::pair<std::string_view, double>, 3> binaryUnits{
        {{"ki", 0x1p10}, {"mi", 0x1p20}, {"gi", 0x1p30}}};
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    constexpr double most = 1e15;
    if (error != std::errc() || !(number >= 0 && number <= most)) return std::nullopt;
    std::string unit(end, text.data() + text.size());
    for (char& c : unit)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    unit.erase(0, unit.find_first_not_of(' '));
    const bool namesBytes = unit.ends_with('b');
    if (namesBytes) unit.pop_back();
    std::optional<double> bytes;
    for (const auto& [name, each] : units)
        bytes = unit == name ? number * each : bytes;
    for (const auto& [name, each] : binaryUnits)
        bytes = namesBytes && unit == name ? number * each : bytes;
    return bytes && *bytes <= most ? std::optional(static_cast<long long>(*bytes)) : std::nullopt;
}

std::optional<pex::PexColor> parseColor(std::string_view text) {
    if (text.starts_with('#')) text.remove_prefix(1);
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (text.size() != 6 || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return pex::PexColor(
        {.intRed = int(value >> 16), .green = int(value >> 8 & 255), .blue = int(value & 255), .alpha = 255});
}

std::optional<int> parsePixels(std::string_view text) {
    if (text.ends_with("px")) text.remove_suffix(2);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 1) return std::nullopt;
    return number;
}

std::optional<pex::CGSize> parsePixelSize(std::string_view text) {
    const std::size_t cross = text.find_first_of("xX");
    if (cross == std::string_view::npos) return std::nullopt;
    const auto width = parsePixels(text.substr(0, cross)), height = parsePixels(text.substr(cross + 1));
    if (!width || !height) return std::nullopt;
    return pex::CGSize{static_cast<double>(*width), static_cast<double>(*height)};
}

namespace {

/// Exactly `count` numbers with the separator between them; empty for anything else.
std::vector<double> parseNumbers(std::string_view text, char separator, std::size_t count) {
    std::vector<double> numbers;
    const char *at = text.data(), *end = text.data() + text.size();
    while (numbers.size() < count) {
        double number = 0;
        const auto [after, error] = std::from_chars(at, end, number);
        if (error != std::errc() || !std::isfinite(number)) return {};
        numbers.push_back(number);
        const bool last = numbers.size() == count;
        if (last ? after != end : after == end || *after != separator) return {};
        at = after + 1;
    }
    return numbers;
}

} // namespace

std::optional<pex::CGRect> parseRect(std::string_view text) {
    const std::vector<double> n = parseNumbers(text, ',', 4);
    if (n.empty() || !(n[2] > 0 && n[3] > 0)) return std::nullopt;
    return pex::CGRect{n[0], n[1], n[2], n[3]};
}

std::optional<double> parseRatio(std::string_view text) {
    std::vector<double> n = parseNumbers(text, ':', 2);
    if (n.empty()) n = parseNumbers(text, ':', 1);
    if (n.empty()) return std::nullopt;
    const double ratio = n.size() == 2 ? n[0] / n[1] : n[0];
    return n[0] > 0 && ratio > 0 && std::isfinite(ratio) ? std::optional(ratio) : std::nullopt;
}
