#include "peximage/platform/raster/kernels/JpegQuantize.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/JpegQuantize.cpp"
#include "peximage/platform/raster/kernels/Dispatch.h"

#include <bit>

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

void quantizeBlocks(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                    std::int16_t* levels, std::uint64_t* nonzero) {
    const hn::ScalableTag<std::int16_t> d;
    const hn::ScalableTag<std::uint16_t> du;
    const std::size_t step = hn::Lanes(d);
    for (int b = 0; b < blocks; ++b, coefficients += 64, levels += 64) {
        auto* bits = reinterpret_cast<std::uint8_t*>(nonzero + b);
        for (std::size_t k = 0; k < 64; k += step) {
            const auto c = hn::LoadU(d, coefficients + k);
            const auto sign = hn::BroadcastSignBit(c);
            const auto magnitude = hn::BitCast(du, hn::Abs(c)) + hn::Load(du, quantizer.half + k);
            const auto product = hn::MulHigh(magnitude, hn::Load(du, quantizer.reciprocal + k));
            const auto level = hn::BitCast(d, hn::MulHigh(product, hn::Load(du, quantizer.scale + k)));
            hn::StoreU(hn::Xor(level, sign) - sign, d, levels + k);
            hn::StoreMaskBits(d, hn::Ne(level, hn::Zero(d)), bits + k / 8);
        }
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void quantizeBlocksPlain(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                         std::int16_t* levels, std::uint64_t* nonzero) {
    for (int b = 0; b < blocks; ++b) {
        nonzero[b] = 0;
        for (int k = 0; k < 64; ++k) {
            const int level = quantizer.quantize(*coefficients++, k);
            *levels++ = static_cast<std::int16_t>(level);
            if (level != 0) nonzero[b] |= std::uint64_t{1} << k;
        }
    }
}

} // namespace

// With a divisor d of `bits` bits, 2^(15 + bits) / d lies above 2^15 and, rounded up, is off by less than d /
// 2^(15 + bits) of the quotient: too little to matter for a numerator of 15 bits. A power of two would need
// 2^16, but its reciprocal is exact with one bit less.
Quantizer::Quantizer(const std::array<std::uint8_t, 64>& table) {
    for (std::size_t k = 0; k < 64; ++k) {
        const auto divisor = static_cast<std::uint32_t>(8 * table[k]);
        const int bits = static_cast<int>(std::bit_width(divisor)) - (std::has_single_bit(divisor) ? 1 : 0);
        half[k] = static_cast<std::uint16_t>(divisor / 2);
        reciprocal[k] = static_cast<std::uint16_t>(((1u << (15 + bits)) + divisor - 1) / divisor);
        scale[k] = static_cast<std::uint16_t>(1u << (17 - bits));
    }
}

void quantizeBlocks(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                    std::int16_t* levels, std::uint64_t* nonzero) {
    PEX_PICK_KERNEL(quantizeBlocks, quantizeBlocksPlain)(coefficients, blocks, quantizer, levels, nonzero);
}

} // namespace pex::kernels
#endif
