#pragma once

#include <type_traits>

namespace pex {

/// A length given in any arithmetic type, so that `{.withMaxSide = n}` reads the same for an int and a
/// double.
struct Length {
    /// The length; its unit is told where it is used.
    double value = 0;

    constexpr Length() = default;
    /// Any number, as it is.
    template <class Number>
    requires std::is_arithmetic_v<Number>
    constexpr Length(Number number) : value(static_cast<double>(number)) {} // NOLINT: meant to be implicit
};

} // namespace pex
