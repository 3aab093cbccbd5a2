#include "peximage/cache/PexCLIImageResizer.h"
#include "peximage/cache/PexImageCache.h"
#include "peximage/cache/PexNotify.h"
#include "peximage/cache/RemoteImages.h"
#include "peximage/platform/foundation/Bundle.h"
#include "peximage/platform/foundation/NotificationCenter.h"
#include "peximage/platform/varda/Queue.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <atomic>
#include <stop_token>
#include <vector>

namespace pex {
namespace {

namespace fs = std::filesystem;

/// An application's bundle whose resizer is a script.
class AppBundle : public TempFolder {
  public:
    explicit AppBundle(const std::string& script) {
        const fs::path resources = path() / "Contents/Frameworks/PexImage.framework/Versions/A/Resources";
        writeFile(resources / "CLIImageResizer", "#!/bin/sh\n" + script + '\n');
        fs::permissions(resources / "CLIImageResizer", fs::perms::owner_all);
        Bundle::setMain(URL::fromPath(path().string()));
    }
    ~AppBundle() { Bundle::setMain({}); }
};

TEST(PexCLIImageResizerTest, TellsByTheLastWord) {
    const std::vector<std::pair<std::string, bool>> cases{
        {"echo DONE", true},
        {"printf 'resized, done'", true},
        {"printf 'x\\nDone\\r\\n'", true},
        {"echo DONE indeed", false},
        {"printf one", false},
        {"true", false},
        {"echo DONE; exit 1", true},
        {"echo DONE >&2", false},
    };
    for (const auto& [script, result] : cases) {
        const AppBundle bundle(script);
        writeFile(bundle.path() / "out.jpg", "result");
        EXPECT_EQ(
            PexCLIImageResizer::resize(bundle.url("in.jpg"), {.to = bundle.url("out.jpg"), .maxSize = 10}),
            result)
            << script;
        EXPECT_FALSE(fs::exists(bundle.path() / "out.jpg")) << script;
    }
}

TEST(PexCLIImageResizerTest, ArgumentsArriveAsTheyAre) {
    const AppBundle bundle("printf '%s\\n' \"$#\" \"$@\" > \"$(dirname \"$1\")/arguments\"; echo DONE");
    const URL source = bundle.url("a $(touch b) 'c\".jpg"), destination = bundle.url("out; ls.jpg");
    EXPECT_TRUE(PexCLIImageResizer::resize(source, {.to = destination, .maxSize = 1200}));
    EXPECT_EQ(readFile(bundle.path() / "arguments"),
              "3\n" + source.path() + '\n' + destination.path() + "\n1200\n");
}

TEST(PexCLIImageResizerTest, WithoutTheProgramNothingHappens) {
    const TempFolder folder;
    writeFile(folder.path() / "out.jpg", "mine");
    Bundle::setMain(folder.url(""));
    EXPECT_FALSE(
        PexCLIImageResizer::resize(folder.url("in.jpg"), {.to = folder.url("out.jpg"), .maxSize = 10}));
    EXPECT_TRUE(fs::exists(folder.path() / "out.jpg"));
    Bundle::setMain({});
    ASSERT_TRUE(Bundle::main()); // where this program is
    EXPECT_EQ(fs::path(Bundle::main()->path()), fs::canonical("/proc/self/exe").parent_path());
}

TEST(PexNotifyTest, ImagesReachThoseWhoWaitForTheKeyword) {
    // Observations last as long as the process: they own what they write to.
    const auto seen = std::make_shared<std::vector<std::shared_ptr<PexImage>>>();
    const int here = 0, there = 0;
    const auto collect = [seen](std::shared_ptr<PexImage> image) { seen->push_back(std::move(image)); };
    PexNotify::observeImage({.sender = &here, .keyword = "cover", .callback = collect});
    PexNotify::observeImage({.keyword = "back", .callback = collect});

    const auto image = plain(4, 4, {});
    PexNotify::notify({.keyword = "cover", .sender = &there, .image = image});
    PexNotify::notify({.keyword = "other", .image = image});
    ASSERT_EQ(seen->size(), 1U); // the sender makes no difference
    EXPECT_EQ(seen->front(), image);

    auto& center = NotificationCenter::defaultCenter();
    center.post({.name = "cover"});
    center.post({.name = "cover", .userInfo = Notification::UserInfo{{"Image", image}}});
    center.post({.name = "cover", .userInfo = Notification::UserInfo{{"PexImage", std::string("text")}}});
    EXPECT_EQ(*seen, (std::vector<std::shared_ptr<PexImage>>{image, nullptr, nullptr, nullptr}));
}

TEST(PexNotifyTest, ObserversSeeThePayloadAndMayPostThemselves) {
    NotificationCenter center;
    std::vector<std::string> order;
    center.addObserver("a", [&](const Notification& notification) {
        order.push_back("first " + notification.name);
        center.addObserver("b", [&](const auto&) { order.push_back("late"); });
        center.post({.name = "b"});
    });
    center.addObserver("a", [&](const auto&) { order.push_back("second"); });
    center.post({.name = "a"});
    EXPECT_EQ(order, (std::vector<std::string>{"first a", "late", "second"}));

    const auto image = plain(4, 4, {});
    const int sender = 0;
    const auto info = std::make_shared<Notification>();
    NotificationCenter::defaultCenter().addObserver("payload", [info](const auto& sent) { *info = sent; });
    PexNotify::notify({.keyword = "payload", .sender = &sender, .image = image});
    EXPECT_EQ(info->object, &sender);
    ASSERT_TRUE(info->userInfo);
    EXPECT_EQ(info->userInfo->size(), 1U);
    EXPECT_EQ(std::any_cast<std::shared_ptr<PexImage>>(info->userInfo->at("PexImage")), image);
}

/// Asks for an identifier; true when the image had to be made.
bool ask(PexImageCache& cache, const std::string& id) {
    bool made = false;
    const auto got = cache.getImageOrCalc({.withId = id, .calcClosure = [&] {
                                               made = true;
                                               return plain(4, 3, {});
                                           }});
    EXPECT_TRUE(got);
    return made;
}

std::vector<std::string> idsIn(const PexImageCache& cache) {
    std::vector<std::string> ids;
    PexImageCache::workQueue().sync([&] {
        for (const auto& entry : cache.cachedImageList)
            ids.push_back(entry->id);
    });
    return ids;
}

TEST(PexImageCache, KeepsWhatWasAskedForLast) {
    struct Case {
        std::optional<std::int64_t> bound;
        std::vector<std::string> requests, kept;
        std::size_t made;
    };
    for (const Case& c :
         std::vector<Case>{{2, {"a", "b", "c"}, {"c", "b"}, 3},
                           {2, {"a", "b", "a", "c"}, {"c", "a"}, 3},
                           {2, {"a", "b", "a"}, {"a", "b"}, 2}, // not sorted before it is too long
                           {3, {"a", "b", "c", "a", "b", "d"}, {"d", "b", "a"}, 4},
                           {{}, {"c", "a", "b", "a"}, {"c", "a", "b"}, 3},
                           {0, {"a", "a"}, {}, 2},
                           {-1, {"a", "a"}, {}, 2}}) {
        const auto cache = PexImageCache::make({.maxImagesInCache = c.bound});
        std::size_t made = 0;
        for (const std::string& id : c.requests)
            made += ask(*cache, id);
        EXPECT_EQ(idsIn(*cache), c.kept) << testing::PrintToString(c.requests);
        EXPECT_EQ(made, c.made) << testing::PrintToString(c.requests);
    }
}

TEST(PexImageCache, ReducesWhatIsMadeToTheLongerSide) {
    for (const auto& [given, stored] : {std::pair{CGSize{400, 200}, CGSize{100, 50}},
                                        {{200, 400}, {50, 100}},
                                        {{80, 60}, {80, 60}},
                                        {{100, 100}, {100, 100}}}) {
        const auto cache = PexImageCache::make({});
        const auto made = plain(int(given.width), int(given.height), {});
        const auto got =
            cache->getImageOrCalc({.withId = "a", .maxSize = 100, .calcClosure = [&] { return made; }});
        ASSERT_TRUE(got);
        EXPECT_EQ(got->size, stored);
        EXPECT_NE(got, made) << "it is redrawn at any size";
        EXPECT_EQ(got, cache->getImageOrCalc({.withId = "a", .maxSize = 10, .calcClosure = {}}))
            << "what is there is not reduced again";
    }
}

TEST(PexImageCache, RemembersThatThereIsNothing) {
    const auto blank = PexImage::make({.size = {8, 8}}); // cannot be reduced: it has no bitmap
    for (const auto& [maxSize, made] :
         {std::pair<std::optional<double>, std::shared_ptr<PexImage>>{{}, nullptr}, {4., blank}}) {
        const auto cache = PexImageCache::make({});
        const auto ask = [&, maxSize = maxSize](std::shared_ptr<PexImage> result) {
            return cache->getImageOrCalc(
                {.withId = "a", .maxSize = maxSize, .calcClosure = [result] { return result; }});
        };
        EXPECT_FALSE(ask(made));
        EXPECT_FALSE(ask(plain(4, 3, {})));
    }
    EXPECT_FALSE(PexImageCache::make({})->getImageOrCalc({.withId = "a", .calcClosure = {}}));
}

TEST(PexImageCache, RequestsStayInOrderWhenTheClockIsSetBack) {
    using Date = RequestDates::Date;
    RequestDates dates;
    const Date noon = std::chrono::system_clock::now();
    const Date first = dates.next(noon);
    const Date second = dates.next(noon);
    const Date anHourBack = dates.next(noon - std::chrono::hours(1));
    EXPECT_EQ(first, noon);
    EXPECT_LT(first, second);
    EXPECT_LT(second, anHourBack);
    EXPECT_EQ(dates.next(noon + std::chrono::hours(1)), noon + std::chrono::hours(1));
}

TEST(PexImageCache, AnImageMayBeMadeWithTheHelpOfACache) {
    const auto cache = PexImageCache::make({.maxImagesInCache = 10});
    const auto outer = cache->getImageOrCalc(
        {.withId = "outer", .calcClosure = [&] {
             return cache->getImageOrCalc({.withId = "inner", .calcClosure = [] { return plain(4, 3, {}); }});
         }});
    EXPECT_TRUE(outer);
    EXPECT_EQ(idsIn(*cache), (std::vector<std::string>{"inner", "outer"}));
}

std::string png(int width, int height) {
    return std::string(encoded(photoLike(width, height), ImageFormat::png).text());
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
    return image ? sizeOf(image) : lastReason().message;
}

/// What getCachedImage gives; "twice" when it calls back more than once.
std::string cached(const URL& url, std::stop_token stop = {}) {
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
    Queue::wait();
    EXPECT_TRUE(why.empty() || why == got);
    return calls == 1 ? got : calls == 0 ? "never" : "twice";
}

std::string downloaded(const URL& url, bool useDiskCache,
                       const std::shared_ptr<PexResourceDownloader>& by = PexResourceDownloader::make()) {
    std::string size = "never";
    pex::asyncDownload(by, {.url = url, .useDiskCache = useDiskCache, .completion = [&](const auto& image) {
                                size = sizeOrReason(image);
                            }});
    Queue::wait();
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
    ASSERT_TRUE(fs::exists(kept));

    EXPECT_EQ(cached(server.url("/40x30.png?v=2")), "40x30");
    EXPECT_EQ(cached(other.url("/40x30.png")), "40x30"); // the same path elsewhere
    EXPECT_EQ(server.requests() + other.requests(), 1);

    EXPECT_EQ(cached(server.url("/none")), "the server answered 404");
    EXPECT_EQ(cached(server.url("/text")), "not an image");
    EXPECT_EQ(cached(server.url("/half")), "64x64"); // shown, and not kept
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(cached(server.url("/9x9"), stopped.get_token()), "cancelled");
    EXPECT_EQ(std::distance(fs::directory_iterator(kept.parent_path()), {}), 1);

    const std::string whole = readFile(kept);
    for (const std::string& damaged : {std::string("damaged"), whole.substr(0, whole.size() / 2)}) {
        writeFile(kept, damaged); // fetched anew, and replaced
        EXPECT_EQ(cached(server.url("/40x30.png")), "40x30");
        EXPECT_EQ(readFile(kept), whole);
    }

    fs::remove_all(kept.parent_path()); // as a user does who needs the space
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

    for (const auto& copy : fs::directory_iterator(caches.path() / "PexResourceDownloader"))
        fs::last_write_time(copy, fs::file_time_type::clock::now() -
                                      std::chrono::hours(24 * PexResourceDownloader::freshDays + 1));
    EXPECT_EQ(downloaded(server.url("/40x30.png"), true), "40x30"); // grown old
    EXPECT_EQ(server.requests(), 4);

    // Beyond the bound the oldest copies go (this one takes no room on the disk).
    const auto copies = caches.path() / "PexResourceDownloader", oldest = copies / "oldest";
    writeFile(oldest, "x");
    fs::resize_file(oldest, PexResourceDownloader::maxDiskBytes);
    fs::last_write_time(oldest, fs::file_time_type::clock::now() - std::chrono::hours(24 * 30));
    const auto count = [&] { return std::distance(fs::directory_iterator(copies), {}); };
    const auto before = count();
    EXPECT_EQ(downloaded(server.url("/9x9"), true), "9x9");
    EXPECT_FALSE(fs::exists(oldest));
    EXPECT_EQ(count(), before);

    // What is no image, or half a one, is not kept.
    for (const auto& [path, told] : {std::pair("/text", "not an image"), {"/half", "64x64"}})
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(downloaded(server.url(path), true), told);
    EXPECT_EQ(server.requests(), 9);
    EXPECT_EQ(downloaded(server.url("/none"), true), "the server answered 404");
    EXPECT_EQ(downloaded(server.url("/9x9"), true, nullptr), "no downloader");

    fs::remove_all(copies);
    downloaded(server.url("/9x9"), true);
    const auto copy = fs::directory_iterator(copies)->path();
    const std::string content = readFile(copy);
    std::string gap = content;
    gap[gap.size() / 2] ^= 1;
    for (const std::string& damaged : {std::string(), content.substr(0, content.size() - 1), gap}) {
        writeFile(copy, damaged);
        EXPECT_EQ(downloaded(server.url("/9x9"), true), "9x9");
        EXPECT_EQ(readFile(copy), content) << damaged.size();
    }
}

TEST(RemoteImagesTest, StoresGiveImages) {
    const TempFolder folder;
    writeFile(folder.path() / "a.png", png(9, 7));
    const PexSubFiles files(folder.url("parts"));
    ASSERT_TRUE(files.setData(Data(png(5, 6)), "../cover"));
    ASSERT_TRUE(files.setData(Data("no image"), "text"));
    EXPECT_EQ(sizeOf(PexImage::make({.subFiles = files, .id = "../cover"}).get()), "5x6");
    EXPECT_EQ(sizeOf(getImage(files, {.withId = "../cover"}).get()), "5x6");
    EXPECT_EQ(sizeOf(getImage(files, {.withId = "text"}).get()), "none");
    EXPECT_EQ(sizeOf(getImage(files, {.withId = "none"}).get()), "none");
    EXPECT_EQ(folder.count(), 2); // nothing has left the store

    const QuarnData remote([](const std::string& id) -> std::optional<Data> {
        if (id == "a") return Data(png(3, 4));
        return std::nullopt;
    });
    EXPECT_EQ(sizeOf(getImage(remote, QuarnData::WithId{"a"}).get()), "3x4");
    EXPECT_EQ(sizeOf(getImage(remote, QuarnData::WithId{"b"}).get()), "none");

    EXPECT_EQ(sizeOf(PexImage::download({.from = folder.url("a.png")}).get()), "9x7");
    const HttpServer server(servePictures);
    EXPECT_EQ(sizeOf(PexImage::download({.from = server.url("/4x4")}).get()), "none"); // local files only
}

} // namespace
} // namespace pex
