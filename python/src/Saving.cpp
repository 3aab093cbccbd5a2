#include "Bindings.h"
#include "Failure.h"
#include "Running.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/raster/CGContext.h"

#include <cmath>
#include <filesystem>
#include <initializer_list>
#include <nanobind/stl/filesystem.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/variant.h>
#include <tuple>
#include <utility>
#include <variant>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

constexpr double usualQuality = 0.9;

/// "keep", "no-location", "none", or what to write instead.
using Keeping = std::variant<std::string, pex::ImageMetadata>;

/// What an encoding gave.
struct Encoded {
    pex::Data bytes;
    std::string format;
    std::optional<double> quality; // absent for formats without loss
    pex::CGSize size;

    std::pair<int, int> sides() const {
        return {static_cast<int>(size.width), static_cast<int>(size.height)};
    }
};

/// How a file is to be made, as the caller says it.
struct Writing {
    std::optional<double> quality;
    std::optional<long long> maxBytes;
    std::optional<double> dpi;
    Keeping metadata;
    pex::JpegOptions jpeg;
    bool alpha = true;
};

bool isLossy(pex::ImageFormat format) {
    return format != pex::ImageFormat::png && format != pex::ImageFormat::tiff;
}

pex::ImageFormat formatNamed(const std::string& name) {
    const auto format = pex::imageFormatForExtension(name);
    if (!format) failArgument("unknown format \"" + name + "\"");
    if (!pex::CGImageDestination::writes(*format))
        throw Failure({pex::ReasonCode::missingModule, name + " cannot be written"}, {});
    return *format;
}

std::optional<int> wholeDpi(std::optional<double> dpi) {
    return dpi ? std::optional(static_cast<int>(std::lround(*dpi))) : std::nullopt;
}

pex::ImageMetadata metadataFor(const Image& image, const Keeping& keeping) {
    if (const auto* given = std::get_if<pex::ImageMetadata>(&keeping)) return *given;
    const std::string& what = std::get<std::string>(keeping);
    if (what == "none") return {};
    return what == "keep" ? image.metadata() : image.metadata().withoutLocation();
}

/// The picture without alpha, as formats that have none show it.
pex::CGImage overWhite(const pex::CGImage& bitmap) {
    const auto context = pex::CGContext::make(bitmap.width(), bitmap.height(), pex::PixelLayout::skipLast,
                                              bitmap.colorSpace());
    if (!context) fail("not enough memory");
    const pex::CGRect whole{{0, 0}, bitmap.size()};
    context->setFillColor({1, 1, 1});
    context->fill(whole);
    context->draw(bitmap, whole);
    const auto flat = context->makeImage();
    if (!flat) fail("not enough memory");
    return *flat;
}

Encoded encodedWithin(const Image& image, pex::ImageFormat format, const Writing& writing) {
    const pex::CGImage bitmap = image.bitmap();
    const bool flatten = !writing.alpha && pex::hasAlpha(bitmap.layout());
    // As many points as pixels, whatever resolution the file states: shrinking counts in points.
    const auto picture = pex::PexImage::make(flatten ? overWhite(bitmap) : bitmap);
    const auto fitted =
        pex::PexImageHelper::dataWithin(picture, {.format = format,
                                                  .desiredSize = *writing.maxBytes,
                                                  .dpi = wholeDpi(writing.dpi),
                                                  .options = writing.jpeg,
                                                  .metadata = metadataFor(image, writing.metadata)});
    if (!fitted) fail("cannot be encoded");
    return {fitted->bytes, {}, isLossy(format) ? std::optional(fitted->quality) : std::nullopt, fitted->size};
}

Encoded encodedAt(const Image& image, pex::ImageFormat format, const Writing& writing) {
    const double quality = writing.quality.value_or(usualQuality);
    const pex::ImageMetadata metadata = metadataFor(image, writing.metadata);
    std::optional<pex::Data> bytes;
    if (format == pex::ImageFormat::jpeg) {
        bytes = pex::PexImageHelper::jpegData(image.picture(), {.quality = quality,
                                                                .dpi = wholeDpi(writing.dpi),
                                                                .options = writing.jpeg,
                                                                .metadata = metadata});
    } else {
        pex::CGImageDestination::Options options;
        options.quality = quality;
        options.dpiWidth = options.dpiHeight = writing.dpi;
        options.keepsAlpha = writing.alpha;
        options.metadata = metadata;
        bytes = pex::CGImageDestination::encode(image.bitmap(), format, options);
    }
    if (!bytes) fail("cannot be encoded");
    return {*bytes, {}, isLossy(format) ? std::optional(quality) : std::nullopt, image.picture()->size};
}

void check(const Writing& writing) {
    if (writing.quality && writing.maxBytes) failArgument("give quality or max_bytes");
    if (writing.quality && !(*writing.quality >= 0 && *writing.quality <= 1))
        failArgument("quality goes from 0 to 1");
    if (writing.maxBytes && *writing.maxBytes < 1) failArgument("max_bytes is at least 1");
    if (writing.dpi && !(*writing.dpi >= 1 && *writing.dpi <= 65535))
        failArgument("dpi goes from 1 to 65535");
    const auto* keeping = std::get_if<std::string>(&writing.metadata);
    if (keeping != nullptr && *keeping != "keep" && *keeping != "no-location" && *keeping != "none")
        failArgument("metadata is \"keep\", \"no-location\", \"none\" or a Metadata");
}

