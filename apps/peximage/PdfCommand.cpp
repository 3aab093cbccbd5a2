#include "Commands.h"
#include "Printable.h"
#include "Saving.h"
#include "Text.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/toolkit/NSPDFImageRep.h"

#include <condition_variable>
#include <iostream>
#include <mutex>

namespace {

struct Request {
    Settings settings;
    WritingOptions writing;
    std::string document;
    int dpi = 150;
    std::optional<int> page;
    bool transparent = false;
};

/// Documents of one file, handed to one thread at a time: pages are drawn side by side.
class Documents {
  public:
    Documents(pex::Data bytes, std::shared_ptr<pex::NSPDFImageRep> first) : bytes_(std::move(bytes)) {
        free_.push_back(std::move(first));
    }

    std::shared_ptr<pex::NSPDFImageRep> take() {
        {
            const std::lock_guard lock(mutex_);
            if (!free_.empty()) {
                auto document = std::move(free_.back());
                free_.pop_back();
                return document;
            }
        }
        return pex::NSPDFImageRep::make(bytes_);
    }
    void giveBack(std::shared_ptr<pex::NSPDFImageRep> document) {
        const std::lock_guard lock(mutex_);
        free_.push_back(std::move(document));
    }

  private:
    pex::Data bytes_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<pex::NSPDFImageRep>> free_;
};

/// Lets pages in as long as they fit into a certain memory, together; a larger one goes alone.
class Room {
  public:
    void enter(double bytes) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return taken_ == 0 || taken_ + bytes <= mostBytes; });
        taken_ += bytes;
    }
    void leave(double bytes) {
        const std::lock_guard lock(mutex_);
        taken_ -= bytes;
        changed_.notify_all();
    }

  private:
    static constexpr double mostBytes = 512e6;
    std::mutex mutex_;
    std::condition_variable changed_;
    double taken_ = 0;
};

/// The page on white paper.
std::optional<pex::CGImage> onPaper(const pex::CGImage& page) {
    const auto paper =
        pex::CGContext::make(page.width(), page.height(), pex::PixelLayout::skipLast, page.colorSpace());
    if (!paper) return std::nullopt;
    const pex::CGRect whole{0, 0, double(page.width()), double(page.height())};
    paper->setFillColor({1, 1, 1, 1});
    paper->fill(whole);
    paper->draw(page, whole);
    return paper->makeImage();
}

std::shared_ptr<pex::PexImage> drawPage(pex::NSPDFImageRep& document, pex::CGSize pixels,
                                        const Request& request) {
    auto image = document.cgImage(static_cast<int>(pixels.width), static_cast<int>(pixels.height));
    if (image && !request.transparent) image = onPaper(*image);
    return image ? pex::PexImage::make(*image) : nullptr;
}

Outcome writePage(Documents& documents, Room& room, const Input& page, const Destination& destination,
                  const WritingOptions& writing, const Request& request) {
    const auto document = documents.take();
    if (!document) return libraryFailure("cannot be drawn");
    document->setCurrentPage(*page.page);
    constexpr double pointsPerInch = 72, longest = 1e9;
    const double scale = request.dpi / pointsPerInch;
    const pex::CGSize points = document->size(), pixels{std::min(points.width * scale, longest),
                                                        std::min(points.height * scale, longest)};
    constexpr double bytesPerPixel = 4 + 4; // as it is drawn, and on paper
    const double bytes = pixels.width * pixels.height * bytesPerPixel;
    room.enter(bytes);
    const auto image = drawPage(*document, pixels, request);
    documents.giveBack(document);
    Outcome outcome =
        image ? saveImage(page, image, destination, writing) : Outcome(libraryFailure("cannot be drawn"));
    room.leave(bytes);
    if (auto* const result = std::get_if<Result>(&outcome)) result->bytesBefore = 0; // of all pages
    return outcome;
}

int fail(const std::string& file, const std::string& why) {
    std::cerr << "peximage: " << printable(file + ": " + why) << '\n';
    return 1;
}

/// Every page is an input of its own to the batch, so that pages go side by side and are told in order.
int drawPages(const Request& request, Documents& documents, int first, int count) {
    const Input& file = request.settings.inputs[0];
    Settings pages = request.settings;
    pages.inputs.clear();
    pages.intoFolder = true;
    for (int page = first; page < first + count; ++page) {
        const std::string number = std::to_string(page + 1);
        const std::string place = file.place.stem().string() + '-' + number + ".pdf";
        pages.inputs.push_back({file.name, file.path, place, {}, page});
    }
    WritingOptions writing = request.writing;
    if (!writing.dpi) writing.dpi = request.dpi;
    if (!writing.format) writing.format = "png";
    Room room;
    return runWriting(pages, writing, [&](const Input& page, const Destination& destination) {
        return writePage(documents, room, page, destination, writing, request);
    });
}

int pdf(Request& request) {
    request.settings.inputs = {inputNamed(request.document)};
    const std::string& file = request.settings.inputs[0].name;
    if (!pex::NSPDFImageRep::isAvailable()) return fail(file, "built without PDF");
    forgetReason();
    const auto bytes = pex::Data::contentsOf(pex::URL::fromPath(request.settings.inputs[0].path),
                                             pex::ImageLimits::current().maxSourceBytes);
    if (!bytes) return fail(file, libraryFailure("cannot be read").message);
    if (bytes->empty()) return fail(file, "is empty");
    auto document = pex::NSPDFImageRep::make(*bytes);
    if (!document) return fail(file, libraryFailure("not a PDF document").message);
    const int count = document->pageCount(), first = request.page.value_or(1) - 1;
    if (count == 0) return fail(file, "has no pages");
    if (first >= count)
        return fail(file,
                    "has no page " + std::to_string(first + 1) + "; the last is " + std::to_string(count));
    Documents documents(*bytes, std::move(document));
    return drawPages(request, documents, first, request.page ? 1 : count);
}

} // namespace

void addPdf(CLI::App& program, int& status) {
    CLI::App* command = program.add_subcommand("pdf", "Draws the pages of a PDF document");
    const auto request = std::make_shared<Request>();
    command->add_option("input", request->document, "A PDF document, or an illustration file")
        ->required()
        ->type_name("FILE");
    addReportOptions(*command, request->settings);
    command->add_option("-o,--output", request->writing.output, "The folder for the pages: FILE-1.png …")
        ->required()
        ->type_name("FOLDER");
    command->add_option("--dpi", request->dpi, "Pixels per inch (default: 150)")
        ->check(wholeBetween(1, 10'000))
        ->type_name("N");
    command->add_option("--page", request->page, "One page alone, counted from 1")
        ->check(wholeBetween(1, anyWhole))
        ->type_name("N");
    command->add_option("--format", request->writing.format, "Of the pages (default: png)")
        ->type_name(writableExtensions("|"));
    command->add_flag("--transparent", request->transparent, "No white paper below the page");
    addWorkOptions(*command, request->settings);
    addRunOptions(*command, request->writing);
    command->footer("Example: peximage pdf report.pdf -o pages --dpi 200");
    command->callback([request, &status] { status = pdf(*request); });
}
