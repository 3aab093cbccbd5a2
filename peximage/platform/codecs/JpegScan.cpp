#include "peximage/platform/codecs/JpegScan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <memory>

namespace pex::jpeg {
namespace {

/// A code of 16 bits and a value of 10 for each coefficient, rounded up.
constexpr std::size_t mostBytesPerBlock = 256;

void storeBigEndian(std::uint8_t* at, std::uint64_t value) {
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    std::memcpy(at, &value, sizeof value);
}

std::uint64_t loadBigEndian(const std::uint8_t* at) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    if constexpr (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
    return value;
}

class BitCounter {
  public:
    void put(HuffmanCodes::Entry entry, std::uint32_t) {
        bits_ += static_cast<std::uint64_t>(HuffmanCodes::length(entry));
    }
    std::uint64_t bits() const { return bits_; }

  private:
    std::uint64_t bits_ = 0;
};

class BitWriter {
  public:
    explicit BitWriter(std::uint8_t* to) : begin_(to), at_(to) {}

    /// The value's bits fill the place that the entry has left for them. All pending bits are stored each
    /// time and the whole bytes among them kept: no branch that the processor could mispredict.
    void put(HuffmanCodes::Entry entry, std::uint32_t value) {
        const int length = HuffmanCodes::length(entry);
        pending_ = pending_ << length | HuffmanCodes::bits(entry) | value;
        count_ += length;
        storeBigEndian(at_, pending_ << (64 - count_));
        at_ += count_ >> 3;
        count_ &= 7;
    }

    CodedBits finish() const {
        const auto whole = static_cast<std::size_t>(at_ - begin_);
        const auto rest = static_cast<std::size_t>(count_);
        return {{begin_, at_ + (rest > 0 ? 1 : 0)}, 8 * whole + rest};
    }

  private:
    std::uint8_t *begin_, *at_;
    std::uint64_t pending_ = 0; // of which only the lowest `count_` bits, fewer than 8, are not yet kept
    int count_ = 0;
};

/// Levels as the format writes them, from -2047 to 2047: the number of bits in the four lowest bits, over the
/// bits themselves. Those of a negative level are one less.
class ValueTable {
  public:
    constexpr ValueTable() {
        for (int level = -most; level <= most; ++level) {
            const auto size =
                static_cast<unsigned>(std::bit_width(static_cast<unsigned>(level < 0 ? -level : level)));
            const auto bits = static_cast<unsigned>(level - (level < 0)) & ((1u << size) - 1);
            entries_[static_cast<std::size_t>(level + most)] = static_cast<std::uint16_t>(bits << 4 | size);
        }
    }
    unsigned operator[](int level) const { return entries_[static_cast<std::size_t>(level + most)]; }

  private:
    static constexpr int most = 2047;
    std::array<std::uint16_t, 2 * most + 1> entries_{};
};

constexpr ValueTable values;

template <class Sink>
void codeBlock(Sink& sink, const std::int16_t* levels, std::uint64_t nonzero, int dcDifference,
               const HuffmanCodes& codes) {
    const unsigned dc = values[dcDifference];
    sink.put(codes.dc(static_cast<int>(dc & 15)), dc >> 4);
    int last = 0;
    for (std::uint64_t rest = nonzero & ~std::uint64_t{1}; rest != 0; rest &= rest - 1) {
        const int k = std::countr_zero(rest);
        int run = k - last - 1;
        for (; run > 15; run -= 16)
            sink.put(codes.ac(15, 0), 0);
        const unsigned ac = values[levels[k]];
        sink.put(codes.ac(run, static_cast<int>(ac & 15)), ac >> 4);
        last = k;
    }
    if (last != 63) sink.put(codes.ac(0, 0), 0);
}

/// One component's share in a row of units, quantised a few units at a time so that the levels stay in cache.
class ComponentCoder {
  public:
    static constexpr int unitsAtOnce = 16;

    /// The first difference is taken from the last block of the unit before.
    ComponentCoder(const ScanComponent& component, int row, int firstUnit, int unitsWide)
        : component_(&component), firstBlockRow_(row * component.down) {
        if (row == 0 && firstUnit == 0) return;
        const int unitBefore = firstUnit > 0 ? firstUnit - 1 : unitsWide - 1;
        const int rowBefore = firstUnit > 0 ? row : row - 1;
        const auto* before = component.plane->block((unitBefore + 1) * component.across - 1,
                                                    (rowBefore + 1) * component.down - 1);
        dc_ = component.quantizer.quantize(before[0], 0);
    }

    void quantize(int firstUnit, int units) {
        const ScanComponent& c = *component_;
        for (int y = 0; y < c.down; ++y)
            kernels::quantizeBlocks(c.plane->block(firstUnit * c.across, firstBlockRow_ + y),
                                    units * c.across, c.quantizer, levels_[y], nonzero_[y]);
    }

