#pragma once

// Everything in the namespace PexImageHelper, by group.
#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexImageHelperExifDates.h"
#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/helpers/PexImageHelperSavers.h"
