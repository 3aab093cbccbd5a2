// Once for every instruction set: see Dispatch.h, which has to come first.
#if defined(PEX_PAIR_PRODUCTS_H) == defined(HWY_TARGET_TOGGLE)
#ifdef PEX_PAIR_PRODUCTS_H
#undef PEX_PAIR_PRODUCTS_H
#else
#define PEX_PAIR_PRODUCTS_H
#endif

#include <cstdint>

#if PEX_HAS_VECTORS
HWY_BEFORE_NAMESPACE();
namespace pex::kernels::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using D16 = hn::ScalableTag<std::int16_t>;
using V16 = hn::Vec<D16>;
using V32 = hn::Vec<hn::Repartition<std::int32_t, D16>>;

/// Lanes first, second, first, second …
HWY_INLINE V16 pairOf(std::int16_t first, std::int16_t second) {
    const auto both = (static_cast<std::uint32_t>(static_cast<std::uint16_t>(second)) << 16) |
                      static_cast<std::uint16_t>(first);
    return hn::BitCast(D16(), hn::Set(hn::Repartition<std::uint32_t, D16>(), both));
}

/// Lanes low half, high half, low half …
HWY_INLINE V16 pairOf(std::int32_t halves) {
    return hn::BitCast(D16(), hn::Set(hn::Repartition<std::int32_t, D16>(), halves));
}

/// For each pair of neighbouring lanes a[0] b[0] + a[1] b[1].
HWY_INLINE V32 pairProducts(V16 a, V16 b) {
    const hn::Repartition<std::int32_t, D16> d32;
    V32 other = hn::Zero(d32);
    const V32 one = hn::ReorderWidenMulAccumulate(d32, a, b, hn::Zero(d32), other);
    return hn::RearrangeToOddPlusEven(one, other);
}

/// sum + pairProducts(a, b), in two steps everywhere.
struct TwoSteps {
    static HWY_INLINE V32 addProducts(V32 sum, V16 a, V16 b) { return hn::Add(sum, pairProducts(a, b)); }
};

#if HWY_TARGET == HWY_AVX3
/// The same by an instruction that processors with AVX-512 may have and compilers do not count to it. For
/// InstructionSet::avx512Vnni only.
struct OneStep {
    static HWY_INLINE V32 addProducts(V32 sum, V16 a, V16 b) {
        asm("vpdpwssd %2, %1, %0" : "+v"(sum.raw) : "v"(a.raw), "v"(b.raw));
        return sum;
    }
};
#endif

/// Calls `work` with the better way that the chosen instruction set has.
template <class Work>
HWY_INLINE void withProducts(const Work& work) {
#if HWY_TARGET == HWY_AVX3
    if (instructionSet() == InstructionSet::avx512Vnni) return work(OneStep());
#endif
    work(TwoSteps());
}

} // namespace pex::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
#endif
