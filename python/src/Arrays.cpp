#include "Bindings.h"
#include "Failure.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/raster/ApplicationPixels.h"

#include <array>
#include <memory>
#include <nanobind/ndarray.h>
#include <nanobind/stl/array.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

using ReadOnlyPixels = nb::ndarray<nb::array_api, nb::ro, const std::uint8_t, nb::device::cpu>;

/// How an array sees pixels: height × width of grey, or height × width × channels.
struct ArrayShape {
    const std::uint8_t* data;
    int dimensions;
    std::array<Py_ssize_t, 3> extents, strides; // in bytes

    explicit ArrayShape(const pex::CGImage& bitmap) {
        const pex::PixelView view = *bitmap.pixels();
        const int pixel = pex::bytesPerPixel(view.layout);
        data = view.data;
        dimensions = pixel == 1 ? 2 : 3;
        extents = {view.height, view.width, pex::hasAlpha(view.layout) ? 4 : 3};
        strides = {view.bytesPerRow, pixel, 1};
    }
};

/// Keeps the pixels while somebody holds a buffer of them.
struct Exported {
    pex::CGImage bitmap;
    ArrayShape shape;
    explicit Exported(pex::CGImage image) : bitmap(std::move(image)), shape(bitmap) {}
};

int getBuffer(PyObject* object, Py_buffer* buffer, int flags) {
    try {
        std::unique_ptr<Exported> exported;
        {
            const Image image = nb::cast<Image>(nb::handle(object));
            const nb::gil_scoped_release unlocked;
            exported = std::make_unique<Exported>(image.arrayBitmap());
        }
        if ((flags & PyBUF_WRITABLE) == PyBUF_WRITABLE || (flags & PyBUF_STRIDES) != PyBUF_STRIDES) {
            PyErr_SetString(PyExc_BufferError, "the pixels of an image are read-only, in strided rows");
            return -1;
        }
        ArrayShape& shape = exported->shape;
        *buffer = {};
        buffer->buf = const_cast<std::uint8_t*>(shape.data);
        buffer->obj = Py_NewRef(object);
        buffer->itemsize = 1;
        buffer->readonly = 1;
        buffer->ndim = shape.dimensions;
        buffer->format = (flags & PyBUF_FORMAT) == PyBUF_FORMAT ? const_cast<char*>("B") : nullptr;
        buffer->shape = shape.extents.data();
        buffer->strides = shape.strides.data();
        buffer->len = shape.extents[0] * shape.extents[1] * (shape.dimensions == 3 ? shape.extents[2] : 1);
        buffer->internal = exported.release();
        return 0;
    } catch (...) {
        if (!setPythonError()) PyErr_SetString(PyExc_BufferError, "the pixels cannot be had");
    }
    return -1;
}

void releaseBuffer(PyObject*, Py_buffer* buffer) { delete static_cast<Exported*>(buffer->internal); }

nb::dict arrayInterface(const Image& image) {
    const ArrayShape shape = [&] {
        const nb::gil_scoped_release unlocked;
        return ArrayShape(image.arrayBitmap());
    }();
    const bool grey = shape.dimensions == 2;
    nb::dict interface;
    interface["version"] = 3;
    interface["typestr"] = "|u1";
    interface["data"] = nb::make_tuple(reinterpret_cast<std::uintptr_t>(shape.data), true);
    interface["shape"] = grey ? nb::make_tuple(shape.extents[0], shape.extents[1])
                              : nb::make_tuple(shape.extents[0], shape.extents[1], shape.extents[2]);
    interface["strides"] = grey ? nb::make_tuple(shape.strides[0], shape.strides[1])
                                : nb::make_tuple(shape.strides[0], shape.strides[1], shape.strides[2]);
    return interface;
}

/// For the exchange between libraries of arrays, which counts strides in elements; here these are bytes.
nb::object exchanged(const Image& image) {
    auto exported = [&] {
        const nb::gil_scoped_release unlocked;
        return std::make_unique<Exported>(image.arrayBitmap());
    }();
    const ArrayShape& shape = exported->shape;
    std::array<std::size_t, 3> extents{};
    std::array<std::int64_t, 3> strides{};
    for (std::size_t i = 0; i < 3; ++i) {
        extents[i] = static_cast<std::size_t>(shape.extents[i]);
        strides[i] = shape.strides[i];
    }
    const nb::capsule owner(exported.get(), [](void* kept) noexcept { delete static_cast<Exported*>(kept); });
    const ArrayShape& pixels = exported.release()->shape;
    return nb::cast(ReadOnlyPixels(pixels.data, static_cast<std::size_t>(pixels.dimensions), extents.data(),
                                   owner, strides.data()));
}

