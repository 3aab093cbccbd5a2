#include "peximage/image/DocumentImport.h"

#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/PdfModule.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/toolkit/NSPDFImageRep.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace pex {
namespace {

const std::string redBelow = "1 0 0 rg 0 0 100 50 re f"; // the lower half of a page of 100 × 100 points

class DocumentImport : public ::testing::Test {
  protected:
    void SetUp() override {
#ifndef PEX_WITH_PDF
        GTEST_SKIP() << "built without PDF";
#endif
    }
    URL write(const std::string& name, const std::string& bytes) {
        writeFile(folder_.path() / name, bytes);
        return folder_.url(name);
    }
    URL write(const std::vector<PdfPage>& pages) { return write("document.pdf", pdfFile(pages)); }

    TempFolder folder_;
};

using Page = std::shared_ptr<PexImage>;

Page pageOf(const URL& url, int page = 0, int dpi = 72) {
    return PexImage::pdfDocumentToPexImage({.pdfDocumentUrl = url, .pageN = page, .dpi = dpi});
}

std::optional<std::vector<Page>> pagesOf(const URL& url) {
    return PexImage::pdfDocumentToPexImages({.pdfDocumentUrl = url, .dpi = 72});
}

/// Has the pages handed out one by one; returns with what it was told at the end, which comes once.
std::vector<bool> handOut(const URL& url, const std::function<void(int page, int count, const Page&)>& take) {
    std::vector<bool> ends;
    const auto each = [&](int page, int count, const Page& image) {
        EXPECT_TRUE(ends.empty());
        take(page, count, image);
    };
    const auto end = [&](bool success) { ends.push_back(success); };
    PexImage::pdfDocumentToPexImagesAsync(
        {.pdfDocumentUrl = url, .dpi = 72, .callback = each, .finalCallback = end});
    return ends;
}

TEST_F(DocumentImport, APageHasTheResolutionAskedForWhateverTheScreen) {
    const URL letter = write({{612, 792, ""}});
    onScreensOfOneAndTwo([&](double scale) {
        for (const auto& [dpi, width, height] :
             {std::tuple{72, 612, 792}, {144, 1224, 1584}, {100, 850, 1100}})
            EXPECT_EQ(pageOf(letter, 0, dpi)->size,
                      (CGSize{std::trunc(width / scale), std::trunc(height / scale)}))
                << dpi;
    });
}

TEST_F(DocumentImport, AllFormsGiveThePagesInOrder) {
    std::vector<PdfPage> pages;
    for (int i = 0; i < 23; ++i)
        pages.push_back({100. + i, 50, ""});
    const URL url = write(pages);

    const auto images = pagesOf(url);
    ASSERT_EQ(images->size(), 23u);
    for (std::size_t i = 0; i < images->size(); ++i) {
        EXPECT_EQ((*images)[i]->size, (CGSize{100. + static_cast<double>(i), 50}));
        EXPECT_TRUE((*images)[i]->cgImage->pixels());
    }

    for (const int threads : {1, 3}) {
        const Workers::Limit limit(threads);
        int next = 0;
        const auto ends = handOut(url, [&](int page, int count, const Page& image) {
            EXPECT_EQ(page, next++);
            EXPECT_EQ(count, 23);
            EXPECT_EQ(image->size.width, 100. + page);
        });
        EXPECT_EQ(next, 23);
        EXPECT_EQ(ends, std::vector{true});
    }
}

TEST_F(DocumentImport, ReadsDocumentsAndNothingElse) {
    const std::string whole = pdfFile({{100, 100, redBelow}, {30, 40, ""}});
    const std::size_t table = whole.rfind("xref\n0 ");
    const std::optional<int> none;
    const struct {
        const char* what;
        std::string file;
        std::optional<int> pages; // absent: no document
        bool needsPassword = false;
    } cases[] = {
        {"nothing", "", none},
        {"signature alone", "%PDF-1.4\n", none},
        {"no pages", pdfFile({}), 0},
        {"whole", whole, 2},
        {"password", pdfFile({{100, 50, ""}}, pdfPasswordUnknown), none, true},
        {"empty password", pdfFile({{100, 50, ""}}, pdfPasswordEmpty), 1},
        {"12 pages, as many as are allowed", pdfFile(std::vector<PdfPage>(12)), 12},
        {"13 pages", pdfFile(std::vector<PdfPage>(13)), none},
        // Broken cross-reference tables are made anew.
        {"wrong start", replaced(whole, "startxref\n", "startxref\n99"), 2},
        {"no table", whole.substr(0, table) + "trailer\n<< /Root 1 0 R >>\n", 2},
        {"wrong places", replaced(whole, "0000000009 00000 n", "0000000077 00000 n"), 2},
        {"something in front", "%PDF-1.4\n% moved\n" + whole.substr(9), 2},
        {"no end", whole.substr(0, whole.rfind("startxref")), 2},
    };
    const ImageLimits before = ImageLimits::current();
    ImageLimits limits = before;
    limits.maxPages = 12;
    ImageLimits::setCurrent(limits);
    EXPECT_FALSE(pagesOf(folder_.url("missing.pdf")));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const URL url = write("document.pdf", c.file);
        EXPECT_EQ(NSPDFImageRep::needsPassword(Data(c.file)), c.needsPassword);
        const auto images = pagesOf(url);
        ASSERT_EQ(images.has_value(), c.pages.has_value());
        EXPECT_EQ(images ? images->size() : 0u, static_cast<std::size_t>(c.pages.value_or(0)));
        int called = 0;
        EXPECT_EQ(handOut(url, [&](int, int, const Page&) { ++called; }), std::vector{c.pages.has_value()});
        EXPECT_EQ(called, c.pages.value_or(0));
        const bool isPicture = called > 0 || c.what == std::string("13 pages"); // whose first is all it needs
        EXPECT_EQ(CGImageSource::make(url).has_value(), isPicture);
        const Page first = pageOf(url);
        EXPECT_EQ(first != nullptr, called > 0);
        if (c.pages != 2) continue;
        EXPECT_EQ(pixelAt(*first->cgImage, 50, 80), (Pixel{255, 0, 0, 255}));
        EXPECT_EQ((*images)[1]->size, (CGSize{30, 40}));
    }
    ImageLimits::setCurrent(before);
}

