#include "Album.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/varda/Queue.h"
#include "peximage/platform/varda/XMain.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <utility>

using pex::CGSize;
using pex::PexImage;
using pex::URL;

namespace {

using Clock = std::chrono::steady_clock;

/// Whether an argument is an address other than that of a file.
std::optional<URL> addressOf(const std::string& item) {
    std::error_code ignored;
    if (std::filesystem::exists(item, ignored)) return std::nullopt;
    const std::optional<URL> url = URL::parse(item);
    return url && (url->scheme() == "http" || url->scheme() == "https" || url->isFileURL()) ? url
                                                                                            : std::nullopt;
}

/// Decodes the picture no larger than needed, on a background thread.
Album::Ready makeReady(const std::shared_ptr<PexImage>& image, std::optional<CGSize> fit,
                       Clock::time_point start) {
    Album::Ready ready;
    ready.size = image->size;
    const double scale = fit ? std::min(fit->width / ready.size.width, fit->height / ready.size.height) : 1;
    auto drawn = image;
    if (scale < 1) {
        const CGSize reduced{std::max(std::round(ready.size.width * scale), 1.0),
                             std::max(std::round(ready.size.height * scale), 1.0)};
        drawn = image->resize({.to = reduced});
    }
    if (!drawn || !drawn->cgImage || !drawn->cgImage->pixels()) { // touching the pixels decodes them here
        ready.problem = "too large for the memory";
        return ready;
    }
    // So many points that a pixel of the picture is a pixel of the screen.
    ready.image =
        pex::NSImage::make(*drawn->cgImage, ready.size / pex::NSScreen::largestBackingScaleFactor());
    ready.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    return ready;
}

bool fits(CGSize wanted, CGSize made) { return wanted.width <= made.width && wanted.height <= made.height; }

Album::Ready failed(std::string problem) {
    Album::Ready ready;
    ready.problem = std::move(problem);
    return ready;
}

/// Opens an item in the background and hands it, or the reason why not, to `done`. Does not call it when
/// the item is not wanted any more.
void open(const std::string& item, const std::function<bool()>& wanted,
          const std::function<void(const std::shared_ptr<PexImage>&, const std::string& problem)>& done) {
    if (const std::optional<URL> url = addressOf(item)) {
        const auto problem = std::make_shared<std::string>();
        PexImage::getCachedImage({.url = *url,
                                  .callback = [=](const auto& image) { done(image, *problem); },
                                  .failed = [=](const std::string& why) { *problem = why; }});
        return;
    }
    pex::Queue::execute(true, [=] {
        if (!wanted()) return done(nullptr, "");
        const auto image = PexImage::make({.fastUrl = URL::fromPath(item)});
        done(image, image ? std::string() : pex::lastReason().message);
    });
}

/// Loads an item in the background and hands the result over on the main thread.
void prepare(const std::string& item, const std::function<bool()>& wanted, std::optional<CGSize> fit,
             const std::function<void(const Album::Ready&)>& done) {
    const Clock::time_point start = Clock::now();
    open(item, wanted, [=](const std::shared_ptr<PexImage>& image, const std::string& problem) {
        const Album::Ready ready = image ? makeReady(image, fit, start) : failed(problem);
        pex::XMain::execute([ready, done] { done(ready); });
    });
}

} // namespace

struct Album::Kept {
    Ready ready;
    CGSize fit;
};

std::string Album::name(std::size_t index) const {
    const std::optional<URL> url = addressOf(items_[index]);
    return url ? url->lastPathComponent() : std::filesystem::path(items_[index]).filename().string();
}

bool Album::isRemote(std::size_t index) const { return addressOf(items_[index]).has_value(); }

std::optional<CGSize> Album::sizeFromHeader(std::size_t index) const {
    if (isRemote(index)) return std::nullopt;
    const auto source = pex::CGImageSource::make(URL::fromPath(items_[index]));
    if (!source) return std::nullopt;
    const auto& properties = source->properties();
    CGSize size{static_cast<double>(properties.pixelWidth), static_cast<double>(properties.pixelHeight)};
    if (pex::swapsSides(properties.orientation)) std::swap(size.width, size.height);
    return size;
}

std::shared_ptr<PexImage> Album::placeholder(std::size_t index, double side) const {
    const auto icon = PexImage::make(URL::fromPath(name(index)), PexImage::IconSize({side, side}));
    if (!icon) return nullptr;
    icon->setSize();
    const auto reduced = icon->resize({.withMaxSide = side}); // some desktops have a larger one only
    return reduced ? reduced : icon;
}

std::function<bool()> Album::stillWanted(std::size_t index) const {
    return [wanted = wanted_, index] {
        const std::size_t now = *wanted;
        return index <= now + 1 && now <= index + 1;
    };
}

void Album::load(std::size_t index, CGSize pixels, Receive receive) {
    const std::any known = kept_.getCached(std::to_string(index));
    if (const auto* kept = std::any_cast<Kept>(&known)) {
        if (fits(pixels, kept->fit)) return receive(index, kept->ready);
    }
    auto& waiting = waiting_[index];
    waiting.push_back({pixels, std::move(receive)});
    if (waiting.size() > 1) return; // it is being loaded
    prepare(items_[index], stillWanted(index), pixels, [=, album = weak_from_this()](const Ready& ready) {
        if (const auto still = album.lock()) still->finish(index, pixels, ready);
    });
}

void Album::finish(std::size_t index, CGSize pixels, const Ready& ready) {
    const auto bitmap = ready.image ? ready.image->cgImageForProposedRect() : std::nullopt;
    if (bitmap) {
        const auto bytes =
            static_cast<std::size_t>(bitmap->width()) * static_cast<std::size_t>(bitmap->height()) * 4;
        kept_.setCached(std::to_string(index), Kept{ready, pixels}, bytes);
    }
    const bool wasLeftOut = !ready.image && ready.problem.empty();
    const std::vector<Waiting> served = std::exchange(waiting_[index], {});
    for (const Waiting& one : served) {
        const bool again = wasLeftOut || !fits(one.pixels, pixels);
        if (!again)
            one.receive(index, ready);
        else if (stillWanted(index)())
            load(index, one.pixels, one.receive);
    }
}

void Album::loadWhole(std::size_t index, const Receive& receive) {
    prepare(items_[index], stillWanted(index), {}, [=, album = weak_from_this()](const Ready& ready) {
        if (album.lock()) receive(index, ready);
    });
}
