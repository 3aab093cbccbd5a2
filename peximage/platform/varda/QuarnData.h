#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/Task.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace pex {

/// A remote store of bytes by identifier. How the application's server is asked is the application's own: it
/// hands over a function that does. A plain value. Safe from any thread, if the function is.
class PEX_EXPORT QuarnData {
  public:
    /// Options of `getData`.
    struct WithId {
        /// The identifier of the bytes.
        std::string withId;
    };
    /// What was found.
    struct Result {
        /// The bytes.
        Data data;
    };
    /// May take its time; gives the bytes of the identifier, or nothing.
    using Source = std::function<std::optional<Data>(const std::string& id)>;

    /// Asks that function, which must not be empty.
    explicit QuarnData(Source source) : source_(std::move(source)) {}

    /// Asks the source on a background thread, where the awaiting coroutine goes on, too. Absent when it has
    /// nothing for the identifier.
    Task<std::optional<Result>> getData(WithId item) const;

  private:
    Source source_;
};

} // namespace pex
