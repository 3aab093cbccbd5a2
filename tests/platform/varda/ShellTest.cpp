#include "peximage/platform/varda/Shell.h"

#include <gtest/gtest.h>

namespace {

TEST(ShellTest, RunsProgramsAndReadsWhatTheyPrint) {
    EXPECT_EQ(pex::shell2({"/bin/echo", {"a  b", "$HOME", "*"}}), "a  b $HOME *\n");
    EXPECT_EQ(pex::shell2({"/bin/cat", {}}), ""); // nothing on its standard input
    EXPECT_EQ(pex::shell2({"/bin/false", {}}), "");
    EXPECT_FALSE(pex::shell2({"/no/such/program", {}}));
    EXPECT_FALSE(pex::shell2({"echo", {}})); // no search for it
}

TEST(ShellTest, LongOutputNeitherBlocksNorGrowsWithoutBound) {
    const auto output = pex::shell2({"/usr/bin/head", {"-c", "50000000", "/dev/zero"}});
    ASSERT_TRUE(output);
    EXPECT_EQ(output->size(), std::size_t{16} << 20);
}

} // namespace
