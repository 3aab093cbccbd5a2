#include "peximage/cache/RemoteImages.h"

#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/varda/PexId.h"
#include "tests/support/CachesFolder.h"
#include "tests/support/HttpServer.h"
#include "tests/support/JoinedQueue.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

namespace {

using pex::Data;
using pex::PexImage;
using pex::PexResourceDownloader;

std::string png(int width, int height) {
    const auto bytes = pex::CGImageDestination::encode(photoLike(width, height), pex::ImageFormat::png, {});
    return std::string(bytes->text());
}

/// "/40x30.png" is a picture of that size; everything else is missing, with a picture in the body.
void servePictures(const HttpServer::Exchange& exchange) {
    int width = 0, height = 0;
    if (std::sscanf(exchange.target.c_str(), "/%dx%d", &width, &height) == 2)
        return exchange.answer("200 OK", png(width, height));
    if (exchange.target == "/text") return exchange.answer("200 OK", "log in first");
    exchange.answer("404 Not Found", png(8, 8));
}

std::string sizeOf(const std::shared_ptr<PexImage>& image) {
    if (!image) return "none";
    return std::to_string(static_cast<int>(image->size.width)) + 'x' +
           std::to_string(static_cast<int>(image->size.height));
}

/// What getCachedImage gives; "twice" when it calls back more than once.
std::string cached(JoinedQueue& queue, const pex::URL& url, std::string* why = nullptr) {
    std::atomic<int> calls{0};
    std::string size;
    PexImage::getCachedImage({.url = url,
                              .callback =
                                  [&](const std::shared_ptr<PexImage>& image) {
                                      ++calls;
                                      size = sizeOf(image);
                                  },
                              .failed =
                                  [&](const std::string& problem) {
                                      if (why != nullptr) *why = problem;
                                  }});
    queue.finish();
    return calls == 1 ? size : calls == 0 ? "never" : "twice";
}

std::string downloaded(JoinedQueue& queue, const pex::URL& url, bool useDiskCache) {
    std::string size = "never";
    pex::asyncDownload(PexResourceDownloader::make(),
                       {.url = url, .useDiskCache = useDiskCache, .completion = [&](const auto& image) {
                            size = sizeOf(image);
                        }});
    queue.finish();
    return size;
}

TEST(RemoteImagesTest, MakesImagesOfWhatIsAtAddresses) {
    const HttpServer server(servePictures);
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.url("/40x30.png")})), "40x30");
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.address("/30x20.png")})), "30x20");
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.url("/none")})), "none");
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = server.url("/text")})), "none");
    const int before = server.requests();
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = "no address"})), "none");
    EXPECT_EQ(server.requests(), before);
    const TempFolder folder;
    std::ofstream(folder.path() / "a.png") << png(9, 7);
    EXPECT_EQ(sizeOf(PexImage::make({.httpUrl = folder.url("a.png")})), "9x7");
}

// One test, since a process asks for its caches folder once.
TEST(RemoteImagesTest, CachedImagesAreFetchedOnce) {
    const CachesFolder caches;
    JoinedQueue queue;
    const HttpServer server(servePictures), other(servePictures);
    EXPECT_EQ(cached(queue, server.url("/40x30.png?v=1")), "40x30");
    EXPECT_EQ(server.requests(), 1);

    // The digest of the path alone, as `printf /40x30.png | md5sum` gives it.
    const auto kept = caches.path() / "PexImageCache" / "c18a465c8288e5c4f51ac483b48fc3a1.jpg";
    ASSERT_TRUE(std::filesystem::exists(kept));

    EXPECT_EQ(cached(queue, server.url("/40x30.png?v=2")), "40x30");
    EXPECT_EQ(cached(queue, other.url("/40x30.png")), "40x30"); // the same path elsewhere
    EXPECT_EQ(server.requests() + other.requests(), 1);

    std::string why;
    EXPECT_EQ(cached(queue, server.url("/none"), &why), "none");
    EXPECT_EQ(why, "the server answered 404");
    EXPECT_EQ(cached(queue, server.url("/text"), &why), "none");
    EXPECT_EQ(why, "not an image");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(kept.parent_path()), {}), 1);

    std::ofstream(kept) << "damaged"; // fetched anew, and replaced
    EXPECT_EQ(cached(queue, server.url("/40x30.png")), "40x30");
    EXPECT_EQ(sizeOf(PexImage::make({.fastUrl = pex::URL::fromPath(kept.string())})), "40x30");

    std::filesystem::remove_all(kept.parent_path()); // as a user does who needs the space
    std::ofstream(kept.parent_path()) << "a file in the folder's place";
    EXPECT_EQ(cached(queue, server.url("/40x30.png")), "40x30");
}

TEST(RemoteImagesTest, DownloadersKeepCopies) {
    const CachesFolder caches;
    JoinedQueue queue;
    const HttpServer server(servePictures);
    EXPECT_EQ(downloaded(queue, server.url("/40x30.png"), true), "40x30");
    EXPECT_EQ(downloaded(queue, server.url("/40x30.png"), true), "40x30");
    EXPECT_EQ(server.requests(), 1);
    EXPECT_EQ(downloaded(queue, server.url("/40x30.png"), false), "40x30");
    EXPECT_EQ(downloaded(queue, server.url("/40x30.png?size=large"), true), "40x30"); // another address
    EXPECT_EQ(server.requests(), 3);

    for (const auto& copy : std::filesystem::directory_iterator(caches.path() / "PexResourceDownloader"))
        std::filesystem::last_write_time(copy,
                                         std::filesystem::file_time_type::clock::now() -
                                             std::chrono::hours(24 * PexResourceDownloader::freshDays + 1));
    EXPECT_EQ(downloaded(queue, server.url("/40x30.png"), true), "40x30"); // grown old
    EXPECT_EQ(server.requests(), 4);

    // Beyond the bound the oldest copies go (this one takes no room on the disk).
    const auto copies = caches.path() / "PexResourceDownloader", oldest = copies / "oldest";
    std::ofstream(oldest) << "x";
    std::filesystem::resize_file(oldest, PexResourceDownloader::maxDiskBytes);
    std::filesystem::last_write_time(oldest, std::filesystem::file_time_type::clock::now() -
                                                 std::chrono::hours(24 * 30));
    const auto count = [&] { return std::distance(std::filesystem::directory_iterator(copies), {}); };
    const auto before = count();
    EXPECT_EQ(downloaded(queue, server.url("/9x9"), true), "9x9");
    EXPECT_FALSE(std::filesystem::exists(oldest));
    EXPECT_EQ(count(), before);

    EXPECT_EQ(downloaded(queue, server.url("/text"), true), "none"); // no image: not kept
    EXPECT_EQ(downloaded(queue, server.url("/text"), true), "none");
    EXPECT_EQ(server.requests(), 7);
}

TEST(RemoteImagesTest, StoresGiveImages) {
    const TempFolder folder;
    std::ofstream(folder.path() / "a.png") << png(9, 7);
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
    EXPECT_EQ(sizeOf(PexImage::download({.from = folder.url("none.png")}).get()), "none");
    const HttpServer server(servePictures);
    EXPECT_EQ(sizeOf(PexImage::download({.from = server.url("/4x4")}).get()), "none"); // local files only
}

} // namespace
