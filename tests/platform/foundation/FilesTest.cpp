#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "tests/support/InChild.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <unistd.h>

using namespace pex;
namespace fs = std::filesystem;

namespace {

TEST(Data, ComesBackFromFilesOfAnySize) {
    const TempFolder folder;
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 300'000U}) {
        std::vector<std::uint8_t> bytes(size);
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<std::uint8_t>(i * 31 + i / 251);
        const Data data(bytes);
        for (const auto writing : {Data::Writing::inPlace, Data::Writing::atomically}) {
            ASSERT_TRUE(data.write(folder.url("f"), writing));
            EXPECT_EQ(Data::contentsOf(folder.url("f")), data) << size;
        }
    }
    EXPECT_EQ(folder.count(), 1);
}

TEST(Data, RefusesWhatIsNoRegularFileOrTooLarge) {
    const TempFolder folder;
    writeFile(folder.path() / "f", "12345");
    EXPECT_FALSE(Data::contentsOf(folder.url("missing")));
    EXPECT_FALSE(Data::contentsOf(URL::fromPath(folder.path().string())));
    EXPECT_FALSE(Data::contentsOf(URL::fromPath("/dev/zero")));
    EXPECT_FALSE(Data::contentsOf(folder.url("f"), 4));
    EXPECT_TRUE(Data::contentsOf(folder.url("f"), 5));
    EXPECT_FALSE(Data::contentsOf(*URL::parse("http://localhost/f")));
}

TEST(Data, AFullDiskFailsAndKeepsTheDevice) {
    const Data data("x");
    EXPECT_FALSE(data.write(URL::fromPath("/dev/full"), Data::Writing::inPlace));
    EXPECT_FALSE(data.write(URL::fromPath("/dev/full"), Data::Writing::atomically));
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

constexpr auto ownerOnly = fs::perms::owner_read | fs::perms::owner_write;

/// The files in the folder that are on their way.
std::vector<fs::path> temporaries(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder))
        if (AtomicFile::isTemporary(entry.path().filename().string())) found.push_back(entry.path());
    return found;
}

TEST(AtomicFile, OnlyCommitChangesTheDestination) {
    const TempFolder folder;
    const URL url = folder.url("new/folder/doc");
    ASSERT_TRUE(AtomicFile::save(url.path(), Data("old").bytes(), AtomicFile::Flush::no));
    fs::permissions(url.path(), ownerOnly);
    const fs::path parent = fs::path(url.path()).parent_path();
    {
        AtomicFile file(url.path());
        EXPECT_TRUE(file.write(Data("new, but never finished").bytes()));
        EXPECT_EQ(Data::contentsOf(url)->text(), "old");
        EXPECT_EQ(fs::status(temporaries(parent).at(0)).permissions(), ownerOnly) << "private from the start";
    }
    EXPECT_EQ(Data::contentsOf(url)->text(), "old");
    EXPECT_TRUE(temporaries(parent).empty());

    AtomicFile file(url.path());
    EXPECT_TRUE(file.write(Data("n").bytes()));
    EXPECT_TRUE(file.write(Data("ew").bytes()));
    EXPECT_TRUE(file.commit(AtomicFile::Flush::yes));
    EXPECT_FALSE(file.commit(AtomicFile::Flush::yes));
    EXPECT_EQ(Data::contentsOf(url)->text(), "new");
    EXPECT_EQ(fs::status(url.path()).permissions(), ownerOnly);
}

TEST(AtomicFile, ReplacesWhatALinkLeadsTo) {
    const TempFolder folder;
    writeFile(folder.path() / "d/there", "old");
    for (const std::string name : {"there", "missing"}) {
        fs::create_symlink("d/" + name, folder.path() / ("to " + name));
        fs::create_symlink("to " + name, folder.path() / name);
        EXPECT_TRUE(Data("new").write(folder.url(name), Data::Writing::atomically)) << lastReason().message;
        EXPECT_TRUE(fs::is_symlink(folder.path() / name) && fs::is_symlink(folder.path() / ("to " + name)));
        EXPECT_EQ(Data::contentsOf(folder.url("d/" + name))->text(), "new");
    }
}

