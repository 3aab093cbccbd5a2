#include "Bindings.h"
#include "Failure.h"
#include "peximage/cache/PexImageCache.h"
#include "peximage/cache/PexImageStoredCache.h"

#include <filesystem>
#include <nanobind/stl/filesystem.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

using pex::PexImageCache;
using Stored = pex::PexImageStoredCache;

/// What Python's function makes, for the library to keep. What it raises goes through the library to the
/// caller, and nothing is kept.
std::function<Image::Picture()> makerOf(const nb::callable& make) {
    return [&make] {
        const Image made = [&] {
            const nb::gil_scoped_acquire locked;
            const nb::object result = make();
            if (!nb::isinstance<Image>(result)) throw nb::type_error("what makes a picture gave none");
            return nb::cast<Image>(result);
        }();
        (void)made.bitmap();
        made.checkWhole();
        return made.picture();
    };
}

Image made(const Image::Picture& picture) {
    if (!picture) fail("there is nothing to keep");
    return Image(picture);
}

Image kept(PexImageCache& cache, const std::string& id, const nb::callable& make,
           std::optional<double> maxSide) {
    if (maxSide && !(*maxSide >= 1)) failArgument("a side is at least one pixel");
    const nb::gil_scoped_release unlocked;
    return made(cache.getImageOrCalc({.withId = id, .maxSize = maxSide, .calcClosure = makerOf(make)}));
}

std::size_t count(const PexImageCache& cache) {
    std::size_t entries = 0;
    PexImageCache::workQueue().sync([&] { entries = cache.cachedImageList.size(); });
    return entries;
}

std::shared_ptr<Stored> openStored(const std::string& name, std::int64_t days, const std::string& format,
                                   std::optional<std::int64_t> minSide) {
    if (format != "png" && format != "jpeg") failArgument("format is \"png\" or \"jpeg\"");
    if (days < 0) failArgument("days are not negative");
    if (minSide && *minSide < 1) failArgument("a side is at least one pixel");
    return Stored::make({.name = name,
                         .removeItemsAfterDays = days,
                         .mode = format == "png" ? Stored::Mode::png : Stored::Mode::heif,
                         .resizeMinSideToMax = minSide});
}

std::filesystem::path pathOf(const Stored& cache, const std::string& id) {
    const auto url = cache.imageUrl(id);
    if (!url) failArgument("no file of the cache has such a name");
    return url->path();
}

void store(Stored& cache, const std::string& id, const Image& image) {
    (void)pathOf(cache, id);
    (void)image.bitmap();
    image.checkWhole();
    if (!cache.storeNow(image.picture(), id)) fail("cannot be stored");
}

std::optional<Image> stored(Stored& cache, const std::string& id) {
    const auto picture = cache.retrieveImage(id);
    return picture ? std::optional(Image(picture)) : std::nullopt;
}

Image storedOrMade(Stored& cache, const std::string& id, const nb::callable& make) {
    const nb::gil_scoped_release unlocked;
    (void)pathOf(cache, id);
    return made(cache.retrieveOrCalc({.imageWithId = id, .calc = makerOf(make)}));
}

void addStored(nb::module_& module) {
    nb::class_<Stored>(
        module, "StoredCache",
        "Keeps pictures on disk, a file for each identifier, in a folder of the user's caches folder:\n"
        "`cache[id] = picture`, `cache[id]`, `cache.get(id)`, `id in cache`, `list(cache)`. Files appear "
        "whole\n"
        "or not at all; a damaged one counts as missing. Pixels and their profile are kept, not what a "
        "photo\n"
        "says beside them. Any thread, any number of processes.")
        .def(nb::new_(&openStored), "name"_a, nb::kw_only(), "days"_a = 30, "format"_a = "png",
             "max_min_side"_a = nb::none(),
             "Files older than so many days are deleted, now and at every start. \"jpeg\" writes at a "
             "quality\n"
             "of 0.75. Pictures whose shorter side has more than `max_min_side` pixels are reduced first.")
        .def("__setitem__", &store, "id"_a, "image"_a, Unlocked())
        .def(
            "__getitem__",
            [](Stored& cache, const std::string& id) {
                auto found = stored(cache, id);
                if (!found) throw nb::key_error(id.c_str());
                return *found;
            },
            "id"_a, Unlocked())
        .def(
            "__contains__",
            [](const Stored& cache, const std::string& id) {
                const auto url = cache.imageUrl(id);
                std::error_code none;
                return url && std::filesystem::exists(url->path(), none);
            },
            "id"_a, Unlocked())
        .def(
            "__len__", [](const Stored& cache) { return cache.identifiers().size(); }, Unlocked())
        .def(
            "__iter__", [](const Stored& cache) { return nb::iter(nb::cast(cache.identifiers())); },
            nb::sig("def __iter__(self) -> collections.abc.Iterator[str]"))
        .def("get", &stored, "id"_a, Unlocked(), "The picture, or None.")
        .def("get_or_make", &storedOrMade, "id"_a, "make"_a,
             nb::sig("def get_or_make(self, id: str, make: collections.abc.Callable[[], Image]) -> Image"),
             "The picture from memory or disk, or what `make()` gives, which is stored in the background.")
        .def("path", &pathOf, "id"_a, Unlocked(), "The file of an identifier, whether or not it is there.")
        .def("remove_old", &Stored::removeOldItemsNow, Unlocked(),
             "Deletes the files that are too old now; returns how many.");
}

} // namespace

void addCaches(nb::module_& module) {
    nb::class_<PexImageCache>(
        module, "ImageCache",
        "Keeps pictures in memory that are dear to make, by identifiers; of more than `max_images` those "
        "that\n"
        "were not asked for longest are dropped. Pixels and their profile are kept. Any thread.")
        .def(nb::new_([](std::optional<std::int64_t> most) {
                 if (most && *most < 0) failArgument("max_images is not negative");
                 return PexImageCache::make({most});
             }),
             "max_images"_a = nb::none())
        .def("get_or_make", &kept, "id"_a, "make"_a, nb::kw_only(), "max_side"_a = nb::none(),
             nb::sig("def get_or_make(self, id: str, make: collections.abc.Callable[[], Image], *, max_side: "
                     "typing.Optional[float] = None) -> Image"),
             "The picture of an identifier, or what `make()` gives, reduced to `max_side` before it is kept.")
        .def("__len__", &count, Unlocked());
    addStored(module);
}

} // namespace pexpy
