#include "peximage/canvas/PexCanvas.h"
#include "peximage/composer/PexComposer.h"
#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexColor255.h"
#include "peximage/platform/foundation/KeyedDocument.h"

#include <cstdlib>
#include <string_view>

namespace {

/// What can be read can be written, and is then read as the same.
template <class Document>
void thereAndBack(std::string_view text) {
    const auto read = pex::decode<Document>(text);
    if (!read) return;
    const std::string written = pex::encode(*read);
    const auto again = pex::decode<Document>(written);
    if (!again || pex::encode(*again) != written) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), count);
    thereAndBack<pex::PexCanvas>(text);
    thereAndBack<pex::PexComposer>(text);
    thereAndBack<pex::PexWatermark>(text);
    thereAndBack<pex::PexColor255>(text);
    thereAndBack<pex::PexImage::KeyColor>(text);
    thereAndBack<pex::PexImageHelper::PexColorList>(text);
    return 0;
}
