#include "Bindings.h"
#include "Failure.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/Version.h"

namespace nb = nanobind;

NB_MODULE(_core, module) {
    module.doc() = "The native part of peximage.";
    nb::set_leak_warnings(false); // what Python does not free when it ends is no fault
    module.attr("__version__") = PEX_VERSION_STRING;
    pex::diagnostics::setSink({}); // what the library says in passing is no business of Python's output
    pexpy::registerFailures();
    pexpy::ImageClass image(
        module, "Image", nb::type_slots(const_cast<PyType_Slot*>(pexpy::bufferSlots())),
        "A picture: an immutable value that is read, decoded and computed when its pixels\n"
        "are first needed. Safe to share between threads. Rows count from the top.");
    pexpy::addReading(module, image);
    pexpy::addGeometry(image);
    pexpy::addPixelWork(module, image);
    pexpy::addArrays(module, image);
    pexpy::addMetadata(module, image);
    pexpy::addSaving(module, image);
    pexpy::addDocuments(module);
    pexpy::addPages(module);
    pexpy::addCaches(module);
}
