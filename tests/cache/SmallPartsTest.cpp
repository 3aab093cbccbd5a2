#include "peximage/cache/PexCLIImageResizer.h"
#include "peximage/cache/PexNotify.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Bundle.h"
#include "peximage/platform/foundation/NotificationCenter.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <fstream>
#include <sstream>
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

    const auto image = PexImage::make(photoLike(4, 4));
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

    const auto image = PexImage::make(photoLike(4, 4));
    const int sender = 0;
    const auto info = std::make_shared<Notification>();
    NotificationCenter::defaultCenter().addObserver("payload", [info](const auto& sent) { *info = sent; });
    PexNotify::notify({.keyword = "payload", .sender = &sender, .image = image});
    EXPECT_EQ(info->object, &sender);
    ASSERT_TRUE(info->userInfo);
    EXPECT_EQ(info->userInfo->size(), 1U);
    EXPECT_EQ(std::any_cast<std::shared_ptr<PexImage>>(info->userInfo->at("PexImage")), image);
}

} // namespace
} // namespace pex
