#include "peximage/platform/codecs/JpegScanBytes.h"

#include <algorithm>
#include <cstring>

namespace pex {

JpegScanBytes::JpegScanBytes(const std::uint8_t* next, const std::uint8_t* end)
    : next_(next), end_(end), window_(windowSize + slack) {}

void JpegScanBytes::fill(JpegBits& bits) {
    const auto left = static_cast<std::size_t>(std::max<std::ptrdiff_t>(bits.end() - bits.next(), 0));
    std::uint8_t* to = window_.data();
    if (left > 0) std::memmove(to, bits.next(), left);
    std::uint8_t *begin = to, *const full = to + windowSize;
    to += left;
    while (to < full && next_ < end_) {
        const auto room = static_cast<std::size_t>(std::min<std::ptrdiff_t>(full - to, end_ - next_));
        const void* const found = std::memchr(next_, 0xFF, room);
        const auto plain =
            found ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - next_) : room;
        std::memcpy(to, next_, plain);
        to += plain;
        next_ += plain;
        if (found == nullptr) continue;
        atMarker_ = end_ - next_ < 2 || next_[1] != 0;
        if (atMarker_) break;
        *to++ = 0xFF;
        next_ += 2;
    }
    atMarker_ = atMarker_ || next_ == end_;
    bits.moveTo(begin, to);
}

bool JpegScanBytes::passRestart(JpegBits& bits, int number) {
    constexpr int firstRestart = 0xD0;
    prepare(bits); // the marker may be just behind the window
    const bool isNext = atMarker_ && bits.left() >= 0 && bits.left() < 8 && end_ - next_ >= 2 &&
                        next_[0] == 0xFF && next_[1] == firstRestart + number;
    if (!isNext) return false;
    next_ += 2;
    atMarker_ = false;
    bits = JpegBits(window_.data(), window_.data());
    return true;
}

} // namespace pex
