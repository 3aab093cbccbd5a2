#include "peximage/platform/codecs/ExifBlock.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const pex::ExifBlock block({bytes, count});
    block.orientation();
    block.resolution();
    block.properties();
    return 0;
}
