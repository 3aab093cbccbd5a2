#include "Photo.h"

namespace {

std::optional<double> coordinate(const pex::PropertyDictionary& gps, std::string_view key, char negative) {
    const std::optional<double> degrees = gps.number(key);
    const std::string* const reference = gps.text(std::string(key) + "Ref");
    const bool isNegative = reference && !reference->empty() && ((*reference)[0] & ~0x20) == negative;
    return degrees && isNegative ? std::optional(-*degrees) : degrees;
}

} // namespace

pex::PexExif::BasicData::Coordinates signedPlace(const pex::PropertyDictionary& properties) {
    const pex::PropertyDictionary& gps = properties.dictionary(pex::kCGImagePropertyGPSDictionary);
    return {coordinate(gps, pex::kCGImagePropertyGPSLatitude, 'S'),
            coordinate(gps, pex::kCGImagePropertyGPSLongitude, 'W')};
}

pex::CGSize uprightSize(const pex::ImageProperties& properties) {
    const double width = properties.pixelWidth, height = properties.pixelHeight;
    return pex::swapsSides(properties.orientation) ? pex::CGSize{height, width} : pex::CGSize{width, height};
}
