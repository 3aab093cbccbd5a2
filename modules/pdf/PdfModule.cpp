#include "peximage/platform/codecs/PdfModule.h"

#include "peximage/platform/foundation/Module.h"

#include <cairo.h>
#include <memory>
#include <poppler.h>
#include <utility>

struct pex::PdfModule::Document {
    PopplerDocument* document;

    ~Document() { g_object_unref(document); }
};

namespace {

using Document = pex::PdfModule::Document;

struct Unref {
    void operator()(PopplerPage* page) const { g_object_unref(page); }
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
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
    return document != nullptr ? new Document{document} : nullptr;
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
    if (page) poppler_page_get_size(page.get(), width, height);
    return page != nullptr;
}

/// The surface's pixels are 32-bit numbers A R G B in the machine's byte order.
void toBytes(std::uint8_t* row, int pixels) {
    for (int i = 0; i < pixels; ++i, row += 4) {
        const std::uint32_t argb = *reinterpret_cast<const std::uint32_t*>(row);
        row[0] = static_cast<std::uint8_t>(argb >> 16);
        row[1] = static_cast<std::uint8_t>(argb >> 8);
        row[2] = static_cast<std::uint8_t>(argb);
        row[3] = static_cast<std::uint8_t>(argb >> 24);
    }
}

bool render(Document* document, int index, int width, int height, std::uint8_t* pixels,
            std::ptrdiff_t bytesPerRow) {
    const Page page = pageAt(document, index);
    if (!page) return false;
    double pointsWide = 0, pointsHigh = 0;
    poppler_page_get_size(page.get(), &pointsWide, &pointsHigh);
    const std::unique_ptr<cairo_surface_t, Unref> surface(cairo_image_surface_create_for_data(
        pixels, CAIRO_FORMAT_ARGB32, width, height, static_cast<int>(bytesPerRow)));
    const std::unique_ptr<cairo_t, Unref> context(cairo_create(surface.get()));
    cairo_scale(context.get(), width / pointsWide, height / pointsHigh);
    poppler_page_render(page.get(), context.get());
    cairo_surface_flush(surface.get());
    if (cairo_status(context.get()) == CAIRO_STATUS_NO_MEMORY ||
        cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS)
        return false;
    for (int y = 0; y < height; ++y)
        toBytes(pixels + y * bytesPerRow, width);
    return true;
}

constexpr pex::PdfModule functions{open, needsPassword, close, pageCount, pageSize, render};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{pex::PdfModule::version, &functions};
