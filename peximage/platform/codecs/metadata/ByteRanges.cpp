#include "peximage/platform/codecs/metadata/ByteRanges.h"

#include <algorithm>
#include <utility>

namespace pex {

ByteRanges joined(ByteRanges ranges) {
    std::erase_if(ranges, [](ByteRange range) { return range.begin >= range.end; });
    std::ranges::sort(ranges, {}, &ByteRange::begin);
    ByteRanges all;
    for (const ByteRange range : ranges) {
        if (!all.empty() && range.begin <= all.back().end)
            all.back().end = std::max(all.back().end, range.end);
        else
            all.push_back(range);
    }
    return all;
}

ByteRanges without(const ByteRanges& ranges, const ByteRanges& others) {
    const ByteRanges taken = joined(others);
    ByteRanges left;
    auto next = taken.begin();
    for (auto [begin, end] : joined(ranges)) {
        while (next != taken.end() && next->end <= begin)
            ++next;
        for (auto hole = next; hole != taken.end() && hole->begin < end; ++hole) {
            left.push_back({begin, std::max(begin, hole->begin)});
            begin = std::min(hole->end, end);
        }
        left.push_back({begin, end});
    }
    return joined(std::move(left));
}

} // namespace pex
