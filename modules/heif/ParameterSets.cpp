#include "modules/heif/ParameterSets.h"

#include <algorithm>
#include <span>

namespace pex::heif {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// Bits from the highest on; zeros behind the end.
class Bits {
  public:
    explicit Bits(Bytes bytes) : bytes_(bytes) {}

    std::uint64_t take(int count) {
        std::uint64_t value = 0;
        for (; count > 0; --count, ++at_) {
            const bool bit = at_ / 8 < bytes_.size() && (bytes_[at_ / 8] >> (7 - at_ % 8) & 1) != 0;
            value = value << 1 | (bit ? 1 : 0);
        }
        return value;
    }
    bool flag() { return take(1) != 0; }
    void skip(std::size_t count) { at_ += count; }
    /// Exp-Golomb, as HEVC and AV1 write numbers of no fixed length.
    std::uint64_t golomb() {
        int zeros = 0;
        while (zeros < 32 && at_ / 8 < bytes_.size() && !flag())
            ++zeros;
        return zeros < 32 ? (std::uint64_t{1} << zeros) - 1 + take(zeros) : 0xFFFFFFFF;
    }

  private:
    Bytes bytes_;
    std::size_t at_ = 0;
};

/// Without the bytes that keep start codes out of units.
std::vector<std::uint8_t> unescaped(Bytes unit) {
    std::vector<std::uint8_t> plain;
    int zeros = 0;
    for (const std::uint8_t byte : unit) {
        const bool isEscape = zeros >= 2 && byte == 3;
        zeros = byte == 0 ? zeros + 1 : 0;
        if (!isEscape) plain.push_back(byte);
    }
    return plain;
}

/// Profile, tier and level of a sequence of `layers` layers below the highest.
void skipProfile(Bits& bits, int layers) {
    constexpr std::size_t profileBits = 88, levelBits = 8;
    bits.skip(profileBits + levelBits);
    bool hasProfile[8] = {}, hasLevel[8] = {};
    for (int i = 0; i < layers; ++i) {
        hasProfile[i] = bits.flag();
        hasLevel[i] = bits.flag();
    }
    if (layers > 0) bits.skip(2 * static_cast<std::size_t>(8 - layers));
    for (int i = 0; i < layers; ++i)
        bits.skip((hasProfile[i] ? profileBits : 0) + (hasLevel[i] ? levelBits : 0));
}

/// ITU-T H.265, 7.3.2.2.
void addHevcUnit(Bytes unit, std::vector<CodedSize>& sizes) {
    constexpr int sequenceParameters = 33;
    if (unit.size() < 3 || (unit[0] >> 1 & 0x3F) != sequenceParameters) return;
    constexpr std::size_t enough = 256;
    const auto plain = unescaped(unit.subspan(2, std::min(unit.size() - 2, enough)));
    Bits bits(plain);
    bits.skip(4);
    const int layers = static_cast<int>(bits.take(3));
    bits.skip(1);
    skipProfile(bits, layers);
    bits.golomb();
    if (bits.golomb() == 3) bits.skip(1); // the planes apart
    const auto width = static_cast<std::int64_t>(bits.golomb());
    sizes.push_back({width, static_cast<std::int64_t>(bits.golomb())});
}

/// What a sequence header says of time, which is of no interest in a picture; how many bits delays have.
int skipTiming(Bits& bits) {
    if (!bits.flag()) return 0;
    bits.skip(64);
    if (bits.flag()) bits.golomb();
    if (!bits.flag()) return 0;
    const int delayBits = static_cast<int>(bits.take(5)) + 1;
    bits.skip(32 + 5 + 5);
    return delayBits;
}

void skipOperatingPoints(Bits& bits) {
    const int delayBits = skipTiming(bits);
    const bool hasDisplayDelay = bits.flag();
    for (auto points = bits.take(5) + 1; points > 0; --points) {
        bits.skip(12);
        if (bits.take(5) > 7) bits.skip(1);
        if (delayBits > 0 && bits.flag()) bits.skip(2 * static_cast<std::size_t>(delayBits) + 1);
        if (hasDisplayDelay && bits.flag()) bits.skip(4);
    }
}

/// What an AV1 sequence header begins with.
CodedSize av1Sequence(Bytes header) {
    Bits bits(header);
    bits.skip(4);
    if (bits.flag())
        bits.skip(5);
    else
        skipOperatingPoints(bits);
    const int widthBits = static_cast<int>(bits.take(4)) + 1, heightBits = static_cast<int>(bits.take(4)) + 1;
    const auto width = static_cast<std::int64_t>(bits.take(widthBits)) + 1;
    return {width, static_cast<std::int64_t>(bits.take(heightBits)) + 1};
}

std::size_t number(Bytes bytes, std::size_t at, std::size_t count) {
    std::size_t value = 0;
    for (std::size_t i = at; i < at + count; ++i)
        value = value << 8 | (i < bytes.size() ? bytes[i] : 0);
    return value;
}

} // namespace

std::vector<CodedSize> sizesInHevc(const std::vector<std::uint8_t>& units) {
    std::vector<CodedSize> sizes;
    for (std::size_t at = 0; at + 4 < units.size();) {
        const std::size_t length = std::min(number(units, at, 4), units.size() - at - 4);
        addHevcUnit(Bytes(units).subspan(at + 4, length), sizes);
        at += 4 + length;
    }
    return sizes;
}

std::vector<CodedSize> sizesInHevcConfiguration(const std::vector<std::uint8_t>& bytes) {
    std::vector<CodedSize> sizes;
    constexpr std::size_t arraysAt = 22;
    std::size_t at = arraysAt + 1;
    for (std::size_t arrays = number(bytes, arraysAt, 1); arrays > 0; --arrays) {
        const std::size_t units = number(bytes, at + 1, 2);
        at += 3;
        for (std::size_t i = 0; i < units && at + 2 < bytes.size(); ++i) {
            const std::size_t length = std::min(number(bytes, at, 2), bytes.size() - at - 2);
            addHevcUnit(Bytes(bytes).subspan(at + 2, length), sizes);
            at += 2 + length;
        }
    }
    return sizes;
}

std::vector<CodedSize> sizesInAv1(const std::vector<std::uint8_t>& units) {
    constexpr int sequenceHeader = 1;
    std::vector<CodedSize> sizes;
    for (std::size_t at = 0; at < units.size();) {
        const int head = units[at];
        at += (head & 4) != 0 ? 2 : 1;
        std::size_t length = units.size() - std::min(at, units.size());
        if ((head & 2) != 0) {
            std::size_t told = 0;
            for (int shift = 0; shift < 56 && at < units.size(); shift += 7) {
                told |= std::size_t{units[at] & 0x7Fu} << shift;
                if ((units[at++] & 0x80) == 0) break;
            }
            length = std::min(told, units.size() - std::min(at, units.size()));
        }
        if ((head >> 3 & 15) == sequenceHeader && length > 0)
            sizes.push_back(av1Sequence(Bytes(units).subspan(at, length)));
        at += length;
    }
    return sizes;
}

std::vector<CodedSize> sizesInAv1Configuration(const std::vector<std::uint8_t>& bytes) {
    constexpr std::size_t unitsAt = 4;
    if (bytes.size() <= unitsAt) return {};
    return sizesInAv1({bytes.begin() + unitsAt, bytes.end()});
}

} // namespace pex::heif
