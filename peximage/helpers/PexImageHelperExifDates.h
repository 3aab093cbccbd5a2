#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/PropertyDictionary.h"
#include "peximage/platform/foundation/LocalTime.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>

namespace pex::PexImageHelper {

/// All properties of the file's first image. Absent, and a line is printed, when the file cannot be read as
/// an image. Only its header is read. Safe from any thread.
PEX_EXPORT std::optional<PropertyDictionary> getExifData(const URL& of);

/// The original date and time of the EXIF sub-dictionary, in the machine's time zone; absent when it is
/// missing or no date.
PEX_EXPORT std::optional<Moment> getShotDateFromExif(const PropertyDictionary& exifData);

/// The two together.
PEX_EXPORT std::optional<Moment> exifShotDate(const URL& of);

} // namespace pex::PexImageHelper
