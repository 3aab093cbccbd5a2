#include "bench/worker/Qualities.h"

#include "bench/worker/Picture.h"
#include "bench/worker/WholePictures.h"
#include "peximage/budget/PexDicotomic.h"
#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"
#include "peximage/platform/codecs/jpeg/encode/ImageEncoder.h"

#include <cmath>
#include <stdexcept>

namespace bench {
namespace {

constexpr double share = 0.975; // of the budget is what the search aims at
constexpr int budgets = 40;

std::shared_ptr<pex::jpeg::Encoder> encoderOf(const Picture& picture) {
    auto encoder = pex::jpeg::encoderOf(imageOf(picture));
    if (!encoder) throw std::runtime_error("no encoder");
    return encoder;
}

double found(double budget, const std::function<double(double)>& size) {
    pex::PexDicotomic search;
    search.target = budget * share;
    search.function = pex::PexDicotomic::memoised(size);
    return search.search();
}

Agreement compare(const Picture& picture) {
    const auto plain = encoderOf(picture);
    const auto smallest = double(plain->byteCount(0)), largest = double(plain->byteCount(1));
    Agreement agreement;
    for (int i = 0; i < budgets; ++i) {
        const double budget = std::floor(smallest * std::pow(largest / smallest, (i + 0.5) / budgets));
        pex::jpeg::BudgetSizes sizes(encoderOf(picture), budget, budget * share,
                                     pex::PexDicotomic().intervalTolerance);
        const double ours = found(budget, [&](double quality) { return sizes.sizeForSearch(quality); });
        const double theirs =
            found(budget, [&](double quality) { return double(plain->byteCount(quality)); });
        agreement.same += ours == theirs;
        ++agreement.total;
    }
    return agreement;
}

Picture withNoise(Picture picture) {
    unsigned random = 1;
    for (int y = picture.height / 2; y < picture.height; ++y) {
        for (std::size_t i = 0; i < picture.rowBytes(); ++i) {
            random = random * 1664525 + 1013904223;
            if (i % 4 != 3) picture.row(y)[i] = std::uint8_t(random >> 24); // opaque as it was
        }
    }
    return picture;
}

} // namespace

Agreements compareSearches(const std::string& folder) {
    Agreements all;
    for (const int width : {1000, 2000, 4000}) {
        const Agreement photo = compare(*load(folder, width));
        all.photos.same += photo.same;
        all.photos.total += photo.total;
    }
    all.halfNoise = compare(withNoise(*load(folder, 1000)));
    return all;
}

} // namespace bench
