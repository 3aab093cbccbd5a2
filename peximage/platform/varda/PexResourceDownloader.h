#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/URL.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace pex {

/// Fetches what is at addresses in the background, and keeps copies on disk for all downloaders of the user,
/// in the folder "PexResourceDownloader" of the caches folder. A copy that is damaged counts as missing. Any
/// number of transfers go on at the same time. Shared by reference, by `make`. Safe from any thread.
class PEX_EXPORT PexResourceDownloader {
  public:
    /// In seconds, for a whole transfer.
    static constexpr double defaultTimeOut = 60;
    /// Copies older than this are fetched anew.
    static constexpr int freshDays = 7;
    /// What the copies may take together; beyond it the oldest ones go.
    static constexpr std::size_t maxDiskBytes = std::size_t{512} << 20;

    /// A new downloader. Never null.
    static std::shared_ptr<PexResourceDownloader> make() { return std::make_shared<PexResourceDownloader>(); }
    virtual ~PexResourceDownloader() = default;

    /// What `asyncDownload` fetches.
    struct Request {
        /// An http, https or file address.
        URL url;
        /// In seconds, for the whole transfer; absent: `defaultTimeOut`.
        std::optional<double> timeOut = {};
        /// Whether a copy on disk may stand in, and is kept of what was fetched.
        bool useDiskCache = true;
        /// Called once, later, on a background thread, with the bytes at the address: at most
        /// `NetworkLimits::maxBytes`; none when it failed, and then `lastReason()` there tells why.
        std::function<void(const Data& bytes)> completion;
        /// Ends the transfer, soon, when it is asked to stop.
        std::stop_token stop = {};
    };
    /// Fetches in the background and returns at once.
    virtual void asyncDownload(Request request);

    /// Drops the copy of what is at an address: one that turned out to be useless.
    virtual void forget(const URL& url);
};

} // namespace pex
