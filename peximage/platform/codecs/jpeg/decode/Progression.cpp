#include "peximage/platform/codecs/jpeg/decode/Progression.h"

#include "peximage/platform/codecs/jpeg/decode/Stuffing.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <utility>

namespace pex::jpeg {
namespace {

constexpr unsigned mostLowBit = 13;

/// Damaged blocks lead less far behind the end.
constexpr std::size_t slack = 1024;

enum Marker : int {
    huffmanTables = 0xC4,
    endOfImage = 0xD9,
    startOfScan = 0xDA,
    application = 0xE0,
    comment = 0xFE
};

using Bytes = std::span<const std::uint8_t>;
using Use = HuffmanDecoder::Use;

/// Reads what stands between the scans, and the scans.
class Reader {
  public:
    explicit Reader(const jpeg_decompress_struct& info)
        : info_(info), next_(info.src->next_input_byte), end_(next_ + info.src->bytes_in_buffer) {
        for (std::size_t i = 0; i < NUM_HUFF_TBLS; ++i) {
            if (info.dc_huff_tbl_ptrs[i] != nullptr) dcTables_[i] = *info.dc_huff_tbl_ptrs[i];
            if (info.ac_huff_tbl_ptrs[i] != nullptr) acTables_[i] = *info.ac_huff_tbl_ptrs[i];
        }
        for (auto& bits : lowBits_)
            bits.fill(unknown);
    }

    bool readAll(Progression& to) {
        to.bytes = PixelBuffer::make(info_.src->bytes_in_buffer + slack);
        if (!to.bytes) return false;
        std::uint8_t* room = to.bytes.data();
        std::optional<Header> header = firstHeader();
        for (; header; header = nextHeader()) {
            std::optional<ProgressiveScan> scan = scanOf(*header);
            if (!scan) return false;
            scan->begin = room;
            scan->end = room = unstuff(next_, end_, room);
            to.scans.push_back(std::move(*scan));
        }
        return atEnd_ && isComplete();
    }

  private:
    static constexpr int unknown = -1;

    struct Component {
        int index;
        std::size_t dcTable, acTable;
    };
    struct Header {
        std::vector<Component> components;
        unsigned first, last, knownBit, lowBit;
    };

    Header firstHeader() const {
        Header header{{},
                      static_cast<unsigned>(info_.Ss),
                      static_cast<unsigned>(info_.Se),
                      static_cast<unsigned>(info_.Ah),
                      static_cast<unsigned>(info_.Al)};
        for (int i = 0; i < info_.comps_in_scan; ++i) {
            const jpeg_component_info& of = *info_.cur_comp_info[i];
            header.components.push_back({of.component_index, static_cast<std::size_t>(of.dc_tbl_no),
                                         static_cast<std::size_t>(of.ac_tbl_no)});
        }
        return header;
    }

    /// Absent at the end of the picture, and when the file is damaged or unusual.
    std::optional<Header> nextHeader() {
        while (end_ - next_ >= 2 && next_[0] == 0xFF) {
            const int marker = next_[1];
            next_ += 2;
            if (marker == endOfImage) {
                atEnd_ = true;
                return std::nullopt;
            }
            const std::optional<Bytes> segment = takeSegment();
            if (!segment) return std::nullopt;
            if (marker == startOfScan) return headerIn(*segment);
            const bool isSkipped = (marker & 0xF0) == application || marker == comment;
            if (!isSkipped && !(marker == huffmanTables && readTables(*segment))) return std::nullopt;
        }
        return std::nullopt;
    }

    std::optional<Bytes> takeSegment() {
        if (end_ - next_ < 2) return std::nullopt;
        const std::ptrdiff_t length = next_[0] << 8 | next_[1];
        if (length < 2 || end_ - next_ < length) return std::nullopt;
        const Bytes segment(next_ + 2, next_ + length);
        next_ += length;
        return segment;
    }

    bool readTables(Bytes segment) {
        constexpr std::size_t head = 17;
        while (segment.size() >= head) {
            const int kind = segment[0] >> 4;
            const std::size_t place = segment[0] & 15;
            JHUFF_TBL table{};
            std::size_t codes = 0;
            for (std::size_t i = 1; i < head; ++i)
                codes += table.bits[i] = segment[i];
            if (kind > 1 || place >= NUM_HUFF_TBLS || codes > 256 || segment.size() < head + codes)
                return false;
            std::copy_n(segment.data() + head, codes, table.huffval);
            (kind == 0 ? dcTables_ : acTables_)[place] = table;
            segment = segment.subspan(head + codes);
        }
        return segment.empty();
    }

