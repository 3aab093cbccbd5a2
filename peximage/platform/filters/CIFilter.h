#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/filters/ColorCube.h"
#include "peximage/platform/geometry/CGPoint.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace pex {

/// @{
/// The names of filters' inputs.
inline constexpr std::string_view kCIInputImageKey = "inputImage";
inline constexpr std::string_view kCIInputSharpnessKey = "inputSharpness";
inline constexpr std::string_view kCIInputEVKey = "inputEV";
inline constexpr std::string_view kCIInputAngleKey = "inputAngle";
inline constexpr std::string_view kCIInputScaleKey = "inputScale";
inline constexpr std::string_view kCIInputTransformKey = "inputTransform";
/// @}

/// A filter by name, with inputs to be set: a value, of which each thread uses a copy of its own.
///
/// | name | inputs besides inputImage |
/// |---|---|
/// | CISharpenLuminance | inputSharpness, default 0.4 |
/// | CIExposureAdjust | inputEV, default 0.5 |
/// | CIColorCube | inputCubeData: a ColorCube, or a CIImage of one; inputCubeDimension is not needed |
/// | CIStraightenFilter | inputAngle in radians, default 0 |
/// | CIAffineTransform | inputTransform: a CGAffineTransform, or a point to move by; inputScale, default 1 |
class PEX_EXPORT CIFilter {
  public:
    /// What an input may be.
    using Value = std::variant<CIImage, double, CGPoint, CGAffineTransform, std::shared_ptr<const ColorCube>>;

    /// Absent for a name that is not known.
    static std::optional<CIFilter> make(std::string_view name);
    /// The names of all filters.
    static std::vector<std::string_view> names();

    /// The name that the filter was made by.
    std::string_view name() const;
    /// Sets an input; one that the filter does not have is ignored.
    void setValue(Value value, std::string_view forKey);

    /// The picture described, not computed. Absent while an input is missing, or when one is of another kind
    /// or not finite.
    std::optional<CIImage> outputImage() const;

  private:
    struct Kind;
    class Inputs;
    static const Kind kinds[];
    explicit CIFilter(const Kind& kind) : kind_(&kind) {}

    const Kind* kind_;
    std::map<std::string, Value, std::less<>> values_;
};

} // namespace pex
