#pragma once

#include "peximage/platform/raster/kernels/InstructionSet.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace pex::kernels {

/// Runs `check` once on each instruction set of this machine, plain code included, and restores the choice.
template <class Check>
void onEveryInstructionSet(Check check) {
    const InstructionSet before = instructionSet();
    for (const InstructionSet set : availableInstructionSets()) {
        SCOPED_TRACE("instruction set " + std::to_string(static_cast<int>(set)));
        setInstructionSet(set);
        check();
    }
    setInstructionSet(before);
}

using Bytes = std::vector<std::uint8_t>;

inline Bytes randomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(random() >> 8);
    return bytes;
}

} // namespace pex::kernels
