#include "peximage/platform/toolkit/NSWorkspace.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/toolkit/DocumentIcon.h"
#include "peximage/platform/toolkit/IconsModule.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace pex {
namespace {

constexpr int mostPixels = 4096;

std::optional<CGImage> drawVector(const IconsModule& icons, const Data& svg, int side) {
    const std::ptrdiff_t rowBytes = std::ptrdiff_t{side} * 4;
    PixelBuffer pixels = PixelBuffer::makeZeroed(static_cast<std::size_t>(rowBytes * side));
    if (!pixels || !icons.drawVector(svg.data(), svg.size(), side, side, pixels.data(), rowBytes))
        return std::nullopt;
    return CGImage::make(side, side, rowBytes, PixelLayout::premultipliedLast, CGColorSpace::sRGB(), pixels);
}

std::optional<CGImage> readIcon(const IconsModule& icons, const URL& file, int side) {
    const std::optional<Data> bytes = Data::contentsOf(file, ImageLimits::current().maxSourceBytes);
    if (!bytes) return std::nullopt;
    if (file.pathExtension() == "svg") return drawVector(icons, *bytes, side);
    const auto image = NSImage::make(*bytes);
    return image ? image->cgImageForProposedRect() : std::nullopt;
}

std::optional<CGImage> desktopIcon(const std::string& path, int side) {
    const auto* icons = loadModule<IconsModule>(IconsModule::name);
    std::array<char, 4096> file{};
    if (icons == nullptr || !icons->iconFile(path.c_str(), side, file.data(), file.size()))
        return std::nullopt;
    return readIcon(*icons, URL::fromPath(file.data()), side);
}

/// An icon, square and as large as fits into the size; absent for a size below a pixel.
std::optional<NSImageRep> representation(const std::string& path, CGSize size) {
    const double fitting = std::floor(std::min(size.width, size.height));
    if (!(fitting >= 1)) return std::nullopt;
    const int side = static_cast<int>(std::min(fitting, double{mostPixels}));
    std::optional<CGImage> icon = desktopIcon(path, side);
    if (!icon) icon = drawDocumentIcon(side);
    if (!icon) return std::nullopt;
    return NSImageRep{*icon, {static_cast<double>(icon->width()), static_cast<double>(icon->height())}};
}

} // namespace

const NSWorkspace& NSWorkspace::shared() {
    static const NSWorkspace instance;
    return instance;
}

std::shared_ptr<NSImage> NSWorkspace::icon(const ForFile& file) const {
    constexpr CGSize usual{32, 32};
    return NSImage::make(usual, [path = file.path](CGSize size) { return representation(path, size); });
}

} // namespace pex
