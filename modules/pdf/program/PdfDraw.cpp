// Draws pages of a PDF document for the module "pdf", which starts it and may end it at any time.
#include "modules/pdf/DrawingRequest.h"

#include <cairo.h>
#include <memory>
#include <poppler.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Unref {
    void operator()(PopplerDocument* document) const { g_object_unref(document); }
    void operator()(PopplerPage* page) const { g_object_unref(page); }
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Document = std::unique_ptr<PopplerDocument, Unref>;

Document openDocument() {
    struct stat file {};
    if (fstat(DrawingRequest::document, &file) != 0 || file.st_size <= 0) return nullptr;
    const auto size = static_cast<std::size_t>(file.st_size);
    void* memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, DrawingRequest::document, 0);
    if (memory == MAP_FAILED) return nullptr;
    GBytes* bytes = g_bytes_new_static(memory, size);
    Document document(poppler_document_new_from_bytes(bytes, nullptr, nullptr));
    g_bytes_unref(bytes);
    return document;
}

bool drawInto(PopplerPage* page, const DrawingRequest& request, std::uint8_t* pixels) {
    double pointsWide = 0, pointsHigh = 0;
    poppler_page_get_size(page, &pointsWide, &pointsHigh);
    const std::unique_ptr<cairo_surface_t, Unref> surface(cairo_image_surface_create_for_data(
        pixels, CAIRO_FORMAT_ARGB32, request.width, request.height, request.width * 4));
    const std::unique_ptr<cairo_t, Unref> context(cairo_create(surface.get()));
    cairo_scale(context.get(), request.width / pointsWide, request.height / pointsHigh);
    poppler_page_render(page, context.get());
    cairo_surface_flush(surface.get());
    return cairo_status(context.get()) != CAIRO_STATUS_NO_MEMORY &&
           cairo_surface_status(surface.get()) == CAIRO_STATUS_SUCCESS;
}

bool draw(PopplerDocument* document, const DrawingRequest& request) {
    if (request.page < 0 || request.page >= poppler_document_get_n_pages(document)) return false;
    const std::unique_ptr<PopplerPage, Unref> page(poppler_document_get_page(document, request.page));
    const std::size_t bytes =
        std::size_t{4} * static_cast<std::size_t>(request.width) * static_cast<std::size_t>(request.height);
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, DrawingRequest::pixels, 0);
    if (!page || memory == MAP_FAILED) return false;
    const bool drawn = drawInto(page.get(), request, static_cast<std::uint8_t*>(memory));
    munmap(memory, bytes);
    return drawn;
}

} // namespace

int main() {
    Document document;
    DrawingRequest request;
    while (read(DrawingRequest::socket, &request, sizeof request) == sizeof request) {
        alarm(request.seconds);
        if (!document) document = openDocument();
        const std::uint8_t drawn = document && draw(document.get(), request) ? 1 : 0;
        alarm(0);
        if (write(DrawingRequest::socket, &drawn, 1) != 1) break;
    }
    _exit(0); // nothing is worth tidying up
}
