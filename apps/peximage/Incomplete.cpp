#include "Incomplete.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace fs = std::filesystem;

namespace {

struct Work {
    std::vector<std::pair<Input, std::weak_ptr<pex::PexImage>>> opened;
    std::vector<std::string> warnings;
};

Work& work() {
    thread_local Work current;
    return current;
}

/// Empty for a whole picture.
std::string shortcomingOf(const pex::PexImage& image) {
    if (!image.cgImage || !image.cgImage->isIncomplete()) return {};
    const double missing = 100 * (1 - image.cgImage->decodedFraction());
    if (missing <= 0) return "damaged: some of the picture may look wrong";
    const std::string share = missing < 1 ? "less than 1" : std::to_string(std::lround(missing));
    return share + " % of the picture is missing";
}

} // namespace

void incomplete::begin() { work() = {}; }

void incomplete::addOpened(const Input& input, const std::shared_ptr<pex::PexImage>& image) {
    work().opened.emplace_back(input, image);
}

std::optional<Failure> incomplete::check(const fs::path& destination, bool force) {
    for (const auto& [input, opened] : work().opened) {
        const std::shared_ptr<pex::PexImage> image = opened.lock();
        const std::string shortcoming = image ? shortcomingOf(*image) : std::string();
        if (shortcoming.empty()) continue;
        std::error_code ignored;
        if (!force && fs::equivalent(input.path, destination, ignored))
            return Failure{shortcoming + "; --force puts the result in its place all the same"};
        std::string line = input.shownName() + ": " + shortcoming;
        auto& lines = work().warnings;
        if (std::find(lines.begin(), lines.end(), line) == lines.end()) lines.push_back(std::move(line));
    }
    return std::nullopt;
}

const std::vector<std::string>& incomplete::warnings() { return work().warnings; }
