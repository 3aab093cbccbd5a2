#include "peximage/platform/codecs/PdfDocument.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/PdfModule.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"

#include <utility>

namespace pex {

struct PdfDocument::Handle {
    const PdfModule* module;
    PdfModule::Document* document;

    ~Handle() { module->close(document); }
};

PdfDocument::PdfDocument(Data bytes, std::unique_ptr<Handle> handle)
    : bytes_(std::move(bytes)), handle_(std::move(handle)) {}

PdfDocument::~PdfDocument() = default;

bool PdfDocument::isAvailable() { return loadModule<PdfModule>(PdfModule::name) != nullptr; }

std::unique_ptr<PdfDocument> PdfDocument::open(const Data& bytes) {
    return absentWithoutMemory([&]() -> std::unique_ptr<PdfDocument> {
        const auto* module = loadModule<PdfModule>(PdfModule::name);
        constexpr std::size_t takenByOpening = std::size_t{8} << 20;
        expectMemory(takenByOpening + bytes.size());
        PdfModule::Document* document =
            module != nullptr ? module->open(bytes.data(), bytes.size()) : nullptr;
        if (document == nullptr) {
            if (needsPassword(bytes)) giveReason(ReasonCode::needsPassword, "needs a password");
            return nullptr;
        }
        return std::unique_ptr<PdfDocument>(new PdfDocument(
            bytes, std::unique_ptr<Handle>(new Handle{module, document}))); // NOLINT: an aggregate
    });
}

bool PdfDocument::needsPassword(const Data& bytes) {
    const auto* module = loadModule<PdfModule>(PdfModule::name);
    return module != nullptr && module->needsPassword(bytes.data(), bytes.size());
}

int PdfDocument::pageCount() const { return handle_->module->pageCount(handle_->document); }

CGSize PdfDocument::pageSize(int page) const {
    CGSize size;
    const bool known = handle_->module->pageSize(handle_->document, page, &size.width, &size.height);
    return known ? size : CGSize{};
}

bool PdfDocument::render(int page, MutablePixelView pixels) const {
    using Drawn = PdfModule::Drawn;
    const double seconds = ImageLimits::current().maxDrawingSeconds;
    const Drawn drawn = handle_->module->render(
        handle_->document, {page, pixels.width, pixels.height, pixels.row(0), pixels.bytesPerRow, seconds});
    if (drawn == Drawn::late)
        giveReason(ReasonCode::timedOut,
                   "drawing the page took longer than the limit of " + decimalText(seconds) + " seconds");
    if (drawn == Drawn::failed) giveReason(ReasonCode::damaged, "the page cannot be drawn");
    return drawn == Drawn::done;
}

} // namespace pex
