#include "peximage/platform/raster/MatrixConversion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace pex {
namespace {

using Matrix = std::array<std::array<double, 3>, 3>;

struct MatrixProfile {
    std::array<const cmsToneCurve*, 3> curves{};
    Matrix toXyz{};
};

/// Whether a profile has tables, which take precedence over its matrix.
bool hasTables(void* profile) {
    constexpr cmsTagSignature tables[] = {cmsSigAToB0Tag, cmsSigAToB1Tag, cmsSigBToA0Tag, cmsSigBToA1Tag,
                                          cmsSigDToB0Tag, cmsSigDToB1Tag, cmsSigBToD0Tag, cmsSigBToD1Tag};
    return std::ranges::any_of(tables,
                               [profile](cmsTagSignature tag) { return cmsIsTag(profile, tag) != 0; });
}

std::optional<MatrixProfile> matrixOf(void* profile) {
    constexpr cmsTagSignature curves[] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    constexpr cmsTagSignature columns[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                           cmsSigBlueColorantTag};
    if (cmsGetColorSpace(profile) != cmsSigRgbData || cmsGetPCS(profile) != cmsSigXYZData ||
        hasTables(profile))
        return std::nullopt;
    MatrixProfile read;
    for (std::size_t c = 0; c < 3; ++c) {
        read.curves[c] = static_cast<const cmsToneCurve*>(cmsReadTag(profile, curves[c]));
        const auto* column = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, columns[c]));
        if (read.curves[c] == nullptr || column == nullptr) return std::nullopt;
        if (std::abs(cmsEvalToneCurveFloat(read.curves[c], 0)) > 1e-6F) return std::nullopt;
        for (const auto& [row, value] : {std::pair(0, column->X), {1, column->Y}, {2, column->Z}})
            read.toXyz[static_cast<std::size_t>(row)][c] = value;
    }
    return read;
}

std::optional<Matrix> inverted(const Matrix& m) {
    Matrix adjugate{};
    double determinant = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            const std::size_t a = (j + 1) % 3, b = (j + 2) % 3, c = (i + 1) % 3, d = (i + 2) % 3;
            adjugate[i][j] = m[a][c] * m[b][d] - m[a][d] * m[b][c];
        }
        determinant += m[0][i] * adjugate[i][0];
    }
    if (!(std::abs(determinant) > 1e-9)) return std::nullopt;
    for (auto& row : adjugate) {
        for (double& value : row)
            value /= determinant;
    }
    return adjugate;
}

/// The linear light of every byte value plus `beyond`, a fraction of a step.
std::array<float, 256> lightOf(const cmsToneCurve* curve, float beyond) {
    std::array<float, 256> light{};
    for (std::size_t byte = 0; byte < light.size(); ++byte)
        light[byte] = cmsEvalToneCurveFloat(curve, (static_cast<float>(byte) + beyond) / 255);
    return light;
}

/// A table from light to the nearest byte value: the byte changes where light passes the value half-way
/// between.
std::vector<std::uint8_t> bytesOf(const cmsToneCurve* curve) {
    const std::array<float, 256> limits = lightOf(curve, 0.5F);
    std::vector<std::uint8_t> bytes(kernels::MatrixTables::places);
    std::size_t byte = 0;
    for (std::uint32_t place = 0; place < bytes.size(); ++place) {
        while (byte < 255 && limits[byte] < kernels::MatrixTables::lightAt(place))
            ++byte;
        bytes[place] = static_cast<std::uint8_t>(byte);
    }
    return bytes;
}

/// What each byte value of a channel adds to the light of the target's three channels.
std::array<std::array<float, 4>, 256> sharesOf(const MatrixProfile& source, std::size_t channel,
                                               const Matrix& fromXyz) {
    std::array<std::array<float, 4>, 256> shares{};
    const std::array<float, 256> light = lightOf(source.curves[channel], 0);
    for (std::size_t out = 0; out < 3; ++out) {
        double share = 0;
        for (std::size_t k = 0; k < 3; ++k)
            share += fromXyz[out][k] * source.toXyz[k][channel];
        for (std::size_t byte = 0; byte < light.size(); ++byte)
            shares[byte][out] = static_cast<float>(share * light[byte]);
    }
    return shares;
}

} // namespace

std::shared_ptr<const kernels::MatrixTables> matrixConversion(const IccProfile& from, const IccProfile& to) {
    const auto source = matrixOf(from.get()), target = matrixOf(to.get());
    const std::optional<Matrix> back = target ? inverted(target->toXyz) : std::nullopt;
    if (!source || !back) return nullptr;
    auto tables = std::make_shared<kernels::MatrixTables>();
    for (std::size_t c = 0; c < 3; ++c) {
        tables->light[c] = sharesOf(*source, c, *back);
        tables->bytes[c] = bytesOf(target->curves[c]);
    }
    return tables;
}

} // namespace pex
