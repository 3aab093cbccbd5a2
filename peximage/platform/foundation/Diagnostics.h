#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <string_view>

/// The one way by which the library says something in passing: short lines such as "quality: 0.5".
namespace pex::diagnostics {

/// Prints one line, without its line end, to the sink. Safe from any thread; lines do not mix.
PEX_EXPORT void print(std::string_view line);

/// False when lines are dropped: who prints often asks first and spares itself the making of the line.
PEX_EXPORT bool enabled();

/// Where lines go from now on; an empty callable drops them. The sink is called under a lock: it must not
/// print itself. Until one is set, lines go to standard output.
PEX_EXPORT void setSink(std::function<void(std::string_view line)> sink);

/// Lines go to standard output again.
PEX_EXPORT void resetSink();

} // namespace pex::diagnostics
