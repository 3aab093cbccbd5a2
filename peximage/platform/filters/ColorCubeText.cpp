#include "peximage/platform/filters/ColorCube.h"

#include <charconv>
#include <cmath>

namespace pex {
namespace {

constexpr std::string_view blanks = " \t\r";

/// The next word of the line, which it loses; empty at its end.
std::string_view nextWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

bool atEnd(std::string_view line) { return nextWord(line).empty(); }

std::optional<double> number(std::string_view word) {
    if (word.starts_with('+')) word.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

/// As many numbers as the line has to hold.
template <std::size_t Count>
std::optional<std::array<double, Count>> numbers(std::string_view line) {
    std::array<double, Count> values{};
    for (double& value : values) {
        const std::optional<double> read = number(nextWord(line));
        if (!read) return std::nullopt;
        value = *read;
    }
    return atEnd(line) ? std::optional(values) : std::nullopt;
}

bool beginsNumber(std::string_view word) { return word.find_first_of("0123456789+-.") == 0; }

class CubeText {
  public:
    /// False when the line makes the text none.
    bool take(std::string_view line) {
        std::string_view rest = line;
        const std::string_view word = nextWord(rest);
        if (word.empty() || word.starts_with('#')) return true;
        if (beginsNumber(word)) return takeEntry(line);
        if (word == "LUT_3D_SIZE") return takeSide(rest);
        if (word == "DOMAIN_MIN") return takeCorner(rest, domain_.least);
        if (word == "DOMAIN_MAX") return takeCorner(rest, domain_.most);
        if (word == "LUT_3D_INPUT_RANGE") return takeRange(rest);
        return word == "TITLE";
    }

    std::shared_ptr<const ColorCube> cube() const { return ColorCube::make(side_, entries_, domain_); }

  private:
    bool takeSide(std::string_view rest) {
        const auto side = numbers<1>(rest);
        if (!side || side_ != 0) return false;
        const double value = (*side)[0];
        if (value != std::floor(value) || value < ColorCube::smallestSide || value > ColorCube::largestSide)
            return false;
        side_ = static_cast<int>(value);
        return true;
    }

    static bool takeCorner(std::string_view rest, ColorCube::Color& corner) {
        const auto read = numbers<3>(rest);
        if (read) corner = *read;
        return read.has_value();
    }

    bool takeRange(std::string_view rest) {
        const auto range = numbers<2>(rest);
        if (!range) return false;
        domain_.least.fill((*range)[0]);
        domain_.most.fill((*range)[1]);
        return true;
    }

    bool takeEntry(std::string_view line) {
        const auto color = numbers<3>(line);
        const std::size_t most = static_cast<std::size_t>(side_) * static_cast<std::size_t>(side_ * side_);
        if (!color || entries_.size() >= most) return false;
        entries_.push_back(*color);
        return true;
    }

    int side_ = 0;
    ColorCube::Domain domain_;
    std::vector<ColorCube::Color> entries_;
};

} // namespace

std::shared_ptr<const ColorCube> ColorCube::fromText(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    CubeText read;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        if (!read.take(text.substr(0, length))) return nullptr;
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return read.cube();
}

} // namespace pex
