#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>
#include <string>

namespace pex {

/// Talks to the application's server. Any thread.
class PEX_EXPORT PexNet {
  public:
    /// What `upload` sends.
    struct Upload {
        /// The address that the form is posted to.
        URL to;
        /// The file's content.
        Data data;
        /// The file name that the server is told.
        std::string withFileName;
        /// Such as "image/jpeg".
        std::string mimetype;
    };
    /// Posts the bytes as a file (multipart/form-data, field "file"); the transfer runs in the background,
    /// where the awaiting coroutine goes on, too. True when the server answered with 2xx.
    static Task<bool> upload(Upload what);

    /// The application's server, such as "https://server.example/"; absent at first. False, and nothing
    /// changes, for an address that is not https; http is taken for this machine itself (localhost).
    static bool setServer(std::optional<URL> server);
    /// The server that was set; absent: none.
    static std::optional<URL> server();
};

} // namespace pex
