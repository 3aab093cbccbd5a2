#include "peximage/platform/filters/FilterChain.h"

#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/raster/kernels/ConvolveRow.h"

#include <algorithm>
#include <utility>

namespace pex {
namespace {

/// Rows to each side that sharpening needs.
constexpr int sharpenReach = 2;

bool isOpaque(const MutablePixelView& rows) {
    for (int y = 0; y < rows.height; ++y) {
        const std::uint8_t* row = rows.row(y);
        std::uint8_t all = 255;
        for (int x = 0; x < rows.width; ++x)
            all &= row[4 * x + 3];
        if (all != 255) return false;
    }
    return true;
}

/// Luma and alpha of the five rows around the one that is being sharpened.
class SharpenWindow {
  public:
    SharpenWindow(int width, bool opaque)
        : width_(width),
          opaque_(opaque),
          padded_(static_cast<std::size_t>(width) + 2 * margin),
          luma_(padded_ * rows),
          blurredLuma_(padded_ * rows),
          blurredAlpha_(opaque ? 0 : padded_ * rows),
          alpha_(opaque ? 0 : padded_) {}

    void take(const std::uint8_t* rgba, int y) {
        std::uint16_t* luma = luma_.data() + offset(y) + margin;
        kernels::lumaRow(rgba, width_, luma);
        if (!opaque_) {
            std::uint16_t* alpha = alpha_.data() + margin;
            kernels::alphaRow(rgba, width_, alpha, luma);
            blur(alpha, blurredAlpha_.data() + offset(y));
        }
        blur(luma, blurredLuma_.data() + offset(y));
    }

    /// Row y in place. Beyond the edges the first and the last row repeat.
    void sharpen(std::uint8_t* rgba, int y, int last, const kernels::SharpenStrength& strength) const {
        const std::uint16_t* luma = luma_.data() + offset(y) + margin;
        const kernels::BlurredRows lumas = around(blurredLuma_, y, last);
        if (opaque_) return kernels::sharpenRow(rgba, width_, luma, lumas, strength);
        kernels::sharpenAlphaRow(rgba, width_, luma, lumas, around(blurredAlpha_, y, last), strength);
    }

  private:
    static constexpr std::size_t rows = 5, margin = 32;

    std::size_t offset(int y) const { return static_cast<std::size_t>(y) % rows * padded_; }

    void blur(std::uint16_t* samples, std::uint32_t* blurred) const {
        std::fill(samples - sharpenReach, samples, samples[0]);
        std::fill(samples + width_, samples + width_ + sharpenReach, samples[width_ - 1]);
        kernels::blurRow(samples, width_, blurred);
    }

    kernels::BlurredRows around(const std::vector<std::uint32_t>& blurred, int y, int last) const {
        kernels::BlurredRows five{};
        for (int i = 0; i < static_cast<int>(rows); ++i)
            five[static_cast<std::size_t>(i)] =
                blurred.data() + offset(std::clamp(y - sharpenReach + i, 0, last));
        return five;
    }

    int width_;
    bool opaque_;
    std::size_t padded_;
    std::vector<std::uint16_t> luma_;
    std::vector<std::uint32_t> blurredLuma_, blurredAlpha_;
    std::vector<std::uint16_t> alpha_;
};

/// The rows from `begin` to before `end`.
void sharpenRows(const MutablePixelView& window, int first, int begin, int end, int height,
                 const kernels::SharpenStrength& strength) {
    const int from = std::max(begin - sharpenReach, 0), to = std::min(end + sharpenReach, height);
    SharpenWindow rows(window.width, isOpaque(window.part(0, from - first, window.width, to - from)));
    int taken = from;
    for (int y = begin; y < end; ++y) {
        for (; taken < std::min(y + sharpenReach + 1, height); ++taken)
            rows.take(window.row(taken - first), taken);
        rows.sharpen(window.row(y - first), y, height - 1, strength);
    }
}

} // namespace

void FilterChain::sharpen(double sharpness) { steps_.emplace_back(kernels::SharpenStrength::of(sharpness)); }

void FilterChain::bend(const kernels::ByteCurve& curve) {
    auto* last = steps_.empty() ? nullptr : std::get_if<Recolor>(&steps_.back());
    if (!last || last->cube) {
        steps_.emplace_back(Recolor{curve, nullptr, nullptr});
        return;
    }
    for (std::uint8_t& value : last->curve)
        value = curve[value];
}

void FilterChain::lookUp(std::shared_ptr<const ColorCube> cube) {
    auto tables = std::make_shared<kernels::CubeTables>(cube->tables());
    auto* last = steps_.empty() ? nullptr : std::get_if<Recolor>(&steps_.back());
    if (last && !last->cube) { // a curve before a cube costs nothing: the axes are looked up anyway
        for (std::size_t c = 0; c < 3; ++c) {
            for (std::size_t byte = 0; byte < 256; ++byte)
                tables->axes[c][byte] = cube->tables().axes[c][last->curve[byte]];
        }
        steps_.pop_back();
    }
    steps_.emplace_back(Recolor{{}, std::move(cube), std::move(tables)});
}

bool FilterChain::changesColours() const {
    return std::ranges::any_of(steps_,
                               [](const Step& step) { return std::holds_alternative<Recolor>(step); });
}

int FilterChain::reach() const {
    return sharpenReach * static_cast<int>(std::ranges::count_if(steps_, [](const Step& step) {
               return std::holds_alternative<kernels::SharpenStrength>(step);
           }));
}

void FilterChain::run(MutablePixelView window, int first, int begin, int end, int height) const {
    int reach = this->reach();
    const auto recolored = [&](const Recolor& step, int y) {
        std::uint8_t* row = window.row(y - first);
        const auto convert = [&](PixelLayout from, PixelLayout to) {
            kernels::convertRow(row, from, row, to, window.width);
        };
        const bool opaque = isOpaque(window.part(0, y - first, window.width, 1));
        if (!opaque) convert(PixelLayout::premultipliedLast, PixelLayout::straightLast);
        if (step.cube)
            kernels::cubeRow(row, window.width, *step.tables);
        else
            kernels::curveRow(row, window.width, step.curve);
        if (!opaque) convert(PixelLayout::straightLast, PixelLayout::premultipliedLast);
    };
    for (const Step& step : steps_) {
        const auto* strength = std::get_if<kernels::SharpenStrength>(&step);
        if (strength) reach -= sharpenReach;
        const int from = std::max(begin - reach, 0), to = std::min(end + reach, height);
        if (strength) {
            sharpenRows(window, first, from, to, height, *strength);
            continue;
        }
        for (int y = from; y < to; ++y)
            recolored(std::get<Recolor>(step), y);
    }
}

} // namespace pex
