#include "Bindings.h"
#include "Failure.h"
#include "Running.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Threads.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <nanobind/stl/filesystem.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>
#include <tuple>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

Image openBytes(const nb::bytes& encoded) {
    pex::Data copy = dataOf(encoded);
    const nb::gil_scoped_release unlocked;
    return Image::ofBytes(std::move(copy));
}

nb::object valueOf(const pex::PropertyDictionary::Value& value);

/// File texts need not be UTF-8: what is not shows as replacement characters.
nb::object textOf(const std::string& text) {
    return nb::steal(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

nb::dict dictOf(const pex::PropertyDictionary& properties) {
    nb::dict result;
    for (const auto& [key, value] : properties.values())
        result[textOf(key)] = valueOf(value);
    return result;
}

nb::object valueOf(const pex::PropertyDictionary::Value& value) {
    struct Visitor {
        nb::object operator()(const std::string& text) const { return textOf(text); }
        nb::object operator()(std::int64_t number) const { return nb::cast(number); }
        nb::object operator()(double number) const { return nb::cast(number); }
        nb::object operator()(const std::vector<double>& numbers) const { return nb::cast(numbers); }
        nb::object operator()(const pex::PropertyDictionary::Nested& nested) const { return dictOf(*nested); }
    };
    return std::visit(Visitor{}, value);
}

nb::object formatOf(const Image& image) {
    if (image.source() == nullptr) return nb::none();
    std::string name(pex::displayName(image.source()->properties().format));
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return nb::cast(name);
}

nb::dict infoOf(const Image& image) {
    if (image.source() == nullptr) return {};
    const pex::ImageProperties& header = image.source()->properties();
    nb::dict info = dictOf(image.source()->copyProperties());
    if (header.dpiWidth)
        info["dpi"] = nb::make_tuple(*header.dpiWidth, header.dpiHeight.value_or(*header.dpiWidth));
    if (header.profileName) info["profile"] = textOf(*header.profileName);
    return info;
}

std::pair<int, int> sizeOf(const Image& image) {
    const pex::CGSize size = image.size();
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

bool isIncomplete(const Image& image) {
    if (image.source() == nullptr) return false;
    pex::CGImageSource source = *image.source();
    return source.isIncomplete();
}

void load(const Image& image) { (void)image.arrayBitmap(); }

std::string describe(const Image& image) {
    const auto [width, height] = sizeOf(image);
    return "<peximage.Image " + image.mode() + " " + std::to_string(width) + "x" + std::to_string(height) +
           ">";
}

auto fieldsOf(auto& limits) {
    return std::tie(limits.maxPixels, limits.maxPixelsPerByte, limits.maxPixelMemory, limits.maxSourceBytes,
                    limits.maxPages, limits.maxMetadataBytes, limits.maxDecodingSeconds,
                    limits.maxDrawingSeconds);
}

using LimitsState =
    std::tuple<std::int64_t, std::int64_t, std::size_t, std::size_t, int, std::size_t, double, double>;

void addLimits(nb::module_& module) {
    nb::class_<pex::ImageLimits>(module, "Limits", "What may be opened; past a limit opening raises.")
        .def_rw("max_pixels", &pex::ImageLimits::maxPixels, "Width times height of one picture.")
        .def_rw("max_pixels_per_byte", &pex::ImageLimits::maxPixelsPerByte,
                "Pixels that one byte of a file may stand for, in pictures of more than 2^26 pixels.")
        .def_rw("max_pixel_memory", &pex::ImageLimits::maxPixelMemory,
                "Bytes that the pixels of all pictures may take together; 0 is half of the machine's memory.")
        .def_rw("max_source_bytes", &pex::ImageLimits::maxSourceBytes, "Bytes of one encoded file.")
        .def_rw("max_pages", &pex::ImageLimits::maxPages, "Pages of one document.")
        .def_rw("max_decoding_seconds", &pex::ImageLimits::maxDecodingSeconds,
                "Seconds that the decoding of one picture may take.")
        .def_rw("max_drawing_seconds", &pex::ImageLimits::maxDrawingSeconds,
                "Seconds that the drawing of one page may take.")
        .def_rw("max_metadata_bytes", &pex::ImageLimits::maxMetadataBytes,
                "Bytes of one piece of metadata, such as a colour profile.")
        .def("__getstate__", [](const pex::ImageLimits& self) { return LimitsState(fieldsOf(self)); })
        .def("__setstate__", [](pex::ImageLimits& self, const LimitsState& state) {
            fieldsOf(*new (&self) pex::ImageLimits()) = state;
        });
    module.def("get_limits", &pex::ImageLimits::current, "A copy of the limits of this process.");
    module.def("set_limits", &pex::ImageLimits::setCurrent, "limits"_a, "Sets the limits of this process.");
}

} // namespace

void addReading(nb::module_& module, ImageClass& image) {
    module.def("get_threads", &pex::threadCount, "On how many threads one call works at most.");
    module.def(
        "set_threads", &pex::setThreadCount, "count"_a,
        "Bounds the threads that one call works on; 0 is one a processor. PEXIMAGE_THREADS does the same.");
    module.def(
        "_open_file", [](const std::filesystem::path& path) { return Image::ofFile(path.string()); },
        "path"_a, Unlocked());
    module.def("_open_bytes", &openBytes, "encoded"_a);
    (void)onMainThread(); // learned now, while nobody waits
    module.def("_running", &runningBeside);
    module.def("_forget_running", &forgetRunning);
    addLimits(module);

    image.def_prop_ro("size", &sizeOf, "(width, height) in pixels, as the picture is seen.");
    image.def_prop_ro(
        "width", [](const Image& i) { return sizeOf(i).first; }, "In pixels.");
    image.def_prop_ro(
        "height", [](const Image& i) { return sizeOf(i).second; }, "In pixels.");
    image.def_prop_ro("mode", &Image::mode, "\"L\" (grey), \"RGB\" or \"RGBA\".");
    image.def_prop_ro("format", &formatOf,
                      "What the file is: \"jpeg\", \"png\" …; None for a picture that was computed.");
    image.def_prop_ro(
        "info", &infoOf, nb::sig("def info(self) -> dict[str, typing.Any]"),
        "What the file says of its picture: \"dpi\", \"profile\", and dictionaries \"Exif\", \"GPS\"\n"
        "and \"TIFF\" by the standards' names. Empty for a picture that was computed.");
    image.def_prop_ro(
        "is_incomplete", &isIncomplete, Unlocked(),
        "True when the file breaks off before its picture ends, as far as its structure tells;\n"
        "nothing is decoded.");
    image.def("load", interruptible(&load), "Decodes the pixels now instead of when they are first needed.");
    image.def("__repr__", &describe);
}

} // namespace pexpy
