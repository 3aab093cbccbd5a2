#include "peximage/platform/filters/CIFilter.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace pex {

/// Inputs as a filter asks for them.
class CIFilter::Inputs {
  public:
    explicit Inputs(const CIFilter& filter) : values_(filter.values_) {}

    template <class T>
    const T* get(std::string_view key) const {
        const auto found = values_.find(key);
        return found == values_.end() ? nullptr : std::get_if<T>(&found->second);
    }
    /// The fallback when it was not set; absent when it is no finite number.
    std::optional<double> number(std::string_view key, double fallback) const {
        if (!values_.contains(key)) return fallback;
        const double* value = get<double>(key);
        return value && std::isfinite(*value) ? std::optional(*value) : std::nullopt;
    }

  private:
    const std::map<std::string, Value, std::less<>>& values_;
};

struct CIFilter::Kind {
    std::string_view name;
    std::optional<CIImage> (*output)(const CIImage& image, const Inputs& inputs);

    static std::optional<CIImage> sharpened(const CIImage& image, const Inputs& inputs) {
        const auto sharpness = inputs.number(kCIInputSharpnessKey, 0.4);
        return sharpness ? std::optional(image.sharpenedLuminance(*sharpness)) : std::nullopt;
    }

    static std::optional<CIImage> exposed(const CIImage& image, const Inputs& inputs) {
        const auto ev = inputs.number(kCIInputEVKey, 0.5);
        return ev ? std::optional(image.exposureAdjusted(*ev)) : std::nullopt;
    }

    static std::optional<CIImage> lookedUp(const CIImage& image, const Inputs& inputs) {
        const auto* given = inputs.get<std::shared_ptr<const ColorCube>>("inputCubeData");
        std::shared_ptr<const ColorCube> cube = given ? *given : nullptr;
        if (const auto* picture = inputs.get<CIImage>("inputCubeData")) {
            const std::optional<CGImage> bitmap = picture->getCGImage();
            cube = bitmap ? ColorCube::fromPicture(*bitmap) : nullptr;
        }
        return cube ? std::optional(image.colorCube(std::move(cube))) : std::nullopt;
    }

    static std::optional<CIImage> straightened(const CIImage& image, const Inputs& inputs) {
        const auto angle = inputs.number(kCIInputAngleKey, 0);
        return angle ? std::optional(image.straightened(*angle)) : std::nullopt;
    }

    static std::optional<CIImage> transformed(const CIImage& image, const Inputs& inputs) {
        const auto scale = inputs.number(kCIInputScaleKey, 1);
        if (!scale) return std::nullopt;
        CGAffineTransform transform{};
        if (const auto* by = inputs.get<CGPoint>(kCIInputTransformKey))
            transform = CGAffineTransform::translation(by->x, by->y);
        if (const auto* given = inputs.get<CGAffineTransform>(kCIInputTransformKey)) transform = *given;
        transform = transform.then(CGAffineTransform::scale(*scale, *scale));
        return transform == CGAffineTransform{} ? image : image.transformed(transform);
    }
};

const CIFilter::Kind CIFilter::kinds[] = {
    {"CISharpenLuminance", Kind::sharpened},  {"CIExposureAdjust", Kind::exposed},
    {"CIColorCube", Kind::lookedUp},          {"CIStraightenFilter", Kind::straightened},
    {"CIAffineTransform", Kind::transformed},
};

std::optional<CIFilter> CIFilter::make(std::string_view name) {
    const auto found = std::ranges::find(kinds, name, &Kind::name);
    return found == std::end(kinds) ? std::nullopt : std::optional(CIFilter(*found));
}

std::vector<std::string_view> CIFilter::names() {
    std::vector<std::string_view> all;
    std::ranges::transform(kinds, std::back_inserter(all), &Kind::name);
    return all;
}

std::string_view CIFilter::name() const { return kind_->name; }

void CIFilter::setValue(Value value, std::string_view forKey) {
    values_.insert_or_assign(std::string(forKey), std::move(value));
}

std::optional<CIImage> CIFilter::outputImage() const {
    const Inputs inputs(*this);
    const auto* image = inputs.get<CIImage>(kCIInputImageKey);
    return image ? kind_->output(*image, inputs) : std::nullopt;
}

} // namespace pex
