#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/PropertyDictionary.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/foundation/LocalTime.h"
#include "peximage/platform/foundation/URL.h"

#include <functional>
#include <optional>
#include <string_view>
#include <tuple>

namespace pex {

/// What a photo's metadata say of when and where it was taken. Only the file's header is read. Safe from any
/// thread.
struct PEX_EXPORT PexExif {
    /// When and where a photo was taken.
    struct BasicData {
        /// In degrees, without sign, as cameras store them: the hemisphere is not told.
        struct Coordinates {
            /// Latitude.
            std::optional<double> lat = {};
            /// Longitude.
            std::optional<double> lon = {};

            friend bool operator==(const Coordinates&, const Coordinates&) = default;

            static constexpr auto documentKeys() {
                return std::tuple(keyed::lenient("lat", &Coordinates::lat),
                                  keyed::lenient("lon", &Coordinates::lon));
            }
        };

        /// The camera's clock, taken to be in this machine's time zone.
        std::optional<Moment> shotDate = {};
        /// The place.
        Coordinates coordinates{};

        friend bool operator==(const BasicData&, const BasicData&) = default;

        /// The date stands as seconds since 1 January 2001, 00:00 UTC.
        static constexpr auto documentKeys() {
            return std::tuple(keyed::lenient("shotDate", &BasicData::shotDate),
                              keyed::lenient("coordinates", &BasicData::coordinates));
        }
    };

    /// All properties of the file's first image, not only EXIF ones; empty, and a line is printed, when the
    /// file cannot be read as an image.
    static PropertyDictionary exifDict(const URL& of);
    /// When and where the file's photo was taken; each part absent where the file does not tell it.
    static BasicData basicData(const URL& of);
    /// The same from properties that are at hand.
    static BasicData basicData(const PropertyDictionary& properties);
    /// Reads "yyyy:MM:dd HH:mm:ss"; absent, and a line is printed, for anything else.
    static std::optional<Moment> convertEXIFDateTimeToDate(std::string_view dateTimeOriginal);
};

} // namespace pex

template <>
struct std::hash<pex::PexExif::BasicData::Coordinates> {
    std::size_t operator()(const pex::PexExif::BasicData::Coordinates& place) const noexcept {
        const std::hash<std::optional<double>> number;
        return number(place.lat) * 31 + number(place.lon);
    }
};

template <>
struct std::hash<pex::PexExif::BasicData> {
    std::size_t operator()(const pex::PexExif::BasicData& data) const noexcept {
        const auto ticks = data.shotDate ? data.shotDate->time_since_epoch().count() : 0;
        return std::hash<pex::Moment::rep>()(ticks) * 31 +
               std::hash<pex::PexExif::BasicData::Coordinates>()(data.coordinates);
    }
};