    std::optional<Header> headerIn(Bytes segment) const {
        const std::size_t count = segment.empty() ? 0 : segment[0];
        if (count < 1 || count > MAX_COMPS_IN_SCAN || segment.size() != 4 + 2 * count) return std::nullopt;
        Header header{};
        for (std::size_t i = 0; i < count; ++i) {
            const int id = segment[1 + 2 * i], tables = segment[2 + 2 * i];
            const auto* const begin = info_.comp_info;
            const auto* const of = std::find_if(begin, begin + info_.num_components,
                                                [&](const auto& c) { return c.component_id == id; });
            const int index = static_cast<int>(of - begin);
            const bool isThere = index < info_.num_components &&
                                 std::none_of(header.components.begin(), header.components.end(),
                                              [&](const Component& c) { return c.index >= index; });
            if (!isThere) return std::nullopt;
            header.components.push_back(
                {index, static_cast<std::size_t>(tables >> 4), static_cast<std::size_t>(tables & 15)});
        }
        const Bytes rest = segment.last(3);
        header.first = rest[0];
        header.last = rest[1];
        header.knownBit = rest[2] >> 4;
        header.lowBit = rest[2] & 15;
        return header;
    }

    /// Absent for what is not what comes next in one of the components.
    std::optional<ProgressiveScan> scanOf(const Header& header) {
        const bool isFirst = header.first == 0, refines = header.knownBit != 0;
        const bool isBand =
            isFirst ? header.last == 0
                    : header.first <= header.last && header.last < DCTSIZE2 && header.components.size() == 1;
        if (!isBand || header.lowBit > mostLowBit) return std::nullopt;
        if (refines && header.lowBit + 1 != header.knownBit) return std::nullopt;
        ProgressiveScan scan{{}, header.first, header.last, header.lowBit, refines, {}, nullptr, nullptr};
        for (const Component& component : header.components) {
            auto& bits = lowBits_[static_cast<std::size_t>(component.index)];
            if (!isFirst && bits[0] == unknown) return std::nullopt;
            for (unsigned k = header.first; k <= header.last; ++k) {
                if (bits[k] != (refines ? static_cast<int>(header.knownBit) : unknown)) return std::nullopt;
                bits[k] = static_cast<int>(header.lowBit);
            }
            scan.components.push_back(component.index);
            if (isFirst && refines) continue;
            const bool isGood = isFirst ? addTable(dcTables_, component.dcTable, Use::first, scan)
                                        : addTable(acTables_, component.acTable,
                                                   refines ? Use::refinement : Use::others, scan);
            if (!isGood) return std::nullopt;
        }
        return scan;
    }

    using Tables = std::array<std::optional<JHUFF_TBL>, NUM_HUFF_TBLS>;

    static bool addTable(const Tables& tables, std::size_t place, Use use, ProgressiveScan& scan) {
        if (place >= tables.size() || !tables[place] || !HuffmanDecoder::isUsual(*tables[place], use))
            return false;
        scan.tables.emplace_back(*tables[place]);
        return true;
    }

    bool isComplete() const {
        const auto end = lowBits_.begin() + info_.num_components;
        return std::all_of(lowBits_.begin(), end, [](const auto& bits) {
            return std::all_of(bits.begin(), bits.end(), [](int bit) { return bit == 0; });
        });
    }

    const jpeg_decompress_struct& info_;
    const std::uint8_t *next_, *end_;
    bool atEnd_ = false;
    Tables dcTables_, acTables_;
    /// Of each coefficient of each component, what the scans until now tell.
    std::array<std::array<int, DCTSIZE2>, MAX_COMPONENTS> lowBits_{};
};

} // namespace

Progression Progression::read(const jpeg_decompress_struct& info) {
    Progression progression;
    const bool isUsual = info.progressive_mode && info.restart_interval == 0;
    if (!isUsual || !Reader(info).readAll(progression)) progression.scans.clear();
    return progression;
}

} // namespace pex::jpeg
