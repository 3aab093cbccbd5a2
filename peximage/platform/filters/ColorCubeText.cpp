#include "peximage/platform/filters/ColorCube.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <string>

namespace pex {
namespace {

constexpr std::string_view blanks = " \t";

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

/// Reads a given number of numbers from the line.
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

std::string capitals(std::string_view word) {
    std::string text(word);
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

std::string_view withoutComment(std::string_view line) { return line.substr(0, line.find('#')); }

class CubeText {
  public:
    /// Reads one line; false if the text is no table because of it.
    bool take(std::string_view line) {
        line = withoutComment(line);
        std::string_view rest = line;
        const std::string_view word = nextWord(rest);
        if (word.empty()) return true;
        if (beginsNumber(word)) return takeEntry(line);
        const std::string keyword = capitals(word);
        if (keyword == "LUT_1D_SIZE") return takeSize(rest, 2, ColorCube::mostCurveEntries, curveSize_);
        if (keyword == "LUT_3D_SIZE")
            return takeSize(rest, ColorCube::smallestSide, ColorCube::largestSide, side_);
        if (keyword == "DOMAIN_MIN") return takeCorner(rest, domain_.least);
        if (keyword == "DOMAIN_MAX") return takeCorner(rest, domain_.most);
        if (keyword == "LUT_1D_INPUT_RANGE") return takeRange(rest, domain_);
        if (keyword == "LUT_3D_INPUT_RANGE") return takeRange(rest, range_.emplace());
        return true;
    }

    std::shared_ptr<const ColorCube> cube() const {
        const auto curveEnd =
            entries_.begin() + static_cast<std::ptrdiff_t>(std::min(curves(), entries_.size()));
        const ColorCube::Curves curves{{entries_.begin(), curveEnd}, domain_};
        if (curves.entries.size() != this->curves()) return nullptr;
        if (side_ == 0) return ColorCube::make(curves);
        const ColorCube::Domain behindCurves{};
        const auto domain = range_.value_or(curveSize_ > 0 ? behindCurves : domain_);
        return ColorCube::make(side_, {curveEnd, entries_.end()}, domain, curves);
    }

  private:
    std::size_t curves() const { return static_cast<std::size_t>(curveSize_); }

    static bool takeSize(std::string_view rest, int least, int most, int& size) {
        const auto read = numbers<1>(rest);
        if (!read || size != 0) return false;
        const double value = (*read)[0];
        if (value != std::floor(value) || value < least || value > most) return false;
        size = static_cast<int>(value);
        return true;
    }

    static bool takeCorner(std::string_view rest, ColorCube::Color& corner) {
        const auto read = numbers<3>(rest);
        if (read) corner = *read;
        return read.has_value();
    }

    static bool takeRange(std::string_view rest, ColorCube::Domain& domain) {
        const auto range = numbers<2>(rest);
        if (!range) return false;
        domain.least.fill((*range)[0]);
        domain.most.fill((*range)[1]);
        return true;
    }

    bool takeEntry(std::string_view line) {
        const auto color = numbers<3>(line);
        const auto side = static_cast<std::size_t>(side_);
        if (!color || entries_.size() >= curves() + side * side * side) return false;
        entries_.push_back(*color);
        return true;
    }

    int side_ = 0, curveSize_ = 0;
    ColorCube::Domain domain_; // of what comes first, the curves or the cube
    std::optional<ColorCube::Domain> range_;
    std::vector<ColorCube::Color> entries_;
};

} // namespace

std::shared_ptr<const ColorCube> ColorCube::fromText(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    CubeText read;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find_first_of("\r\n"), text.size());
        if (!read.take(text.substr(0, length))) return nullptr;
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return read.cube();
}

} // namespace pex
