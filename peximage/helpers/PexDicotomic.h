#pragma once

// For who includes it by the name of its group.
#include "peximage/budget/PexDicotomic.h"