nb::object dlpack(const Image& image, const nb::kwargs& options) {
    return exchanged(image).attr("__dlpack__")(**options);
}

using Array = nb::ndarray<nb::ro, nb::device::cpu>;

struct Channels {
    pex::PixelBytes bytes;
    bool isPremultiplied = false;
};

Channels channelsOf(const std::string& mode) {
    using enum pex::PixelBytes;
    if (mode == "L") return {grey};
    if (mode == "RGB") return {rgb};
    if (mode == "BGR") return {bgr};
    if (mode == "RGBA") return {rgba};
    if (mode == "BGRA") return {bgra};
    if (mode == "RGBX") return {rgbx};
    if (mode == "RGBa") return {rgba, true};
    failArgument("mode is one of L, RGB, BGR, RGBX, RGBA, BGRA and RGBa (alpha multiplied in)");
}

std::string usualMode(const Array& array) {
    if (array.ndim() == 2) return "L";
    return array.ndim() == 3 && array.shape(2) == 4 ? "RGBA" : "RGB";
}

void checkArray(const Array& array, const Channels& channels) {
    const auto count = static_cast<std::size_t>(pex::byteCount(channels.bytes));
    if (array.dtype() != nb::dtype<std::uint8_t>())
        throw nb::type_error("the array is not of unsigned bytes");
    const bool grey = count == 1;
    const bool fits = array.ndim() == (grey ? 2U : 3U) && (grey || array.shape(2) == count);
    if (!fits) failArgument("the array is not of shape (height, width, channels) as its mode has it");
    constexpr std::size_t most = 1 << 30;
    if (array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > most || array.shape(1) > most)
        failArgument("a side of the array is empty or too long");
    if (!pex::ImageLimits::current().allows(static_cast<std::int64_t>(array.shape(1)),
                                            static_cast<std::int64_t>(array.shape(0))))
        fail("the array is too large");
}

const std::uint8_t* firstOf(const Array& array) { return static_cast<const std::uint8_t*>(array.data()); }

/// Whether whole pixels lie side by side in each row, and rows one below the other.
bool isDense(const Array& array, std::int64_t count) {
    return array.stride(1) == count && (array.ndim() < 3 || array.stride(2) == 1) &&
           array.stride(0) >= count * static_cast<std::int64_t>(array.shape(1));
}

/// The bytes of an array of any strides, without gaps.
std::vector<std::uint8_t> gathered(const Array& array, std::int64_t count) {
    const auto height = static_cast<std::int64_t>(array.shape(0)),
               width = static_cast<std::int64_t>(array.shape(1));
    const std::int64_t channel = array.ndim() < 3 ? 0 : array.stride(2);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(height * width * count));
    auto to = bytes.begin();
    for (std::int64_t y = 0; y < height; ++y)
        for (std::int64_t x = 0; x < width; ++x)
            for (std::int64_t c = 0; c < count; ++c)
                *to++ = firstOf(array)[y * array.stride(0) + x * array.stride(1) + c * channel];
    return bytes;
}

/// Lets the array go when the last image over it is gone, on whatever thread that is.
std::function<void()> releaseOf(const Array& array) {
    auto kept = std::make_shared<Array>(array);
    return [kept = std::move(kept)]() mutable {
        if (!nb::is_alive()) return (void)new std::shared_ptr<Array>(std::move(kept)); // Python is gone
        const nb::gil_scoped_acquire locked;
        kept.reset();
    };
}

Image fromArray(const Array& array, const std::string& mode) {
    const Channels channels = channelsOf(mode.empty() ? usualMode(array) : mode);
    checkArray(array, channels);
    const int count = pex::byteCount(channels.bytes);
    const auto width = static_cast<int>(array.shape(1)), height = static_cast<int>(array.shape(0));
    const bool dense = isDense(array, count);
    const bool shares = dense && count != 3 && channels.bytes != pex::PixelBytes::bgra;
    const std::vector<std::uint8_t> copy = dense ? std::vector<std::uint8_t>() : gathered(array, count);
    const pex::ConstApplicationPixels pixels{dense ? firstOf(array) : copy.data(),
                                             width,
                                             height,
                                             dense ? array.stride(0) : std::ptrdiff_t{width} * count,
                                             channels.bytes,
                                             channels.isPremultiplied};
    const auto release = shares ? releaseOf(array) : std::function<void()>();
    const nb::gil_scoped_release unlocked;
    const auto bitmap = shares ? pex::imageOfShared(pixels, release) : pex::imageOfCopied(pixels);
    if (!bitmap) fail("the array cannot become a picture");
    return Image(pex::PexImage::make(*bitmap));
}

/// A picture in plain values: its rows without padding, as arrays show them, its colour profile, and its EXIF
/// block, XMP packets and image resources.
using State = std::tuple<std::string, int, int, nb::bytes, nb::bytes, std::array<nb::bytes, 4>>;

