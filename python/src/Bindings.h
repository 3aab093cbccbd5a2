#pragma once

#include "Image.h"

#include <nanobind/nanobind.h>

namespace pexpy {

using ImageClass = nanobind::class_<Image>;

/// Each adds its family of methods to the class, or functions to the module.
void addReading(nanobind::module_& module, ImageClass& image);
void addGeometry(ImageClass& image);
void addPixelWork(nanobind::module_& module, ImageClass& image);
void addArrays(nanobind::module_& module, ImageClass& image);
void addMetadata(nanobind::module_& module, ImageClass& image);
void addSaving(nanobind::module_& module, ImageClass& image);
void addDocuments(nanobind::module_& module);
void addPages(nanobind::module_& module);
void addCaches(nanobind::module_& module);

/// The slots by which memoryview() and NumPy see an image's pixels.
const PyType_Slot* bufferSlots();

/// Bytes as Python has them, and back; both copy.
inline nanobind::bytes bytesOf(const pex::Data& data) { return nanobind::bytes(data.data(), data.size()); }

inline pex::Data dataOf(const nanobind::bytes& bytes) {
    const auto* first = static_cast<const std::uint8_t*>(bytes.data());
    return pex::Data(std::vector<std::uint8_t>(first, first + bytes.size()));
}

/// While a call of the library runs, other Python threads may.
using Unlocked = nanobind::call_guard<nanobind::gil_scoped_release>;

} // namespace pexpy
