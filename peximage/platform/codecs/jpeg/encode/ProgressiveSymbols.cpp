#include "peximage/platform/codecs/jpeg/encode/ProgressiveSymbols.h"

#include "peximage/platform/codecs/jpeg/encode/BitWriter.h"

#include <bit>
#include <cstdlib>

namespace pex::jpeg {
namespace {

constexpr unsigned sixteenZeros = 0xF0;

/// A level's bits as the format writes them, those of a negative one less one, and how many they are.
struct Value {
    int size;
    unsigned bits;
};

Value valueOf(int level) {
    const int size = static_cast<int>(std::bit_width(static_cast<unsigned>(std::abs(level))));
    return {size, static_cast<unsigned>(level - (level < 0)) & ((1u << size) - 1)};
}

/// A level without its lowest bits, towards zero.
int shortened(int level, int low) { return level < 0 ? -(-level >> low) : level >> low; }

/// Bits that make levels finer which are not 0 already, the first one topmost.
struct Corrections {
    std::uint64_t bits = 0;
    int count = 0;

    void add(bool bit) {
        bits = bits << 1 | (bit ? 1 : 0);
        ++count;
    }
    void tell(ProgressiveSymbols& to) {
        while (count > 0)
            to.putBit((bits >> --count & 1) != 0);
    }
};

/// Blocks of which nothing more follows are counted and told together. In scans that refine, bits of theirs
/// stand behind the number.
class EndOfBlocks {
  public:
    explicit EndOfBlocks(ProgressiveSymbols& to) : to_(to) {}

    void add(const Corrections& corrections) {
        constexpr int most = 0x7FFF;
        ++run_;
        if (corrections.count > 0) corrections_.push_back(corrections);
        if (run_ == most) tell();
    }

    void tell() {
        if (run_ == 0) return;
        const int bits = static_cast<int>(std::bit_width(static_cast<unsigned>(run_))) - 1;
        to_.put(0, static_cast<unsigned>(bits) << 4, bits, static_cast<unsigned>(run_) - (1u << bits));
        for (Corrections& corrections : corrections_)
            corrections.tell(to_);
        run_ = 0;
        corrections_.clear();
    }

  private:
    ProgressiveSymbols& to_;
    int run_ = 0;
    std::vector<Corrections> corrections_;
};

/// A block's levels, and the places of those that a scan may tell of: those in its band that are not 0.
struct Block {
    const std::int16_t* levels;
    std::uint64_t places;
};

void putFirstBits(Block block, const PartOfPicture& part, ProgressiveSymbols& to, EndOfBlocks& ends) {
    int next = part.first;
    for (; block.places != 0; block.places &= block.places - 1) {
        const int k = std::countr_zero(block.places), level = shortened(block.levels[k], part.low);
        if (level == 0) continue;
        ends.tell();
        int zeros = k - next;
        for (; zeros > 15; zeros -= 16)
            to.put(0, sixteenZeros, 0, 0);
        const Value value = valueOf(level);
        to.put(0, static_cast<unsigned>(zeros << 4 | value.size), value.size, value.bits);
        next = k + 1;
    }
    if (next <= part.last) ends.add({});
}

/// Where the last level stands that this scan makes one, or before all places.
int lastNewOne(Block block, const PartOfPicture& part) {
    while (block.places != 0) {
        const int k = 63 - std::countl_zero(block.places);
        if (std::abs(shortened(block.levels[k], part.low)) == 1) return k;
        block.places ^= std::uint64_t{1} << k;
    }
    return -1;
}

void putOneMoreBit(Block block, const PartOfPicture& part, ProgressiveSymbols& to, EndOfBlocks& ends) {
    const int lastNew = lastNewOne(block, part);
    Corrections corrections;
    int zeros = 0, next = part.first;
    for (; block.places != 0; block.places &= block.places - 1) {
        const int k = std::countr_zero(block.places), level = shortened(block.levels[k], part.low);
        if (level == 0) continue;
        const int magnitude = std::abs(level);
        zeros += k - next;
        next = k + 1;
        for (; zeros > 15 && k <= lastNew; zeros -= 16) {
            ends.tell();
            to.put(0, sixteenZeros, 0, 0);
            corrections.tell(to);
        }
        if (magnitude > 1) {
            corrections.add((magnitude & 1) != 0);
            continue;
        }
        ends.tell();
        to.put(0, static_cast<unsigned>(zeros << 4 | 1), 1, level > 0 ? 1 : 0);
        corrections.tell(to);
        zeros = 0;
    }
    if (zeros > 0 || next <= part.last || corrections.count > 0) ends.add(corrections);
}

} // namespace

std::uint64_t ProgressiveSymbols::bits(const std::vector<SymbolCodes>& codes) const {
    std::uint64_t bits = unannounced_;
    for (std::size_t i = 0; i < counts.size(); ++i)
        bits += codes[i].bitsOf(counts[i]);
    return bits;
}

CodedBits ProgressiveSymbols::coded(const std::vector<SymbolCodes>& codes) const {
    // At most 16 bits of code and 15 of value each.
    std::vector<std::uint8_t> scratch(4 * entries_.size() + 8);
    BitWriter writer(scratch.data());
    for (const std::uint32_t entry : entries_) {
        const int bits = static_cast<int>(entry >> 12 & 15);
        if ((entry & aloneFlag) == 0) {
            const std::uint32_t symbol = entry & 255;
            const SymbolCodes::Entry code = codes[entry >> 8 & 1][symbol];
            const int announced = static_cast<int>(symbol & 15); // which the entry has left room for
            writer.put(SymbolCodes::bits(code) >> announced, SymbolCodes::length(code) - announced);
        }
        writer.put(entry >> 16, bits);
    }
    return writer.finish();
}

ProgressiveSymbols symbolsOfMeans(const Scan& scan, const std::vector<LevelPlane>& planes) {
    ProgressiveSymbols symbols(planes.size() > 1 ? 2 : 1);
    std::vector<int> last(planes.size());
    for (int unit = 0; unit < scan.unitsWide * scan.unitsHigh; ++unit) {
        for (std::size_t c = 0; c < planes.size(); ++c) {
            const ScanComponent& of = scan.components[c];
            for (int i = 0; i < of.across * of.down; ++i) {
                const int x = unit % scan.unitsWide * of.across + i % of.across;
                const int level = planes[c].block(x, unit / scan.unitsWide * of.down + i / of.across)[0];
                const Value value = valueOf(level - last[c]);
                symbols.put(static_cast<std::size_t>(of.channel), static_cast<unsigned>(value.size),
                            value.size, value.bits);
                last[c] = level;
            }
        }
    }
    return symbols;
}

ProgressiveSymbols symbolsOfPart(const LevelPlane& plane, const PartOfPicture& part, int everySoManyRows) {
    ProgressiveSymbols symbols(1);
    EndOfBlocks ends(symbols);
    const std::uint64_t band = (std::uint64_t{2} << part.last) - (std::uint64_t{1} << part.first);
    for (int y = 0; y < plane.realHigh(); y += everySoManyRows)
        for (int x = 0; x < plane.realWide(); ++x)
            (part.high == 0 ? putFirstBits : putOneMoreBit)({plane.block(x, y), plane.nonzero(x, y) & band},
                                                            part, symbols, ends);
    ends.tell();
    return symbols;
}

} // namespace pex::jpeg
