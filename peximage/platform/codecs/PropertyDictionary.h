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
// names that the EXIF and TIFF standards give their tags, those of GPS without "GPS" before them.
inline constexpr std::string_view kCGImagePropertyPixelWidth = "PixelWidth";
inline constexpr std::string_view kCGImagePropertyPixelHeight = "PixelHeight";
inline constexpr std::string_view kCGImagePropertyDPIWidth = "DPIWidth";
inline constexpr std::string_view kCGImagePropertyDPIHeight = "DPIHeight";
inline constexpr std::string_view kCGImagePropertyDepth = "Depth";
inline constexpr std::string_view kCGImagePropertyHasAlpha = "HasAlpha";
inline constexpr std::string_view kCGImagePropertyOrientation = "Orientation";
inline constexpr std::string_view kCGImagePropertyProfileName = "ProfileName";
inline constexpr std::string_view kCGImagePropertyTIFFDictionary = "TIFF";
inline constexpr std::string_view kCGImagePropertyExifDictionary = "Exif";
inline constexpr std::string_view kCGImagePropertyExifDateTimeOriginal = "DateTimeOriginal";
inline constexpr std::string_view kCGImagePropertyGPSDictionary = "GPS";
inline constexpr std::string_view kCGImagePropertyGPSLatitude = "Latitude";
inline constexpr std::string_view kCGImagePropertyGPSLongitude = "Longitude";

/// What a file says of itself: texts (UTF-8), whole numbers, numbers, lists of numbers and dictionaries of
/// these, by key. A value; copies share nested dictionaries.
class PEX_EXPORT PropertyDictionary {
  public:
    using Nested = std::shared_ptr<const PropertyDictionary>;
    using Value = std::variant<std::string, std::int64_t, double, std::vector<double>, Nested>;

    bool empty() const { return values_.empty(); }
    const std::map<std::string, Value, std::less<>>& values() const { return values_; }

    void set(std::string_view key, Value value) {
        values_.insert_or_assign(std::string(key), std::move(value));
    }
    /// Nothing is stored of an empty one.
    void set(std::string_view key, const PropertyDictionary& nested);

    /// Null or absent when there is no such key or its value is of another kind. A whole number is a number,
    /// too.
    const std::string* text(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    std::optional<double> number(std::string_view key) const;
    /// Empty when there is none.
    const PropertyDictionary& dictionary(std::string_view key) const;

  private:
    template <class T>
    const T* find(std::string_view key) const;

    std::map<std::string, Value, std::less<>> values_;
};

} // namespace pex
