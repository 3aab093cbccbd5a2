#include "peximage/platform/codecs/jpeg/encode/ChromaChoice.h"

#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/kernels/JpegColour.h"

#include <atomic>
#include <vector>

namespace pex::jpeg {
namespace {

/// A cell of 2 x 2 pixels whose chroma lies apart by a quarter of its range would be smeared. Photos have
/// less than one in 50,000 of them; one line of coloured text on a large white page is enough for one in
/// 5,000.
constexpr int smeared = 64;
constexpr double tolerable = 1.0 / 5000;
constexpr int everySoManyRows = 8;

/// The pairs of rows that are looked at among the first `height` ones.
int looksUpTo(int height) { return (height + everySoManyRows - 2) / everySoManyRows; }

/// The two rows of pixels from `top` on.
int smearedCells(const EncoderInput& input, int top) {
    const auto width = static_cast<std::size_t>(input.width);
    std::vector<std::uint8_t> scratch(4 * width), cb(2 * width), cr(2 * width);
    for (const int y : {0, 1}) {
        const std::size_t at = width * static_cast<std::size_t>(y);
        kernels::chromaRow(input.row(top + y, scratch.data()), &cb[at], &cr[at], input.width);
    }
    int count = 0;
    for (const auto* chroma : {&cb, &cr})
        count += kernels::countContrasts(chroma->data(), chroma->data() + width, input.width / 2, smeared);
    return count;
}

} // namespace

ChromaChoice::ChromaChoice(const EncoderInput& input)
    : input_(input), tolerable_(tolerable * looksUpTo(input.height) * (input.width / 2)) {}

bool ChromaChoice::allowsHalf(int top, int end) {
    const int first = top / everySoManyRows, looks = looksUpTo(end) - first;
    std::atomic<int> cells = 0;
    Workers::forEach(looks,
                     [&](int i, int) { cells += smearedCells(input_, (first + i) * everySoManyRows); });
    smeared_ += cells;
    return smeared_ <= tolerable_;
}

} // namespace pex::jpeg
