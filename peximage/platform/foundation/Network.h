#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/URL.h"

#include <cstddef>
#include <optional>
#include <string>

namespace pex {

/// How patient transfers are and how much they take. In force for the whole process; safe from any thread.
struct PEX_EXPORT NetworkLimits {
    /// How long a server may take to accept a connection.
    double connectSeconds = 15;
    /// How long a transfer may crawl at less than 100 bytes a second, and a server think about its answer.
    int stallSeconds = 30;
    /// The most bytes that are read from one address. Default 256 MB.
    std::size_t maxBytes = std::size_t{256} << 20;

    static NetworkLimits current();
    static void setCurrent(const NetworkLimits& limits);
};

/// What came of a transfer.
struct NetworkReply {
    /// Absent when it failed.
    std::optional<Data> data;
    /// Then why, in words for people: "the server answered 404".
    std::string problem;
};

/// Reads all that is at an address, on the calling thread: http, https (certificates are checked) and file
/// addresses. At most 10 redirects, to http and https only. Only an answer of 2xx counts, and only when it
/// arrives whole. A transfer may take `timeOutSeconds` at most; absent: as long as it moves.
PEX_EXPORT NetworkReply readAddress(const URL& url, std::optional<double> timeOutSeconds = {});

/// A file for a server.
struct NetworkFile {
    Data data;
    std::string name;
    std::string mimeType;
};

/// Posts the file as a form (multipart/form-data) whose one field is named "file", on the calling thread.
/// Empty when the server answered with 2xx, else why it did not work. Redirects are not followed.
PEX_EXPORT std::string postFile(const URL& to, const NetworkFile& file);

} // namespace pex
