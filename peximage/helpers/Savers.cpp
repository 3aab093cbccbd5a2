#include "peximage/helpers/PexDicotomic.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/JpegWriter.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/varda/FileUtilities.h"

#include <algorithm>
#include <map>

namespace pex {
namespace {

/// The search aims a little below the budget, so that what it finds fits as a rule.
constexpr double budgetShare = 0.975;
constexpr double shrinkFactor = 0.9;

/// Makes the folder and clears the place.
void prepareDestination(const URL& url) {
    fu_createFolder(url.deletingLastPathComponent());
    if (fu_fileExists(url)) fu_deleteFile(url);
}

/// Writes the density into the JFIF segment that begins the file: its unit (1: dots per inch) at byte 13, then
/// both densities with their high bytes first. Bytes that begin otherwise are left alone.
void stampDpi(std::vector<std::uint8_t>& jpeg, int dpi) {
    static constexpr std::uint8_t jfifStart[] = {0xFF, 0xD8, 0xFF, 0xE0};
    constexpr std::size_t unit = 13, segmentEnd = 20, identifier = 6;
    if (jpeg.size() < segmentEnd || !std::equal(std::begin(jfifStart), std::end(jfifStart), jpeg.begin())) return;
    if (std::string_view(reinterpret_cast<const char*>(&jpeg[identifier]), 5) != std::string_view("JFIF\0", 5)) return;
    jpeg[unit] = 1;
    for (const std::size_t density : {unit + 1, unit + 3}) {
        jpeg[density] = static_cast<std::uint8_t>(dpi >> 8);
        jpeg[density + 1] = static_cast<std::uint8_t>(dpi);
    }
}

bool saveEncoded(JpegEncoder* encoder, double quality, std::optional<int> dpi, const URL& url) {
    diagnostics::print("saveToJpeg (quality: " + decimalText(quality) + ")");
    prepareDestination(url);
    std::vector<std::uint8_t> bytes = encoder ? encoder->encode(quality) : std::vector<std::uint8_t>();
    if (bytes.empty()) return false;
    if (dpi) stampDpi(bytes, *dpi);
    return Data(std::move(bytes)).write(url, Data::Writing::atomically);
}

std::shared_ptr<JpegEncoder> encoderFor(const PexImage& image) {
    const auto rep = image.bitmapRep();
    return rep ? makeJpegEncoder(rep->cgImage()) : nullptr;
}
