#include "peximage/composer/PexComposer.h"

#include "tests/support/Surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

namespace pex {
namespace {

using Layer = PexComposer::Layer;
using Guide = PexComposer::Guide;
using ImageType = Layer::Image::ImageType;
using ShapeType = Layer::Shape::ShapeType;
using testing::ElementsAre;

const std::string layerText =
    R"({"id":"L","layerType":"shape","image":{"type":"shareApp","ratio":1.5,"resourceAccess":{"shareAppId":"s-1"}},)"
    R"("shape":{"type":"circle","style":{"strokeWidth":2,"fill":false,"fillStyle":"color",)"
    R"("fillColor":{"red":0.1,"green":0.2,"blue":0.3,"alpha":1}}},)"
    R"("text":{"text":"Cat and CAT","font":{"name":"Courier","size":64},"alignment":"right",)"
    R"("color":{"red":1,"green":1,"blue":1,"alpha":1}},)"
    R"("transform":{"location":[0.25,-0.125],"scale":{"x":1,"y":2},"rotation":0.5,"opacity":0.75}})";

const std::string composerText =
    R"({"id":"C","name":"Composer","ratio":1.75,"layerList":[)" + layerText +
    R"(],"guideList_":[{"id":"G","orientation":"vertical","location":0.125,"intrinsic":false}],)"
    R"("bgColor":{"red":0.5,"green":0.5,"blue":0.5,"alpha":1},"shouldBeDeleted":true,"selectedLayerId":"L"})";

TEST(PexComposer, DocumentsComeBackKeyByKey) {
    const auto composer = decode<PexComposer>(composerText);
    ASSERT_TRUE(composer);
    EXPECT_EQ(encode(*composer), composerText);
    const Layer& layer = composer->layerList.at(0);
    EXPECT_EQ(layer.image.resourceAccess.shareAppId, "s-1");
    EXPECT_EQ(layer.transform.location, (CGPoint{0.25, -0.125}));
    EXPECT_TRUE(composer->shouldBeDeleted);

    const std::string unselected = replaced(composerText, R"(,"selectedLayerId":"L")", "");
    EXPECT_EQ(encode(decode<PexComposer>(unselected).value()), unselected);
    const std::string withUrl =
        replaced(layerText, R"("shareAppId":"s-1")", R"("url":"file:///a%20b.png","ingestedId":"i")");
    EXPECT_EQ(encode(decode<Layer>(withUrl).value()), withUrl);
    EXPECT_EQ(encode(decode<PexComposer::SearchAndReplace>(R"({"replace":"b","search":"a"})").value()),
              R"({"search":"a","replace":"b"})");
}

// Every key but those of texts and guides is required, and the failure says which one it was.
TEST(PexComposer, ReadsStrictly) {
    const struct {
        const char* from;
        const char* to;
        const char* message;
    } cases[] = {
        {R"("id":"C",)", "", "id: expected a text, found nothing"},
        {R"("selectedLayerId":"L")", R"("selectedLayerId":3)", "selectedLayerId: expected a text"},
        {R"("guideList_":[{)", R"("guideList_":[7,{)", "guideList_[0]: expected an object"},
        {R"("layerType":"shape")", R"("layerType":"Shape")",
         R"(layerList[0].layerType: expected one of "image", "text", "shape")"},
        {R"("shareAppId":"s-1")", R"("url":"nowhere")",
         "layerList[0].image.resourceAccess.url: expected an address"},
        {R"("text":{"text":"Cat and CAT","font":{"name":"Courier","size":64},"alignment":"right",)"
         R"("color":{"red":1,"green":1,"blue":1,"alpha":1}})",
         R"("text":"Cat")", "layerList[0].text: expected an object"},
        {R"(,"opacity":0.75)", "", "layerList[0].transform.opacity: expected a number, found nothing"},
    };
    for (const auto& [from, to, message] : cases) {
        DocumentError error;
        EXPECT_FALSE(decode<PexComposer>(replaced(composerText, from, to), &error)) << to;
        EXPECT_EQ(error.message(), message);
    }
    const std::size_t transform = layerText.find(R"(,"transform")");
    EXPECT_FALSE(decode<Layer>(layerText.substr(0, transform) + "}"));
}

TEST(PexComposer, TextsAndGuidesReadLeniently) {
    for (const char* text :
         {"{}", R"({"text":null,"font":{"name":"Courier"},"alignment":"Left","color":"white"})"}) {
        const auto read = decode<Layer::Text>(text);
        ASSERT_TRUE(read) << text;
        EXPECT_EQ(*read, (Layer::Text{"", PexFont::Font::courier(12), Layer::Text::Alignment::left,
                                      PexColor::pureWhite}));
    }
    EXPECT_EQ(decode<Layer::Text>(R"({"text":"a","color":3})")->text, "a");

    for (const char* text : {"{}", R"({"id":3,"orientation":"diagonal","location":"inf","intrinsic":1})"}) {
        const auto one = decode<Guide>(text);
        const auto two = decode<Guide>(text);
        ASSERT_TRUE(one && two) << text;
        EXPECT_FALSE(one->id.empty());
        EXPECT_NE(one->id, two->id);
        EXPECT_EQ(one->orientation, Guide::Orientation::horizontal);
        EXPECT_EQ(one->location, 0);
        EXPECT_FALSE(one->intrinsic);
    }
    EXPECT_FALSE(decode<Guide>("[]"));
    EXPECT_FALSE(decode<Layer::Text>("3"));
}

TEST(PexComposer, EnumerationsShowCapitalizedNames) {
    const auto shown = []<class E>(const E&) {
        std::vector<std::string> names;
        for (const auto value : allCases<E>()) {
            names.push_back(std::string(rawValue(value)) + '/' + displayName(value));
            EXPECT_EQ(fromRawValue<E>(rawValue(value)), value);
        }
        return names;
    };
    EXPECT_THAT(shown(Layer::LayerType()), ElementsAre("image/Image", "text/Text", "shape/Shape"));
    EXPECT_THAT(shown(ImageType()), ElementsAre("url/Url", "shareApp/Shareapp", "ingested/Ingested"));
    EXPECT_THAT(shown(ShapeType()), ElementsAre("rectangle/Rectangle", "circle/Circle"));
    EXPECT_THAT(shown(Layer::Shape::Style::FillStyle()), ElementsAre("color/Color"));
    EXPECT_THAT(shown(Layer::Text::Alignment()), ElementsAre("left/Left", "center/Center", "right/Right"));
    EXPECT_THAT(shown(Guide::Orientation()), ElementsAre("horizontal/Horizontal", "vertical/Vertical"));
    EXPECT_FALSE(fromRawValue<ShapeType>("Circle"));
}

TEST(PexComposer, SearchAndReplaceEditsEveryLayersText) {
    PexComposer composer = decode<PexComposer>(composerText).value();
    composer.layerList.push_back(composer.layerList[0]);
    composer.layerList[1].layerType = Layer::LayerType::text;
    composer.layerList[1].text.text = "Élan ÉLAN concat";

    const PexComposer derived = composer.composer({.search = "cat", .replace = "dog"});
    EXPECT_EQ(derived.layerList[0].text.text, "dog and dog");
    EXPECT_EQ(derived.layerList[1].text.text, "Élan ÉLAN condog");
    EXPECT_EQ(composer.layerList[0].text.text, "Cat and CAT");
    EXPECT_EQ(encode(derived.composer({.search = "dog", .replace = "Cat"})),
              encode(composer.composer({.search = "CAT", .replace = "Cat"})))
        << "nothing else changes";

    const std::vector<PexComposer::SearchAndReplace> pairs = {{"cat", "élan"}, {"éLAN", "x"}, {"", "y"}};
    EXPECT_EQ(composer.composer(pairs).layerList[0].text.text, "x and x");
    EXPECT_EQ(composer.composer(pairs).layerList[1].text.text, "x x conx");
    EXPECT_EQ(encode(composer.composer(std::span<const PexComposer::SearchAndReplace>())), encode(composer));
}

struct Place {
    const char* type = "text";
    CGPoint location{};
    double scale = 1;
    double ratio = 1;
};

Layer layer(const std::string& id, const Place& place) {
    Layer made = decode<Layer>(layerText).value();
    made.id = id;
    made.layerType = fromRawValue<Layer::LayerType>(place.type).value();
    made.image.ratio = place.ratio;
    made.transform.location = place.location;
    made.transform.scale = {place.scale, place.scale};
    return made;
}

PexComposer composer(double ratio, const std::vector<Layer>& layers = {}) {
    PexComposer made = decode<PexComposer>(composerText).value();
    made.guideList_.clear();
    made.ratio = ratio;
    made.layerList = layers;
    return made;
}

constexpr CGSize screen{800, 450};

std::string written(const Guide& guide) {
    return std::string(guide.orientation == Guide::Orientation::vertical ? "v " : "h ") +
           std::to_string(guide.location) + (guide.intrinsic ? " intrinsic" : "");
}

TEST(Guides, ListsTheUsersThenTheCanvasThenTheLayers) {
    PexComposer made = composer(16.0 / 9);
    std::vector<std::string> lines;
    std::set<std::string> ids;
    const auto list = [&] {
        lines.clear();
        for (const Guide& guide : made.guideList({0.0, 0.05})) {
            lines.push_back(written(guide));
            ids.insert(guide.id);
        }
        return lines;
    };
    const std::vector<std::string> canvas = {
        "h 0.000000 intrinsic", "v 0.000000 intrinsic",  "v 0.500000 intrinsic", "v -0.500000 intrinsic",
        "h 0.281250 intrinsic", "h -0.281250 intrinsic", "v 0.450000 intrinsic", "v -0.450000 intrinsic",
        "h 0.253125 intrinsic", "h -0.253125 intrinsic"};
    EXPECT_EQ(list(), canvas);
    list();
    EXPECT_EQ(ids.size(), 20U) << "fresh identifiers each time";

    CapturedLines quiet;
    made.guideList_ = {{"mine", Guide::Orientation::vertical, 0.3, true}};
    made.layerList = {layer("a", {.location = {0.1, 0.2}}),
                      layer("b", {.type = "image", .location = {0, -0.1}, .scale = 0.5, .ratio = 16.0 / 9})};
    std::vector<std::string> all = {"v 0.300000 intrinsic"};
    all.insert(all.end(), canvas.begin(), canvas.end());
    for (const char* line : {"h 0.200000", "v 0.100000", "h -0.240625", "h -0.100000", "h 0.040625",
                             "v -0.250000", "v 0.000000", "v 0.250000"})
        all.push_back(line);
    EXPECT_EQ(list(), all);
    EXPECT_TRUE(ids.contains("mine"));
}

TEST(Guides, ConvertsBothAxesByTheWidth) {
    EXPECT_EQ(PexComposer::normalize({100, 100}, screen), (CGPoint{0.125, 0.125}));
    EXPECT_EQ(PexComposer::normalize(10.0, screen), 0.0125);
    EXPECT_EQ(PexComposer::deNormalize({0.125, -0.25}, screen), (CGPoint{100, -200}));
    EXPECT_EQ(PexComposer::deNormalize(0.0125, screen), 10.0);
    const Layer at = layer("a", {.location = {0.125, -0.25}});
    EXPECT_EQ(PexComposer::actualPosition(at, screen), (CGPoint{100, -200}));
    EXPECT_EQ(PexComposer::livePosition(at, screen, {5, 7}), (CGPoint{105, -193}));
}

TEST(Guides, AnImageCoversTheCanvasWidthOrItsHeight) {
    CapturedLines quiet;
    const PexComposer wide = composer(16.0 / 9);
    const auto size = [&](const Place& place) { return layer("a", place).imageActualNormalizedSize(wide); };
    EXPECT_EQ(size({.scale = 0.5, .ratio = 16.0 / 9}), (CGSize{0.5, 0.28125}));
    EXPECT_EQ(size({.ratio = 1}), (CGSize{16.0 / 9, 16.0 / 9})) << "whatever the layer's type";
    EXPECT_EQ(size({.ratio = 4}), (CGSize{1, 0.25}));
}

TEST(Guides, PrintsOneLineAFinding) {
    const PexComposer made =
        composer(1, {layer("a", {.type = "image", .location = {0.25, 0.5}, .scale = 0.5, .ratio = 2})});
    const Layer& image = made.layerList[0];
    const std::string ratioLine = "ratioScale = 1.0";
    const std::string scaleLine = "scale = (0.5, 0.25)";
    const std::string guidesLine = "guides = [0.375, 0.5, 0.625]";
    const auto printed = [](auto work) {
        CapturedLines captured;
        work();
        return captured.lines;
    };
    EXPECT_THAT(printed([&] { EXPECT_THAT(image.imageVGuides(made), ElementsAre(0, 0.25, 0.5)); }),
                ElementsAre(ratioLine, scaleLine));
    EXPECT_THAT(printed([&] { EXPECT_THAT(image.imageHGuides(made), ElementsAre(0.375, 0.5, 0.625)); }),
                ElementsAre(ratioLine, scaleLine, guidesLine));
    EXPECT_THAT(printed([&] { made.guideList({}); }),
                ElementsAre(ratioLine, scaleLine, guidesLine, ratioLine, scaleLine));
}

TEST(Guides, SnapPositionsAreThoseOfTheOthersThenAllGuides) {
    CapturedLines quiet;
    PexComposer made =
        composer(2, {layer("a", {.location = {0.1, 0.01}}), layer("b", {.location = {0.2, 0.02}}),
                     layer("c", {.type = "image", .location = {0.3, 0.03}, .scale = 0.25, .ratio = 2})});
    made.guideList_ = {{"g", Guide::Orientation::vertical, 0.33, false},
                       {"h", Guide::Orientation::horizontal, 0.07, false}};
    EXPECT_THAT(made.verticalGuides(made.layerList[0]),
                ElementsAre(0.2, 0.3 - 0.125, 0.3, 0.3 + 0.125, 0.33, 0.0, 0.5, -0.5, 0.5 - 0.05, 0.05 - 0.5,
                            0.1, 0.2, 0.3 - 0.125, 0.3, 0.3 + 0.125));
    EXPECT_THAT(made.horizontalGuides(made.layerList[1]),
                ElementsAre(0.01, 0.03 - 0.0625, 0.03, 0.03 + 0.0625, 0.07, 0.0, 0.25, -0.25,
                            (0.5 - 0.05) / 2, (0.05 - 0.5) / 2, 0.01, 0.02, 0.03 - 0.0625, 0.03,
                            0.03 + 0.0625));
}

TEST(Guides, SnapsWithinTenPixels) {
    CapturedLines quiet;
    const Layer text = layer("t", {.location = {0.2, 0.2}});
    const PexComposer made = composer(16.0 / 9, {text});
    EXPECT_EQ(made.nearestVerticalGuide(text, 0.44, screen), 0.45);
    EXPECT_EQ(made.nearestVerticalGuide(text, 0.43, screen), std::nullopt);
    const double most = 0.5 + 1.0 / 64; // exactly ten pixels of 640
    EXPECT_EQ(made.nearestVerticalGuide(text, most, {640, 1}), 0.5) << "the distance itself counts";
    EXPECT_EQ(made.nearestVerticalGuide(text, std::nextafter(most, 1), {640, 1}), std::nullopt);
    EXPECT_EQ(made.nearestVerticalGuide(text, 0.21, screen), 0.2) << "its own stored place";
    EXPECT_EQ(made.nearestVerticalGuide(text, 0.43, {400, 1}), 0.45) << "only the width counts";
    EXPECT_EQ(made.nearestHorizontalGuide(text, 0.245, screen), 0.45 / (16.0 / 9));

    const Layer image = layer("i", {.type = "image", .scale = 0.5, .ratio = 16.0 / 9});
    const PexComposer alone = composer(16.0 / 9, {image});
    EXPECT_DOUBLE_EQ(alone.nearestVerticalGuide(image, 0.21, screen).value(), 0.2)
        << "right edge on the margin";

    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(made.nearestVerticalGuide(text, nan, screen), std::nullopt);
    EXPECT_EQ(made.nearestVerticalGuide(text, 0.1, {nan, 1}), std::nullopt);
    EXPECT_EQ(made.nearestVerticalGuide(text, 3, {0, 0}), 0.5) << "every candidate qualifies";
    EXPECT_EQ(made.nearestVerticalGuide(text, 3, {-800, 0}), std::nullopt);
}

/// The rule word for word: all candidates, the near ones kept, sorted stably by distance, the first taken.
std::optional<double> nearestByRule(const std::vector<double>& guides, bool image, double length, double at,
                                    double width) {
    std::vector<double> candidates = guides;
    if (image) {
        for (const double g : guides)
            candidates.push_back(g + length / 2);
        for (const double g : guides)
            candidates.push_back(g - length / 2);
    }
    std::erase_if(candidates, [&](double c) { return !(std::abs(c - at) <= 10.0 / width); });
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](double a, double b) { return std::abs(a - at) < std::abs(b - at); });
    if (candidates.empty()) return std::nullopt;
    return candidates.front();
}

TEST(Guides, FindsWhatTheRuleFinds) {
    CapturedLines quiet;
    std::minstd_rand random(7);
    const auto grid = [&] { return static_cast<double>(random() % 129) / 128 - 0.5; }; // many equal distances
    int found = 0;
    for (int round = 0; round < 300; ++round) {
        PexComposer made = composer(0.5 + static_cast<double>(random() % 5) / 2);
        for (unsigned i = 0; i < random() % 6; ++i)
            made.layerList.push_back(
                layer(std::to_string(i), {.type = random() % 2 ? "image" : "shape",
                                          .location = {grid(), grid()},
                                          .scale = grid() + 0.5,
                                          .ratio = 0.5 + static_cast<double>(random() % 4)}));
        const Layer moving =
            layer(std::to_string(random() % 6),
                  {.type = random() % 2 ? "image" : "text", .scale = grid() + 0.5, .ratio = 2});
        const bool image = moving.layerType == Layer::LayerType::image;
        const CGSize size = moving.imageActualNormalizedSize(made);
        const CGSize shown{static_cast<double>(100 + random() % 1500), 10};
        const double at = grid();
        const auto vertical = made.nearestVerticalGuide(moving, at, shown);
        EXPECT_EQ(vertical, nearestByRule(made.verticalGuides(moving), image, size.width, at, shown.width));
        EXPECT_EQ(made.nearestHorizontalGuide(moving, at, shown),
                  nearestByRule(made.horizontalGuides(moving), image, size.height, at, shown.width));
        found += vertical.has_value();
    }
    EXPECT_GT(found, 50);
    EXPECT_LT(found, 290);
}

} // namespace
} // namespace pex
