#include "peximage/metadata/PexExif.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Diagnostics.h"

namespace pex {

PropertyDictionary PexExif::exifDict(const URL& of) {
    const auto source = CGImageSource::make(of);
    if (source) return source->copyProperties();
    diagnostics::print("Failed to create image source");
    return {};
}

PexExif::BasicData PexExif::basicData(const URL& of) { return basicData(exifDict(of)); }

PexExif::BasicData PexExif::basicData(const PropertyDictionary& properties) {
    const PropertyDictionary& exif = properties.dictionary(kCGImagePropertyExifDictionary);
    const PropertyDictionary& gps = properties.dictionary(kCGImagePropertyGPSDictionary);
    BasicData data;
    if (const std::string* date = exif.text(kCGImagePropertyExifDateTimeOriginal))
        data.shotDate = convertEXIFDateTimeToDate(*date);
    data.coordinates = {gps.number(kCGImagePropertyGPSLatitude), gps.number(kCGImagePropertyGPSLongitude)};
    return data;
}

std::optional<Moment> PexExif::convertEXIFDateTimeToDate(std::string_view dateTimeOriginal) {
    const auto date = momentFromExifText(dateTimeOriginal);
    if (!date) diagnostics::print("Failed to convert EXIF DateTime to Date");
    return date;
}

} // namespace pex
