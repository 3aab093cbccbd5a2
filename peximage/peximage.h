#pragma once

// The whole public library. Programs that use a part of it may include that part's header alone.
#include "peximage/helpers/PexDicotomic.h"
#include "peximage/helpers/PexImageHelper.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/PerfAn.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/PexPrecalc.h"
