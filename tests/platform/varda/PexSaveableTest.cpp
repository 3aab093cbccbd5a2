#include "peximage/platform/varda/PexSaveable.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/varda/StoredName.h"
#include "tests/support/InChild.h"
#include "tests/support/TempFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <set>
#include <sys/resource.h>

namespace pex {
namespace {

struct Settings : PexSaveable<Settings> {
    static inline std::string appName;
    static inline std::optional<std::string> subSettings;

    std::string configurationName = "Default";
    std::string text;

    static constexpr auto documentKeys() {
        return std::tuple(keyed::required("configurationName", &Settings::configurationName),
                          keyed::required("text", &Settings::text));
    }
};

Settings settings(const std::string& text) {
    Settings made;
    made.text = text;
    return made;
}

std::string loadedText() {
    const auto loaded = Settings::load();
    return loaded ? loaded->text : "(none)";
}

class PexSaveableTest : public testing::Test {
  protected:
    void SetUp() override {
        Settings::appName = "Studio";
        Settings::subSettings.reset();
    }

    DataFolder data_;
    std::filesystem::path stored_ = data_.path() / "PexImage/Studio/main/Default.json";
};

TEST_F(PexSaveableTest, LoadsWhatWasSavedLastForTheNames) {
    EXPECT_FALSE(Settings::load());
    EXPECT_TRUE(settings("one").save());
    EXPECT_EQ(loadedText(), "one");
    EXPECT_EQ(readFile(stored_), R"({"configurationName":"Default","text":"one"})");

    Settings::subSettings = "";
    EXPECT_EQ(loadedText(), "(none)");
    EXPECT_TRUE(settings("sub").save());
    Settings::appName = "Studio/main";
    EXPECT_EQ(loadedText(), "(none)");
    SetUp();
    EXPECT_EQ(loadedText(), "one");
}

TEST_F(PexSaveableTest, KeepsSeveralConfigurations) {
    Settings current = settings("one");
    EXPECT_TRUE(current.save());
    EXPECT_TRUE(current.saveConfiguration("Copy"));
    EXPECT_EQ(current.configurationName, "Default");
    EXPECT_EQ(Settings::load("Copy")->configurationName, "Copy");
    EXPECT_EQ(Settings::load()->configurationName, "Default");

    current.configurationName = "Night";
    current.text = "two";
    EXPECT_TRUE(current.save());
    EXPECT_EQ(loadedText(), "two");
    EXPECT_EQ(Settings::load("Default")->text, "one");
    EXPECT_THAT(Settings::configurations(), testing::ElementsAre("Copy", "Default", "Night"));

    EXPECT_TRUE(Settings::deleteConfiguration("Night"));
    EXPECT_FALSE(Settings::deleteConfiguration("Night"));
    EXPECT_EQ(loadedText(), "one");
    EXPECT_THAT(Settings::configurations(), testing::ElementsAre("Copy", "Default"));
}

TEST_F(PexSaveableTest, AnyNameComesBackAsItWas) {
    std::set<std::string> names = {
        "",  ".",   "..", "../../up", "/etc/passwd",    "a/b", "a",  "A",  ".current", "a.json", "a+",
        "%", "%41", "é",  "\xff\xfe", "tab\tnew\nline", " ",   "a ", "CON"};
    names.insert(std::string("nul\0byte", 8));
    for (const std::size_t length : {199, 200, 201, 300, 400})
        for (const char c : {'x', '/', '.'})
            names.insert(std::string(length, c));
    for (const std::string& name : names) {
        EXPECT_TRUE(settings("of " + name).saveConfiguration(name)) << name;
        EXPECT_EQ(nameOfStoredPath(storedPath(name)), name);
    }
    EXPECT_THAT(Settings::configurations(), testing::ElementsAreArray(names));
    for (const std::string& name : names)
        EXPECT_TRUE(Settings::load(name).has_value()) << name;

    for (const std::string& app : names) {
        Settings::appName = app;
        Settings::subSettings = app;
        EXPECT_TRUE(settings(app).save());
    }
    EXPECT_EQ(data_.count(), 1) << "nothing is written outside the folder";
    for (const std::string& app : names) {
        Settings::appName = app;
        Settings::subSettings = app;
        EXPECT_EQ(Settings::configurations().size(), 1U) << app;
    }
    EXPECT_FALSE(settings("").saveConfiguration(std::string(10'000, '/'))) << "longer than any path";
}

std::optional<int> stepsLeft;

void stopAtStep(AtomicFile::Step) {
    if ((*stepsLeft)-- == 0) ::_exit(99);
}

// The process ends at every step of a save in turn, until a save goes through.
TEST_F(PexSaveableTest, ACrashLeavesTheOldOrTheNewDocument) {
    const std::string big(100'000, 'n');
    int crashes = 0;
    bool sawNew = false;
    for (int status = 99; status == 99; ++crashes) {
        std::filesystem::remove_all(data_.path() / "PexImage");
        ASSERT_TRUE(settings("old").save());
        status = inChild([&] {
            stepsLeft = crashes;
            AtomicFile::setObserver(stopAtStep);
            Settings next = settings(big);
            next.configurationName = "Other";
            return next.saveConfiguration("Default") && next.save() ? 0 : 1;
        });
        ASSERT_TRUE(status == 99 || status == 0) << status;
        const std::string text = Settings::load("Default").value_or(settings("lost")).text;
        EXPECT_TRUE(text == big || text == "old") << "after " << crashes << " steps";
        EXPECT_TRUE(!sawNew || text == big) << "what is saved stays saved";
        sawNew = text == big;
        EXPECT_NE(loadedText(), "(none)") << "after " << crashes << " steps";
        const auto folder = stored_.parent_path();
        for (const auto& file : std::filesystem::directory_iterator(folder))
            std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() -
                                                       2 * AtomicFile::longestSave);
        EXPECT_TRUE(settings("again").save()) << "a crash does not block later saves";
        for (const auto& file : std::filesystem::directory_iterator(folder))
            EXPECT_FALSE(AtomicFile::isTemporary(file.path().filename().string()))
                << "nothing stays for ever";
    }
    EXPECT_TRUE(sawNew);
    EXPECT_EQ(crashes - 1, 4 * 3) << "two documents and the name of the one in use, four steps each";
}

TEST_F(PexSaveableTest, EveryDamagedDocumentIsKeptAside) {
    const std::string damaged = R"({"configurationName":"Default","text":"precious)";
    const std::pair<std::string, std::string> copies[] = {{damaged, ".damaged"},
                                                          {"", ".damaged-2"},
                                                          {damaged, ".damaged"},
                                                          {std::string(4096, '\0'), ".damaged-3"}};
    for (const auto& [bytes, ending] : copies) {
        writeFile(stored_, bytes);
        EXPECT_FALSE(Settings::load());
        EXPECT_EQ(lastReason().code, ReasonCode::damaged);
        EXPECT_TRUE(settings("new").save());
        EXPECT_EQ(readFile(stored_.string() + ending), bytes);
        EXPECT_EQ(loadedText(), "new");
        EXPECT_THAT(Settings::configurations(), testing::ElementsAre("Default"));
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(stored_.parent_path()), {}), 5);

    writeFile(stored_, "{");
    std::filesystem::create_directory(stored_.string() + ".damaged-4");
    EXPECT_FALSE(settings("new").save()) << "not without the copy";
    EXPECT_EQ(readFile(stored_), "{");
}

// Only a document that is not there counts as absent.
TEST_F(PexSaveableTest, WhatCannotBeReadIsNotReplaced) {
    ASSERT_TRUE(settings("old").save());
    std::filesystem::permissions(data_.path(), std::filesystem::perms(0755));
    const auto tries = [](const std::function<bool()>& obstruct, ReasonCode why) {
        return inChild([&] {
            if (!obstruct()) return 2;
            const bool loads = Settings::load().has_value();
            if (loads || lastReason().code != why) return 3;
            return settings("new").save() || lastReason().code != why ? 1 : 0;
        });
    };
    EXPECT_EQ(tries(
                  [] {
                      const rlimit none{0, 0};
                      return ::setrlimit(RLIMIT_NOFILE, &none) == 0;
                  },
                  ReasonCode::tooManyOpenFiles),
              0);
    std::filesystem::permissions(stored_, std::filesystem::perms(0));
    EXPECT_EQ(tries([] { return ::getuid() != 0 || ::setuid(65534) == 0; }, ReasonCode::noPermission), 0);
    std::filesystem::permissions(stored_, std::filesystem::perms(0600));
    EXPECT_EQ(loadedText(), "old");
}

TEST_F(PexSaveableTest, WithoutADataFolderNothingIsStored) {
    ::setenv("XDG_DATA_HOME", "relative/is/not/allowed", 1);
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    ::setenv("HOME", (data_.path() / "home").c_str(), 1);
    EXPECT_TRUE(settings("home").save());
    EXPECT_TRUE(
        std::filesystem::exists(data_.path() / "home/.local/share/PexImage/Studio/main/Default.json"));
    writeFile(data_.path() / "file", "");
    ::setenv("XDG_DATA_HOME", (data_.path() / "file").c_str(), 1);
    EXPECT_FALSE(settings("nowhere").save());
    EXPECT_FALSE(Settings::load());
    EXPECT_TRUE(Settings::configurations().empty());
    ::setenv("HOME", home.c_str(), 1);
}

} // namespace
} // namespace pex
