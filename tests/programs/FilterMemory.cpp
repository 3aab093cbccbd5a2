// A chain of scaling, sharpening, exposure and a lookup table over a large picture may hold one picture of
// the result's size, and a part of it for strips. The system tells the most memory that a process has ever
// had: each case therefore has a process of its own, which begins with what the case is given.

#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/raster/PixelSource.h"
#include "tests/support/InChild.h"

#include <cstring>
#include <functional>
#include <iostream>
#include <sys/resource.h>

using namespace pex;

namespace {

constexpr int width = 6000, height = 4000;
constexpr double pictureBytes = 4.0 * width * height;

/// The most that this process ever held, in pictures of that size.
double mostPictures() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) * 1024 / pictureBytes;
}

CGImage inMemory(int w, int h, PixelLayout layout) {
    const std::ptrdiff_t stride = std::ptrdiff_t{w} * 4;
    const PixelBuffer buffer = PixelBuffer::make(std::size_t(stride) * std::size_t(h));
    std::memset(buffer.data(), 90, buffer.size());
    return CGImage::make(w, h, stride, layout, CGColorSpace::sRGB(), buffer).value();
}

/// A picture that is not in memory, and comes a few rows at a time.
class Encoded : public PixelSource {
  public:
    PixelSize size() const override { return {width, height}; }
    PixelLayout layout() const override { return PixelLayout::skipLast; }
    CGColorSpace colorSpace() const override { return CGColorSpace::sRGB(); }

  private:
    std::unique_ptr<RowReader> makeRows(PixelSize) const override { return std::make_unique<Rows>(); }

    struct Rows : RowReader {
        std::optional<DecodedRows> readNext(MutablePixelView rows) override {
            for (int y = 0; y < rows.height; ++y)
                std::memset(rows.row(y), 120, std::size_t(rows.width) * 4);
            return DecodedRows{rows.height};
        }
    };
};

CIImage filtered(const CIImage& image) {
    std::vector<ColorCube::Color> entries;
    for (int i = 0; i < 8; ++i)
        entries.push_back({i % 2 * 0.9, i / 2 % 2 * 1.0, 1 - i / 4 * 0.8});
    return image.sharpenedLuminance(0.8).exposureAdjusted(0.5).colorCube(ColorCube::make(2, entries));
}

struct Case {
    const char* name;
    std::function<CGImage()> given;
    double scale;
};

const Case cases[] = {
    {"opaque, enlarged", [] { return inMemory(width / 4, height / 4, PixelLayout::skipLast); }, 4},
    {"alpha first, enlarged", [] { return inMemory(width / 4, height / 4, PixelLayout::straightFirst); }, 4},
    {"straight alpha, reduced", [] { return inMemory(width, height, PixelLayout::straightLast); }, 0.5},
    {"encoded", [] { return CGImage::make(std::make_shared<Encoded>()); }, 1},
    {"encoded, reduced a little", [] { return CGImage::make(std::make_shared<Encoded>()); }, 0.95},
};

int hold(const Case& one) {
    const CGImage given = one.given();
    const double before = mostPictures();
    const auto result = filtered(CIImage(given).scaled(one.scale, one.scale)).getCGImage();
    if (!result) return std::cout << one.name << ": no result\n", 1;
    const double own = 4.0 * result->width() * result->height() / pictureBytes;
    const double more = mostPictures() - before;
    std::cout << one.name << ": the result of " << own << " pictures took " << more << std::endl;
    // A tenth for copies of the strips' edges, and the strips that are worked on. Less than its own size
    // would mean that nothing has been measured.
    return more >= 0.95 * own && more < 1.1 * own + 0.15 ? 0 : 1;
}

} // namespace

int main() {
    int failed = 0;
    for (const Case& one : cases)
        failed += inChild([&] { return hold(one); }) != 0;
    return failed == 0 ? 0 : 1;
}
