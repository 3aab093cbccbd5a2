#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// A value that is known by a text `id`.
template <class T>
concept PexIdentifiable = requires(const T& value) {
    { value.id } -> std::convertible_to<const std::string&>;
};

/// The position of the first element with that identifier; absent when there is none or no identifier given.
template <PexIdentifiable T>
std::optional<std::size_t> indexOfElement(const std::vector<T>& list,
                                          std::optional<std::string_view> withId) {
    if (!withId) return std::nullopt;
    const auto found = std::find_if(list.begin(), list.end(), [&](const T& e) { return e.id == *withId; });
    if (found == list.end()) return std::nullopt;
    return static_cast<std::size_t>(found - list.begin());
}

/// Removes every element with that identifier. True when one was there.
template <PexIdentifiable T>
bool removeElement(std::vector<T>& list, std::string_view withId) {
    const std::string id(withId); // the text may belong to an element that goes
    return std::erase_if(list, [&](const T& e) { return e.id == id; }) > 0;
}

} // namespace pex
