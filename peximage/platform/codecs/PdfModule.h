#pragma once

#include <cstddef>
#include <cstdint>

namespace pex {

/// What the module "pdf" offers: pages of PDF documents, and of the illustration files that are PDF documents
/// inside. A document serves one thread at a time; different ones may be used at once.
struct PdfModule {
    static constexpr int version = 3;
    static constexpr const char* name = "pdf";

    struct Document;

    /// A page stretched to width × height pixels, over zeroed pixels: R G B A, premultiplied, rows top first.
    struct Drawing {
        int page;
        int width, height;
        std::uint8_t* pixels;
        std::ptrdiff_t bytesPerRow;
        /// It may take no longer.
        double seconds;
    };
    enum class Drawn {
        done,
        failed, ///< No such page, no memory, or a page that is too much for what draws it.
        late,
    };

    /// Null for bytes that are no PDF document, or one that needs a password. They must outlive it.
    Document* (*open)(const std::uint8_t* bytes, std::size_t size);
    /// True for a document that only its password opens.
    bool (*needsPassword)(const std::uint8_t* bytes, std::size_t size);
    void (*close)(Document* document);
    int (*pageCount)(const Document* document);
    /// In points, as the page is seen and in the unit that it names. False when there is no such page.
    bool (*pageSize)(Document* document, int page, double* width, double* height);
    Drawn (*render)(Document* document, const Drawing& drawing);
};

} // namespace pex
