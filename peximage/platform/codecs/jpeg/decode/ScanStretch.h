#pragma once

#include "peximage/platform/codecs/jpeg/decode/BaselineCodes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// A stretch of a scan: its bytes without stuffing, and the MCUs found in them. MCUs can be looked for from
/// anywhere, without knowing where one begins: whatever bit one starts at, Huffman codes fall into step after
/// a while. What was found counts once an MCU is known, from the stretch before, to begin at the same bit.
///
/// Bits are counted from the beginning of the stretch.
class ScanStretch {
  public:
    using Packed = BaselineCodes::Packed;

    /// A restart marker stood before this bit.
    struct Restart {
        std::uint32_t bit;
        int number; // 0 … 7
    };

    /// The memory that a stretch of at most so many bytes of a file takes.
    static std::size_t memoryFor(std::size_t fileBytes);
    /// The memory must outlive the stretch, and be aligned for coefficients.
    ScanStretch(std::uint8_t* memory, std::size_t fileBytes);

    /// Takes the bytes from `begin` to `end`, which must not part the two bytes of a marker or of a stuffed
    /// one, and as many behind as the last MCU may take.
    void read(const std::uint8_t* begin, const std::uint8_t* end, const std::uint8_t* endOfFile);
    /// Looks for MCUs from this bit on, until the stretch or its memory ends.
    void findMcus(const BaselineCodes& codes, std::uint32_t bit);

    /// Without those behind `end`.
    std::uint32_t bits() const { return bits_; }
    const std::vector<Restart>& restarts() const { return restarts_; }
    /// Where the bits end that come before the restart of this index, or behind the last one.
    std::uint32_t endOfSegment(std::size_t restart) const {
        return restart < restarts_.size() ? restarts_[restart].bit : allBits_;
    }

    /// The coefficients of the MCU that begins at this bit, which is moved behind it; null when none was
    /// found there. To be asked for with growing bits.
    const Packed* takeMcu(std::uint32_t& bit) {
        while (next_[beginBit] < bit)
            next_ += next_[length];
        if (next_[beginBit] != bit) return nullptr;
        const Packed* const mcu = next_;
        bit = mcu[endBit];
        next_ += mcu[length];
        return mcu + headLength;
    }
    /// Decodes the MCU that begins at this bit, which is moved behind it, and ends before that restart; false
    /// when it is damaged.
    bool decodeMcu(const BaselineCodes& codes, std::uint32_t& bit, std::size_t restart, Packed* to) const;

  private:
    /// What stands before the coefficients of an MCU that was found.
    enum Head : std::size_t { beginBit, endBit, length, headLength };

    Bits bitsFrom(std::uint32_t bit, std::uint32_t end) const;
    Packed* findMcus(const BaselineCodes& codes, std::uint32_t bit, std::uint32_t end, Packed* to);

    std::uint8_t* bytes_;
    Packed *mcus_, *endOfMcus_;
    const Packed* next_ = nullptr; // of those that were found
    std::vector<Restart> restarts_;
    std::uint32_t bits_ = 0, allBits_ = 0;
};

} // namespace pex::jpeg
