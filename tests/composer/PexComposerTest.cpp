#include "peximage/composer/PexComposer.h"

#include "tests/support/Surroundings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace pex {
namespace {

using Layer = PexComposer::Layer;
using Guide = PexComposer::Guide;
using ImageType = Layer::Image::ImageType;
using ShapeType = Layer::Shape::ShapeType;

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
    EXPECT_EQ(layer.layerType, Layer::LayerType::shape);
    EXPECT_EQ(layer.shape.type, ShapeType::circle);
    EXPECT_EQ(layer.image.resourceAccess.shareAppId, "s-1");
    EXPECT_EQ(layer.text.alignment, Layer::Text::Alignment::right);
    EXPECT_EQ(layer.transform.location, (CGPoint{0.25, -0.125}));
    EXPECT_EQ(composer->guideList_.at(0).orientation, Guide::Orientation::vertical);
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
        {R"("fillStyle":"color")", R"("fillStyle":"picture")",
         R"(layerList[0].shape.style.fillStyle: expected one of "color")"},
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
    using testing::ElementsAre;
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

} // namespace
} // namespace pex
