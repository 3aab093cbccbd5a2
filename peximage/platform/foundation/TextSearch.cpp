#include "peximage/platform/foundation/TextSearch.h"

#include <algorithm>
#include <span>
#include <utf8proc.h>

namespace pex {
namespace {

int combiningClass(char32_t c) {
    return utf8proc_get_property(static_cast<utf8proc_int32_t>(c))->combining_class;
}

/// One code point taken off the text. A byte that begins none counts as a value above all code points.
struct CodePoint {
    utf8proc_int32_t value;
    std::size_t length;
    bool valid;
};

CodePoint codePointAt(std::string_view text, std::size_t at) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
    utf8proc_int32_t value = -1;
    const auto length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &value);
    if (length <= 0) return {0x110000 + bytes[0], 1, false};
    return {value, static_cast<std::size_t>(length), true};
}

/// A text in a form that is the same for upper and lower case and for all ways to write accents, with the
/// place in the original that each part came from.
class FoldedText {
  public:
    static constexpr std::size_t inside = std::string::npos; // within a character of the text

    explicit FoldedText(std::string_view text) {
        for (std::size_t at = 0; at < text.size();) {
            const CodePoint point = codePointAt(text, at);
            append(point, at);
            at += point.length;
        }
        orderMarks();
        source_.push_back(text.size());
    }

    const std::u32string& folded() const { return folded_; }
    /// Where in the text the folded position `i` lies, or `inside`.
    std::size_t source(std::size_t i) const { return source_[i]; }

  private:
    void append(const CodePoint& point, std::size_t at) {
        utf8proc_int32_t parts[32] = {point.value};
        utf8proc_ssize_t count = 1;
        if (point.valid) {
            int lastClass = 0;
            const auto how = static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD);
            count = utf8proc_decompose_char(point.value, parts, std::size(parts), how, &lastClass);
        }
        for (utf8proc_ssize_t i = 0; i < count; ++i) {
            const auto part = static_cast<char32_t>(parts[i]);
            const bool begins = i == 0 && (folded_.empty() || !point.valid || combiningClass(part) == 0);
            folded_.push_back(part);
            source_.push_back(begins ? at : inside);
        }
    }

    /// The canonical order of the marks on one letter.
    void orderMarks() {
        const auto isMark = [](char32_t c) { return c < 0x110000 && combiningClass(c) != 0; };
        const auto earlier = [](char32_t a, char32_t b) { return combiningClass(a) < combiningClass(b); };
        for (auto begin = folded_.begin(); begin != folded_.end();) {
            begin = std::find_if(begin, folded_.end(), isMark);
            const auto end = std::find_if_not(begin, folded_.end(), isMark);
            std::stable_sort(begin, end, earlier);
            begin = end;
        }
    }

    std::u32string folded_;
    std::vector<std::size_t> source_;
};

std::vector<std::size_t> borders(const std::u32string& text) {
    std::vector<std::size_t> border(text.size(), 0);
    for (std::size_t i = 1, length = 0; i < text.size(); ++i) {
        while (length > 0 && text[i] != text[length])
            length = border[length - 1];
        if (text[i] == text[length]) ++length;
        border[i] = length;
    }
    return border;
}

} // namespace

TextSearch::TextSearch(std::string_view search)
    : search_(FoldedText(search).folded()), border_(borders(search_)) {}

std::string TextSearch::replacingAll(std::string_view text, std::string_view replacement) const {
    if (search_.empty()) return std::string(text);
    const FoldedText folded(text);
    std::string result;
    std::size_t copied = 0;  // of the text
    std::size_t matched = 0; // of the search text, ending at i
    for (std::size_t i = 0; i < folded.folded().size(); ++i) {
        while (matched > 0 && folded.folded()[i] != search_[matched])
            matched = border_[matched - 1];
        if (folded.folded()[i] == search_[matched]) ++matched;
        if (matched < search_.size()) continue;

        const std::size_t begin = folded.source(i + 1 - matched);
        const std::size_t end = folded.source(i + 1);
        matched = border_[matched - 1];
        if (begin == FoldedText::inside || end == FoldedText::inside) continue;
        matched = 0;
        result += text.substr(copied, begin - copied);
        result += replacement;
        copied = end;
    }
    return result += text.substr(copied);
}

} // namespace pex
