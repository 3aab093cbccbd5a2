#include "peximage/platform/foundation/Version.h"

namespace pex {

int version() { return PEX_VERSION; }

const char* versionString() { return PEX_VERSION_STRING; }

} // namespace pex
