// Two processes store into one cache, and one of them is killed at random two hundred times. Every file that
// is then there must be one of the two whole pictures. This process starts no threads, so that the ones it
// forks can.

#include "peximage/cache/PexImageStoredCache.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "tests/support/InChild.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <csignal>
#include <iostream>
#include <random>
#include <set>

using namespace pex;

namespace {

constexpr int kills = 200, pictures = 3;
using Mode = PexImageStoredCache::Mode;

/// Stores its picture under every identifier, in both formats.
void storeAll(const std::shared_ptr<PexImage>& picture, const std::string& prefix) {
    for (const Mode mode : {Mode::png, Mode::heif}) {
        const auto cache =
            PexImageStoredCache::make({.name = "Crash", .removeItemsAfterDays = 100, .mode = mode});
        for (int i = 0; i < pictures; ++i)
            cache->storeNow(picture, prefix + std::to_string(i));
    }
}

pid_t startStoring(unsigned seed) {
    return startChild([seed] {
        const auto picture = PexImage::make(photoLike(120, 80, seed));
        for (;;)
            storeAll(picture, "");
        return 0;
    });
}

void kill(pid_t child) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

bool isTemporary(const URL& file) { return file.lastPathComponent().ends_with(".tmp"); }

/// The files of the cache whose bytes are none of the whole ones.
int countBroken(const URL& folder, const std::set<std::string>& whole) {
    int broken = 0;
    for (const URL& file : fu_filesInFolder(folder)) {
        if (!isTemporary(file) && !whole.contains(readFile(file.path()))) ++broken;
    }
    return broken;
}

std::set<std::string> wholePictures(const URL& folder) {
    for (const unsigned seed : {1U, 2U}) {
        const std::string prefix = "whole/" + std::to_string(seed) + '-';
        inChild([&] { return storeAll(PexImage::make(photoLike(120, 80, seed)), prefix), 0; });
    }
    std::set<std::string> whole;
    for (const URL& file : fu_filesInFolder(folder))
        whole.insert(readFile(file.path()));
    return whole;
}

bool check(bool good, const std::string& what) {
    if (!good) std::cout << "failed: " << what << '\n';
    return good;
}

} // namespace

int main() {
    diagnostics::setSink({});
    const CachesFolder caches;
    const URL folder = caches.url("Crash");
    const std::set<std::string> whole = wholePictures(folder);
    bool good = check(whole.size() == 4, "two pictures in two formats");

    std::mt19937 random(7);
    int broken = 0;
    const pid_t survivor = startStoring(1);
    for (int i = 0; i < kills; ++i) {
        const pid_t victim = startStoring(2);
        ::usleep(random() % 8000); // how long it lives is left to chance
        kill(victim);
        broken += countBroken(folder, whole);
    }
    kill(survivor);
    good = check(broken == 0, std::to_string(broken) + " files were not whole") && good;

    long leftovers = 0, stored = 0;
    for (const URL& file : fu_filesInFolder(folder)) {
        stored += !isTemporary(file);
        if (!isTemporary(file)) continue;
        ++leftovers;
        std::filesystem::last_write_time(file.path(), std::filesystem::file_time_type::clock::now() -
                                                          std::chrono::hours(2));
    }
    good = check(stored > 4 * pictures, "both processes stored") && good;
    const auto cache =
        PexImageStoredCache::make({.name = "Crash", .removeItemsAfterDays = 100, .mode = Mode::png});
    cache->removeOldItemsNow();
    long left = 0;
    for (const URL& file : fu_filesInFolder(folder))
        left += isTemporary(file);
    good = check(left == 0, "the age pass takes what the killed ones left behind") && good;
    std::cout << kills << " kills, " << stored << " files, all whole: " << (broken == 0 ? "yes" : "no")
              << ", " << leftovers << " leftovers, " << left << " after the age pass\n";
    return good ? 0 : 1;
}
