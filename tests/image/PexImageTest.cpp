#include "peximage/image/PexImage.h"

#include "peximage/canvas/PexCanvas.h"
#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/toolkit/NSWorkspace.h"
#include "peximage/platform/varda/PexNet.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

using namespace pex;

namespace {

namespace fs = std::filesystem;
const double infinity = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

TEST(PexImage, FilesAndBytesGivePixelSizesWhateverTheScreen) {
    const CapturedLines quiet;
    const TempFolder folder;
    ASSERT_TRUE(PexImage::make(photoLike(64, 48))
                    ->saveToJpeg({.quality = 0.9, .dpi = 300, .url = folder.url("a.jpg")}));
    onScreensOfOneAndTwo([&](double) {
        const auto fast = PexImage::make({.fastUrl = folder.url("a.jpg")});
        const auto slow = PexImage::make(folder.url("a.jpg"), {.noTimeOut = true});
        const auto bytes = PexImage::make(*Data::contentsOf(folder.url("a.jpg")), {});
        for (const auto& image : {fast, slow, bytes}) {
            ASSERT_TRUE(image);
            EXPECT_EQ(image->size, (CGSize{64, 48}));
            EXPECT_EQ(image->aspectRatio(), 64. / 48);
            EXPECT_NEAR(image->image->width(), 64 * 72 / 300., 1e-9); // points
        }
        EXPECT_NE(fast->id, slow->id);
    });
}

TEST(PexImage, BlankImagesKeepTheSizeAskedFor) {
    NSScreen::setScreens({{1}, {2}});
    EXPECT_EQ(PexImage::make({.size = {200, 100}})->image->size(), (CGSize{100, 50}));
    EXPECT_EQ(PexImage::make({.notBakedNormalizedSize = {200, 100}})->image->size(), (CGSize{200, 100}));
    NSScreen::setScreens({});
    const auto blank = PexImage::make({.size = {200, 100}});
    EXPECT_EQ(blank->image->size(), (CGSize{200, 100}));
    EXPECT_EQ(blank->size, (CGSize{200, 100}));
    EXPECT_FALSE(blank->cgImage);
    EXPECT_FALSE(blank->ciImage());
    EXPECT_FALSE(blank->bitmapRep());
    blank->setColor(0, 0, NSColor(1, 1, 1));
    EXPECT_FALSE(blank->thumb(10));
    blank->setSize();
    EXPECT_EQ(blank->size, (CGSize{0, 0}));
    blank->cgImage = photoLike(10, 10);
    EXPECT_TRUE(blank->ciImage());
}

TEST(PexImage, PartialImagesAreCompletedBySetSize) {
    const auto png = *PexImage::make(photoLike(30, 20))->pngData();
    const auto image = PexImage::make(png, {.dontCreateAuxiliaryVars = true});
    EXPECT_EQ(image->size, (CGSize{0, 0}));
    EXPECT_FALSE(image->cgImage);
    EXPECT_EQ(image->bitmapRep()->pixelsWide(), 30); // derived for the purpose
    image->setSize();
    EXPECT_EQ(image->size, (CGSize{30, 20}));
    EXPECT_TRUE(image->cgImage);
}

TEST(PexImage, CachesAreFilledOnceAndStay) {
    const auto image = PexImage::make(photoLike(30, 20));
    EXPECT_EQ(image->ciImage()->extent(), (CGRect{0, 0, 30, 20}));
    const auto rep = image->bitmapRep();
    image->cgImage = photoLike(10, 10);
    EXPECT_EQ(image->ciImage()->extent(), (CGRect{0, 0, 30, 20}));
    EXPECT_EQ(image->bitmapRep(), rep);
    EXPECT_EQ(image->size, (CGSize{30, 20}));
}

TEST(PexImage, WrittenPixelsShowInTheBitmapRepresentationOnly) {
    const auto picture = makePicture(4, 4, PixelLayout::premultipliedFirst, Pixel{255, 9, 9, 9});
    const auto image = PexImage::make(picture);
    image->setColor(1, 2, NSColor(1, 0, 0.5, 0.5));
    EXPECT_EQ(pixelAt(image->bitmapRep()->cgImage(), 1, 2), (Pixel{128, 128, 0, 64}));
    EXPECT_EQ(pixelAt(*image->cgImage, 1, 2), (Pixel{255, 9, 9, 9}));
    const CGImage seen = image->bitmapRep()->cgImage();
    image->setColor(1, 2, NSColor(0, 0, 0));
    EXPECT_EQ(pixelAt(seen, 1, 2), (Pixel{128, 128, 0, 64})); // what was handed out does not change
    for (const auto& [x, y] : {std::pair(-1, 0), {4, 0}, {0, 4}, {1 << 30, 1 << 30}})
        image->setColor(x, y, NSColor(1, 1, 1));
}

TEST(PexImage, WhatIsNoImageIsAbsent) {
    const CapturedLines quiet;
    const TempFolder folder;
    const std::string whole(PexImage::make(photoLike(64, 48))->jpegData(0.9)->text());
    std::string lying = whole; // the frame header's height and width
    lying.replace(lying.find("\xFF\xC0") + 5, 4, 4, '\xFF');
    writeFile(folder.path() / "empty.jpg", {});
    writeFile(folder.path() / "garbage.jpg", std::string(1000, '\xA5'));
    writeFile(folder.path() / "start.jpg", whole.substr(0, 20));
    writeFile(folder.path() / "lying.jpg", lying);
    std::filesystem::create_directory(folder.path() / "folder.jpg");
    for (const char* name :
         {"empty.jpg", "garbage.jpg", "start.jpg", "lying.jpg", "folder.jpg", "missing.jpg"}) {
        EXPECT_FALSE(PexImage::make({.fastUrl = folder.url(name)})) << name;
        EXPECT_FALSE(PexImage::make(folder.url(name), {})) << name;
    }
    EXPECT_FALSE(PexImage::make(Data(), {}));
    EXPECT_FALSE(PexImage::make({.named = "nothing"}));
}

TEST(PexImage, NullInNullOut) {
    namespace helper = PexImageHelper;
    const std::shared_ptr<PexImage> none, image = PexImage::make(photoLike(8, 6));
    EXPECT_FALSE(PexImage::make(std::shared_ptr<NSImage>(), {}));
    EXPECT_FALSE(image->watermark(none, {}));
    EXPECT_FALSE(PexImage::join(none, {.with = image}));
    EXPECT_FALSE(PexImage::join(image, {.with = none}));
    EXPECT_FALSE(PexCanvas::fit(none, 1));
    EXPECT_EQ(PexCanvas(none, 1).getImage()->size, CGSize{});
    EXPECT_FALSE(PexCanvasLayer("", {}, {.image = image}, {}, {}).draw(none));
    EXPECT_FALSE(helper::reduceImageToSize(none, {1, 1}));
    EXPECT_FALSE(helper::reduceImageTo1x1Pixels(none));
    EXPECT_EQ(helper::getAverageColorOfImage(none), NSColor(0, 0, 0, 0));
}

TEST(PexImage, NamedImagesComeFromTheFolderRegisteredLast) {
    const TempFolder first, second;
    ASSERT_TRUE(PexImage::make(photoLike(8, 8))->saveToPNG(first.url("logo.png")));
    ASSERT_TRUE(PexImage::make(photoLike(9, 9))->saveToPNG(second.url("logo.png")));
    ASSERT_TRUE(PexImage::make(photoLike(7, 7))->saveToPNG(first.url("other.png")));
    NSImage::registerImageFolder(first.url(""));
    NSImage::registerImageFolder(second.url(""));
    EXPECT_EQ(PexImage::make({.named = "logo"})->size, (CGSize{9, 9}));
    EXPECT_EQ(PexImage::make({.named = "logo.png"})->size, (CGSize{9, 9}));
    EXPECT_EQ(PexImage::make({.named = "other"})->size, (CGSize{7, 7}));
    for (const char* name : {"", "..", "../logo", "/etc/passwd", "logo/"})
        EXPECT_FALSE(PexImage::make({.named = name})) << name;
}

TEST(Resize, SizesFollowTheFormulas) {
    const auto wide = PexImage::make(photoLike(400, 200)), tall = PexImage::make(photoLike(20, 50));
    EXPECT_EQ(wide->resize({.withMaxSide = 100})->size, (CGSize{100, 50}));
    EXPECT_EQ(wide->resize({.withMaxSide = 99.5F})->size, (CGSize{99, 49}));
    EXPECT_EQ(wide->resize({.withMaxSide = 0})->size, (CGSize{1, 1}));
    EXPECT_EQ(tall->resize({.withMaxSide = 100})->size, (CGSize{20, 50}));
    EXPECT_NE(tall->resize({.withMaxSide = 100}), tall);
    EXPECT_EQ(PexImage::make(photoLike(1000, 1))->resize({.withMaxSide = 100})->size, (CGSize{100, 1}));
    EXPECT_EQ(wide->resize({.withMinSideBoundedTo = 100})->size, (CGSize{200, 100}));
    for (const double side : {20., 100.})
        EXPECT_EQ(tall->resize({.withMinSideBoundedTo = side}), tall);
    EXPECT_EQ(wide->resize({.toWidth = 100})->size, (CGSize{100, 50}));
    EXPECT_EQ(wide->resize({.toHeight = 300U})->size, (CGSize{600, 300}));
    EXPECT_EQ(wide->resize({.to = {33.4, 77.6}})->size, (CGSize{33, 78}));
    EXPECT_EQ(wide->resize({.to = {0.2, 0.2}})->size, (CGSize{1, 1}));
    EXPECT_EQ(wide->thumb(100)->size, (CGSize{100, 50}));

    EXPECT_EQ(PexImage::thumbSize({400, 200}, 100), (CGSize{100, 50}));
    EXPECT_EQ(PexImage::thumbSize({200, 400}, 100), (CGSize{50, 100}));
    EXPECT_EQ(PexImage::thumbSize({50, 20}, 100), (CGSize{100, 40}));
}

TEST(Resize, ImpossibleSizesAreAbsentOrTheReceiver) {
    const auto image = PexImage::make(photoLike(40, 30));
    const CGSize sizes[] = {{0, 10},       {10, 0},    {-5, 5},    {nan, 5},
                            {5, infinity}, {1e9, 1e9}, {1e300, 1}, {-infinity, nan}};
    for (const CGSize& size : sizes)
        EXPECT_FALSE(image->resize({.to = size})) << size.width << " " << size.height;
    for (const double side : {0., -3., nan, infinity, 1e9}) {
        EXPECT_EQ(image->resize({.toWidth = side}), image) << side;
        EXPECT_EQ(image->resize({.toHeight = side}), image) << side;
    }
    EXPECT_EQ(image->resize({.withMaxSide = infinity})->size, (CGSize{40, 30}));
    const auto blank = PexImage::make({.size = {0, 0}});
    EXPECT_FALSE(blank->resize({.withMaxSide = 10}));
    EXPECT_EQ(blank->resize({.toWidth = 10}), blank);
}

TEST(Resize, ReducedDecodingLooksLikeDecodingInFull) {
    const auto jpeg = *PexImage::make(photoLike(640, 480))->jpegData(0.95);
    for (const double side : {320., 300., 160., 90.}) {
        const auto lazy = PexImage::make(jpeg, {});
        const auto touched = PexImage::make(jpeg, {});
        ASSERT_TRUE(touched->cgImage->pixels());
        const auto a = lazy->resize({.withMaxSide = side}), b = touched->resize({.withMaxSide = side});
        ASSERT_EQ(a->size, b->size);
        double squares = 0;
        for (int i = 0; i < a->size.width * a->size.height; ++i) {
            const int x = i % a->cgImage->width(), y = i / a->cgImage->width();
            const Pixel p = pixelAt(*a->cgImage, x, y), q = pixelAt(*b->cgImage, x, y);
            for (std::size_t c = 0; c < 3; ++c)
                squares += std::pow(p[c] - q[c], 2);
        }
        const double mean = squares / (a->size.width * a->size.height * 3);
        EXPECT_GT(10 * std::log10(255 * 255 / mean), 34) << side; // decibels
    }
}

void writeIcon(const fs::path& path, int side, Pixel color) {
    writeFile(path, std::string(plain(side, side, color)->pngData()->text()));
}

/// A menu entry with an icon of its own.
URL entryWithIcon(const TempFolder& folder, const std::string& icon) {
    writeFile(folder.path() / "app.desktop", "[Desktop Entry]\nType=Application\nIcon=" + icon + '\n');
    return folder.url("app.desktop");
}

int sideOf(const std::shared_ptr<PexImage>& icon) {
    icon->setSize();
    return static_cast<int>(icon->size.width);
}

TEST(FileIconsTest, AreIncompleteUntilTheirSizeIsSet) {
    const TempFolder folder;
    writeIcon(folder.path() / "icon.png", 48, {10, 200, 30, 255});
    const URL entry = entryWithIcon(folder, folder.url("icon.png").path());
    for (const auto& icon : {PexImage::make({.bundleUrl = entry}), PexImage::make({.forFile = entry}),
                             PexImage::make(entry, PexImage::IconSize({16, 16}))}) {
        ASSERT_TRUE(icon);
        EXPECT_FALSE(icon->cgImage);
        EXPECT_EQ(icon->size, (CGSize{0, 0}));
        EXPECT_EQ(sideOf(icon), 48);
        EXPECT_EQ(pixelAt(*icon->cgImage, 20, 20), (Pixel{10, 200, 30, 255}));
    }
    EXPECT_FALSE(PexImage::make(entry, PexImage::IconSize({0.5, 10})));
    EXPECT_FALSE(PexImage::make(entry, PexImage::IconSize({-3, 10})));
}

TEST(FileIconsTest, VectorIconsComeInTheSizeAskedFor) {
    const TempFolder folder;
    std::ofstream(folder.path() / "icon.svg")
        << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 4 4"><rect width="2" height="4" fill="#0a6432"/></svg>)";
    const URL entry = entryWithIcon(folder, folder.url("icon.svg").path());
    const auto icon = PexImage::make(entry, PexImage::IconSize({200, 100}));
    ASSERT_TRUE(icon);
    EXPECT_EQ(sideOf(icon), 100);
    EXPECT_EQ(pixelAt(*icon->cgImage, 48, 50), (Pixel{0x0a, 0x64, 0x32, 255})); // the left half
    EXPECT_EQ(pixelAt(*icon->cgImage, 51, 50), (Pixel{0, 0, 0, 0}));
    const auto large = PexImage::make({.bundleUrl = entry});
    EXPECT_EQ(sideOf(large), 1024);
}

TEST(FileIconsTest, ASheetOfPaperStandsInForWhatHasNone) {
    const TempFolder folder;
    std::ofstream(folder.path() / "broken.svg") << "<svg";
    const URL entry = entryWithIcon(folder, folder.url("broken.svg").path());
    const auto icon = PexImage::make(entry, PexImage::IconSize({64, 64}));
    ASSERT_TRUE(icon);
    EXPECT_EQ(sideOf(icon), 64);
    EXPECT_EQ(pixelAt(*icon->cgImage, 1, 1)[3], 0);     // transparent around it
    EXPECT_EQ(pixelAt(*icon->cgImage, 52, 5)[3], 0);    // the corner is cut off
    EXPECT_EQ(pixelAt(*icon->cgImage, 20, 20)[3], 255); // and paper within
    EXPECT_GT(pixelAt(*icon->cgImage, 20, 20)[0], 240);
    const auto shown = NSWorkspace::shared().icon({.path = entry.path()});
    EXPECT_EQ(shown->cgImageForProposedRect()->width(), 32);
}

TEST(FileIconsTest, TheThemesNearestSizeIsTaken) {
    const fs::path data = std::getenv("XDG_DATA_HOME"); // the whole test program's own
    const fs::path theme = data / "icons/Adwaita", base = data / "icons/hicolor";
    writeIcon(theme / "small/inode-directory.png", 16, {255, 0, 0, 255});
    writeIcon(theme / "large/inode-directory.png", 64, {0, 255, 0, 255});
    writeIcon(base / "24/pex-own.png", 24, {0, 0, 255, 255});
    std::ofstream(theme / "index.theme")
        << "[Icon Theme]\nName=T\nDirectories=small,large,missing\n"
           "[small]\nSize=16\nType=Fixed\n[large]\nSize=64\n[missing]\nSize=0\n";
    std::ofstream(base / "index.theme") << "[Icon Theme]\nName=H\nDirectories=24\n[24]\nSize=24\n";
    const TempFolder folder;
    const URL entry = entryWithIcon(folder, "pex-own"), files = URL::fromPath(folder.path().string());
    const auto side = [](const URL& url, double asked) {
        return sideOf(PexImage::make(url, PexImage::IconSize({asked, asked})));
    };
    EXPECT_EQ(side(files, 15), 16);
    EXPECT_EQ(side(files, 60), 64);
    EXPECT_EQ(side(files, 1024), 64);
    EXPECT_EQ(side(entry, 20), 24); // from the theme that all others stand on
    fs::remove_all(data / "icons");
}

/// The task alone keeps an image that is given away.
bool upload(std::shared_ptr<PexImage> image, std::optional<URL> to, std::string name) {
    auto task = image->uploadAsJpeg({.to = std::move(to), .withName = std::move(name), .quality = 0.8});
    image.reset();
    return task.get();
}

TEST(UploadTest, PostsTheFileAsAForm) {
    std::vector<HttpServer::Exchange> seen;
    const HttpServer server([&](const HttpServer::Exchange& exchange) {
        seen.push_back(exchange);
        exchange.answer("201 Created", "thanks");
    });
    const auto image = PexImage::make(photoLike(900, 700));
    ASSERT_TRUE(upload(image, server.url("/in?album=1"), "photo \"1\""));
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].target, "/in?album=1");
    const std::string &body = seen[0].body, boundary = body.substr(0, body.find("\r\n"));
    for (const char* line : {"; name=\"file\"; filename=\"photo %221%22.jpg\"\r\n",
                             "Content-Type: application/octet-stream\r\n"})
        EXPECT_LT(body.find(line), body.find("\r\n\r\n")) << body.substr(0, 400);
    const std::string file(image->jpegData(0.8)->text());
    EXPECT_TRUE(body.ends_with("\r\n\r\n" + file + "\r\n" + boundary + "--\r\n"));
}

