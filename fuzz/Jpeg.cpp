#include "fuzz/Decode.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    return decodeAll(pex::jpegCodec, bytes, count);
}
