#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include "peximage/platform/codecs/jpeg/encode/BitWriter.h"

#include <algorithm>
#include <bit>

namespace pex::jpeg {
namespace {

constexpr std::uint8_t endOfBlock = 0x00, sixteenZeros = 0xF0;
constexpr int lastPlace = 63;

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

/// Counts what is put.
class SymbolCounter {
  public:
    explicit SymbolCounter(ScanCounts& counts) : counts_(counts) {}

    void putFirst(Channel channel, unsigned symbol, unsigned) { ++counts_.firstOf(channel)[symbol]; }
    void put(Channel channel, unsigned symbol, unsigned) { ++counts_.othersOf(channel)[symbol]; }

  private:
    ScanCounts& counts_;
};

std::size_t bytesOfValue(unsigned symbol) { return ((symbol & 15) + 7) / 8; }

/// Counts what is put and writes it down.
class SymbolRecorder {
  public:
    SymbolRecorder(ScanCounts& counts, std::uint8_t* to) : counter_(counts), at_(to) {}

    void putFirst(Channel channel, unsigned symbol, unsigned value) {
        counter_.putFirst(channel, symbol, value);
        write(symbol, value);
    }
    void put(Channel channel, unsigned symbol, unsigned value) {
        counter_.put(channel, symbol, value);
        write(symbol, value);
    }
    std::uint8_t* end() const { return at_; }

  private:
    void write(unsigned symbol, unsigned value) {
        at_[0] = static_cast<std::uint8_t>(symbol);
        at_[1] = static_cast<std::uint8_t>(value);
        at_[2] = static_cast<std::uint8_t>(value >> 8);
        at_ += 1 + bytesOfValue(symbol);
    }

    SymbolCounter counter_;
    std::uint8_t* at_;
};

template <class Sink>
void putBlock(Sink& sink, Channel channel, const std::int16_t* levels, std::uint64_t nonzero,
              int difference) {
    const unsigned first = values[difference];
    sink.putFirst(channel, first & 15, first >> 4);
    int last = 0;
    for (std::uint64_t rest = nonzero & ~std::uint64_t{1}; rest != 0; rest &= rest - 1) {
        const int k = std::countr_zero(rest);
        int run = k - last - 1;
        for (; run > 15; run -= 16)
            sink.put(channel, sixteenZeros, 0);
        const unsigned value = values[levels[k]];
        sink.put(channel, static_cast<unsigned>(run) << 4 | (value & 15), value >> 4);
        last = k;
    }
    if (last != lastPlace) sink.put(channel, endOfBlock, 0);
}

/// One component's share in a row of units, quantised a few units at a time so that the levels stay in cache.
class ComponentWalk {
  public:
    static constexpr int unitsAtOnce = 16;

    /// The first difference is taken from the last block of the unit before.
    ComponentWalk(const ScanComponent& component, int row, int firstUnit, int unitsWide)
        : component_(&component), firstBlockRow_(row * component.down) {
        if (row == 0 && firstUnit == 0) return;
        const int unitBefore = firstUnit > 0 ? firstUnit - 1 : unitsWide - 1;
        const int rowBefore = firstUnit > 0 ? row : row - 1;
        const auto* before = component.plane->block((unitBefore + 1) * component.across - 1,
                                                    (rowBefore + 1) * component.down - 1);
        last_ = component.quantiser->quantiseFirst(before[0]);
    }

    void quantise(int firstUnit, int units) {
        const ScanComponent& c = *component_;
        for (int y = 0; y < c.down; ++y)
            c.quantise(c.plane->block(firstUnit * c.across, firstBlockRow_ + y), units * c.across, levels_[y],
                       masks_[y]);
    }

    /// `unit` counts from the first of those just quantised.
    template <class Sink>
    void putUnit(Sink& sink, int unit) {
        for (int y = 0; y < component_->down; ++y) {
            for (int x = unit * component_->across; x < (unit + 1) * component_->across; ++x) {
                const std::int16_t* levels = levels_[y] + 64 * x;
                putBlock(sink, component_->channel, levels, masks_[y][x].nonzero, levels[0] - last_);
                last_ = levels[0];
            }
        }
    }

