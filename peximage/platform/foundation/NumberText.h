#pragma once

#include "peximage/platform/Export.h"

#include <string>

namespace pex {

/// The shortest decimal text that reads back as the same double, always with a fraction or an exponent:
/// "0.5", "1.0", "1e+20", "nan", "-inf".
PEX_EXPORT std::string decimalText(double value);

} // namespace pex
