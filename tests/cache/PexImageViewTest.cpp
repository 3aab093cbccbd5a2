#include "peximage/cache/PexImageView.h"

#include "peximage/platform/varda/Queue.h"
#include "peximage/platform/varda/XMain.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

using namespace pex;

namespace {

std::shared_ptr<PexImageView> makeView(double width = 40, double height = 30) {
    return PexImageView::make({.frame = {10, 20, width, height}});
}

/// The view as it shows on a screen of so many pixels a point.
CGImage shown(const std::shared_ptr<NSImageView>& view, double scale = 1) {
    const auto context = CGContext::make(static_cast<int>(view->frame().size.width * scale),
                                         static_cast<int>(view->frame().size.height * scale),
                                         PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    context->scaleBy(scale, scale);
    view->drawInto(context);
    return *context->makeImage();
}

class CountingView : public PexImageView {
  public:
    CountingView() : PexImageView({0, 0, 10, 10}) {}
    void setup() override {
        ++setups;
        PexImageView::setup();
    }
    int setups = 0;
};

TEST(PexImageViewTest, EachHasADownloaderAndComesFromADocument) {
    EXPECT_NE(makeView()->imageDownloader, makeView()->imageDownloader);
    const auto stored = PexImageView::make({.coder = R"({"frame": [[1, 2], [30, 40]]})"});
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->frame().size, (CGSize{30, 40}));
    for (const char* broken : {"", "{}", R"({"frame": [[1, 2]]})", R"({"frame": [[1], [2, 3]]})"})
        EXPECT_FALSE(PexImageView::make({.coder = broken})) << broken;
}

TEST(PexImageViewTest, OnlyAChangeSetsItUpAnew) {
    CountingView view;
    view.setRadius(6), view.setBorder(0), view.setBorderColor(NSColor(0.5, 0.5, 0.5, 0));
    EXPECT_EQ(view.setups, 0);
    view.setRadius(3), view.setBorder(2), view.setBorderColor(NSColor(1, 0, 0));
    EXPECT_EQ(view.setups, 3);
    EXPECT_EQ(*view.layer(), (CALayer{3, 2, {1, 0, 0, 1}}));

    EXPECT_TRUE(view.setValue(9.0, "radius"));
    EXPECT_TRUE(view.setValue(NSColor(0, 1, 0), "borderColor"));
    EXPECT_FALSE(view.setValue(NSColor(0, 1, 0), "border"));
    EXPECT_FALSE(view.setValue(1.0, "size"));
    EXPECT_EQ(view.setups, 5);
    EXPECT_EQ(std::get<double>(*view.value("radius")), 9);
    EXPECT_FALSE(view.value("size"));

    CGRect asked{};
    int requests = 0;
    view.setDisplayRequest([&](const CGRect& rect) { asked = rect, ++requests; });
    view.update();
    view.setRadius(1), view.setRadius(1);
    EXPECT_EQ(view.setups, 7);
    EXPECT_EQ(requests, 2);
    EXPECT_EQ(asked.size, (CGSize{10, 10}));
}

TEST(PexImageViewTest, PlacesTheContentInTheMiddle) {
    const auto view = makeView(100, 100);
    EXPECT_FALSE(view->imageRect());
    const auto rectOf = [&](int width, int height) {
        view->setImage(plain(width, height, {9, 9, 9, 255})->image);
        return *view->imageRect();
    };
    EXPECT_EQ(rectOf(400, 200), (CGRect{0, 25, 100, 50}));
    EXPECT_EQ(rectOf(20, 10), (CGRect{40, 45, 20, 10}));
    view->imageScaling = NSImageView::ImageScaling::proportionallyUpOrDown;
    EXPECT_EQ(rectOf(20, 10), (CGRect{0, 25, 100, 50}));
    view->magnification = 2;
    view->imageOffset = {5, -3};
    EXPECT_EQ(rectOf(20, 10), (CGRect{-45, -3, 200, 100}));
}

/// How much of a pixel lies in a rectangle with round corners, by 16 × 16 samples.
double coverage(double x, double y, double left, double top, double right, double bottom, double radius) {
    int inside = 0;
    for (int i = 0; i < 256; ++i) {
        const double px = x + (i % 16 + 0.5) / 16, py = y + (i / 16 + 0.5) / 16;
        const double dx = std::max({left + radius - px, px - (right - radius), 0.0});
        const double dy = std::max({top + radius - py, py - (bottom - radius), 0.0});
        inside += px >= left && px <= right && py >= top && py <= bottom && std::hypot(dx, dy) <= radius;
    }
    return inside / 256.0;
}

TEST(PexImageViewTest, CutsTheCornersAndDrawsTheBorderSmoothly) {
    struct Case {
        double radius, border, alpha, scale;
    };
    const Pixel content{200, 100, 40, 255};
    for (const Case& c : {Case{6, 0, 1, 1}, Case{6, 2, 1, 1}, Case{9.5, 3, 0.5, 2}, Case{0, 4, 1, 2},
                          Case{100, 1.5, 1, 1}, Case{5, 50, 1, 1}}) {
        const auto view = makeView();
        view->setRadius(c.radius), view->setBorder(c.border),
            view->setBorderColor(NSColor(0, 0.2, 1, c.alpha));
        view->setImage(plain(400, 300, content)->image);
        const CGImage picture = shown(view, c.scale);
        const double w = picture.width(), h = picture.height();
        const double radius = std::min(c.radius * c.scale, h / 2),
                     border = std::min(c.border * c.scale, h / 2);
        const double edge[] = {0, 0.2 * 255, 255, 255};
        SCOPED_TRACE(testing::Message() << c.radius << ' ' << c.border << ' ' << c.scale);
        const auto drawn = [&](int x, int y) {
            const double outer = coverage(x, y, 0, 0, w, h, radius);
            const double inner =
                coverage(x, y, border, border, w - border, h - border, std::max(radius - border, 0.0));
            const double ring = (outer - inner) * c.alpha;
            std::array<double, 4> wanted;
            for (std::size_t i = 0; i < 4; ++i)
                wanted[i] = content[i] * (outer - ring) + edge[i] * ring;
            return wanted;
        };
        expectPixels(picture, drawn, 20); // a twelfth of a pixel
    }
}

TEST(PexImageViewTest, DrawsWithoutContentAndWithoutSize) {
    EXPECT_EQ(pixelAt(shown(makeView()), 20, 15), (Pixel{0, 0, 0, 0}));
    const auto empty = PexImageView::make({.frame = {0, 0, 0, 0}});
    const auto huge = PexImageView::make({.frame = {0, 0, 1e12, 1e12}});
    const auto context = CGContext::make(4, 4, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    for (const auto& view : {empty, huge}) {
        view->setImage(plain(4, 4, {1, 2, 3, 255})->image);
        view->drawInto(context);
        view->drawInto(nullptr);
    }
    EXPECT_EQ(pixelAt(*context->makeImage(), 0, 0)[3], 0);
}

/// Has what the test puts into it.
class Shelf : public PexResourceDownloader {
  public:
    void asyncDownload(Request request) override {
        ++requests;
        const auto found = items.find(request.url.absoluteString());
        request.completion(found != items.end() ? found->second : Data());
    }
    std::map<std::string, Data> items;
    int requests = 0;
};

class RemoteContent : public testing::Test {
  protected:
    RemoteContent() {
        XMain::becomeMain();
        const Data png = encoded(photoLike(12, 8), ImageFormat::png);
        shelf->items["https://a.example/12x8.png"] = png;
        shelf->items["https://a.example/half.png"] = Data(png.text().substr(0, png.size() / 2));
        view->imageDownloader = shelf;
    }
    ~RemoteContent() override {
        PexImageView::setPlaceHolder(nullptr);
        PexImageView::imageCache().removeAll();
    }
    void arrive() {
        Queue::wait();
        XMain::drain();
    }
    double widthShown() const { return view->image() ? view->image()->size().width : 0; }

    std::shared_ptr<Shelf> shelf = std::make_shared<Shelf>();
    std::shared_ptr<PexImageView> view = makeView();
    const std::optional<URL> there = URL::parse("https://a.example/12x8.png"),
                             missing = URL::parse("https://a.example/none.png");
    const std::shared_ptr<PexImage> three = plain(3, 3, {}), five = plain(5, 5, {});
};

TEST_F(RemoteContent, APlaceholderIsTheCallsOwnOrThatOfAllViews) {
    view->setPlaceholder(nullptr);
    EXPECT_EQ(widthShown(), 0);
    view->setPlaceholder(three);
    EXPECT_EQ(widthShown(), 3);
    PexImageView::setPlaceHolder(five);
    view->setPlaceholder(nullptr);
    EXPECT_EQ(widthShown(), 5);
    view->setImage(std::optional<URL>(), {.placeholder = three});
    EXPECT_EQ(widthShown(), 3);
    for (const auto& text : {std::optional<std::string>(), std::optional<std::string>(""),
                             std::optional<std::string>("no address")}) {
        view->setImage({.httpPath = text});
        EXPECT_EQ(widthShown(), 5);
    }
    arrive();
    EXPECT_EQ(shelf->requests, 0);
}

TEST_F(RemoteContent, ArrivesOnceForAllViews) {
    view->setImage({.httpPath = "https://a.example/12x8.png", .placeholder = three});
    EXPECT_EQ(widthShown(), 0); // on the main thread the placeholder is shown at once, and cleared again
    arrive();
    EXPECT_EQ(widthShown(), 12);

    const auto other = makeView();
    other->imageDownloader = shelf;
    other->setImage(there, {});
    EXPECT_EQ(other->image(), view->image());
    arrive();
    EXPECT_EQ(shelf->requests, 1);

    view->setImage({.httpPath = "https://a.example/half.png"});
    arrive();
    EXPECT_EQ(widthShown(), 12);
    EXPECT_FALSE(PexImageView::imageCache().getCached("/half.png").has_value())
        << "it is shown, and not kept";
}

TEST_F(RemoteContent, ThePlaceholderStaysWhereNothingArrives) {
    std::thread([this] { view->setImage(missing, {.placeholder = three}); }).join();
    arrive();
    EXPECT_EQ(widthShown(), 3); // cleared first, then the main thread came to the placeholder
    EXPECT_EQ(shelf->requests, 1);
}

TEST_F(RemoteContent, WhatArrivesForAViewThatIsGoneIsKeptForOthers) {
    const std::weak_ptr<PexImageView> watch = view;
    view->setImage(there, {});
    view.reset();
    EXPECT_TRUE(watch.expired());
    arrive();
    EXPECT_TRUE(PexImageView::imageCache().getCached("/12x8.png").has_value());
}

TEST_F(RemoteContent, ViewsTakeImagesAndNames) {
    const auto simple = NSImageView::make({0, 0, 10, 10});
    pex::setImage(simple, three);
    EXPECT_EQ(simple->image(), three->image);
    pex::setImage(simple, nullptr);
    EXPECT_EQ(simple->image(), three->image);
    std::thread([&] { pex::setImage(simple, five); }).join();
    EXPECT_EQ(simple->image(), three->image); // not before the main thread comes to it
    arrive();
    EXPECT_EQ(simple->image(), five->image);
    pex::set(simple, "no such name");
    EXPECT_FALSE(simple->image());
    pex::setImage(std::shared_ptr<NSImageView>(), three); // nothing happens
    view->imageDownloader = nullptr;
    view->setImage(missing, {});
    arrive();
    EXPECT_FALSE(view->image());
}

} // namespace
