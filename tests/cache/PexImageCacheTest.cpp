#include "peximage/cache/PexImageCache.h"

#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <random>

namespace pex {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<PexImage> image(int width = 4, int height = 3) {
    return PexImage::make(photoLike(width, height));
}

/// Asks for an identifier; true when the image had to be made.
bool ask(PexImageCache& cache, const std::string& id) {
    bool made = false;
    const auto got = cache.getImageOrCalc({.withId = id, .calcClosure = [&] {
                                               made = true;
                                               return image();
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
        const auto made = image(int(given.width), int(given.height));
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
        EXPECT_FALSE(ask(image()));
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
             return cache->getImageOrCalc({.withId = "inner", .calcClosure = [] { return image(); }});
         }});
    EXPECT_TRUE(outer);
    EXPECT_THAT(idsIn(*cache), ElementsAre("inner", "outer"));
    EXPECT_TRUE(PexImageCache::workQueue().label().ends_with(".PexImageCache"));
}

} // namespace
} // namespace pex
