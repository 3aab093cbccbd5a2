// Ends the program at its start when package, headers and library are not of one version.
#include <cstdlib>
#include <peximage/platform/foundation/Version.h>
#include <string>

static_assert(PEX_VERSION < PEX_VERSION_OF(PEX_VERSION_MAJOR, PEX_VERSION_MINOR, PEX_VERSION_PATCH + 1));

[[maybe_unused]] static const bool isOfOneVersion = [] {
    const std::string package = PACKAGE_VERSION;
    if (package != PEX_VERSION_STRING || package != pex::versionString()) std::abort();
    if (PEX_VERSION != pex::version()) std::abort();
    return true;
}();