    /// `unit` counts from the first of those just quantised.
    template <class Sink>
    void codeUnit(Sink& sink, int unit) {
        for (int y = 0; y < component_->down; ++y) {
            for (int x = unit * component_->across; x < (unit + 1) * component_->across; ++x) {
                const std::int16_t* levels = levels_[y] + 64 * x;
                codeBlock(sink, levels, nonzero_[y][x], levels[0] - dc_, *component_->codes);
                dc_ = levels[0];
            }
        }
    }

  private:
    const ScanComponent* component_;
    int firstBlockRow_;
    int dc_ = 0;
    std::int16_t levels_[2][2 * unitsAtOnce * 64];
    std::uint64_t nonzero_[2][2 * unitsAtOnce];
};

template <class Sink>
void codeUnits(Sink& sink, const Scan& scan, const UnitRange& range) {
    std::vector<ComponentCoder> coders;
    for (const auto& component : scan.components)
        coders.emplace_back(component, range.row, range.first, scan.unitsWide);
    for (int first = range.first; first < range.end; first += ComponentCoder::unitsAtOnce) {
        const int units = std::min(ComponentCoder::unitsAtOnce, range.end - first);
        for (auto& coder : coders)
            coder.quantize(first, units);
        for (int unit = 0; unit < units; ++unit)
            for (auto& coder : coders)
                coder.codeUnit(sink, unit);
    }
}

/// Puts bits of any number behind each other into bytes.
class Stuffer {
  public:
    explicit Stuffer(std::uint8_t* to) : at_(to) {}

    void append(const CodedBits& piece) {
        const std::uint8_t* from = piece.bytes.data();
        std::uint64_t left = piece.bits;
        for (; left >= 64; left -= 64, from += 8) {
            const std::uint64_t next = loadBigEndian(from);
            putEight(count_ == 0 ? next : pending_ << (64 - count_) | next >> count_);
            pending_ = next;
        }
        for (; left >= 8; left -= 8)
            putBits(*from++, 8);
        if (left > 0) putBits(*from >> (8 - left), static_cast<int>(left));
    }

    /// The end of what was written.
    std::uint8_t* finish() {
        if (count_ > 0) putBits(0x7F, 8 - count_);
        return at_;
    }

  private:
    void putByte(std::uint8_t byte) {
        *at_++ = byte;
        if (byte == 0xFF) *at_++ = 0;
    }

    void putEight(std::uint64_t eight) {
        constexpr std::uint64_t ones = 0x0101010101010101, tops = 0x8080808080808080;
        if (((~eight - ones) & eight & tops) == 0) { // no byte of 0xFF
            storeBigEndian(at_, eight);
            at_ += 8;
            return;
        }
        for (int shift = 56; shift >= 0; shift -= 8)
            putByte(static_cast<std::uint8_t>(eight >> shift));
    }

    /// Of `pending_` only the lowest `count_` bits, fewer than 8, are still to be written.
    void putBits(std::uint32_t bits, int length) {
        pending_ = pending_ << length | (bits & ((1u << length) - 1));
        count_ += length;
        if (count_ < 8) return;
        count_ -= 8;
        putByte(static_cast<std::uint8_t>(pending_ >> count_));
    }

    std::uint8_t* at_;
    std::uint64_t pending_ = 0;
    int count_ = 0;
};

} // namespace

std::uint64_t countBits(const Scan& scan, const UnitRange& range) {
    BitCounter counter;
    codeUnits(counter, scan, range);
    return counter.bits();
}

CodedBits codeRow(const Scan& scan, int row) {
    std::size_t blocks = 0;
    for (const auto& c : scan.components)
        blocks += static_cast<std::size_t>(scan.unitsWide) * static_cast<std::size_t>(c.across * c.down);
    const auto scratch = std::make_unique_for_overwrite<std::uint8_t[]>(blocks * mostBytesPerBlock + 8);
    BitWriter writer(scratch.get());
    codeUnits(writer, scan, {row, 0, scan.unitsWide});
    return writer.finish();
}

void appendStuffed(std::vector<std::uint8_t>& out, const std::vector<CodedBits>& pieces) {
    std::size_t most = 16; // what may be filled up, and the reach of a whole store
    for (const auto& piece : pieces)
        most += 2 * piece.bytes.size();
    const auto room = std::make_unique_for_overwrite<std::uint8_t[]>(most);
    Stuffer stuffer(room.get());
    for (const auto& piece : pieces)
        stuffer.append(piece);
    std::uint8_t* end = stuffer.finish();
    out.reserve(out.size() + static_cast<std::size_t>(end - room.get()) + 2); // the caller's end marker fits
    out.insert(out.end(), room.get(), end);
}

} // namespace pex::jpeg
