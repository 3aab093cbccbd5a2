#pragma once

#include "peximage/platform/codecs/JpegBits.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex {

/// Takes the stuffing out of a scan, a window of it at a time.
class JpegScanBytes {
  public:
    /// The bytes must outlive this object.
    JpegScanBytes(const std::uint8_t* next, const std::uint8_t* end);

    /// Sees to it that so many bytes lie ready as an MCU can take, or all up to the next marker.
    void prepare(JpegBits& bits) {
        if (bits.end() - bits.next() < longestMcu && !atMarker_) fill(bits);
    }
    /// Begins anew behind the restart marker of this number; false when it is not what comes next.
    bool passRestart(JpegBits& bits, int number);

  private:
    static constexpr std::ptrdiff_t longestMcu = 4096; // ten blocks of codes with 26 bits
    static constexpr std::size_t windowSize = 32768;
    /// A damaged MCU may lead as far behind the end.
    static constexpr std::size_t slack = longestMcu + sizeof(std::uint64_t);

    void fill(JpegBits& bits);

    const std::uint8_t *next_, *end_;
    bool atMarker_ = false;
    std::vector<std::uint8_t> window_;
};

} // namespace pex