TEST_F(DocumentImport, PagesThatCannotBeDrawnAreLeftOut) {
    const URL url = write({{100, 100, ""}, {4'000'000, 4'000'000, ""}, {50, 100, "Q Q ( <<"}});
    const auto images = pagesOf(url);
    ASSERT_EQ(images->size(), 2u);
    EXPECT_EQ((*images)[1]->size, (CGSize{50, 100}));
    EXPECT_TRUE(pageOf(url, 2));
    for (const int page : {-1, 1, 3, 1'000'000})
        EXPECT_FALSE(pageOf(url, page)) << page;
    for (const int dpi : {0, -72, 2'000'000'000})
        EXPECT_FALSE(pageOf(url, 0, dpi)) << dpi;
}

TEST_F(DocumentImport, APageSaysWhatItsUnitIs) {
    const URL url =
        write({{100, 100, redBelow, "/UserUnit 2.5"}, {100, 100, redBelow}, {9, 9, "", "/UserUnit -1"}});
    const auto images = pagesOf(url).value();
    EXPECT_EQ(images[0]->size, (CGSize{250, 250}));
    EXPECT_EQ(pixelAt(*images[0]->cgImage, 240, 130), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(*images[0]->cgImage, 240, 120), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(images[1]->size, (CGSize{100, 100}));
    EXPECT_EQ(images[2]->size, (CGSize{9, 9}));
}

TEST_F(DocumentImport, APageThatNeverEndsHasNoImageAndStopsNothing) {
    // Each page's content is a form that the page before draws ten times.
    std::vector<PdfPage> pages;
    for (int i = 0; i < 11; ++i) {
        const std::string next =
            "/Resources << /XObject << /Next " + std::to_string(3 + 2 * (i + 1)) + " 0 R >> >>";
        std::string content;
        for (int times = 0; times < 10; ++times)
            content += "/Next Do ";
        pages.push_back({100, 100, content, next, "/Subtype /Form /BBox [0 0 100 100] " + next});
    }
    pages.push_back({100, 100, redBelow, "", "/Subtype /Form /BBox [0 0 100 100]"});
    const URL url = write(pages);
    const ImageLimits before = ImageLimits::current();
    ImageLimits tight = before;
    tight.maxDrawingSeconds = 0.3;
    ImageLimits::setCurrent(tight);
    EXPECT_FALSE(pageOf(url));
    EXPECT_EQ(lastReason().code, ReasonCode::timedOut);
    ImageLimits::setCurrent(before);
    const auto rep = NSPDFImageRep::make(*Data::contentsOf(url));
    rep->setCurrentPage(10);
    EXPECT_EQ(pixelAt(*rep->cgImage(100, 100), 50, 90), (Pixel{255, 0, 0, 255}));
}

TEST_F(DocumentImport, PagesAreLetGoOnceTheyWereHandedOut) {
    const URL url = write(std::vector<PdfPage>(9, {100, 100, redBelow}));
    std::vector<std::weak_ptr<PexImage>> handedOut;
    handOut(url, [&](int, int, const Page& page) {
        for (const auto& earlier : handedOut)
            EXPECT_TRUE(earlier.expired());
        handedOut.emplace_back(page);
    });
    EXPECT_EQ(handedOut.size(), 9u);
}

TEST_F(DocumentImport, IllustrationFilesOpenAsImagesOfTheirFirstPage) {
    const URL url = write("drawing.ai", pdfFile({{100, 100, redBelow}, {10, 10, ""}}));
    EXPECT_EQ(CGImageSource::make(url)->properties().pixelWidth, 100);
    const auto plain = loadCGImage({.aiUrl = url}), twice = loadCGImage({.aiUrl = url, .scaleFactor = 2.0});
    ASSERT_TRUE(plain && twice);
    EXPECT_EQ(plain->width(), 100);
    EXPECT_EQ(twice->width(), 200);
    EXPECT_EQ(pixelAt(*twice, 100, 99)[3], 0); // drawn anew: the edge is as sharp as before
    EXPECT_EQ(pixelAt(*twice, 100, 100), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(loadCGImage({.aiUrl = url, .scaleFactor = -1})->width(), 100);
    EXPECT_EQ(loadCIImage({.aiUrl = url, .scaleFactor = 1.509})->extent(), (CGRect{0, 0, 150, 150}));
}

TEST_F(DocumentImport, ScalingAnIllustrationSaysWhatFailed) {
    const URL missing = folder_.url("missing.ai"), url = write({{100, 100, ""}});
    const auto said = [](const URL& file, std::optional<double> factor) {
        const CapturedLines printed;
        const bool made = loadCIImage({.aiUrl = file, .scaleFactor = factor}).has_value();
        EXPECT_EQ(made, factor == 1);
        return printed.lines;
    };
    using Lines = std::vector<std::string>;
    EXPECT_EQ(said(missing, 2), Lines{"Failed to load AI file as NSImage."});
    for (const double factor : {0., -3., 1e9})
        EXPECT_EQ(said(url, factor), Lines{"Failed to create CGContext."}) << factor;
    EXPECT_EQ(said(url, 1), Lines());
    EXPECT_EQ(said(missing, {}), Lines());
    EXPECT_FALSE(loadCGImage({.aiUrl = missing, .scaleFactor = 2}));
}

TEST(Module, AnUnknownOneOrOneOfAnotherVersionIsMissing) {
#ifdef PEX_WITH_PDF
    EXPECT_TRUE(hasModule("pdf"));
    EXPECT_NE(moduleInterface("pdf", PdfModule::version), nullptr);
#endif
    EXPECT_EQ(moduleInterface("pdf", 1'000'000), nullptr);
    EXPECT_FALSE(hasModule("nothing"));
    EXPECT_EQ(moduleInterface("../../bin/peximage", 1), nullptr);
}

} // namespace
} // namespace pex
