#pragma once

#include <vector>

namespace pex::kernels {

/// The instruction sets that kernels are compiled for, plainest first. `scalar` is the plain twin of a
/// kernel, written without vectors. `avx512Vnni` is AVX-512 with its instructions for sums of products.
enum class InstructionSet { scalar, sse4, avx2, avx512, avx512Vnni, neon };

/// Those that this processor can run, plainest first; always begins with `scalar`.
std::vector<InstructionSet> availableInstructionSets();

/// What kernels run on: the best available one, or the one that a test has chosen.
InstructionSet instructionSet();

/// Makes all kernels of the process use the given set (it must be available). For tests: not to be called
/// while kernels run.
void setInstructionSet(InstructionSet set);

} // namespace pex::kernels
