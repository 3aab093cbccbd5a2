#include "peximage/cache/PexCLIImageResizer.h"

#include "peximage/platform/foundation/Bundle.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using pex::Bundle;
using pex::PexCLIImageResizer;

/// An application's bundle whose resizer is a script.
class AppBundle : public TempFolder {
  public:
    explicit AppBundle(const std::string& script) {
        const fs::path resources = path() / "Contents/Frameworks/PexImage.framework/Versions/A/Resources";
        fs::create_directories(resources);
        std::ofstream(resources / "CLIImageResizer") << "#!/bin/sh\n" << script << '\n';
        fs::permissions(resources / "CLIImageResizer", fs::perms::owner_all);
        Bundle::setMain(pex::URL::fromPath(path().string()));
    }
    ~AppBundle() { Bundle::setMain({}); }

    std::string text(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path() / name).rdbuf();
        return text.str();
    }
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
        std::ofstream(bundle.path() / "out.jpg") << "result";
        EXPECT_EQ(
            PexCLIImageResizer::resize(bundle.url("in.jpg"), {.to = bundle.url("out.jpg"), .maxSize = 10}),
            result)
            << script;
        EXPECT_FALSE(fs::exists(bundle.path() / "out.jpg")) << script;
    }
}

TEST(PexCLIImageResizerTest, ArgumentsArriveAsTheyAre) {
    const AppBundle bundle("printf '%s\\n' \"$#\" \"$@\" > \"$(dirname \"$1\")/arguments\"; echo DONE");
    const pex::URL source = bundle.url("a $(touch b) 'c\".jpg"), destination = bundle.url("out; ls.jpg");
    EXPECT_TRUE(PexCLIImageResizer::resize(source, {.to = destination, .maxSize = 1200}));
    EXPECT_EQ(bundle.text("arguments"), "3\n" + source.path() + '\n' + destination.path() + "\n1200\n");
}

TEST(PexCLIImageResizerTest, WithoutTheProgramNothingHappens) {
    const TempFolder folder;
    std::ofstream(folder.path() / "out.jpg") << "mine";
    Bundle::setMain(folder.url(""));
    EXPECT_FALSE(
        PexCLIImageResizer::resize(folder.url("in.jpg"), {.to = folder.url("out.jpg"), .maxSize = 10}));
    EXPECT_TRUE(fs::exists(folder.path() / "out.jpg"));
    Bundle::setMain({});
    ASSERT_TRUE(Bundle::main()); // where this program is
    EXPECT_EQ(fs::path(Bundle::main()->path()), fs::canonical("/proc/self/exe").parent_path());
}

} // namespace
