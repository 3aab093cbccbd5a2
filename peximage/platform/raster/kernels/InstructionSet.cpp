#include "peximage/platform/raster/kernels/InstructionSet.h"

#include <atomic>

namespace pex::kernels {
namespace {

InstructionSet best() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx2"))
        return __builtin_cpu_supports("avx512vnni") ? InstructionSet::avx512Vnni : InstructionSet::avx512;
    // Highway's AVX2 target also uses FMA, F16C and both BMI sets.
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi") &&
        __builtin_cpu_supports("bmi2"))
        return InstructionSet::avx2;
    if (__builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("sse4.2")) return InstructionSet::sse4;
    return InstructionSet::scalar;
#elif defined(__aarch64__)
    return InstructionSet::neon;
#else
    return InstructionSet::scalar;
#endif
}

std::atomic<InstructionSet>& chosen() {
    static std::atomic<InstructionSet> set{best()};
    return set;
}

} // namespace

std::vector<InstructionSet> availableInstructionSets() {
    std::vector<InstructionSet> sets{InstructionSet::scalar};
    const InstructionSet top = best();
    if (top == InstructionSet::neon) return {InstructionSet::scalar, top};
    for (const auto set :
         {InstructionSet::sse4, InstructionSet::avx2, InstructionSet::avx512, InstructionSet::avx512Vnni}) {
        if (set <= top) sets.push_back(set);
    }
    return sets;
}

InstructionSet instructionSet() { return chosen().load(std::memory_order_relaxed); }

void setInstructionSet(InstructionSet set) { chosen().store(set, std::memory_order_relaxed); }

} // namespace pex::kernels
