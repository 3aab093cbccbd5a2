// No include guard: `foreach_target.h` below includes the kernel file once for every instruction set.
//
// How a kernel source file is compiled once per instruction set and picked at run time. `kernels/X.cpp` has
// this shape:
//
//   #undef HWY_TARGET_INCLUDE
//   #define HWY_TARGET_INCLUDE "peximage/platform/raster/kernels/X.cpp"
//   #include "peximage/platform/raster/kernels/Dispatch.h"
//
//   #if PEX_HAS_VECTORS
//   HWY_BEFORE_NAMESPACE();
//   namespace pex::kernels::HWY_NAMESPACE {
//   void xRow(…) { … }                       // written with Highway
//   } // namespace pex::kernels::HWY_NAMESPACE
//   HWY_AFTER_NAMESPACE();
//   #endif
//
//   #if HWY_ONCE
//   namespace pex::kernels {
//   namespace { void xRowPlain(…) { … } }    // the plain twin that the tests compare with
//   void xRow(…) { PEX_PICK_KERNEL(xRow, xRowPlain)(…); }
//   } // namespace pex::kernels
//   #endif
//
// Highway's own dispatch is not used: it needs its shared object, which takes longer to start than all other
// libraries together.

#ifndef HWY_DISABLED_TARGETS
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3_DL | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#endif

// Its assertions in builds with sanitizers call into that shared object, too.
#ifndef HWY_IS_DEBUG_BUILD
#define HWY_IS_DEBUG_BUILD 0
#endif

#include "peximage/platform/raster/kernels/InstructionSet.h"

#include <hwy/foreach_target.h> // has to come before highway.h
#include <hwy/highway.h>

#include <type_traits>

#ifndef PEX_PICK_KERNEL
/// False where Highway imitates vectors in plain code: the plain twin serves better there.
#define PEX_HAS_VECTORS (HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128)

#define PEX_PICK_KERNEL(KERNEL, PLAIN)                                                                       \
    ::pex::kernels::pick(&PLAIN, HWY_CHOOSE_SSE4(KERNEL), HWY_CHOOSE_AVX2(KERNEL), HWY_CHOOSE_AVX3(KERNEL),  \
                         HWY_CHOOSE_NEON(KERNEL))

namespace pex::kernels {

template <class Function>
Function* pick(Function* plain, std::type_identity_t<Function>* sse4, std::type_identity_t<Function>* avx2,
               std::type_identity_t<Function>* avx512, std::type_identity_t<Function>* neon) {
    switch (instructionSet()) {
    case InstructionSet::sse4:
        return sse4 ? sse4 : plain;
    case InstructionSet::avx2:
        return avx2 ? avx2 : plain;
    case InstructionSet::avx512:
    case InstructionSet::avx512Vnni:
        return avx512 ? avx512 : plain;
    case InstructionSet::neon:
        return neon ? neon : plain;
    case InstructionSet::scalar:
        break;
    }
    return plain;
}

} // namespace pex::kernels
#endif
