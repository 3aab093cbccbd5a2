#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/raster/CGImage.h"

#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace pex {

namespace kernels {
struct CubeTables;
}

/// A cube of colours: for every colour another one, given at `side` steps of red, green and blue and
/// interpolated in between, in the tetrahedron of the four entries around a colour (which keeps greys grey,
/// as interpolation in all eight does not). Colours are sRGB as stored, from 0 to 1; entries are kept in
/// 128ths of 1 / 255. Immutable.
class PEX_EXPORT ColorCube {
  public:
    /// How many steps a side may have.
    /// @{
    static constexpr int smallestSide = 2, largestSide = 128;
    /// @}

    /// Red, green and blue, 0–1.
    using Color = std::array<double, 3>;
    /// What lies at the cube's corners: colours outside count as the nearest inside.
    struct Domain {
        /// The cube's two corners, channel by channel.
        /// @{
        Color least{0, 0, 0}, most{1, 1, 1};
        /// @}
    };

    /// A curve for each channel, given at equal steps of a domain and interpolated in between.
    struct Curves {
        /// Two at least, finite; none stands for no curves.
        std::vector<Color> entries{};
        /// The colours between which the entries lie.
        Domain domain{};
    };
    /// More entries than this make no curves.
    static constexpr int mostCurveEntries = 1 << 16;

    /// `entries` are side³ colours, red running fastest, then green; they are limited to 0 – 1. What is
    /// looked up goes through the curves first. Null for an impossible side, another number of entries,
    /// entries that are no numbers, or an empty domain.
    static std::shared_ptr<const ColorCube> make(int side, const std::vector<Color>& entries,
                                                 const Domain& domain, const Curves& curves);
    /// A cube of all colours from 0 to 1, without curves.
    static std::shared_ptr<const ColorCube> make(int side, const std::vector<Color>& entries) {
        return make(side, entries, Domain{}, Curves{});
    }
    /// Curves alone.
    static std::shared_ptr<const ColorCube> make(const Curves& curves);

    /// A picture of a table, its colours taken as they are stored: n × n² pixels, where a row runs along red,
    /// n rows along green, and one such square follows the other along blue; n² × n, the squares side by
    /// side; or a square of n·√n, the entries one after the other in rows. Null for other sizes.
    static std::shared_ptr<const ColorCube> fromPicture(const CGImage& picture);
    /// A text of the .cube format: LUT_3D_SIZE, perhaps DOMAIN_MIN and DOMAIN_MAX or LUT_3D_INPUT_RANGE, and
    /// side³ lines of three numbers. LUT_1D_SIZE gives a curve for each channel instead, or before the cube
    /// where a text has both: its entries come first, and LUT_1D_INPUT_RANGE is their domain. Lines end in
    /// LF, CR LF or CR, keywords may be in lower case, what follows # is a comment, and unknown keywords
    /// pass. Null when it is no such text, breaks off, or holds more.
    static std::shared_ptr<const ColorCube> fromText(std::string_view text);
    /// A table's file, whichever of these it is.
    static std::shared_ptr<const ColorCube> fromBytes(const Data& file);

    /// For the library itself: the form that rows of pixels are looked up in.
    const kernels::CubeTables& tables() const { return *tables_; }

  private:
    ColorCube();

    std::vector<std::int16_t> entries_;
    std::shared_ptr<kernels::CubeTables> tables_;
};

} // namespace pex