template <class Value>
Value named(const std::string& name, std::initializer_list<std::pair<const char*, Value>> values,
            const char* complaint) {
    for (const auto& [word, value] : values)
        if (name == word) return value;
    failArgument(complaint);
}

pex::JpegOptions jpegOptions(const std::string& effort, const std::string& chroma, bool progressive) {
    using enum pex::Effort;
    using enum pex::Chroma;
    return {.effort = named<pex::Effort>(effort, {{"fast", fast}, {"normal", normal}, {"best", best}},
                                         "effort is \"fast\", \"normal\" or \"best\""),
            .chroma = named<pex::Chroma>(chroma, {{"auto", automatic}, {"full", full}, {"half", half}},
                                         "chroma is \"auto\", \"full\" or \"half\""),
            .progressive = progressive};
}

Encoded encodedAs(const Image& image, const std::string& format, const Writing& writing) {
    const pex::ImageFormat as = formatNamed(format);
    check(writing);
    Encoded encoded = writing.maxBytes ? encodedWithin(image, as, writing) : encodedAt(image, as, writing);
    image.checkWhole();
    encoded.format = format;
    return encoded;
}

Encoded encode(const Image& image, const std::string& format, std::optional<double> quality,
               std::optional<long long> maxBytes, std::optional<double> dpi, const Keeping& metadata,
               const std::string& effort, const std::string& chroma, bool progressive, bool alpha) {
    return encodedAs(image, format,
                     {quality, maxBytes, dpi, metadata, jpegOptions(effort, chroma, progressive), alpha});
}

/// The format that is named, or else that of the path's extension.
Encoded save(const Image& image, const std::filesystem::path& path, const std::optional<std::string>& format,
             std::optional<double> quality, std::optional<long long> maxBytes, std::optional<double> dpi,
             const Keeping& metadata, const std::string& effort, const std::string& chroma, bool progressive,
             bool alpha) {
    const std::string extension = path.extension().string();
    if (!format && extension.size() < 2) failArgument("the name has no extension: give a format");
    Encoded encoded =
        encodedAs(image, format ? *format : extension.substr(1),
                  {quality, maxBytes, dpi, metadata, jpegOptions(effort, chroma, progressive), alpha});
    if (!encoded.bytes.write(pex::URL::fromPath(path.string()), pex::Data::Writing::atomically))
        fail("cannot be written", path.string());
    return encoded;
}

using EncodedState = std::tuple<nb::bytes, std::string, std::optional<double>, double, double>;

EncodedState stateOf(const Encoded& encoded) {
    return {bytesOf(encoded.bytes), encoded.format, encoded.quality, encoded.size.width, encoded.size.height};
}

void setState(Encoded& self, const EncodedState& state) {
    const auto& [bytes, format, quality, width, height] = state;
    new (&self) Encoded{dataOf(bytes), format, quality, {width, height}};
}

} // namespace

void addSaving(nb::module_& module, ImageClass& image) {
    nb::class_<Encoded>(module, "Encoded", "A picture as encoded bytes.")
        .def_prop_ro(
            "data", [](const Encoded& encoded) { return bytesOf(encoded.bytes); }, "The file's bytes.")
        .def_ro("format", &Encoded::format, "As it was asked for: \"jpeg\".")
        .def_ro("quality", &Encoded::quality, "0 to 1, the one that was found or given; None without loss.")
        .def_prop_ro("size", &Encoded::sides,
                     "(width, height) in pixels; smaller where a budget asked for it.")
        .def("__len__", [](const Encoded& encoded) { return encoded.bytes.size(); })
        .def("__getstate__", &stateOf)
        .def("__setstate__", &setState);

    image.def(
        "encode", interruptible(&encode), "format"_a = "jpeg", nb::kw_only(), "quality"_a = nb::none(),
        "max_bytes"_a = nb::none(), "dpi"_a = nb::none(), "metadata"_a = "keep", "effort"_a = "normal",
        "chroma"_a = "auto", "progressive"_a = false, "alpha"_a = true,
        "The picture as a file's bytes: at a quality from 0 to 1 (0.9 unless given), or at the best\n"
        "quality that fits into `max_bytes`, which are never exceeded; where none fits, and for PNG\n"
        "and TIFF, the picture becomes smaller.\n\n"
        "- dpi: dots per inch, written into the file\n"
        "- metadata: \"keep\" what the file said, all but the place (\"no-location\"), \"none\" of it, or a\n"
        "  `Metadata`\n"
        "- effort: \"fast\", \"normal\" or \"best\" to make a JPEG small; chroma: its resolution of colour,\n"
        "  \"auto\", \"full\" or \"half\"; progressive: one that shows early\n"
        "- alpha: False lays what is transparent over white, as JPEG always does");
    image.def(
        "save", interruptible(&save), "path"_a, nb::kw_only(), "format"_a = nb::none(),
        "quality"_a = nb::none(), "max_bytes"_a = nb::none(), "dpi"_a = nb::none(), "metadata"_a = "keep",
        "effort"_a = "normal", "chroma"_a = "auto", "progressive"_a = false, "alpha"_a = true,
        "Writes what `encode` gives to a file, which appears whole or not at all; the format follows the\n"
        "name's extension, and folders on the way are made. Returns what was written.");
}

} // namespace pexpy
