#include "peximage/composer/PexComposerManager.h"

#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/varda/XMain.h"
#include "tests/support/InChild.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <thread>

namespace pex {
namespace {

using Layer = PexComposer::Layer;
using LayerType = Layer::LayerType;
using Manager = PexComposerManager;
using testing::ElementsAre;

class PexComposerManagerTest : public testing::Test {
  protected:
    void SetUp() override {
        XMain::becomeMain();
        Manager::subSettings.reset();
        manager_ = Manager::make({.appName = "Studio"});
        subscription_ = manager_->objectWillChange.subscribe([this] {
            ++changes_;
            lastSaved_ = document();
        });
    }

    std::string document(const std::string& name = "Default") const {
        return readFile(stored_ / (name + ".json"));
    }
    PexComposer first() const { return manager_->composerList().at(0); }

    /// How many changes were announced since the last time, each of them after it was saved.
    int changes() {
        EXPECT_TRUE(changes_ == 0 || lastSaved_ == encode(*manager_));
        return std::exchange(changes_, 0);
    }

    std::vector<std::string> layerIds() const {
        std::vector<std::string> ids;
        for (const Layer& layer : first().layerList)
            ids.push_back(layer.id);
        return ids;
    }

    DataFolder data_;
    std::filesystem::path stored_ = data_.path() / "PexImage/Studio/main";
    std::shared_ptr<Manager> manager_;
    ChangePublisher::Subscription subscription_;
    int changes_ = 0;
    std::string lastSaved_;
};

TEST_F(PexComposerManagerTest, BeginsEmptyAndMakesComposers) {
    EXPECT_EQ(manager_->configurationName, "Default");
    EXPECT_TRUE(manager_->composerList().empty());
    EXPECT_FALSE(manager_->selectedComposerId());
    EXPECT_EQ(document(), "") << "making a manager saves nothing";

    manager_->newComposer();
    EXPECT_EQ(changes(), 2);
    const PexComposer made = manager_->selectedComposer().value();
    EXPECT_EQ(manager_->selectedComposerId(), made.id);
    EXPECT_EQ(made.name, "Composer");
    EXPECT_EQ(made.ratio, 16.0 / 9);
    EXPECT_TRUE(made.layerList.empty() && made.guideList_.empty() && !made.shouldBeDeleted &&
                !made.selectedLayerId);
    EXPECT_EQ(made.bgColor, PexColor(0.5, 0.5, 0.5, 1));

    manager_->newComposer();
    EXPECT_EQ(manager_->index({.ofComposerWithId = made.id}), 0U);
    EXPECT_EQ(manager_->index(manager_->selectedComposer().value()), 1U);
    EXPECT_EQ(manager_->index({.ofComposerWithId = "other"}), std::nullopt);
    changes();
    manager_->remove(manager_->composerList()[1]); // named by an element of the list itself
    EXPECT_EQ(changes(), 1);
    EXPECT_EQ(manager_->composerList().size(), 1U);
    EXPECT_TRUE(manager_->selectedComposerId());
    EXPECT_FALSE(manager_->selectedComposer());
    manager_->remove(decode<PexComposer>(encode(made)).value());
    manager_->remove(made);
    EXPECT_EQ(changes(), 2) << "a change also when none matched";
    manager_->setComposerList({made, made});
    manager_->editSelectedComposerId([](auto& id) { id.reset(); });
    EXPECT_EQ(changes(), 2);
    EXPECT_EQ(manager_->composerList().size(), 2U);
}

TEST_F(PexComposerManagerTest, MakesLayersOfEachType) {
    manager_->newComposer();
    changes();
    const PexComposer composer = first();
    for (const LayerType type : allCases<LayerType>()) {
        const Layer layer = manager_->newLayer(type, composer).value();
        EXPECT_EQ(changes(), 2);
        EXPECT_EQ(first().layerList.back(), layer);
        EXPECT_EQ(first().selectedLayerId, layer.id);
        EXPECT_EQ(layer.layerType, type);
        EXPECT_EQ(layer.image, (Layer::Image{.type = Layer::Image::ImageType::shareApp, .ratio = 1}));
        EXPECT_EQ(encode(layer.shape),
                  R"({"type":"rectangle","style":{"strokeWidth":0,"fill":true,"fillStyle":"color",)"
                  R"("fillColor":{"red":0.5,"green":0.5,"blue":0.5,"alpha":1}}})");
        EXPECT_EQ(layer.text, (Layer::Text{type == LayerType::text ? "Text" : "", PexFont::Font::courier(64),
                                           Layer::Text::Alignment::left, PexColor(1, 1, 1, 1)}));
        EXPECT_EQ(encode(layer.transform),
                  R"({"location":[0,0],"scale":{"x":1,"y":1},"rotation":0,"opacity":1})");
        EXPECT_EQ(manager_->index(layer, composer), first().layerList.size() - 1);
    }
    EXPECT_EQ(manager_->index({.ofLayerWithId = {}, .of = composer}), std::nullopt);

    PexComposer stranger = composer;
    stranger.id = "stranger";
    const std::string before = encode(*manager_);
    EXPECT_FALSE(manager_->newLayer(LayerType::text, stranger));
    EXPECT_EQ(manager_->index(first().layerList[0], stranger), std::nullopt);
    manager_->remove({.layerWithId = layerIds()[0], .from = stranger});
    manager_->duplicate(first().layerList[0], stranger);
    manager_->updateOffset(first().layerList[0], stranger, {1, 1}, {1, 1});
    manager_->setSelectedLayer(nullptr, stranger);
    EXPECT_EQ(changes(), 0);
    EXPECT_EQ(encode(*manager_), before);
}

TEST_F(PexComposerManagerTest, EditsLayersByTheirIdentifier) {
    manager_->newComposer();
    const PexComposer composer = first();
    for (int i = 0; i < 3; ++i)
        manager_->newLayer(LayerType::shape, composer);
    const std::vector<std::string> ids = layerIds();
    Layer second = first().layerList[1];
    changes();

    manager_->updateOffset(second, composer, {100, -50}, {800, 450});
    EXPECT_EQ(changes(), 1);
    EXPECT_EQ(first().layerList[1].transform.location, (CGPoint{0.125, -0.0625}));

    second.transform.rotation = 3; // the copy takes the fields as passed
    manager_->duplicate(second, composer);
    EXPECT_EQ(changes(), 1);
    const Layer copy = first().layerList.at(2);
    EXPECT_THAT(layerIds(), ElementsAre(ids[0], ids[1], copy.id, ids[2]));
    EXPECT_NE(copy.id, second.id);
    EXPECT_EQ(copy.transform, second.transform);
    EXPECT_EQ(first().selectedLayerId, ids[2]);

    manager_->setSelectedLayer(&copy, composer);
    EXPECT_EQ(first().selectedLayerId, copy.id);
    manager_->remove(copy, composer);
    EXPECT_EQ(first().selectedLayerId, copy.id) << "the selection stays";
    EXPECT_EQ(changes(), 2);
    manager_->setSelectedLayer(nullptr, composer);
    EXPECT_FALSE(first().selectedLayerId);
    EXPECT_EQ(changes(), 1);

    manager_->remove({.layerWithId = "none", .from = composer});
    EXPECT_EQ(changes(), 1) << "a change whenever the composer is there";
    manager_->duplicate(copy, composer);
    manager_->updateOffset(copy, composer, {1, 1}, {1, 1});
    EXPECT_EQ(changes(), 0);
    manager_->remove(manager_->composerList()[0].layerList[0], manager_->composerList()[0]);
    EXPECT_THAT(layerIds(), ElementsAre(ids[1], ids[2]));
}

TEST_F(PexComposerManagerTest, AnotherManagerFindsWhatWasSaved) {
    manager_->newComposer();
    manager_->newLayer(LayerType::text, first());
    manager_->configurationName = "Night";
    manager_->updateOffset(first().layerList[0], first(), {1, 0}, {0, 0}); // stores what no JSON number is
    EXPECT_THAT(Manager::configurations(), ElementsAre("Default", "Night"));
    EXPECT_EQ(encode(*Manager::load()), encode(*manager_));

    const auto other = Manager::make({.appName = "Studio"});
    EXPECT_EQ(other->configurationName, "Default");
    EXPECT_EQ(other->selectedComposerId(), manager_->selectedComposerId());
    EXPECT_TRUE(std::isnan(other->composerList().at(0).layerList.at(0).transform.location.y));
    EXPECT_TRUE(Manager::make({.appName = "Other"})->composerList().empty());
    EXPECT_EQ(Manager::appName, "Other");
}

TEST_F(PexComposerManagerTest, TellsWhenAChangeCouldNotBeSaved) {
    manager_->newComposer();
    EXPECT_TRUE(manager_->isSaved());
    Manager::subSettings = std::string(10'000, 'x'); // longer than any path
    manager_->newComposer();
    EXPECT_FALSE(manager_->isSaved());
    Manager::subSettings.reset();
    manager_->setSelectedComposerId({});
    EXPECT_TRUE(manager_->isSaved());
    EXPECT_EQ(Manager::make({.appName = "Studio"})->composerList().size(), 2U);
}

// Of two that began with the same document, the second one to save is refused, not the first one's work lost.
TEST_F(PexComposerManagerTest, DoesNotSaveOverWhatAnotherSaved) {
    const auto other = Manager::make({.appName = "Studio"});
    other->newComposer();
    const std::string work = document();
    manager_->newComposer();
    EXPECT_FALSE(manager_->isSaved() || manager_->save());
    EXPECT_EQ(manager_->whyNotSaved().code, ReasonCode::changedElsewhere);
    EXPECT_EQ(document(), work);

    changes_ = 0;
    EXPECT_TRUE(manager_->reload());
    EXPECT_EQ(changes(), 1);
    EXPECT_TRUE(manager_->isSaved());
    EXPECT_EQ(encode(*manager_), work);
    manager_->newComposer();
    EXPECT_TRUE(manager_->isSaved());
    EXPECT_EQ(Manager::load()->composerList().size(), 2U);

    other->newLayer(LayerType::text, other->composerList()[0]);
    EXPECT_FALSE(other->isSaved());
    const std::string second = document();
    EXPECT_TRUE(other->takeOver());
    EXPECT_EQ(document(), encode(*other));
    EXPECT_EQ(document("Default 2"), second);
    EXPECT_EQ(Manager::load("Default 2")->configurationName, "Default 2");

    const auto imported = decode<Manager>(work);
    imported->newComposer();
    EXPECT_FALSE(imported->isSaved()) << "it has never seen what is stored";
}

TEST_F(PexComposerManagerTest, NeverLosesAnotherConfigurationsComposers) {
    manager_->editComposerList([](auto& list) { list.clear(); });
    manager_->newComposer();
    const std::string day = document();
    manager_->configurationName = "Night";
    manager_->newComposer();

    const auto next = Manager::make({.appName = "Studio"});
    EXPECT_EQ(next->composerList().size(), 2U);
    EXPECT_EQ(document(), day);
    next->newComposer();
    EXPECT_TRUE(next->isSaved());
    EXPECT_EQ(document(), encode(*next));
    EXPECT_EQ(encode(*Manager::load("Night")), encode(*manager_));
    EXPECT_EQ(document("Default 2"), day);
    EXPECT_TRUE(next->saveConfiguration("Default"));
    next->newComposer();
    EXPECT_TRUE(next->isSaved()) << "its own save is no other's";

    const auto stranger = Manager::make({.appName = "Other"});
    stranger->newComposer();
    next->newComposer(); // the application's name is one for all managers
    EXPECT_TRUE(next->isSaved());
    EXPECT_EQ(encode(*Manager::load("Default 2")).size(), encode(*stranger).size() + 2);
    EXPECT_THAT(Manager::configurations(), ElementsAre("Default", "Default 2"));
}

TEST_F(PexComposerManagerTest, TellsWhenWhatIsStoredCannotBeRead) {
    manager_->newComposer();
    const auto file = stored_ / "Default.json", away = stored_ / "away";
    std::filesystem::rename(file, away);
    std::filesystem::create_directory(file);
    const auto other = Manager::make({.appName = "Studio"});
    EXPECT_FALSE(other->isSaved());
    EXPECT_EQ(other->whyNotSaved().code, ReasonCode::isFolder);
    std::filesystem::remove(file);
    std::filesystem::rename(away, file);
    other->newComposer();
    EXPECT_FALSE(other->isSaved()) << "there is something that it does not know";
    EXPECT_TRUE(other->reload());
    EXPECT_EQ(encode(*other), encode(*manager_));
}

// Each adds composers, and takes in the others' when it is refused.
TEST_F(PexComposerManagerTest, TwoProcessesLoseNothing) {
    constexpr int each = 40;
    manager_->newComposer();
    const auto work = [] {
        const auto manager = Manager::make({.appName = "Studio"});
        for (int i = 0; i < each; ++i) {
            do {
                if (!manager->isSaved() && !manager->reload()) return 1;
                manager->editComposerList([&](auto& list) { list.push_back(list[0]); });
            } while (!manager->isSaved());
        }
        return 0;
    };
    const auto startWorking = [&] { return startChild([&] { return XMain::becomeMain(), work(); }); };
    const pid_t one = startWorking(), two = startWorking();
    EXPECT_EQ(waitForChild(one) + waitForChild(two), 0);
    EXPECT_EQ(Manager::load()->composerList().size(), 1U + 2 * each);
    EXPECT_THAT(Manager::configurations(), ElementsAre("Default"));
}

TEST_F(PexComposerManagerTest, MayGoBeforeItsAnnouncementRuns) {
    std::promise<void> queued;
    XMain::setWakeUp([&] { queued.set_value(); });
    std::thread other([this] { manager_->newComposer(); });
    queued.get_future().wait(); // the other thread has saved its first change and waits for the announcement
    XMain::setWakeUp({});
    subscription_.unsubscribe();
    manager_.reset();
    XMain::waitAndDrain();
    other.join();
    EXPECT_EQ(changes_, 0);
    // The operation's second change, the selection, must not touch what is gone.
    EXPECT_FALSE(decode<Manager>(document())->selectedComposerId());
    EXPECT_EQ(decode<Manager>(document())->composerList().size(), 1U);
}

TEST_F(PexComposerManagerTest, AnObserverMayDropTheLastReference) {
    const auto dropping = manager_->objectWillChange.subscribe([this] { manager_.reset(); });
    Manager* const raw = manager_.get();
    raw->newComposer();
    EXPECT_FALSE(manager_);
    EXPECT_EQ(changes_, 1) << "the second change of the operation is not made";
}

class NewImageLayerTest : public PexComposerManagerTest {
  protected:
    void SetUp() override {
        PexComposerManagerTest::SetUp();
        manager_->newComposer();
        const auto photo = PexImage::make(photoLike(60, 40))->jpegData(0.9);
        ASSERT_TRUE(photo && photo->write(photo_, Data::Writing::inPlace));
        changes();
    }
    void TearDown() override { AtomicFile::setObserver(nullptr); }

    /// Takes the photo in; `meanwhile` runs once, while the file is being copied.
    std::optional<Layer> add(std::function<void()> meanwhile = {}) {
        atCopy = std::move(meanwhile);
        AtomicFile::setObserver([](AtomicFile::Step) {
            if (const auto work = std::exchange(atCopy, {})) work();
        });
        return manager_->newImageLayerAsShareApp(photo_, store_, first()).get();
    }

    static inline std::function<void()> atCopy;
    URL photo_ = data_.url("photo.jpg");
    PexShareApp store_{data_.url("store")};
};

TEST_F(NewImageLayerTest, TakesTheFileInAndShowsIt) {
    const Layer layer = add().value();
    EXPECT_EQ(changes(), 4);
    EXPECT_EQ(first().layerList.at(0), layer);
    EXPECT_EQ(first().selectedLayerId, layer.id);
    EXPECT_EQ(layer.layerType, LayerType::image);
    EXPECT_EQ(layer.image.type, Layer::Image::ImageType::shareApp);
    EXPECT_EQ(layer.image.ratio, 1.5);
    const std::string id = layer.image.resourceAccess.shareAppId.value();
    const URL copy = store_.url({.forId = id, .downloadRemote = false}).get().value();
    EXPECT_EQ(readFile(copy.path()), readFile(photo_.path()));
}

TEST_F(NewImageLayerTest, ChangesNothingWhenItCannot) {
    const std::string before = document();
    writeFile(data_.path() / "text.jpg", "no image");
    for (const char* name : {"missing.jpg", "text.jpg"})
        EXPECT_FALSE(manager_->newImageLayerAsShareApp(data_.url(name), store_, first()).get());
    PexComposer stranger = first();
    stranger.id = "stranger";
    EXPECT_FALSE(manager_->newImageLayerAsShareApp(photo_, store_, stranger).get());
    EXPECT_FALSE(std::filesystem::exists(data_.path() / "store")) << "nothing was stored for it";
    const PexShareApp nowhere(data_.url("text.jpg/store"));
    EXPECT_FALSE(manager_->newImageLayerAsShareApp(photo_, nowhere, first()).get());
    EXPECT_EQ(changes(), 0);
    EXPECT_EQ(document(), before);
}

TEST_F(NewImageLayerTest, MeetsTheComposersAsTheyAreWhenTheFileIsStored) {
    const std::string id = first().id;
    const auto layer = add([&] {
        manager_->newLayer(LayerType::text, first());
        manager_->editComposerList(
            [](auto& list) { list.insert(list.begin(), list[0]), list[0].id = "new"; });
    });
    ASSERT_TRUE(layer);
    const auto& list = manager_->composerList();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].layerList.size(), 1U);
    ASSERT_EQ(list[1].layerList.size(), 2U);
    EXPECT_EQ(list[1].layerList[1], layer);

