#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/toolkit/NSWorkspace.h"
#include "peximage/platform/varda/PexNet.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <fstream>
#include <vector>

namespace pex {
namespace {

namespace fs = std::filesystem;

void writeIcon(const fs::path& path, int side, Pixel color) {
    fs::create_directories(path.parent_path());
    const auto picture = makePicture(side, side, PixelLayout::straightLast, color);
    const auto png = CGImageDestination::encode(picture, ImageFormat::png, {});
    ASSERT_TRUE(png && png->write(URL::fromPath(path.string()), Data::Writing::inPlace));
}

/// A menu entry with an icon of its own.
URL entryWithIcon(const TempFolder& folder, const std::string& icon) {
    std::ofstream(folder.path() / "app.desktop")
        << "[Desktop Entry]\nType=Application\nIcon=" << icon << '\n';
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

/// The one part of a multipart body.
struct Form {
    std::string head, content;
};

Form formOf(const HttpServer::Exchange& exchange) {
    const std::string& body = exchange.body;
    const std::string boundary = body.substr(0, body.find("\r\n"));
    const std::size_t headEnd = body.find("\r\n\r\n");
    const std::size_t contentEnd = body.rfind("\r\n" + boundary + "--");
    if (headEnd == std::string::npos || contentEnd == std::string::npos) return {};
    return {body.substr(boundary.size() + 2, headEnd - boundary.size()),
            body.substr(headEnd + 4, contentEnd - headEnd - 4)};
}

bool upload(const std::shared_ptr<PexImage>& image, std::optional<URL> to, std::string name) {
    return image->uploadAsJpeg({.to = std::move(to), .withName = std::move(name), .quality = 0.8}).get();
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
    const Form form = formOf(seen[0]);
    EXPECT_NE(form.head.find("name=\"file\"; filename=\"photo %221%22.jpg\"\r\n"), std::string::npos)
        << form.head;
    EXPECT_NE(form.head.find("Content-Type: application/octet-stream\r\n"), std::string::npos) << form.head;
    EXPECT_EQ(form.content, image->jpegData(0.8)->text());
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
        if (exchange.target == "/reset") return exchange.reset();
        if (exchange.target == "/hang") return exchange.waitUntilClientGoes();
        exchange.answer("200 OK", "");
    });
    const auto image = PexImage::make(photoLike(20, 20));
    for (const auto& [path, code] : {std::pair("/moved", ReasonCode::networkFailed),
                                     {"/error", ReasonCode::networkFailed},
                                     {"/reset", ReasonCode::networkFailed},
                                     {"/hang", ReasonCode::timedOut}}) {
        EXPECT_FALSE(upload(image, server.url(path), "a")) << path;
        EXPECT_EQ(lastReason().code, code) << path;
    }
    EXPECT_TRUE(upload(image, server.url("/fine"), "a"));
    const int before = server.requests();
    EXPECT_FALSE(upload(PexImage::make({.size = {10, 10}}), server.url("/fine"), "blank"));
    EXPECT_EQ(server.requests(), before);
    NetworkLimits::setCurrent({});
}

TEST(UploadTest, TheTaskKeepsTheImage) {
    const HttpServer server([](const HttpServer::Exchange& exchange) { exchange.answer("200 OK", ""); });
    auto image = PexImage::make(photoLike(20, 20));
    Task<bool> task = image->uploadAsJpeg({.to = server.url("/"), .withName = "a", .quality = 1});
    image.reset();
    EXPECT_TRUE(task.get());
}

} // namespace
} // namespace pex
