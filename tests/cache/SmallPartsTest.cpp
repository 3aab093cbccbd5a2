#include "peximage/cache/PexCLIImageResizer.h"
#include "peximage/cache/PexImageCache.h"
#include "peximage/cache/PexNotify.h"
#include "peximage/platform/foundation/Bundle.h"
#include "peximage/platform/foundation/NotificationCenter.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

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

} // namespace
} // namespace pex
