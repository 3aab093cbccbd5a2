#include "peximage/cache/PexNotify.h"

#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/NotificationCenter.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using pex::NotificationCenter;
using pex::PexImage;
using pex::PexNotify;

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
    center.post({.name = "cover", .userInfo = pex::Notification::UserInfo{{"Image", image}}});
    center.post(
        {.name = "cover", .userInfo = pex::Notification::UserInfo{{"PexImage", std::string("text")}}});
    EXPECT_EQ(*seen, (std::vector<std::shared_ptr<PexImage>>{image, nullptr, nullptr, nullptr}));
}

TEST(PexNotifyTest, ObserversSeeThePayloadAndMayPostThemselves) {
    NotificationCenter center;
    std::vector<std::string> order;
    center.addObserver("a", [&](const pex::Notification& notification) {
        order.push_back("first " + notification.name);
        center.addObserver("b", [&](const auto&) { order.push_back("late"); });
        center.post({.name = "b"});
    });
    center.addObserver("a", [&](const auto&) { order.push_back("second"); });
    center.post({.name = "a"});
    EXPECT_EQ(order, (std::vector<std::string>{"first a", "late", "second"}));

    const auto image = PexImage::make(photoLike(4, 4));
    const int sender = 0;
    const auto info = std::make_shared<pex::Notification>();
    NotificationCenter::defaultCenter().addObserver("payload", [info](const auto& sent) { *info = sent; });
    PexNotify::notify({.keyword = "payload", .sender = &sender, .image = image});
    EXPECT_EQ(info->object, &sender);
    ASSERT_TRUE(info->userInfo);
    EXPECT_EQ(info->userInfo->size(), 1U);
    EXPECT_EQ(std::any_cast<std::shared_ptr<PexImage>>(info->userInfo->at("PexImage")), image);
}

} // namespace
