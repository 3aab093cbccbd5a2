#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include "peximage/platform/codecs/BigEndian.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace pex::jpeg {
namespace {

/// A code of 16 bits and a value of 10 for each coefficient, rounded up.
constexpr std::size_t mostBytesPerBlock = 256;

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
            entries_[placeOf(level)] = static_cast<std::uint16_t>(bits << 4 | size);
        }
    }
    unsigned operator[](int level) const { return entries_[placeOf(level)]; }

  private:
    static constexpr int most = 2047;
    static constexpr std::size_t placeOf(int level) {
        const int place = level + most;
        return static_cast<std::size_t>(place);
    }

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
    coders.reserve(scan.components.size()); // they are large
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

} // namespace

std::uint64_t countBits(const Scan& scan, const UnitRange& range) {
    BitCounter counter;
    codeUnits(counter, scan, range);
    return counter.bits();
}

std::size_t mostBytesPerRow(const Scan& scan) {
    int blocks = 0;
    for (const auto& c : scan.components)
        blocks += c.across * c.down;
    return static_cast<std::size_t>(blocks) * static_cast<std::size_t>(scan.unitsWide) * mostBytesPerBlock +
           8;
}

CodedBits codeRow(const Scan& scan, int row, std::uint8_t* scratch) {
    BitWriter writer(scratch);
    codeUnits(writer, scan, {row, 0, scan.unitsWide});
    return writer.finish();
}

} // namespace pex::jpeg
