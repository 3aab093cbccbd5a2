#pragma once

#include "peximage/platform/Export.h"

namespace pex {

/// On how many threads one call of the library works at most, the caller's among them: as many as the process
/// may use processors, unless the variable PEXIMAGE_THREADS or the application names a smaller number.
/// Results do not depend on it. Any thread.
PEX_EXPORT int threadCount();

/// From the next call on; 0, or more than there are processors, is one a processor. 1 suits processes that
/// share a machine.
PEX_EXPORT void setThreadCount(int count);

} // namespace pex