  private:
    const ScanComponent* component_;
    int firstBlockRow_;
    int last_ = 0;
    std::int16_t levels_[2][2 * unitsAtOnce * 64];
    kernels::LevelMasks masks_[2][2 * unitsAtOnce];
};

template <class Sink>
void putUnits(Sink& sink, const Scan& scan, const UnitRange& range) {
    std::vector<ComponentWalk> walks;
    walks.reserve(scan.components.size()); // they are large
    for (const auto& component : scan.components)
        walks.emplace_back(component, range.row, range.first, scan.unitsWide);
    for (int first = range.first; first < range.end; first += ComponentWalk::unitsAtOnce) {
        const int units = std::min(ComponentWalk::unitsAtOnce, range.end - first);
        for (auto& walk : walks)
            walk.quantise(first, units);
        for (int unit = 0; unit < units; ++unit)
            for (auto& walk : walks)
                walk.putUnit(sink, unit);
    }
}

/// Reads symbols and writes their codes.
class RowCoder {
  public:
    RowCoder(const RowSymbols& symbols, std::uint8_t* to) : at_(symbols.data()), writer_(to) {}

    void codeBlock(const SymbolCodes& first, const SymbolCodes& others) {
        codeSymbol(first);
        for (int k = 0; k < lastPlace;) {
            const unsigned symbol = codeSymbol(others);
            if (symbol == endOfBlock) break;
            k += static_cast<int>(symbol >> 4) + 1;
        }
    }
    CodedBits finish() const { return writer_.finish(); }

  private:
    unsigned codeSymbol(const SymbolCodes& codes) {
        const unsigned symbol = *at_;
        const unsigned mask = (1u << (symbol & 15)) - 1;
        const unsigned value = (at_[1] | static_cast<unsigned>(at_[2]) << 8) & mask;
        const SymbolCodes::Entry entry = codes[symbol];
        writer_.put(SymbolCodes::bits(entry) | value, SymbolCodes::length(entry));
        at_ += 1 + bytesOfValue(symbol);
        return symbol;
    }

    const std::uint8_t* at_;
    BitWriter writer_;
};

std::size_t blocksOfRow(const Scan& scan) {
    int blocks = 0;
    for (const auto& c : scan.components)
        blocks += c.across * c.down;
    return static_cast<std::size_t>(blocks) * static_cast<std::size_t>(scan.unitsWide);
}

/// What is read or written beyond the end, and thrown away.
constexpr std::size_t slack = 8;

} // namespace

void ScanComponent::quantise(const std::int16_t* coefficients, int blocks, std::int16_t* levels,
                             kernels::LevelMasks* masks) const {
    quantiser->quantise(coefficients, blocks, levels, masks);
    if (!trellis) return;
    for (int b = 0; b < blocks; ++b)
        masks[b].nonzero = trellis->choose(coefficients + 64 * b, levels + 64 * b);
}

void countSymbols(const Scan& scan, const UnitRange& range, ScanCounts& counts) {
    SymbolCounter counter(counts);
    putUnits(counter, scan, range);
}

std::size_t mostSymbolBytes(const Scan& scan) { return blocksOfRow(scan) * 3 * 64 + slack; }

RowSymbols symbolsOfRow(const Scan& scan, int row, ScanCounts& counts, std::uint8_t* scratch) {
    SymbolRecorder recorder(counts, scratch);
    putUnits(recorder, scan, {row, 0, scan.unitsWide});
    return RowSymbols(scratch, recorder.end() + slack);
}

CodedBits codeRow(const Scan& scan, const RowSymbols& symbols, const ScanCodes& codes) {
    // A code of 16 bits for each symbol, and no more bits of value than those there.
    std::vector<std::uint8_t> scratch(symbols.size() * 3 + slack);
    RowCoder coder(symbols, scratch.data());
    for (int unit = 0; unit < scan.unitsWide; ++unit)
        for (const auto& c : scan.components)
            for (int i = 0; i < c.across * c.down; ++i)
                coder.codeBlock(codes.firstOf(c.channel), codes.othersOf(c.channel));
    return coder.finish();
}

} // namespace pex::jpeg
