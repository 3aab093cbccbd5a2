#pragma once

#include <type_traits>

namespace pex {

/// A length given in any arithmetic type, so that `{.withMaxSide = n}` reads the same for an int and a
/// double.
struct Length {
    double value = 0;

    constexpr Length() = default;
    template <class Number>
    requires std::is_arithmetic_v<Number>
    constexpr Length(Number number) : value(static_cast<double>(number)) {} // NOLINT: meant to be implicit
};

} // namespace pex
