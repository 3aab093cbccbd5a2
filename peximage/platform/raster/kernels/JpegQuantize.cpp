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
                    std::int16_t* levels, LevelMasks* masks) {
    const hn::ScalableTag<std::int16_t> d;
    const hn::ScalableTag<std::uint16_t> du;
    const std::size_t step = hn::Lanes(d);
    for (int b = 0; b < blocks; ++b, coefficients += 64, levels += 64) {
        auto* nonzero = reinterpret_cast<std::uint8_t*>(&masks[b].nonzero);
        auto* weak = reinterpret_cast<std::uint8_t*>(&masks[b].weak);
        for (std::size_t k = 0; k < 64; k += step) {
            const auto c = hn::LoadU(d, coefficients + k);
            const auto sign = hn::BroadcastSignBit(c);
            const auto magnitude = hn::Abs(c);
            const auto numerator = hn::BitCast(du, magnitude) + hn::Load(du, quantizer.add + k);
            const auto product = hn::MulHigh(numerator, hn::Load(du, quantizer.reciprocal + k));
            const auto quotient = hn::BitCast(d, hn::MulHigh(product, hn::Load(du, quantizer.scale + k)));
            const auto tooSmall = hn::Lt(magnitude, hn::Load(d, quantizer.first + k));
            const auto level = hn::IfThenZeroElse(tooSmall, quotient);
            hn::StoreU(hn::Xor(level, sign) - sign, d, levels + k);
            hn::StoreMaskBits(d, hn::Ne(level, hn::Zero(d)), nonzero + k / 8);
            hn::StoreMaskBits(d, hn::Lt(magnitude, hn::Load(d, quantizer.weak + k)), weak + k / 8);
        }
        masks[b].weak &= masks[b].nonzero;
    }
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#if HWY_ONCE
namespace pex::kernels {
namespace {

void quantizeBlocksPlain(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                         std::int16_t* levels, LevelMasks* masks) {
    for (int b = 0; b < blocks; ++b) {
        masks[b] = {};
        for (int k = 0; k < 64; ++k) {
            const int c = *coefficients++, level = quantizer.quantize(c, k);
            *levels++ = static_cast<std::int16_t>(level);
            if (level == 0) continue;
            masks[b].nonzero |= std::uint64_t{1} << k;
            if ((c < 0 ? -c : c) < quantizer.weak[k]) masks[b].weak |= std::uint64_t{1} << k;
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
        add[k] = static_cast<std::uint16_t>(divisor / 2);
        first[k] = weak[k] = 0;
        reciprocal[k] = static_cast<std::uint16_t>(((1u << (15 + bits)) + divisor - 1) / divisor);
        scale[k] = static_cast<std::uint16_t>(1u << (17 - bits));
    }
}

void quantizeBlocks(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                    std::int16_t* levels, LevelMasks* masks) {
    PEX_PICK_KERNEL(quantizeBlocks, quantizeBlocksPlain)(coefficients, blocks, quantizer, levels, masks);
}

} // namespace pex::kernels
#endif
