#pragma once

#include <cstdint>

/// What the module asks of the program that draws pages, over the socket that it starts it with. The answer
/// is a byte: 1 when the page is drawn, 0 when it cannot be.
struct DrawingRequest {
    // Where the program finds them, open.
    static constexpr int socket = 3;
    static constexpr int document = 4; // the bytes
    static constexpr int pixels = 5;   // zeroed before every page: 32-bit numbers A R G B, premultiplied

    std::int32_t page = 0;
    std::int32_t width = 0, height = 0;
    std::uint32_t seconds = 0; // after so many the program ends itself, should nobody be left to do so
};
