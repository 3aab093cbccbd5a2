#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/filters/CIFilter.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/foundation/URL.h"

#include <optional>

namespace pex {

/// A lookup table of colours: the bytes of its file, and the filter made of them. A plain value; threads may
/// share one as long as nobody changes it. Its document has one key, "data", the bytes as base64 text; a
/// table read back works again.
///
/// Files are pictures (n × n² pixels, n² × n, or a square; see `ColorCube::fromPicture`) or texts of the
/// .cube format, with 2 to 128 colours along a side. Between them colours are interpolated in tetrahedra,
/// within 0.52 / 255 of exact arithmetic.
class PEX_EXPORT PexLut {
  public:
    /// The bytes of the table's file. Setting them does not change the filter.
    Data data;
    /// Absent when `data` is no table, which only a document can bring about.
    std::optional<CIFilter> filter;

    /// An empty one, which gives nothing.
    PexLut() = default;
    /// Absent when the bytes are no table.
    static std::optional<PexLut> make(const Data& bytes);
    /// Absent, too, when the file cannot be read.
    static std::optional<PexLut> make(const URL& file);

    /// The picture with its colours looked up, not computed yet. Absent without a picture or a filter.
    std::optional<CIImage> applyTo(const std::optional<CIImage>& image) const;
};

/// Reading makes the filter again.
template <>
struct PEX_EXPORT DocumentCodec<PexLut> {
    static void write(DocumentWriter& writer, const PexLut& value);
    static bool read(DocumentValue value, PexLut& target, DocumentError* error);
};

} // namespace pex
