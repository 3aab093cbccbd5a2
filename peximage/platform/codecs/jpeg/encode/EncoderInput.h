#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace pex::jpeg {

/// Where a JPEG encoder gets its rows from.
struct EncoderInput {
    int width = 0, height = 0;
    /// Rows of one byte a pixel; else of R G B x, four bytes a pixel.
    bool grey = false;
    /// Row y, counted from the top: in place, or converted into `scratch`, which holds one row. Called from
    /// several threads at once, and a second time for rows whose full chroma is needed.
    std::function<const std::uint8_t*(int y, std::uint8_t* scratch)> row;
    /// Embedded when not empty.
    std::vector<std::uint8_t> iccProfile;
    /// Whole segments, which come right behind the JFIF one.
    std::vector<std::uint8_t> metadata = {};
};

} // namespace pex::jpeg
