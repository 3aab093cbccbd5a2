#pragma once

#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Data.h"
#include "tests/support/Pictures.h"

#include <cstdint>
#include <optional>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const pex::Data& data);

/// Absent when the file is no picture or has no pixels.
std::optional<pex::CGImage> decoded(const Bytes& file);

pex::Data encoded(const pex::CGImage& image, pex::ImageFormat format,
                  const pex::CGImageDestination::Options& options = {});

/// R G B A, straight, whatever the layout.
Pixel straightAt(const pex::CGImage& image, int x, int y);

/// The mean difference of the colours.
double difference(const pex::CGImage& a, const pex::CGImage& b);
