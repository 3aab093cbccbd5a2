#include "Bindings.h"
#include "Failure.h"

#include <array>
#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>
#include <nanobind/stl/variant.h>
#include <nanobind/stl/vector.h>
#include <variant>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

using pex::ImageMetadata;
/// A text, a number, or a list of numbers.
using Field = std::variant<std::int64_t, double, std::string, std::vector<double>>;

pex::ExifDirectory directoryNamed(const std::string& name) {
    using enum pex::ExifDirectory;
    if (name == "image") return image;
    if (name == "exif") return exif;
    if (name == "gps") return gps;
    failArgument("a directory is \"image\", \"exif\" or \"gps\"");
}

std::optional<Field> exifField(const ImageMetadata& metadata, std::uint16_t tag,
                               const std::string& directory) {
    const auto value = metadata.exifField(directoryNamed(directory), tag);
    if (!value) return std::nullopt;
    if (const auto* text = std::get_if<std::string>(&*value)) return *text;
    if (const auto* whole = std::get_if<std::int64_t>(&*value)) return *whole;
    if (const auto* number = std::get_if<double>(&*value)) return *number;
    if (const auto* list = std::get_if<std::vector<double>>(&*value)) return *list;
    return std::nullopt;
}

void setExifField(ImageMetadata& metadata, std::uint16_t tag, const std::optional<Field>& field,
                  const std::string& directory) {
    const pex::ExifDirectory in = directoryNamed(directory);
    if (!field) return metadata.removeExifField(in, tag);
    const auto value =
        std::visit([](const auto& given) -> pex::PropertyDictionary::Value { return given; }, *field);
    if (!metadata.setExifField(in, tag, value)) failArgument("the field cannot be stored");
}

void setXmp(ImageMetadata& metadata, const std::string& nameSpace, const std::string& name,
            const std::string& text) {
    if (!metadata.setXmpProperty(nameSpace, name, text)) failArgument("the property cannot be stored");
}

template <pex::Data ImageMetadata::*block>
void addBlock(nb::class_<ImageMetadata>& metadata, const char* name, const char* says) {
    metadata.def_prop_rw(
        name, [](const ImageMetadata& self) { return bytesOf(self.*block); },
        [](ImageMetadata& self, const nb::bytes& bytes) { self.*block = dataOf(bytes); }, says);
}

void addFields(nb::class_<ImageMetadata>& metadata) {
    metadata.def(
        "get_exif", &exifField, "tag"_a, "directory"_a = "exif",
        "An EXIF field by its tag's number: a text, a number or a list of numbers; None without. The\n"
        "directory is \"image\" (maker, copyright), \"exif\" (the shot) or \"gps\".");
    metadata.def("set_exif", &setExifField, "tag"_a, "value"_a.none(), "directory"_a = "exif",
                 "Replaces a field or adds one; None takes it out.");
    metadata.def("get_xmp", &ImageMetadata::xmpProperty, "namespace"_a, "name"_a,
                 "A simple property: get_xmp(\"http://ns.adobe.com/xap/1.0/\", \"Rating\"); None without.");
    metadata.def("set_xmp", &setXmp, "namespace"_a, "name"_a, "text"_a, "Replaces the property or adds it.");
    metadata.def("get_iptc", &ImageMetadata::iptcField, "field"_a,
                 "The texts of a field: 25 keywords, 105 headline, 120 caption.");
    metadata.def("set_iptc", &ImageMetadata::setIptcField, "field"_a, "texts"_a,
                 "Replaces all texts of a field; an empty list takes it out.");
}

using Blocks = std::array<nb::bytes, 4>;

} // namespace

void addMetadata(nb::module_& module, ImageClass& image) {
    nb::class_<ImageMetadata> metadata(
        module, "Metadata",
        "What a file says beside its pixels and their profile, as the blocks that it has for it, and by\n"
        "single fields.");
    metadata.def(nb::init<>());
    addBlock<&ImageMetadata::exif>(metadata, "exif",
                                   "The EXIF block, a TIFF header with its directories; b\"\" without.");
    addBlock<&ImageMetadata::xmp>(metadata, "xmp", "The XMP packet in UTF-8.");
    addBlock<&ImageMetadata::resources>(metadata, "resources",
                                        "Image resources (\"8BIM\"), IPTC's records among them.");
    addFields(metadata);
    metadata.def("without_location", &ImageMetadata::withoutLocation, Unlocked(),
                 "A copy without what tells the place.");
    metadata.def("__len__", &ImageMetadata::size);
    metadata.def("__eq__", [](const ImageMetadata& a, const ImageMetadata& b) { return a == b; });
    metadata.def("__getstate__", [](const ImageMetadata& self) {
        return Blocks{bytesOf(self.exif), bytesOf(self.xmp), bytesOf(self.extendedXmp),
                      bytesOf(self.resources)};
    });
    metadata.def("__setstate__", [](ImageMetadata& self, const Blocks& blocks) {
        new (&self) ImageMetadata{dataOf(blocks[0]), dataOf(blocks[1]), dataOf(blocks[2]), dataOf(blocks[3])};
    });
    image.def_prop_ro(
        "metadata", &Image::metadata, Unlocked(),
        "A copy of what the file says beside its pixels; it stays with what is computed from the\n"
        "picture. Change it and hand it to `encode` or `save`.");
}

} // namespace pexpy
