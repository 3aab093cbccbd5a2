#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace pex {

/// A 3 × 3 convolution. A plain value.
class PexConvolution {
  public:
    /// Row by row from the top; the first nine weights count. Sums of products are divided by 3.
    std::vector<std::int16_t> kernel;
    /// The four bytes, R G B A, of the pixels beyond the image's edges.
    std::vector<std::uint8_t> bgColor{0, 0, 0, 0};

    PexConvolution() = default;
    /// The nine weights, row by row from the top.
    explicit PexConvolution(std::vector<std::int16_t> weights) : kernel(std::move(weights)) {}
    /// The kernel's rows, from the top.
    PexConvolution(const std::vector<std::int16_t>& top, const std::vector<std::int16_t>& middle,
                   const std::vector<std::int16_t>& bottom) {
        for (const auto* row : {&top, &middle, &bottom})
            kernel.insert(kernel.end(), row->begin(), row->end());
    }
};

} // namespace pex
