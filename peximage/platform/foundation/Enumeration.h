#pragma once

#include <array>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// One line of an enumeration's table: a case and the text that stands for it in documents.
template <class E>
struct EnumerationCase {
    /// The case.
    E value;
    /// The text that stands for it.
    std::string_view rawValue;
};

/// The table of an enumeration, given by specialisation: a static constexpr array `cases` in declaration
/// order, and `capitalized`, which says whether people see the raw value with capital first letters (true)
/// or as it is (false).
template <class E>
struct Enumeration;

/// An enumeration that has a table.
template <class E>
concept RawValued = requires {
    Enumeration<E>::cases[0].rawValue;
};

/// The text of a case; empty for a value that is no case of the enumeration.
template <RawValued E>
constexpr std::string_view rawValue(E value) {
    for (const auto& entry : Enumeration<E>::cases)
        if (entry.value == value) return entry.rawValue;
    return {};
}

/// The case that the exact text stands for (capitals matter); absent for every other text.
template <RawValued E>
constexpr std::optional<E> fromRawValue(std::string_view text) {
    for (const auto& entry : Enumeration<E>::cases)
        if (entry.rawValue == text) return entry.value;
    return std::nullopt;
}

/// All cases in the order in which they are declared and shown.
template <RawValued E>
constexpr auto allCases() {
    std::array<E, std::size(Enumeration<E>::cases)> all{};
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = Enumeration<E>::cases[i].value;
    return all;
}

/// The first letter of every word upper case, all others lower case: "shareApp" becomes "Shareapp". ASCII.
constexpr std::string capitalized(std::string_view text) {
    std::string result(text);
    bool inWord = false;
    for (char& c : result) {
        const bool upper = c >= 'A' && c <= 'Z';
        const bool lower = c >= 'a' && c <= 'z';
        if (upper && inWord) c = static_cast<char>(c - 'A' + 'a');
        if (lower && !inWord) c = static_cast<char>(c - 'a' + 'A');
        inWord = upper || lower;
    }
    return result;
}

/// What a list to choose from shows for the case.
template <RawValued E>
std::string displayName(E value) {
    const std::string_view text = rawValue(value);
    return Enumeration<E>::capitalized ? capitalized(text) : std::string(text);
}

} // namespace pex
