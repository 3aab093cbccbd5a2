#include "peximage/platform/codecs/jpeg/decode/ProgressiveCodes.h"

#include <bit>
#include <cstdlib>

namespace pex::jpeg {
namespace {

using Entry = HuffmanDecoder::Entry;

/// The bits from `begin` up to `end`, at most 64.
std::uint64_t bitRange(unsigned begin, unsigned end) {
    const std::uint64_t below = end < 64 ? (std::uint64_t{1} << end) - 1 : ~std::uint64_t{0};
    return begin < 64 ? below >> begin << begin : 0;
}

std::int16_t shifted(unsigned value, unsigned bits) { return static_cast<std::int16_t>(value << bits); }

/// The coefficients of a band, block by block. All that changes is kept in registers by whoever has it as a
/// local variable.
struct Band {
    const HuffmanDecoder& table;
    const unsigned first, last, lowBit;
    Bits bits;
    unsigned blocksAtEnd; // the next so many have no more coefficients

    bool addBlock(Coefficient* block, std::uint64_t& nonzero) {
        if (blocksAtEnd > 0) {
            --blocksAtEnd;
            return true;
        }
        std::uint64_t found = 0;
        for (unsigned k = first - 1; k < last;) {
            bits.refill();
            const Entry code = table.take(bits);
            if (code.step() == HuffmanDecoder::endOfBlock) {
                blocksAtEnd = takeEndOfBlocks(code.value()) - 1;
                break;
            }
            k += code.step();
            if (k > last) return false;
            block[placeInQuad[k]] = shifted(code.value(), lowBit);
            found |= std::uint64_t{code.value() != 0} << k;
        }
        nonzero |= found;
        return true;
    }

    /// The number of blocks, this one included, that have no more coefficients.
    unsigned takeEndOfBlocks(unsigned sizeBits) {
        if (sizeBits == 0) return 1;
        const auto more = static_cast<unsigned>(bits.peek() >> (64 - sizeBits));
        bits.drop(sizeBits);
        return (1U << sizeBits) + more;
    }

    bool refineBlock(Coefficient* block, std::uint64_t& nonzero) {
        const std::uint64_t known = nonzero;
        unsigned k = first;
        if (blocksAtEnd == 0 && !placeCoefficients(block, nonzero, k)) return false;
        if (blocksAtEnd == 0) return true;
        correct(block, known & bitRange(k, last + 1));
        --blocksAtEnd;
        return true;
    }

    /// Coefficients that were zero until now, and corrections of those that they pass; k is the first that
    /// was not come to.
    bool placeCoefficients(Coefficient* block, std::uint64_t& nonzero, unsigned& k) {
        const std::uint64_t known = nonzero;
        while (k <= last) {
            bits.refill();
            const Entry code = table.take(bits);
            if (code.step() == HuffmanDecoder::endOfBlock) {
                blocksAtEnd = takeEndOfBlocks(code.value());
                return true;
            }
            unsigned place = k + code.step() - 1;
            if (const std::uint64_t inTheWay = known & bitRange(k, place + 1); inTheWay != 0) {
                place = zeroAfter(known, k, code.step());
                correct(block, known & bitRange(k, place));
            }
            if (place > last) return false;
            block[placeInQuad[place]] = shifted(code.value(), lowBit);
            nonzero |= std::uint64_t{code.value() != 0} << place;
            k = place + 1;
        }
        return true;
    }

    /// The place of the zero that is the `step`th from k on; beyond the band when it has fewer.
    static unsigned zeroAfter(std::uint64_t known, unsigned k, unsigned step) {
        std::uint64_t zeros = ~known & bitRange(k, 64);
        for (unsigned i = 1; i < step; ++i)
            zeros &= zeros - 1;
        return static_cast<unsigned>(std::countr_zero(zeros));
    }

    /// Takes a bit for each of the coefficients: those of which it is 1 grow by the scan's lowest bit.
    void correct(Coefficient* block, std::uint64_t places) {
        for (unsigned ready = 0; places != 0; places &= places - 1, --ready) {
            if (ready == 0) {
                bits.refill();
                ready = Bits::ready;
            }
            const int isOne =
                static_cast<int>(static_cast<std::int64_t>(bits.peek()) >> 63); // all ones, or none
            bits.drop(1);
            Coefficient& coefficient = block[placeInQuad[static_cast<std::size_t>(std::countr_zero(places))]];
            const int sign = coefficient >> 15, unit = 1 << lowBit;
            coefficient = static_cast<Coefficient>(coefficient + (((unit ^ sign) - sign) & isOne));
        }
    }
};

} // namespace

ProgressiveCodes::ProgressiveCodes(const ProgressiveScan& scan)
    : scan_(scan), bits_(scan.begin, scan.end), lastDc_(scan.components.size()) {}

bool ProgressiveCodes::isAtEnd() const {
    constexpr int mostPadding = 7;
    return blocksAtEnd_ == 0 && bits_.left() >= 0 && bits_.left() <= mostPadding;
}

bool ProgressiveCodes::decodeFirsts(Coefficient* row, int begin, int end, std::size_t i) {
    constexpr int farOut = 1 << 20; // no picture has such a brightness
    for (int x = begin; x < end; ++x) {
        Coefficient& first = *blockAt(row, x);
        bits_.refill();
        if (scan_.refines) {
            const auto bit = static_cast<unsigned>(bits_.peek() >> 63);
            bits_.drop(1);
            first = static_cast<Coefficient>(first | shifted(bit, scan_.lowBit));
            continue;
        }
        const Entry code = scan_.tables[i].take(bits_);
        int& last = lastDc_[i];
        last += static_cast<Coefficient>(code.value());
        if (code.step() == HuffmanDecoder::noCode || std::abs(last) > farOut) return false;
        first = shifted(static_cast<unsigned>(last), scan_.lowBit);
    }
    return bits_.left() >= 0;
}

bool ProgressiveCodes::decodeBand(Coefficient* row, std::uint64_t* nonzero, int count) {
    Band band{scan_.tables[0], scan_.first, scan_.last, scan_.lowBit, bits_, blocksAtEnd_};
    bool isGood = true;
    for (int x = 0; x < count && isGood; ++x) {
        Coefficient* const block = blockAt(row, x);
        isGood = scan_.refines ? band.refineBlock(block, nonzero[x]) : band.addBlock(block, nonzero[x]);
        isGood = isGood && band.bits.left() >= 0;
    }
    bits_ = band.bits;
    blocksAtEnd_ = band.blocksAtEnd;
    return isGood;
}

} // namespace pex::jpeg
