#pragma once

#include "peximage/platform/Export.h"

#include <string>
#include <string_view>

namespace pex {

/// Identifiers of images, layers, documents and guides.
class PEX_EXPORT PexId {
  public:
    /// A new text, different from every other one that this or any other process makes: the prefix and the
    /// tag as given, the time in milliseconds, a random number, and with `useCounter` the running number of
    /// the identifier in this process, joined by hyphens. Letters beyond the prefix and tag are hexadecimal
    /// digits. Safe from any thread.
    static std::string newId(std::string_view prefix, std::string_view tag, bool useCounter);
};

} // namespace pex
