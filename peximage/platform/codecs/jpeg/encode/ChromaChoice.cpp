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

ChromaSize chromaSizeFor(const EncoderInput& input) {
    const int pairs = input.height / 2, looks = (pairs + everySoManyRows / 2 - 1) / (everySoManyRows / 2);
    std::atomic<int> cells = 0;
    Workers::forEach(looks, [&](int i, int) { cells += smearedCells(input, i * everySoManyRows); });
    const double all = static_cast<double>(looks) * (input.width / 2);
    return cells > tolerable * all ? ChromaSize::full : ChromaSize::half;
}

} // namespace pex::jpeg
