#include "peximage/platform/foundation/DigestModule.h"

#include "peximage/platform/foundation/Module.h"

#include <openssl/evp.h>

namespace {

bool md5(const std::uint8_t* bytes, std::size_t size, std::uint8_t digest[16]) {
    return EVP_Digest(bytes, size, digest, nullptr, EVP_md5(), nullptr) == 1;
}

constexpr pex::DigestModule functions{md5};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{pex::DigestModule::version, &functions};