TEST(AtomicFile, TellsWhyItCannotSave) {
    const TempFolder folder;
    fs::create_directory(folder.path() / "d");
    fs::create_symlink("loop", folder.path() / "loop");
    writeFile(folder.path() / "f", "x");
    const struct {
        std::string path;
        ReasonCode code;
    } cases[] = {{"d", ReasonCode::isFolder},
                 {"f/inside", ReasonCode::noSuchFile},
                 {"loop", ReasonCode::cannotWrite},
                 {std::string(300, 'n'), ReasonCode::cannotWrite},
                 {"../../dev/full", ReasonCode::notRegularFile},
                 {"", ReasonCode::isFolder}};
    for (const auto& [path, code] : cases) {
        AtomicFile file((folder.path() / path).string());
        EXPECT_FALSE(file.write(Data("x").bytes())) << path;
        giveReason(ReasonCode::cancelled, "something else");
        EXPECT_FALSE(file.commit(AtomicFile::Flush::no)) << path;
        EXPECT_EQ(lastReason().code, code) << path << ": " << lastReason().message;
    }
    EXPECT_EQ(folder.count(), 3);
}

TEST(AtomicFile, WhatKilledSavesLeftIsRemovedByAge) {
    const TempFolder folder;
    const auto now = fs::file_time_type::clock::now();
    for (const auto& [name, hours] :
         {std::pair(".pex-left.tmp", 2), {".pex-future.tmp", -2}, {".pex-young.tmp", 0}, {"old.tmp", 2}}) {
        writeFile(folder.path() / name, "x");
        fs::last_write_time(folder.path() / name, now - std::chrono::hours(hours));
    }
    AtomicFile::removeStale(folder.path().string());
    EXPECT_EQ(temporaries(folder.path()), std::vector{folder.path() / ".pex-young.tmp"});
    EXPECT_EQ(folder.count(), 2);
}

TEST(AtomicFile, AProcessThatEndsLeavesNothing) {
    const TempFolder folder;
    const int status = inChild([&] {
        AtomicFile file(folder.url("f").path());
        const bool written = file.write(Data("x").bytes()) && temporaries(folder.path()).size() == 1;
        AtomicFile::endAllSaves();
        ::_exit(written ? 0 : 1);
        return 2;
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(folder.count(), 0);
}

TEST(FileUtilities, MakeFindAndDelete) {
    const TempFolder folder;
    EXPECT_TRUE(fu_createFolder(folder.url("a/b/c")));
    EXPECT_TRUE(fu_createFolder(folder.url("a/b/c")));
    EXPECT_FALSE(fu_fileExists(folder.url("a")));
    writeFile(folder.path() / "a/f", std::string(1500, 'x'));
    EXPECT_FALSE(fu_createFolder(folder.url("a/f/g")));
    EXPECT_TRUE(fu_fileExists(folder.url("a/f")));
    EXPECT_TRUE(fu_fileExists(folder.url("a/f"), 1.5));
    EXPECT_FALSE(fu_fileExists(folder.url("a/f"), 1.6));
    EXPECT_FALSE(fu_deleteFile(folder.url("a")));
    EXPECT_FALSE(fu_deleteFile(URL::fromPath("/dev/null")));
    EXPECT_TRUE(fs::exists("/dev/null"));
    EXPECT_TRUE(fu_deleteFile(folder.url("a/f")));
    EXPECT_TRUE(fu_deleteFile(folder.url("a/f")));
    EXPECT_FALSE(fu_fileExists(folder.url("a/f")));
    EXPECT_FALSE(Data("x").write(folder.url("a/b"), Data::Writing::inPlace));
}

TEST(FileUtilities, FoldersForTheUsersDataAreTheUsersAlone) {
    const DataFolder data;
    const TempFolder elsewhere;
    fs::remove(data.path());
    EXPECT_TRUE(fu_createFolder(data.url("PexImage/app")));
    EXPECT_TRUE(fu_createFolder(elsewhere.url("d")));
    for (const auto& folder : {data.path(), data.path() / "PexImage", data.path() / "PexImage/app"})
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all) << folder;
    EXPECT_NE(fs::status(elsewhere.path() / "d").permissions(), fs::perms::owner_all);
}

} // namespace
