#pragma once

#include "peximage/platform/Export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace pex {

// Keys of the dictionary that `CGImageSource::copyProperties` gives. Its sub-dictionaries are keyed by the
// names that the EXIF and TIFF standards give their tags; those of GPS drop the "GPS" before them.

/// Whole numbers: pixels as stored, before the orientation is applied.
/// @{
inline constexpr std::string_view kCGImagePropertyPixelWidth = "PixelWidth";
inline constexpr std::string_view kCGImagePropertyPixelHeight = "PixelHeight";
/// @}
/// Numbers: pixels per inch.
/// @{
inline constexpr std::string_view kCGImagePropertyDPIWidth = "DPIWidth";
inline constexpr std::string_view kCGImagePropertyDPIHeight = "DPIHeight";
/// @}
/// A whole number: bits of one component.
inline constexpr std::string_view kCGImagePropertyDepth = "Depth";
/// A whole number: 1 or 0.
inline constexpr std::string_view kCGImagePropertyHasAlpha = "HasAlpha";
/// A whole number from 1 to 8, the value of the EXIF tag.
inline constexpr std::string_view kCGImagePropertyOrientation = "Orientation";
/// A text: the colour profile's description.
inline constexpr std::string_view kCGImagePropertyProfileName = "ProfileName";
/// Dictionaries: the picture's own fields, those of the shot, and those of the place.
/// @{
inline constexpr std::string_view kCGImagePropertyTIFFDictionary = "TIFF";
inline constexpr std::string_view kCGImagePropertyExifDictionary = "Exif";
inline constexpr std::string_view kCGImagePropertyGPSDictionary = "GPS";
/// @}
/// A text in the EXIF dictionary: "2021:07:14 18:03:55".
inline constexpr std::string_view kCGImagePropertyExifDateTimeOriginal = "DateTimeOriginal";
/// Numbers in the GPS dictionary: degrees, without the hemisphere.
/// @{
inline constexpr std::string_view kCGImagePropertyGPSLatitude = "Latitude";
inline constexpr std::string_view kCGImagePropertyGPSLongitude = "Longitude";
/// @}

/// What a file says about itself, by key: texts (UTF-8), whole numbers, numbers, lists of numbers, and
/// dictionaries of these. A value; copies share nested dictionaries.
class PEX_EXPORT PropertyDictionary {
  public:
    /// A dictionary inside a dictionary.
    using Nested = std::shared_ptr<const PropertyDictionary>;
    /// A value of any of these kinds.
    using Value = std::variant<std::string, std::int64_t, double, std::vector<double>, Nested>;

    /// True when there are no keys.
    bool empty() const { return values_.empty(); }
    /// All values by key, in the order of their keys.
    const std::map<std::string, Value, std::less<>>& values() const { return values_; }

    /// Stores a value in place of an earlier one.
    void set(std::string_view key, Value value) {
        values_.insert_or_assign(std::string(key), std::move(value));
    }
    /// Nothing is stored of an empty one.
    void set(std::string_view key, const PropertyDictionary& nested);

    /// Null or absent when there is no such key or its value is of another kind. A whole number is a number,
    /// too.
    /// @{
    const std::string* text(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    std::optional<double> number(std::string_view key) const;
    /// @}
    /// Empty when there is none.
    const PropertyDictionary& dictionary(std::string_view key) const;

  private:
    template <class T>
    const T* find(std::string_view key) const;

    std::map<std::string, Value, std::less<>> values_;
};

} // namespace pex
