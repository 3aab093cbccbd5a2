#pragma once

#include "peximage/platform/geometry/CGRect.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/varda/PexColor.h"

#include <optional>
#include <string>
#include <string_view>

/// "289 412"
std::string grouped(long long number);
/// "2000×1500"
std::string pixelSize(pex::CGSize size);
/// "reads JPEG PNG …" and, on a second line, "writes …": what this build can.
std::string knownFormats();
/// The extensions of the formats that can be written: "jpg, jpeg, png".
std::string writableExtensions(std::string_view separator);

/// "300000", "300K", "300KB", "300 kB" (1000), "300KiB" (1024), "1.5MB"; upper or lower case. Absent for
/// anything else.
std::optional<long long> parseByteSize(std::string_view text);
/// "800x600" with whole numbers of at least 1; "px" may follow.
std::optional<pex::CGSize> parsePixelSize(std::string_view text);
/// "10,20,300,200": x, y, width and height.
std::optional<pex::CGRect> parseRect(std::string_view text);
/// "16:9", or "1.5": width over height.
std::optional<double> parseRatio(std::string_view text);
/// "00ff00" or "#00ff00": red, green and blue.
std::optional<pex::PexColor> parseColor(std::string_view text);
/// "2000" or "2000px": a whole number of at least 1.
std::optional<int> parsePixels(std::string_view text);
