#pragma once

#include "tests/support/Pictures.h"

#include <cstdint>
#include <vector>

struct HeifKind {
    bool av1 = false;
    /// As EXIF counts; the container's own boxes say it.
    int turned = 1;
    /// An EXIF block that goes along.
    std::vector<std::uint8_t> exif = {};
};

/// A HEIF file with the picture, which has no alpha, written by the codec library itself.
std::vector<std::uint8_t> heifFile(const pex::CGImage& picture, const HeifKind& kind);
