#pragma once

#include <cstddef>
#include <cstdint>

namespace pex {

/// What the module "digest" offers. Any thread.
struct DigestModule {
    static constexpr int version = 1;
    static constexpr const char* name = "digest";

    /// The MD5 digest of some bytes. False when the system's policy forbids it.
    bool (*md5)(const std::uint8_t* bytes, std::size_t size, std::uint8_t digest[16]);
};

} // namespace pex
