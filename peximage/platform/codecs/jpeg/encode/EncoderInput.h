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
    /// several threads at once, and more than once for a row.
    std::function<const std::uint8_t*(int y, std::uint8_t* scratch)> row;
    /// Embedded when not empty.
    std::vector<std::uint8_t> iccProfile;
    /// Whole segments, which come right behind the JFIF one.
    std::vector<std::uint8_t> metadata = {};
    /// For rows that are made as they are needed: makes those from `top` up to `end` ready for `row`, strip
    /// by strip from the top; all others are gone. It begins at the top again when the picture turns out to
    /// need full chroma. False when there is no picture to be had. Not set where all rows are there at any
    /// time.
    std::function<bool(int top, int end)> load = {};
};

} // namespace pex::jpeg