std::string modeOf(const pex::CGImage& bitmap) {
    if (bitmap.layout() == pex::PixelLayout::grey) return "L";
    return pex::hasAlpha(bitmap.layout()) ? "RGBA" : "RGB";
}

/// Of a bitmap that arrays can show: its rows without padding.
std::vector<std::uint8_t> rowsOf(const pex::CGImage& bitmap) {
    const pex::PixelBytes bytes = channelsOf(modeOf(bitmap)).bytes;
    const std::ptrdiff_t stride = std::ptrdiff_t{bitmap.width()} * pex::byteCount(bytes);
    std::vector<std::uint8_t> rows(static_cast<std::size_t>(stride) *
                                   static_cast<std::size_t>(bitmap.height()));
    if (!pex::copyPixels(bitmap, {rows.data(), bitmap.width(), bitmap.height(), stride, bytes}))
        fail("the pixels cannot be had");
    return rows;
}

State stateOf(const Image& image) {
    std::optional<pex::CGImage> bitmap;
    std::vector<std::uint8_t> rows;
    pex::ImageMetadata metadata;
    {
        const nb::gil_scoped_release unlocked;
        bitmap = image.arrayBitmap();
        rows = rowsOf(*bitmap);
        metadata = image.metadata();
    }
    return {modeOf(*bitmap),
            bitmap->width(),
            bitmap->height(),
            nb::bytes(rows.data(), rows.size()),
            bytesOf(bitmap->colorSpace().iccProfile()),
            {bytesOf(metadata.exif), bytesOf(metadata.xmp), bytesOf(metadata.extendedXmp),
             bytesOf(metadata.resources)}};
}

/// The profile's space where it is of such pixels, as after a conversion to other ones it may not be.
pex::CGColorSpace spaceOf(const nb::bytes& profile, bool isGrey) {
    using enum pex::CGColorSpace::Model;
    const auto space = pex::CGColorSpace::fromICC(dataOf(profile));
    if (space && space->model() == (isGrey ? gray : rgb)) return *space;
    return isGrey ? pex::CGColorSpace::deviceGray() : pex::CGColorSpace::sRGB();
}

Image imageOf(const State& state) {
    const auto& [mode, width, height, pixels, profile, blocks] = state;
    const pex::PixelBytes bytes = channelsOf(mode).bytes;
    if (!pex::ImageLimits::current().allows(width, height)) fail("too large");
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * pex::byteCount(bytes);
    if (pixels.size() != static_cast<std::size_t>(stride) * static_cast<std::size_t>(height))
        failArgument("there are not as many pixels as the size says");
    const auto bitmap =
        pex::imageOfCopied({static_cast<const std::uint8_t*>(pixels.data()), width, height, stride, bytes},
                           spaceOf(profile, bytes == pex::PixelBytes::grey));
    if (!bitmap) fail("the picture cannot be made again");
    return Image(pex::PexImage::make(*bitmap),
                 {dataOf(blocks[0]), dataOf(blocks[1]), dataOf(blocks[2]), dataOf(blocks[3])});
}

PyType_Slot slots[] = {{Py_bf_getbuffer, reinterpret_cast<void*>(&getBuffer)},
                       {Py_bf_releasebuffer, reinterpret_cast<void*>(&releaseBuffer)},
                       {0, nullptr}};

} // namespace

const PyType_Slot* bufferSlots() { return slots; }

void addArrays(nb::module_& module, ImageClass& image) {
    image.def_prop_ro(
        "__array_interface__", &arrayInterface,
        nb::sig("def __array_interface__(self) -> dict[str, typing.Any]"),
        "The pixels for NumPy, read-only and not copied: (height, width) of \"L\",\n"
        "(height, width, 3) of \"RGB\", (height, width, 4) of \"RGBA\" (alpha not multiplied in).");
    image.def("__dlpack__", &dlpack, nb::sig("def __dlpack__(self, **options: typing.Any) -> typing.Any"),
              "The same pixels for other libraries of arrays; `max_version` at least (1, 0), as they are\n"
              "read-only.");
    image.def(
        "__dlpack_device__", [](const Image&) { return std::pair(1, 0); }, "(1, 0): in memory.");
    image.def("__getstate__", &stateOf);
    image.def("__setstate__", [](Image& self, const State& state) { new (&self) Image(imageOf(state)); });
    module.def("_from_array", &fromArray, nb::arg("array").noconvert(), "mode"_a = "",
               nb::sig("def _from_array(array: typing.Any, mode: str = '') -> Image"));
    module.def("_from_state", &imageOf, "state"_a);
}

} // namespace pexpy
