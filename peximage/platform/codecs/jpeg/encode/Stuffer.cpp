#include "peximage/platform/codecs/jpeg/encode/Stuffer.h"

#include "peximage/platform/codecs/BigEndian.h"

namespace pex::jpeg {

void Stuffer::append(const CodedBits& piece) {
    const std::size_t most = 2 * piece.bytes.size() + 16;
    if (room_.size() < most) room_.resize(most);
    at_ = room_.data();
    const std::uint8_t* from = piece.bytes.data();
    std::uint64_t left = piece.bits;
    for (; left >= 64; left -= 64, from += 8) {
        const std::uint64_t next = loadBigEndian(from);
        putEight(count_ == 0 ? next : pending_ << (64 - count_) | next >> count_);
        pending_ = next;
    }
    for (; left >= 8; left -= 8)
        putBits(*from++, 8);
    if (left > 0) putBits(static_cast<std::uint32_t>(*from >> (8 - left)), static_cast<int>(left));
    flush();
}

void Stuffer::finish() {
    room_.resize(2);
    at_ = room_.data();
    if (count_ > 0) putBits(0x7F, 8 - count_);
    flush();
}

void Stuffer::flush() { out_.insert(out_.end(), room_.data(), at_); }

void Stuffer::putByte(std::uint8_t byte) {
    *at_++ = byte;
    if (byte == 0xFF) *at_++ = 0;
}

void Stuffer::putEight(std::uint64_t eight) {
    constexpr std::uint64_t ones = 0x0101010101010101, tops = 0x8080808080808080;
    if (((~eight - ones) & eight & tops) == 0) { // no byte is 0xFF
        storeBigEndian(at_, eight);
        at_ += 8;
        return;
    }
    for (int shift = 56; shift >= 0; shift -= 8)
        putByte(static_cast<std::uint8_t>(eight >> shift));
}

void Stuffer::putBits(std::uint32_t bits, int length) {
    pending_ = pending_ << length | (bits & ((1u << length) - 1));
    count_ += length;
    if (count_ < 8) return;
    count_ -= 8;
    putByte(static_cast<std::uint8_t>(pending_ >> count_));
}

} // namespace pex::jpeg
