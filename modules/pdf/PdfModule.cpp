#include "peximage/platform/codecs/PdfModule.h"

#include "modules/pdf/PageDrawing.h"
#include "modules/pdf/PageUnits.h"
#include "peximage/platform/foundation/Module.h"

#include <memory>
#include <new>
#include <poppler.h>
#include <utility>

struct pex::PdfModule::Document {
    PopplerDocument* document;
    PageUnits units;
    PageDrawing drawing;

    Document(PopplerDocument* opened, const std::uint8_t* bytes, std::size_t size)
        : document(opened), units(bytes, size), drawing(bytes, size) {}
    ~Document() { g_object_unref(document); }
};

namespace {

using Document = pex::PdfModule::Document;

struct Unref {
    void operator()(PopplerPage* page) const { g_object_unref(page); }
};
using Page = std::unique_ptr<PopplerPage, Unref>;

/// Broken documents are told by the result, not on the standard error of a program that opens them.
void dropMessage(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

/// Null, and `error` says why, for what cannot be opened.
PopplerDocument* openBytes(const std::uint8_t* data, std::size_t size, GError** error) {
    static const guint quiet =
        g_log_set_handler("Poppler", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK), dropMessage, nullptr);
    static_cast<void>(quiet);
    GBytes* bytes = g_bytes_new_static(data, size);
    PopplerDocument* document = poppler_document_new_from_bytes(bytes, nullptr, error);
    g_bytes_unref(bytes);
    return document;
}

Document* open(const std::uint8_t* data, std::size_t size) {
    PopplerDocument* document = openBytes(data, size, nullptr);
    return document != nullptr ? new Document(document, data, size) : nullptr;
}

bool needsPassword(const std::uint8_t* data, std::size_t size) {
    GError* error = nullptr;
    if (PopplerDocument* document = openBytes(data, size, &error)) g_object_unref(document);
    const bool encrypted = g_error_matches(error, POPPLER_ERROR, POPPLER_ERROR_ENCRYPTED);
    g_clear_error(&error);
    return encrypted;
}

void close(Document* document) { delete document; }

int pageCount(const Document* document) { return poppler_document_get_n_pages(document->document); }

Page pageAt(Document* document, int page) {
    if (page < 0 || page >= pageCount(document)) return nullptr;
    return Page(poppler_document_get_page(document->document, page));
}

bool pageSize(Document* document, int index, double* width, double* height) {
    const Page page = pageAt(document, index);
    if (!page) return false;
    poppler_page_get_size(page.get(), width, height);
    const double unit = document->units.of(index);
    *width *= unit;
    *height *= unit;
    return true;
}

pex::PdfModule::Drawn render(Document* document, const pex::PdfModule::Drawing& drawing) try {
    if (drawing.page < 0 || drawing.page >= pageCount(document)) return pex::PdfModule::Drawn::failed;
    return document->drawing.draw(drawing);
} catch (const std::bad_alloc&) {
    return pex::PdfModule::Drawn::failed;
}

constexpr pex::PdfModule functions{open, needsPassword, close, pageCount, pageSize, render};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{pex::PdfModule::version, &functions};
