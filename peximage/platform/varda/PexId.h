#pragma once

#include "peximage/platform/Export.h"

#include <optional>
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

    /// The MD5 digest of a text's bytes as 32 lower-case hexadecimal digits: a name for the text, not a
    /// protection. Absent in a build without digests. Safe from any thread.
    static std::optional<std::string> md5(std::string_view text);
};

} // namespace pex
