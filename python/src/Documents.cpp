#include "Bindings.h"
#include "Failure.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/toolkit/NSPDFImageRep.h"

#include <nanobind/stl/filesystem.h>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

int pdfPageCount(const std::filesystem::path& path) {
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(path.string()));
    if (!bytes) fail("cannot be read", path.string());
    const auto document = pex::NSPDFImageRep::make(*bytes);
    if (!document) fail("not a PDF document", path.string());
    return document->pageCount();
}

Image pdfPage(const std::filesystem::path& path, int page, int dpi) {
    const auto picture = pex::PexImage::pdfDocumentToPexImage(
        {.pdfDocumentUrl = pex::URL::fromPath(path.string()), .pageN = page, .dpi = dpi});
    if (!picture) fail("the page cannot be drawn", path.string());
    return Image(picture);
}

} // namespace

void addDocuments(nb::module_& module) {
    module.def("_pdf_page_count", &pdfPageCount, "path"_a, Unlocked());
    module.def("_pdf_page", &pdfPage, "path"_a, "page"_a, "dpi"_a, Unlocked());
}

} // namespace pexpy
