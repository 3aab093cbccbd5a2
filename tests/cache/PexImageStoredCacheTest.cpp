#include "peximage/cache/PexImageStoredCache.h"

#include "tests/support/InChild.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <sys/resource.h>

namespace pex {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using Cache = PexImageStoredCache;
using Mode = Cache::Mode;

constexpr std::int64_t forever = 1'000'000;

std::shared_ptr<Cache> named(const char* name, std::int64_t days = forever) {
    return Cache::make({.name = name, .removeItemsAfterDays = days, .mode = Mode::png});
}

std::shared_ptr<PexImage> image(int width = 24, int height = 16, unsigned seed = 1) {
    return PexImage::make(photoLike(width, height, seed));
}

class StoredCache : public testing::Test {
  protected:
    std::shared_ptr<Cache> make(Mode mode = Mode::png, std::optional<std::int64_t> minSide = {}) {
        return Cache::make(
            {.name = "Thumbs", .removeItemsAfterDays = forever, .mode = mode, .resizeMinSideToMax = minSide});
    }
    fs::path file(const std::string& name) const { return folder_ / name; }
    long filesInFolder() const {
        return std::distance(fs::recursive_directory_iterator(folder_), fs::recursive_directory_iterator());
    }

    CapturedLines lines_;
    CachesFolder caches_;
    fs::path folder_ = caches_.path() / "Thumbs";
    Gathered background_;
};

TEST_F(StoredCache, WritesTheFormatOfTheModeUnderTheIdentifier) {
    make(Mode::heif)->store(image(), "abc");
    make(Mode::png)->store(image(), "abc");
    EXPECT_FALSE(fs::exists(file("abc.jpg"))) << "it is stored in the background";
    background_.run();
    EXPECT_TRUE(readFile(file("abc.jpg")).starts_with("\xff\xd8\xff"));
    EXPECT_TRUE(readFile(file("abc.png")).starts_with("\x89PNG"));
    EXPECT_EQ(filesInFolder(), 2);

    fs::remove(file("abc.jpg"));
    EXPECT_FALSE(make(Mode::heif)->retrieveImage("abc"));
    const auto back = make(Mode::png)->retrieveImage("abc");
    ASSERT_TRUE(back);
    const auto original = image();
    expectPixels(*back->cgImage, [&](int x, int y) {
        const Pixel p = pixelAt(*original->cgImage, x, y);
        return std::array{p[0], p[1], p[2]};
    });
}

TEST_F(StoredCache, ReducesTheShorterSide) {
    const auto cache = make(Mode::heif, 300);
    for (const auto& [given, stored] :
         {std::pair{CGSize{1200, 800}, CGSize{450, 300}}, {{301, 900}, {300, 897}}, {{299, 90}, {299, 90}}}) {
        EXPECT_TRUE(cache->storeNow(image(int(given.width), int(given.height)), "abc"));
        EXPECT_EQ(cache->retrieveImage("abc")->size, stored);
    }
    for (const auto& nothing : {PexImage::make({.size = {400, 400}}), std::shared_ptr<PexImage>()}) {
        EXPECT_FALSE(cache->storeNow(nothing, "none"));
        cache->store(nothing, "none");
    }
    background_.run();
    EXPECT_THAT(cache->identifiers(), ElementsAre("abc"));
}

TEST_F(StoredCache, TakesFromMemoryThenFromDiskThenMakes) {
    int made = 0;
    const auto ask = [&](const std::shared_ptr<Cache>& cache, const std::string& id) {
        return cache->retrieveOrCalc({.imageWithId = id, .calc = [&] { return ++made, image(); }});
    };
    const auto first = make();
    const auto image1 = ask(first, "a");
    EXPECT_EQ(ask(first, "a"), image1) << "before it is on disk";
    background_.run();
    fs::remove(file("a.png"));
    EXPECT_EQ(ask(first, "a"), image1);
    EXPECT_EQ(made, 1);
    EXPECT_FALSE(first->retrieveImage("a")) << "which asks the disk alone";

    EXPECT_TRUE(first->storeNow(image1, "a"));
    const auto second = make();
    const auto image2 = ask(second, "a");
    EXPECT_NE(image2, ask(second, "a")) << "read again each time";
    EXPECT_FALSE(second->cache.value("a"));
    EXPECT_EQ(made, 1);

    const auto nothing = [&] { return ++made, nullptr; };
    for (int i = 0; i < 2; ++i)
        EXPECT_FALSE(second->retrieveOrCalc({.imageWithId = "none", .calc = nothing}));
    EXPECT_EQ(made, 3);
    background_.run();
    EXPECT_THAT(second->identifiers(), ElementsAre("a"));
    EXPECT_FALSE(second->retrieveOrCalc({.imageWithId = "none", .calc = {}}));
}

TEST_F(StoredCache, StoresTheImageAsItWas) {
    const auto cache = make();
    const auto changing = image();
    changing->setColor(0, 0, NSColor(1, 0, 0));
    for (const char* id : {"a", "b"}) {
        make(Mode::heif)->store(changing, id);
        cache->store(changing, id);
        for (int x = 0; x < 24; ++x)
            for (int y = 0; y < 16; ++y)
                changing->setColor(x, y, NSColor(0, 0, 1)); // before it is written
    }
    background_.run();
    const auto colour = [&](const char* id) {
        return pixelAt(*make(Mode::heif)->retrieveImage(id)->cgImage, 20, 9);
    };
    EXPECT_LT(colour("a")[2], 220);
    EXPECT_GT(colour("b")[2], 240) << "pixels that were written are stored in this mode";
}

TEST_F(StoredCache, DamagedFilesCountAsMissingAndAreReplaced) {
    for (const Mode mode : {Mode::png, Mode::heif}) {
        const std::string name = mode == Mode::png ? "a.png" : "a.jpg";
        const auto cache = make(mode);
        ASSERT_TRUE(cache->storeNow(image(200, 150), "a"));
        const std::string whole = readFile(file(name));
        std::string zeros = whole;
        std::fill(zeros.begin() + static_cast<std::ptrdiff_t>(zeros.size() / 2), zeros.end(), '\0');
        for (const std::string& damaged :
             {std::string(), whole.substr(0, 30), whole.substr(0, whole.size() / 2), zeros,
              std::string("<html>404</html>")}) {
            writeFile(file(name), damaged);
            EXPECT_FALSE(cache->retrieveImage("a")) << name << ' ' << damaged.size();
            make(mode)->retrieveOrCalc({.imageWithId = "a", .calc = [] { return image(200, 150); }});
            background_.run();
            EXPECT_EQ(readFile(file(name)), whole) << "replaced";
        }
    }
}

TEST_F(StoredCache, AnIdentifierNamesAFileInsideOrNothing) {
    const auto cache = make();
    const std::string longName(251, 'x');
    const std::pair<std::string, std::string> names[] = {
        {"", ".png"},
        {"..", "...png"},
        {"/etc/passwd", "etc/passwd.png"},
        {"a/../c", "c.png"},
        {"d/", "d/.png"},
        {longName, longName + ".png"},
        {"tab\tnew\nline \xff\xfe", "tab\tnew\nline \xff\xfe.png"}};
    for (const auto& [id, name] : names) {
        EXPECT_TRUE(cache->storeNow(image(), id)) << id;
        EXPECT_TRUE(fs::is_regular_file(file(name))) << name;
        EXPECT_TRUE(cache->retrieveImage(id)) << id;
    }
    EXPECT_THAT(cache->identifiers(), testing::Contains("etc/passwd"));
    EXPECT_EQ(cache->identifiers().size(), std::size(names));

    const long before = filesInFolder();
    for (const std::string& id :
         {std::string("../up"), std::string("a/../../up"), std::string("../Thumbs2/x"),
          std::string("../../.."), std::string("nul\0byte", 8), std::string(252, 'x'), std::string(5000, 'a'),
          std::string(5000, '/') + "../up"}) {
        EXPECT_FALSE(cache->imageUrl(id)) << id;
        EXPECT_FALSE(cache->storeNow(image(), id)) << id;
        cache->store(image(), id);
        EXPECT_FALSE(cache->retrieveImage(id)) << id;
        const auto made = cache->retrieveOrCalc({.imageWithId = id, .calc = [] { return image(); }});
        EXPECT_TRUE(made) << "it is made and kept in memory all the same";
    }
    std::string deep;
    for (int i = 0; i < 2500; ++i)
        deep += "a/"; // every part is short; all together is longer than any path
    EXPECT_FALSE(cache->storeNow(image(), deep));
    background_.run();
    EXPECT_EQ(caches_.count(), 1) << "nothing beside the folder";
    fs::remove_all(folder_ / "a");
    EXPECT_LE(filesInFolder(), before);
}

TEST_F(StoredCache, ACacheStaysInTheCachesFolder) {
    fs::create_directories(caches_.path() / "inner");
    setUserCachesFolder(URL::fromPath((caches_.path() / "inner/").string()));
    writeFile(caches_.path() / "precious.png", "x");
    writeFile(caches_.path() / "inner/precious.png", "x");
    for (const char* name : {"", ".", "..", "../up", "a/..", "//"}) {
        const auto cache = named(name, 0);
        EXPECT_FALSE(cache->storeNow(image(), "a")) << name;
        EXPECT_EQ(cache->removeOldItemsNow(), 0U) << name;
        EXPECT_THAT(cache->identifiers(), IsEmpty());
    }
    for (const char* name : {"plain", "sub/folder/", "/absolute"}) {
        const auto cache = named(name);
        EXPECT_TRUE(cache->storeNow(image(), "a")) << name;
        EXPECT_TRUE(fs::exists(caches_.path() / "inner" / fs::path(name).relative_path() / "a.png")) << name;
        EXPECT_THAT(cache->identifiers(), ElementsAre("a"));
    }
    background_.run();
    EXPECT_EQ(caches_.count(), 2);
}

TEST_F(StoredCache, OldFilesGoWhenACacheIsMade) {
    using std::chrono::hours;
    const std::pair<const char*, hours> files[] = {
        {"new.png", hours(0)},      {"day.jpg", hours(25)},     {"sub/week.png", hours(7 * 24)},
        {"future.png", hours(-48)}, {".pex-1-2.tmp", hours(2)}, {".pex-live.tmp", hours(0)}};
    const std::vector<std::string> all{".pex-live.tmp", "day.jpg", "future.png", "new.png", "sub/week.png"};
    const std::pair<std::int64_t, std::vector<std::string>> cases[] = {
        {30, all},
        {2, {".pex-live.tmp", "day.jpg", "future.png", "new.png"}},
        {1, {".pex-live.tmp", "future.png", "new.png"}},
        {std::numeric_limits<std::int64_t>::max(), all},
        {0, {".pex-live.tmp", "future.png"}}};
    for (const auto& [days, kept] : cases) {
        fs::remove_all(folder_);
        for (const auto& [name, age] : files) {
            writeFile(file(name), "x");
            fs::last_write_time(file(name), fs::file_time_type::clock::now() - age);
        }
        const auto cache = named("Thumbs", days);
        EXPECT_EQ(filesInFolder(), 7) << "it happens in the background";
        background_.run();
        std::vector<std::string> left;
        for (const auto& entry : fs::recursive_directory_iterator(folder_))
            if (entry.is_regular_file()) left.push_back(entry.path().lexically_relative(folder_).string());
        std::sort(left.begin(), left.end());
        EXPECT_EQ(left, kept) << days << " days";
    }
    EXPECT_EQ(named("Thumbs", 0)->removeOldItemsNow(), 1U)
        << "the file of the future was dated now, and is old now";
}

// Whatever lies where the folder should be, and whatever happens to it: nothing is stored, nothing breaks.
TEST_F(StoredCache, WorksWithoutAUsableFolder) {
    const auto cache = make();
    const auto expectNothingStored = [&](const char* why) {
        EXPECT_FALSE(cache->storeNow(image(), "a")) << why;
        EXPECT_FALSE(cache->retrieveImage("a")) << why;
        EXPECT_TRUE(cache->retrieveOrCalc({.imageWithId = why, .calc = [] { return image(); }})) << why;
        cache->removeOldItems();
        background_.run();
    };
    writeFile(folder_, "a file where the folder should be");
    expectNothingStored("a file");
    fs::remove(folder_);
    fs::create_directories(folder_ / "a.png/x");
    expectNothingStored("a folder where the file should be");
    EXPECT_TRUE(fs::exists(folder_ / "a.png/x"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 2) << "that folder and one other image";

    fs::remove_all(folder_);
    EXPECT_TRUE(cache->storeNow(image(), "a")) << "deleted underneath: it is made again";
    fs::remove_all(folder_);
    fs::create_directory_symlink(caches_.path() / "gone", folder_);
    expectNothingStored("a link to nowhere");
    fs::remove(folder_);

    setUserCachesFolder(*URL::parse("https://host/caches"));
    expectNothingStored("an address of no folder");
}

TEST_F(StoredCache, AFullDiskKeepsTheOldImage) {
    for (const Mode mode : {Mode::png, Mode::heif}) {
        const auto cache = make(mode);
        ASSERT_TRUE(cache->storeNow(image(8, 8), "a"));
        const long before = filesInFolder();
        const int status = inChild([&] {
            const rlimit small{2000, 2000}; // a write beyond fails half-way, as on a full disk
            std::signal(SIGXFSZ, SIG_IGN);
            if (::setrlimit(RLIMIT_FSIZE, &small) != 0) return 2;
            return cache->storeNow(image(200, 200), "a") ? 1 : 0;
        });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(cache->retrieveImage("a")->size, (CGSize{8, 8}));
        EXPECT_EQ(filesInFolder(), before) << "nothing half-written is left";
    }
}

TEST(StoredCacheThreads, WhatIsStoredIsThereWhenTheProcessHasEnded) {
    if (underThreadSanitizer) GTEST_SKIP();
    const CachesFolder caches;
    const int status = inChild([]() -> int {
        const auto cache = named("Thumbs");
        for (const char* id : {"a", "b", "c", "d", "e", "f"})
            cache->store(image(200, 150), id);
        const auto nowhere =
            *URL::parse("http://127.0.0.1:1/a.png"); // which makes more statics than the pool
        PexImage::getCachedImage({.url = nowhere, .callback = [](const auto&) {}});
        std::exit(42);
    });
    EXPECT_EQ(status, 42);
    EXPECT_EQ(std::distance(fs::directory_iterator(caches.path() / "Thumbs"), {}), 6);
}

// The library's own background threads take part. Every image has the width that its identifier says.
TEST(StoredCacheThreads, EightThreadsReadWholeImagesOfTheirOwn) {
    constexpr int threads = 8, operations = 4000, identifiers = 12;
    const CapturedLines lines;
    const CachesFolder caches;
    const auto cache = named("Thumbs");
    std::atomic<int> wrong{0}, found{0};
    onThreads(threads, [&](unsigned thread) {
        std::mt19937 random(thread);
        for (int i = 0; i < operations / threads; ++i) {
            const int width = static_cast<int>(random() % identifiers) + 1;
            const std::string id = std::to_string(width % 3) + '/' + std::to_string(width);
            const auto make = [&] { return image(width, 3, random()); };
            const unsigned what = random() % 8;
            if (what == 0) cache->storeNow(make(), id);
            if (what == 1) cache->store(make(), id);
            if (what == 2) cache->removeOldItems();
            const auto got = what == 3   ? cache->retrieveOrCalc({.imageWithId = id, .calc = make})
                             : what >= 4 ? cache->retrieveImage(id)
                                         : nullptr;
            if (got) ++(got->size == CGSize{static_cast<double>(width), 3} ? found : wrong);
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(found, operations / 4);
    Queue::wait();
    for (const std::string& id : cache->identifiers())
        EXPECT_TRUE(cache->retrieveImage(id)) << id;
}

} // namespace
} // namespace pex
