#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

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
    ASSERT_TRUE(Data("12345").write(folder.url("f"), Data::Writing::inPlace));
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

TEST(AtomicFile, OnlyCommitChangesTheDestination) {
    const TempFolder folder;
    const URL url = folder.url("doc");
    ASSERT_TRUE(Data("old").write(url, Data::Writing::inPlace));
    fs::permissions(url.path(), fs::perms::owner_read | fs::perms::owner_write);
    {
        AtomicFile file(url.path());
        EXPECT_TRUE(file.write(Data("new, but never finished").bytes()));
        EXPECT_EQ(Data::contentsOf(url)->text(), "old");
    }
    EXPECT_EQ(Data::contentsOf(url)->text(), "old");
    EXPECT_EQ(folder.count(), 1);

    AtomicFile file(url.path());
    EXPECT_TRUE(file.write(Data("n").bytes()));
    EXPECT_TRUE(file.write(Data("ew").bytes()));
    EXPECT_TRUE(file.commit());
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(Data::contentsOf(url)->text(), "new");
    EXPECT_EQ(fs::status(url.path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(AtomicFile, FailsWithoutAFolderOrOverOne) {
    const TempFolder folder;
    EXPECT_FALSE(Data("x").write(folder.url("no/such/folder"), Data::Writing::atomically));
    fs::create_directory(folder.path() / "d");
    EXPECT_FALSE(Data("x").write(folder.url("d"), Data::Writing::atomically));
    EXPECT_FALSE(Data("x").write(folder.url("d"), Data::Writing::inPlace));
    EXPECT_EQ(folder.count(), 1);
}

TEST(FileUtilities, MakeFindAndDelete) {
    const TempFolder folder;
    EXPECT_TRUE(fu_createFolder(folder.url("a/b/c")));
    EXPECT_TRUE(fu_createFolder(folder.url("a/b/c")));
    EXPECT_FALSE(fu_fileExists(folder.url("a")));
    ASSERT_TRUE(Data(std::string(1500, 'x')).write(folder.url("a/f"), Data::Writing::inPlace));
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
}

} // namespace
