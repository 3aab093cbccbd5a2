#pragma once

#include <cstddef>
#include <cstdint>

namespace pex {

/// What the module "net" offers: transfers over http and https, certificates checked, redirects followed to
/// addresses of the same two kinds only. Any thread; none of what it calls may throw.
struct NetModule {
    static constexpr int version = 2;
    static constexpr const char* name = "net";

    static constexpr long crawlBytesPerSecond = 100;
    static constexpr long mostRedirects = 10;
    /// How many transfers of `begin` go on at the same time; the others wait for their turn.
    static constexpr long mostAtOnce = 100, mostAtOnceOfOneServer = 8;

    struct File {
        const std::uint8_t* bytes;
        std::size_t size;
        const char* name;
        const char* mimeType;
    };

    /// In seconds, more than 0.
    struct Patience {
        double connecting;
        /// How long a transfer may crawl at less than `crawlBytesPerSecond`.
        int stalled;
        double whole;
    };

    enum class Ending { success, failed, timedOut, cancelled };
    struct Outcome {
        Ending ending;
        /// Why there is no success, in words, without the address.
        char text[256];
    };

    /// Reads what is at an address, at most `mostRedirects` away, unpacked where the server packed it: a
    /// success when the server answers with 2xx and everything it announces arrives. Or posts a file as a
    /// form (multipart/form-data) with the one field "file", without redirects: a success when the server
    /// answers with 2xx.
    struct Transfer {
        const char* address;
        Patience patience;
        const File* posted; // null: the address is read
        void* context;
        /// Takes bytes as they arrive; false ends the transfer.
        bool (*take)(void* context, const std::uint8_t* bytes, std::size_t size);
        bool (*isCancelled)(void* context);
        /// Called once for a transfer that began; the transfer is not used any more.
        void (*ended)(void* context, const Outcome* outcome);
    };

    /// Performs the transfer on this thread; `ended` is not called.
    Outcome (*perform)(const Transfer* transfer);
    /// Begins it on the module's own thread, which does all the calling: nothing there may take long. The
    /// transfer, and all it points to, must stay until it has ended. False when there is no such thread.
    bool (*begin)(const Transfer* transfer);
    /// Lets the module's thread check soon which transfers are cancelled.
    void (*lookForCancelled)();
};

} // namespace pex