TEST(UploadTest, GoesToTheApplicationsServerWithoutAnAddress) {
    std::string target;
    const HttpServer server([&](const HttpServer::Exchange& exchange) {
        target = exchange.target;
        exchange.answer("200 OK", "");
    });
    const auto image = PexImage::make(photoLike(20, 20));
    EXPECT_FALSE(upload(image, {}, "photo")); // none is named
    EXPECT_FALSE(PexNet::setServer(URL::parse("http://server.example")));
    EXPECT_TRUE(PexNet::setServer(URL::parse("https://server.example")));
    ASSERT_TRUE(PexNet::setServer(server.url("/app/")));
    EXPECT_TRUE(upload(image, {}, "photo"));
    EXPECT_EQ(target, "/app/quarn/filePost.php");
    PexNet::setServer({});
}

TEST(UploadTest, OnlyAnAnswerOfSuccessCounts) {
    NetworkLimits::setCurrent({.wholeSeconds = 0.2});
    const HttpServer server([](const HttpServer::Exchange& exchange) {
        if (exchange.target == "/moved") return exchange.answer("302 Found", "", "Location: /fine\r\n");
        if (exchange.target == "/error") return exchange.answer("500 Oops", "");
        if (exchange.target == "/hang") return exchange.waitUntilClientGoes();
        exchange.answer("200 OK", "");
    });
    const auto image = PexImage::make(photoLike(20, 20));
    for (const auto& [path, code] : {std::pair("/moved", ReasonCode::networkFailed),
                                     {"/error", ReasonCode::networkFailed},
                                     {"/hang", ReasonCode::timedOut}}) {
        EXPECT_FALSE(upload(image, server.url(path), "a")) << path;
        EXPECT_EQ(lastReason().code, code) << path;
    }
    EXPECT_TRUE(upload(PexImage::make(photoLike(20, 20)), server.url("/fine"), "a"));
    const int before = server.requests();
    EXPECT_FALSE(upload(PexImage::make({.size = {10, 10}}), server.url("/fine"), "blank"));
    EXPECT_EQ(server.requests(), before);
    NetworkLimits::setCurrent({});
}

} // namespace
