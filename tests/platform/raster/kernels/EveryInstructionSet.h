#pragma once

#include "peximage/platform/raster/kernels/InstructionSet.h"

#include <gtest/gtest.h>

#include <string>

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

} // namespace pex::kernels