    manager_->remove(list[0]);
    changes();
    EXPECT_FALSE(add([&] { manager_->remove(first()); }));
    EXPECT_TRUE(manager_->composerList().empty());
    EXPECT_EQ(changes(), 1);
}

TEST_F(NewImageLayerTest, ALayerRemovedByAnObserverIsNotFoundAgain) {
    const auto removing = manager_->objectWillChange.subscribe([this] {
        if (!first().layerList.empty() && first().selectedLayerId)
            manager_->editComposerList([](auto& list) { list[0].layerList.clear(); });
    });
    EXPECT_FALSE(add());
    EXPECT_TRUE(first().layerList.empty());
}

TEST_F(NewImageLayerTest, TheTaskKeepsWhatItNeeds) {
    auto task = [this] {
        const PexComposer composer = first();
        return manager_->newImageLayerAsShareApp(photo_, PexShareApp(data_.url("store")), composer);
    }();
    std::optional<Layer> layer;
    std::thread other([&, task = std::move(task)]() mutable { layer = task.get(); });
    subscription_.unsubscribe();
    manager_.reset();
    for (int announcement = 0; announcement < 4; ++announcement)
        XMain::waitAndDrain();
    other.join();
    EXPECT_EQ(layer.value().image.ratio, 1.5);
    EXPECT_EQ(Manager::load()->composerList().at(0).layerList.at(0), layer);
}

} // namespace
} // namespace pex
