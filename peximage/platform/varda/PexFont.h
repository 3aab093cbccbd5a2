#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/KeyedDocument.h"

#include <string>

namespace pex {

/// Fonts as documents name them.
struct PexFont {
    /// The name of a font and its size in points. A plain value; no font file is looked up.
    struct Font {
        /// The font's name.
        std::string name = "Courier";
        /// In points.
        double size = 12;

        /// The typewriter font that every system has.
        static Font courier(double withSize) { return {.name = "Courier", .size = withSize}; }

        friend bool operator==(const Font&, const Font&) = default;

        static constexpr auto documentKeys() {
            return std::tuple(keyed::required("name", &Font::name), keyed::required("size", &Font::size));
        }
    };
};

} // namespace pex
