#pragma once

#include "peximage/platform/codecs/ImageFormat.h"
#include "peximage/platform/raster/CGColorSpace.h"
#include "peximage/platform/raster/Orientation.h"

#include <optional>
#include <string>

namespace pex {

/// What a file's header says of one of its images.
struct ImageProperties {
    /// As the bytes say, whatever the file's name.
    ImageFormat format = ImageFormat::jpeg;
    /// As stored, before the orientation is applied.
    /// @{
    int pixelWidth = 0;
    int pixelHeight = 0;
    /// @}
    /// Pixels per inch; absent when the file does not say.
    /// @{
    std::optional<double> dpiWidth;
    std::optional<double> dpiHeight;
    /// @}
    /// What has to be done to the stored pixels to see the picture upright.
    Orientation orientation = Orientation::up;
    /// Whether the file has an opacity for each pixel.
    bool hasAlpha = false;
    /// Pictures in the file: pages of a document or a TIFF, frames of an animation.
    int pages = 1;
    /// Bits of one component in the file.
    int depth = 8;
    /// What the numbers of a pixel are.
    CGColorSpace::Model colorModel = CGColorSpace::Model::rgb;
    /// The embedded profile's description; absent when the file has none.
    std::optional<std::string> profileName;
};

} // namespace pex
