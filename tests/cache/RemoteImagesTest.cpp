#include "peximage/cache/RemoteImages.h"

#include "peximage/platform/varda/Queue.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stop_token>

namespace {

using pex::Data;
using pex::PexImage;
using pex::PexResourceDownloader;

std::string png(int width, int height) {
    return std::string(encoded(photoLike(width, height), pex::ImageFormat::png).text());
}

/// "/40x30.png" is a picture of that size, "/half" a half one of 64 × 64, "/text" is none; everything else is
/// missing, with a picture in the body.
void servePictures(const HttpServer::Exchange& exchange) {
    int width = 0, height = 0;
    if (std::sscanf(exchange.target.c_str(), "/%dx%d", &width, &height) == 2)
        return exchange.answer("200 OK", png(width, height));
    if (exchange.target == "/half") // whole as far as the transfer goes
        return exchange.answer("200 OK", png(64, 64).substr(0, 2000));
    if (exchange.target == "/text") return exchange.answer("200 OK", "log in first");
    exchange.answer("404 Not Found", png(8, 8));
}

std::string sizeOf(const std::shared_ptr<PexImage>& image) {
    if (!image) return "none";
    return std::to_string(static_cast<int>(image->size.width)) + 'x' +
           std::to_string(static_cast<int>(image->size.height));
}

/// The size of the image; without one, why there is none, as the callback is told it.
std::string sizeOrReason(const std::shared_ptr<PexImage>& image) {
    return image ? sizeOf(image) : pex::lastReason().message;
}

/// What getCachedImage gives; "twice" when it calls back more than once.
std::string cached(const pex::URL& url, std::stop_token stop = {}) {
    std::atomic<int> calls{0};
    std::string got, why;
    PexImage::getCachedImage({.url = url,
                              .callback =
                                  [&](const std::shared_ptr<PexImage>& image) {
                                      ++calls;
                                      got = sizeOrReason(image);
                                  },
                              .failed = [&](const std::string& problem) { why = problem; },
                              .stop = std::move(stop)});
    pex::Queue::wait();
    EXPECT_TRUE(why.empty() || why == got);
    return calls == 1 ? got : calls == 0 ? "never" : "twice";
}

std::string downloaded(const pex::URL& url, bool useDiskCache) {
    std::string size = "never";
    pex::asyncDownload(PexResourceDownloader::make(),
                       {.url = url, .useDiskCache = useDiskCache, .completion = [&](const auto& image) {
                            size = sizeOrReason(image);
                        }});
    pex::Queue::wait();
    return size;
}

TEST(RemoteImagesTest, MakesImagesOfWhatIsAtAddresses) {
    const HttpServer server(servePictures);
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.url("/40x30.png")})), "40x30");
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.address("/30x20.png")})), "30x20");
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.url("/none")})), "none");
    const int before = server.requests();
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = "no address"})), "none");
    EXPECT_EQ(server.requests(), before);
    const TempFolder folder;
    writeFile(folder.path() / "a.png", png(9, 7));
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = folder.url("a.png")})), "9x7");
}

// One test, since a process asks for its caches folder once.
TEST(RemoteImagesTest, CachedImagesAreFetchedOnce) {
    const CachesFolder caches;
    const HttpServer server(servePictures), other(servePictures);
    EXPECT_EQ(cached(server.url("/40x30.png?v=1")), "40x30");
    EXPECT_EQ(server.requests(), 1);

    // The digest of the path alone, as `printf /40x30.png | md5sum` gives it.
    const auto kept = caches.path() / "PexImageCache" / "c18a465c8288e5c4f51ac483b48fc3a1.jpg";
    ASSERT_TRUE(std::filesystem::exists(kept));

    EXPECT_EQ(cached(server.url("/40x30.png?v=2")), "40x30");
    EXPECT_EQ(cached(other.url("/40x30.png")), "40x30"); // the same path elsewhere
    EXPECT_EQ(server.requests() + other.requests(), 1);

    EXPECT_EQ(cached(server.url("/none")), "the server answered 404");
    EXPECT_EQ(cached(server.url("/text")), "not an image");
    EXPECT_EQ(cached(server.url("/half")), "64x64"); // shown, and not kept
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(cached(server.url("/9x9"), stopped.get_token()), "cancelled");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(kept.parent_path()), {}), 1);

    const std::string whole = readFile(kept);
    for (const std::string& damaged : {std::string("damaged"), whole.substr(0, whole.size() / 2)}) {
        writeFile(kept, damaged); // fetched anew, and replaced
        EXPECT_EQ(cached(server.url("/40x30.png")), "40x30");
        EXPECT_EQ(readFile(kept), whole);
    }

    std::filesystem::remove_all(kept.parent_path()); // as a user does who needs the space
    writeFile(kept.parent_path(), "a file in the folder's place");
    EXPECT_EQ(cached(server.url("/40x30.png")), "40x30");
}

