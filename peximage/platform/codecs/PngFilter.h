#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex {

/// Turns rows into what PNG compresses: a byte that names the filter, then the differences from a prediction.
/// Of the five filters the one with the least sum of absolute differences is taken. Keeps scratch memory for
/// rows of one length; one thread at a time.
class PngFilter {
  public:
    /// The bytes that have to be readable, and zero, in front of every row.
    static constexpr std::size_t padding = 4;

    PngFilter(std::size_t bytesPerRow, std::size_t bytesPerPixel);

    /// `above` is the row before, all zeros for the first. `out` takes 1 + bytesPerRow bytes.
    void filter(const std::uint8_t* row, const std::uint8_t* above, std::uint8_t* out);

  private:
    std::size_t bytesPerRow_, bytesPerPixel_;
    std::vector<std::uint8_t> candidate_;
};

} // namespace pex
