#include "peximage/platform/codecs/jpeg/decode/ScanStretch.h"

#include "peximage/platform/codecs/jpeg/decode/Stuffing.h"

#include <algorithm>
#include <limits>

namespace pex::jpeg {
namespace {

using Packed = BaselineCodes::Packed;

/// The bytes that an MCU can take.
constexpr std::size_t longestMcu = D_MAX_BLOCKS_IN_MCU * DCTSIZE2 * HuffmanDecoder::mostBits / 8;
/// The bytes of the file behind a stretch that hold the rest of its last MCU, whatever is stuffed.
constexpr std::ptrdiff_t overlap = 2 * longestMcu;
/// A damaged MCU may lead as far behind the end.
constexpr std::size_t slack = longestMcu + sizeof(std::uint64_t);

constexpr std::uint32_t nowhere = std::numeric_limits<std::uint32_t>::max();

std::size_t bytesFor(std::size_t fileBytes) {
    const std::size_t bytes = fileBytes + overlap + slack;
    return (bytes + sizeof(Packed) - 1) / sizeof(Packed) * sizeof(Packed);
}

/// Photos of good quality have a coefficient for every five to eight bits. Where there is no room for all
/// MCUs, the rest is decoded when it is used.
std::size_t coefficientsFor(std::size_t fileBytes) { return 2 * fileBytes; }

bool isRestart(const std::uint8_t* marker, const std::uint8_t* end) {
    return end - marker >= 2 && (marker[1] & ~7) == 0xD0;
}

} // namespace

std::size_t ScanStretch::memoryFor(std::size_t fileBytes) {
    return bytesFor(fileBytes) + coefficientsFor(fileBytes) * sizeof(Packed);
}

ScanStretch::ScanStretch(std::uint8_t* memory, std::size_t fileBytes)
    : bytes_(memory),
      mcus_(reinterpret_cast<Packed*>(memory + bytesFor(fileBytes))),
      endOfMcus_(mcus_ + coefficientsFor(fileBytes)) {
    restarts_.reserve(fileBytes / 2);
}

void ScanStretch::read(const std::uint8_t* begin, const std::uint8_t* end, const std::uint8_t* endOfFile) {
    restarts_.clear();
    const auto bitsUpTo = [this](const std::uint8_t* to) {
        return static_cast<std::uint32_t>(to - bytes_) * 8;
    };
    std::uint8_t* to = unstuff(begin, end, bytes_);
    for (; begin < end && isRestart(begin, endOfFile); to = unstuff(begin, end, to)) {
        restarts_.push_back({bitsUpTo(to), begin[1] & 7});
        begin += 2;
    }
    bits_ = bitsUpTo(to);
    // At a marker nothing more comes.
    to = unstuff(begin, begin + std::min(overlap, endOfFile - begin), to);
    allBits_ = bitsUpTo(to);
}

Bits ScanStretch::bitsFrom(std::uint32_t bit, std::uint32_t end) const {
    Bits bits(bytes_ + bit / 8, bytes_ + end / 8);
    bits.refill();
    bits.drop(bit % 8);
    return bits;
}

void ScanStretch::findMcus(const BaselineCodes& codes, std::uint32_t bit) {
    Packed* to = mcus_;
    for (const Restart& restart : restarts_) {
        to = findMcus(codes, bit, restart.bit, to);
        bit = std::max(bit, restart.bit);
    }
    to = findMcus(codes, bit, allBits_, to);
    to[beginBit] = nowhere;
    next_ = mcus_;
}

Packed* ScanStretch::findMcus(const BaselineCodes& codes, std::uint32_t bit, std::uint32_t end, Packed* to) {
    // One head more marks the end of all.
    const auto room = static_cast<std::ptrdiff_t>(codes.longestMcu() + 2 * headLength);
    Bits bits = bitsFrom(bit, end);
    while (bit < std::min(end, bits_) && endOfMcus_ - to >= room) {
        Packed* const behind = codes.writeMcu(bits, to + headLength);
        if (behind == nullptr) { // out of step: from here it may not be
            bits.refill();
            bits.drop(1);
        }
        const auto next = static_cast<std::uint32_t>(end - bits.left());
        if (behind != nullptr) {
            to[beginBit] = bit;
            to[endBit] = next;
            to[length] = static_cast<Packed>(behind - to);
            to = behind;
        }
        bit = next;
    }
    return to;
}

bool ScanStretch::decodeMcu(const BaselineCodes& codes, std::uint32_t& bit, std::size_t restart,
                            Packed* to) const {
    const std::uint32_t end = endOfSegment(restart);
    Bits bits = bitsFrom(bit, end);
    if (codes.writeMcu(bits, to) == nullptr) return false;
    bit = static_cast<std::uint32_t>(end - bits.left());
    return true;
}

} // namespace pex::jpeg
