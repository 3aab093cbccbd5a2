#pragma once

#include <cstddef>
#include <cstdint>

namespace pex {

/// What the module "net" offers: transfers over http and https, certificates checked, redirects followed to
/// addresses of the same two kinds only. Any thread.
struct NetModule {
    static constexpr int version = 1;
    static constexpr const char* name = "net";

    /// In seconds; 0 stands for no bound.
    struct Patience {
        double connecting;
        /// How long a transfer may crawl at less than `crawlBytesPerSecond`.
        int stalled;
        double whole;
    };
    static constexpr long crawlBytesPerSecond = 100;

    /// Takes bytes as they arrive; false ends the transfer.
    struct Receiver {
        void* context;
        bool (*take)(void* context, const std::uint8_t* bytes, std::size_t size);
    };
    struct File {
        const std::uint8_t* bytes;
        std::size_t size;
        const char* name;
        const char* mimeType;
    };
    /// Why there is no success, in words; empty when there is.
    struct Problem {
        char text[256];
    };

    /// Reads what is at an address, at most 10 redirects away, unpacked where the server packed it. True when
    /// the server answered with 2xx and everything it announced arrived.
    bool (*get)(const char* address, const Patience* patience, const Receiver* receiver, Problem* problem);
    /// Posts a file as a form (multipart/form-data) with the one field "file"; redirects are not followed.
    /// True when the server answered with 2xx.
    bool (*post)(const char* address, const Patience* patience, const File* file, Problem* problem);
};

} // namespace pex
