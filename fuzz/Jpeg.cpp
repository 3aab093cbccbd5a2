#include "fuzz/Decode.h"
#include "peximage/platform/codecs/LosslessJpeg.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    pex::changedWithoutLoss(pex::Data(std::vector<std::uint8_t>(bytes, bytes + count)),
                            {.turn = pex::Orientation::right});
    return decodeAll(pex::jpegCodec, bytes, count);
}
