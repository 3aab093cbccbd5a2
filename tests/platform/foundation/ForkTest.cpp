#include "peximage/cache/PexImageCache.h"
#include "peximage/cache/PexImageView.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/foundation/NotificationCenter.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/Queue.h"
#include "peximage/platform/varda/XMain.h"
#include "tests/support/HttpServer.h"
#include "tests/support/InChild.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <sys/mman.h>
#include <thread>
#include <vector>

namespace pex {
namespace {

Task<int> inBackground(int value) {
    co_await onBackground();
    co_return value;
}

std::shared_ptr<PexImage> photo(const Data& jpeg) {
    return PexImage::make(jpeg, PexImage::DontCreateAuxiliaryVars{});
}

/// What a program does at the same time in its threads, and once in each child that it forks.
struct Activity {
    const char* name;
    std::function<bool()> comesOutRight;
};

template <class Start>
bool ends(const Start& start) {
    std::promise<void> ended;
    start([&] { ended.set_value(); });
    ended.get_future().get();
    return true;
}

bool sharesValues() {
    diagnostics::print("busy");
    PexImageView::setPlaceHolder(PexImage::make({.size = {1, 1}}));
    PexImageView::imageCache().setCached("a", 1, 100);
    NotificationCenter::defaultCenter().post({.name = "busy"});
    XMain::execute([] {}); // of the parent, these blocks are the parent's
    return hasModule("net") && PexId::md5("").has_value() && PexImageView::placeHolder();
}

bool asksTheCache() {
    static const auto cache = PexImageCache::make({.maxImagesInCache = 3});
    const auto make = [] { return PexImage::make({.size = {4, 4}}); };
    return cache->getImageOrCalc({.withId = PexId::newId("", "", true), .calcClosure = make}) != nullptr;
}

bool sharesWork() {
    std::atomic<int> sum{0};
    Workers::forEach(50, [&](int index, int) { sum += index; });
    return sum == 49 * 25;
}

bool asksAServer() { // where none is
    const auto nowhere = *URL::parse("http://127.0.0.1:1/");
    return ends([&](const auto& ended) {
        readAddressInBackground(nowhere, {}, [ended](const NetworkReply&) { ended(); });
    });
}

std::vector<Activity> activities(const Data& jpeg, const Guarded<std::shared_ptr<PexImage>>& shared) {
    return {{"pictures",
             [jpeg] {
                 const auto image = photo(jpeg)->resize({.to = {150, 100}});
                 return image && image->jpegData(0.8).has_value();
             }},
            {"a picture of all threads", [&] { return shared.get()->cgImage->pixels().has_value(); }},
            {"values", sharesValues},
            {"cache", asksTheCache},
            {"calls of workers", sharesWork},
            {"tasks of workers", [] { return ends([](const auto& ended) { Workers::run(ended); }); }},
            {"coroutines", [] { return inBackground(7).get() == 7; }},
            {"queue", [] { return ends([](const auto& ended) { Queue::execute(false, ended); }); }},
            {"caches' queue",
             [] { return ends([](const auto& ended) { PexImageCache::workQueue().async(ended); }); }},
            {"network", asksAServer}};
}

/// Runs them all until it goes.
class BusyThreads {
  public:
    explicit BusyThreads(const std::vector<Activity>& all) {
        for (const Activity& one : all)
            threads_.emplace_back([&one](const std::stop_token& stop) {
                while (!stop.stop_requested())
                    one.comesOutRight();
            });
    }

  private:
    std::vector<std::jthread> threads_;
};

TEST(Fork, AChildGoesOnWhateverTheParentsThreadsWereDoing) {
    if (underThreadSanitizer || underAddressSanitizer) GTEST_SKIP();
    constexpr int forks = 60;
    constexpr unsigned stuckAfterSeconds = 60;
    const CapturedLines lines;
    const auto jpeg = *PexImage::make(photoLike(600, 400))->jpegData(0.8);
    Guarded<std::shared_ptr<PexImage>> shared;
    shared.set(photo(jpeg));
    const std::vector<Activity> all = activities(jpeg, shared);
    XMain::becomeMain();
    auto busy = std::make_unique<BusyThreads>(all);
    for (int i = 0; i < forks; ++i) {
        shared.set(photo(jpeg)); // whose pixels a thread is soon to decode
        const int status = inChild([&] {
            ::alarm(stuckAfterSeconds);
            for (const Activity& one : all)
                if (!one.comesOutRight()) return 1;
            return 0;
        });
        ASSERT_EQ(status, 0) << i;
        XMain::drain();
    }
    busy.reset();
    XMain::drain();
}

TEST(Fork, ParentAndChildMakeDifferentIdentifiers) {
    using Text = std::array<char, 64>;
    auto* const told = static_cast<Text*>(
        ::mmap(nullptr, sizeof(Text), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    PexId::newId("", "", false); // so that there is a place to go on from
    const auto randomPart = [] {
        const std::string id = PexId::newId("", "", false);
        return id.substr(id.find('-'));
    };
    inChild([&] { return randomPart().copy(told->data(), told->size()) == 0 ? 1 : 0; });
    EXPECT_NE(std::string(told->data()), "");
    EXPECT_NE(std::string(told->data()), randomPart());
    ::munmap(told, sizeof(Text));
}

// Work is then done by those who hand it over, or who wait.
TEST(Fork, AProcessWithoutThreadsDoesItsWorkAllTheSame) {
    if (underThreadSanitizer) GTEST_SKIP();
    const HttpServer server([](const HttpServer::Exchange& exchange) { exchange.answer("200 OK", "here"); });
    const auto jpeg = *PexImage::make(photoLike(600, 400))->jpegData(0.8);
    Guarded<std::shared_ptr<PexImage>> shared;
    shared.set(photo(jpeg));
    const CapturedLines lines;
    const int status = inChild([&] {
        ::alarm(60);
        allowNoMoreThreads();
        const std::vector<Activity> all = activities(jpeg, shared);
        for (std::size_t i = 0; i < all.size(); ++i)
            if (!all[i].comesOutRight()) return static_cast<int>(i) + 1;
        std::string text;
        readAddressInBackground(server.url("/"), {}, [&](const NetworkReply& reply) {
            text = reply.data ? reply.data->text() : "";
        });
        return text == "here" && Queue::wait() ? 0 : 100;
    });
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace pex
