#pragma once

#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/URL.h"

namespace pex {

/// The file that a saver's arguments name; null, with the reason, when they name none.
template <class Arguments>
const URL* destinationOf(const Arguments& how) {
    for (const auto* named : {&how.to, &how.toUrl, &how.url}) {
        if (*named) return &**named;
    }
    giveReason(ReasonCode::badArgument, "no destination is named");
    return nullptr;
}

} // namespace pex
