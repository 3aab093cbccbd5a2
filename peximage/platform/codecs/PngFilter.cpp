#include "peximage/platform/codecs/PngFilter.h"

#include <algorithm>
#include <cstring>

namespace pex {
namespace {

// The loops of this file are written so that compilers turn them into vector code: 16-bit arithmetic, choices
// without branches, and pointers that do not overlap.

enum Filter : std::uint8_t { none, sub, up, average, paeth }; // the numbers stand in files: never change

struct Neighbours {
    std::int16_t left, above, corner;
};

std::int16_t absolute(std::int16_t value) { return static_cast<std::int16_t>(value < 0 ? -value : value); }

/// Whichever neighbour is nearest to left + above - corner; the first of equals.
std::uint8_t nearestNeighbour(Neighbours n) {
    const auto towardsLeft = static_cast<std::int16_t>(n.above - n.corner);
    const auto towardsAbove = static_cast<std::int16_t>(n.left - n.corner);
    const std::int16_t left = absolute(towardsLeft), above = absolute(towardsAbove),
                       corner = absolute(static_cast<std::int16_t>(towardsLeft + towardsAbove));
    const std::int16_t upper = above <= corner ? n.above : n.corner;
    return static_cast<std::uint8_t>(((left <= above) & (left <= corner)) ? n.left : upper);
}

template <class Predict>
void subtract(const std::uint8_t* row, const std::uint8_t* above, std::size_t bytes,
              std::size_t bytesPerPixel, std::uint8_t* __restrict out, Predict predict) {
    const std::uint8_t *left = row - bytesPerPixel, *corner = above - bytesPerPixel;
    for (std::size_t i = 0; i < bytes; ++i)
        out[i] = static_cast<std::uint8_t>(row[i] - predict(Neighbours{left[i], above[i], corner[i]}));
}

void apply(Filter filter, const std::uint8_t* row, const std::uint8_t* above, std::size_t bytes,
           std::size_t bytesPerPixel, std::uint8_t* out) {
    const auto with = [&](auto predict) { subtract(row, above, bytes, bytesPerPixel, out, predict); };
    switch (filter) {
    case none:
        break;
    case sub:
        with([](Neighbours n) { return static_cast<std::uint8_t>(n.left); });
        break;
    case up:
        with([](Neighbours n) { return static_cast<std::uint8_t>(n.above); });
        break;
    case average:
        with([](Neighbours n) { return static_cast<std::uint8_t>((n.left + n.above) >> 1); });
        break;
    case paeth:
        with(nearestNeighbour);
        break;
    }
}

/// The differences taken as numbers from -128 to 127.
std::uint64_t sumOfAbsolutes(const std::uint8_t* differences, std::size_t bytes) {
    constexpr std::size_t block = std::size_t{1} << 16; // its sum fits 32 bits
    std::uint64_t sum = 0;
    for (std::size_t from = 0; from < bytes; from += block) {
        const std::size_t to = std::min(bytes, from + block);
        std::uint32_t part = 0;
        for (std::size_t i = from; i < to; ++i)
            part += std::min(differences[i], static_cast<std::uint8_t>(-differences[i]));
        sum += part;
    }
    return sum;
}

} // namespace

PngFilter::PngFilter(std::size_t bytesPerRow, std::size_t bytesPerPixel)
    : bytesPerRow_(bytesPerRow), bytesPerPixel_(bytesPerPixel), candidate_(bytesPerRow) {}

void PngFilter::filter(const std::uint8_t* row, const std::uint8_t* above, std::uint8_t* out) {
    std::uint8_t* kept = out + 1;
    out[0] = none;
    std::memcpy(kept, row, bytesPerRow_);
    std::uint64_t least = sumOfAbsolutes(kept, bytesPerRow_);
    for (const Filter filter : {sub, up, average, paeth}) {
        apply(filter, row, above, bytesPerRow_, bytesPerPixel_, candidate_.data());
        const std::uint64_t sum = sumOfAbsolutes(candidate_.data(), bytesPerRow_);
        if (sum >= least) continue;
        least = sum;
        out[0] = filter;
        std::memcpy(kept, candidate_.data(), bytesPerRow_);
    }
}

} // namespace pex
