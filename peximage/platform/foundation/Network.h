#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/URL.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

namespace pex {

/// How patient transfers are and how much they take. In force for the whole process; safe from any thread.
struct PEX_EXPORT NetworkLimits {
    /// How long a server may take to accept a connection.
    double connectSeconds = 15;
    /// How long a transfer may crawl at less than 100 bytes a second, and a server think about its answer.
    int stallSeconds = 30;
    /// How long a transfer may take as a whole, where it is given no time of its own.
    double wholeSeconds = 600;
    /// The most bytes that are read from one address. Default 256 MB.
    std::size_t maxBytes = std::size_t{256} << 20;
    /// The most bytes that all transfers under way may have read; one that needs more than is left fails.
    /// Default 1 GB.
    std::size_t maxBytesTogether = std::size_t{1} << 30;

    /// The limits in force.
    static NetworkLimits current();
    /// Puts others in force for the whole process.
    static void setCurrent(const NetworkLimits& limits);
};

/// What came of a transfer.
struct NetworkReply {
    /// Absent when it failed.
    std::optional<Data> data;
    /// Then why: "the server answered 404". Addresses are not part of it.
    Reason reason;
};

/// Options of one transfer.
struct NetworkOptions {
    /// For the whole transfer, waiting for its turn included; absent: `NetworkLimits::wholeSeconds`.
    std::optional<double> timeOutSeconds = {};
    /// Ends the transfer when it is asked to stop; without one, the `WorkControl` of the calling thread does.
    std::stop_token stop = {};
};

/// Called once with what came of a transfer.
using NetworkReceiver = std::function<void(NetworkReply reply)>;

/// Reads all that is at an address, on the calling thread: http, https (certificates are checked) and file
/// addresses. At most 10 redirects, to http and https only. Only an answer of 2xx counts, and only when it
/// arrives whole.
PEX_EXPORT NetworkReply readAddress(const URL& url, const NetworkOptions& options = {});
/// The same without waiting: any number of transfers go on at the same time, on a thread of their own, which
/// calls the receiver, once, and must not be held up by it. Files are read at once, and so is everything when
/// there is no such thread.
PEX_EXPORT void readAddressInBackground(const URL& url, const NetworkOptions& options,
                                        NetworkReceiver receiver);

/// A file for a server.
struct NetworkFile {
    /// Its content.
    Data data;
    /// The file name that the server is told.
    std::string name;
    /// Such as "image/jpeg".
    std::string mimeType;
};

/// Posts the file as a form (multipart/form-data) whose one field is named "file", as the above reads. The
/// reply has (empty) data when the server answered with 2xx. Redirects are not followed.
PEX_EXPORT void postFileInBackground(const URL& to, NetworkFile file, NetworkReceiver receiver);

} // namespace pex
