#pragma once

#include "peximage/platform/raster/CGImage.h"

#include <QImage>
#include <QPixmap>
#include <optional>

namespace pex {

/// The picture for Qt, with its colour space and `scale` pixels of it for a point (the device pixel ratio).
/// It shows the image's own memory, which it keeps, where Qt knows the layout: grey, RGBA and RGBX. ARGB is
/// copied. Qt copies before it writes, so the image never changes. Null when the pixels cannot be had. Any
/// thread.
PEX_EXPORT QImage toQImage(const CGImage& image, double scale = 1);

/// The same as a pixmap, which is in the screen's own layout. On the application's main thread alone.
PEX_EXPORT QPixmap toQPixmap(const CGImage& image, double scale = 1);

/// The image of Qt's pixels, in pixels whatever their ratio, with their colour space. It shows Qt's memory,
/// which it keeps, for the formats Grayscale8, RGBA8888, RGBA8888_Premultiplied and RGBX8888; the others are
/// converted. Absent for a null picture, and when memory cannot be had. Any thread.
/// @{
PEX_EXPORT std::optional<CGImage> fromQImage(const QImage& image);
PEX_EXPORT std::optional<CGImage> fromQPixmap(const QPixmap& pixmap); ///< on the main thread alone
/// @}

} // namespace pex
