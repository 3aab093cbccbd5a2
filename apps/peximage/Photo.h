#pragma once

#include "peximage/metadata/PexExif.h"
#include "peximage/platform/codecs/ImageProperties.h"
#include "peximage/platform/geometry/CGSize.h"

/// Where a photo was taken, in degrees: south and west are negative, as the photo's references say. The
/// library tells the numbers alone.
pex::PexExif::BasicData::Coordinates signedPlace(const pex::PropertyDictionary& properties);

/// As the picture is shown, orientation applied.
pex::CGSize uprightSize(const pex::ImageProperties& properties);
