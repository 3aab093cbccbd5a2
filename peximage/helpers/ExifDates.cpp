#include "peximage/helpers/PexImageHelperExifDates.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Diagnostics.h"

namespace pex {

std::optional<PropertyDictionary> PexImageHelper::getExifData(const URL& of) {
    const auto source = CGImageSource::make(of);
    if (source) return source->copyProperties();
    diagnostics::print("Error creating image source");
    return std::nullopt;
}

std::optional<Moment> PexImageHelper::getShotDateFromExif(const PropertyDictionary& exifData) {
    const PropertyDictionary& exif = exifData.dictionary(kCGImagePropertyExifDictionary);
    const std::string* date = exif.text(kCGImagePropertyExifDateTimeOriginal);
    return date ? momentFromExifText(*date) : std::nullopt;
}

std::optional<Moment> PexImageHelper::exifShotDate(const URL& of) {
    const auto properties = getExifData(of);
    return properties ? getShotDateFromExif(*properties) : std::nullopt;
}

} // namespace pex