TEST(RemoteImagesTest, DownloadersKeepCopies) {
    const CachesFolder caches;
    const HttpServer server(servePictures);
    EXPECT_EQ(downloaded(server.url("/40x30.png"), true), "40x30");
    EXPECT_EQ(downloaded(server.url("/40x30.png"), true), "40x30");
    EXPECT_EQ(server.requests(), 1);
    EXPECT_EQ(downloaded(server.url("/40x30.png"), false), "40x30");
    EXPECT_EQ(downloaded(server.url("/40x30.png?size=large"), true), "40x30"); // another address
    EXPECT_EQ(server.requests(), 3);

    for (const auto& copy : std::filesystem::directory_iterator(caches.path() / "PexResourceDownloader"))
        std::filesystem::last_write_time(copy,
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::hours(24 * PexResourceDownloader::freshDays + 1));
    EXPECT_EQ(downloaded(server.url("/40x30.png"), true), "40x30"); // grown old
    EXPECT_EQ(server.requests(), 4);

    // Beyond the bound the oldest copies go (this one takes no room on the disk).
    const auto copies = caches.path() / "PexResourceDownloader", oldest = copies / "oldest";
    writeFile(oldest, "x");
    std::filesystem::resize_file(oldest, PexResourceDownloader::maxDiskBytes);
    std::filesystem::last_write_time(oldest, std::filesystem::file_time_type::clock::now() -
                                                 std::chrono::hours(24 * 30));
    const auto count = [&] { return std::distance(std::filesystem::directory_iterator(copies), {}); };
    const auto before = count();
    EXPECT_EQ(downloaded(server.url("/9x9"), true), "9x9");
    EXPECT_FALSE(std::filesystem::exists(oldest));
    EXPECT_EQ(count(), before);

    // What is no image, or half a one, is not kept.
    for (const auto& [path, told] : {std::pair("/text", "not an image"), {"/half", "64x64"}})
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(downloaded(server.url(path), true), told);
    EXPECT_EQ(server.requests(), 9);
    EXPECT_EQ(downloaded(server.url("/none"), true), "the server answered 404");

    std::filesystem::remove_all(copies);
    downloaded(server.url("/9x9"), true);
    const auto copy = std::filesystem::directory_iterator(copies)->path();
    const std::string content = readFile(copy);
    std::string gap = content;
    gap[gap.size() / 2] ^= 1;
    for (const std::string& damaged : {std::string(), content.substr(0, content.size() - 1), gap}) {
        writeFile(copy, damaged);
        EXPECT_EQ(downloaded(server.url("/9x9"), true), "9x9");
        EXPECT_EQ(readFile(copy), content) << damaged.size();
    }
}

TEST(RemoteImagesTest, WithoutADownloaderThereIsNoImage) {
    std::string told = "never";
    pex::asyncDownload(nullptr, {.url = pex::URL::fromPath("/a.png"),
                                 .completion = [&](const auto& image) { told = sizeOrReason(image); }});
    pex::Queue::wait();
    EXPECT_EQ(told, "no downloader");
}

TEST(RemoteImagesTest, StoresGiveImages) {
    const TempFolder folder;
    writeFile(folder.path() / "a.png", png(9, 7));
    const pex::PexSubFiles files(folder.url("parts"));
    ASSERT_TRUE(files.setData(Data(png(5, 6)), "../cover"));
    ASSERT_TRUE(files.setData(Data("no image"), "text"));
    EXPECT_EQ(sizeOf(PexImage::make({.subFiles = files, .id = "../cover"}).get()), "5x6");
    EXPECT_EQ(sizeOf(pex::getImage(files, {.withId = "../cover"}).get()), "5x6");
    EXPECT_EQ(sizeOf(pex::getImage(files, {.withId = "text"}).get()), "none");
    EXPECT_EQ(sizeOf(pex::getImage(files, {.withId = "none"}).get()), "none");
    EXPECT_EQ(folder.count(), 2); // nothing has left the store

    const pex::QuarnData remote([](const std::string& id) -> std::optional<Data> {
        if (id == "a") return Data(png(3, 4));
        return std::nullopt;
    });
    EXPECT_EQ(sizeOf(pex::getImage(remote, pex::QuarnData::WithId{"a"}).get()), "3x4");
    EXPECT_EQ(sizeOf(pex::getImage(remote, pex::QuarnData::WithId{"b"}).get()), "none");

    EXPECT_EQ(sizeOf(PexImage::download({.from = folder.url("a.png")}).get()), "9x7");
    const HttpServer server(servePictures);
    EXPECT_EQ(sizeOf(PexImage::download({.from = server.url("/4x4")}).get()), "none"); // local files only
}

} // namespace
