#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexImageBitmapRGBA.h"
#include "peximage/pixels/PexLut.h"
#include "peximage/pixels/Sharpening.h"
#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/filters/CIFilter.h"
#include "peximage/platform/foundation/Diagnostics.h"

namespace pex {

std::optional<CGImage> sharpen(const CGImage& image, float sharpness) {
    auto filter = CIFilter::make("CISharpenLuminance");
    if (!filter) {
        diagnostics::print("Failed to create CISharpenLuminance filter");
        return std::nullopt;
    }
    filter->setValue(CIImage(image), kCIInputImageKey);
    filter->setValue(static_cast<double>(sharpness), kCIInputSharpnessKey);
    const std::optional<CIImage> output = filter->outputImage();
    if (!output) {
        diagnostics::print("Failed to get output image from filter");
        return std::nullopt;
    }
    std::optional<CGImage> rendered = CIContext().createCGImage(*output, output->extent());
    if (!rendered) diagnostics::print("Failed to create CGImage from CIImage");
    return rendered;
}

std::shared_ptr<PexImage> PexImage::sharpen(float sharpness) const {
    if (!cgImage) {
        diagnostics::print("Failed to get CGImage");
        return nullptr;
    }
    const std::optional<CGImage> sharpened = pex::sharpen(*cgImage, sharpness);
    return sharpened ? make(*sharpened) : nullptr;
}

std::shared_ptr<PexImage> PexImage::exposure(double ev) {
    const std::optional<CIImage> picture = ciImage();
    auto filter = CIFilter::make("CIExposureAdjust");
    if (!picture || !filter) return shared_from_this();
    filter->setValue(*picture, kCIInputImageKey);
    filter->setValue(static_cast<double>(static_cast<float>(ev)), kCIInputEVKey);
    const std::optional<CIImage> output = filter->outputImage();
    const auto exposed = output ? make(*output) : nullptr;
    return exposed ? exposed : shared_from_this();
}

std::shared_ptr<PexImage> PexImage::apply(const Lut& table) const {
    const std::optional<CIImage> output = table.lut.applyTo(ciImage());
    return output ? make(*output) : nullptr;
}

std::shared_ptr<PexImage> PexImage::apply(const LutAtUrl& table) const {
    const std::optional<PexLut> lut = PexLut::make(table.lutAtUrl);
    return lut ? apply({.lut = *lut}) : nullptr;
}

std::shared_ptr<PexImage> PexImage::fill(const PexColor& with) {
    PexImageBitmapRGBA bitmap(*this);
    bitmap.fill(with.redB255(), with.greenB255(), with.blueB255());
    const auto filled = bitmap.pexImage();
    return filled ? filled : shared_from_this();
}

} // namespace pex
