// The code of the guide's chapters, a function each. Called with a photo and a folder to write to, it runs
// all of them and names those that fail.
#include <cstdio>
#include <functional>
#include <peximage/peximage.h>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

using namespace pex;

namespace {

bool reasons() {
    const auto missing = PexImage::make({.fastUrl = URL::fromPath("/nowhere.jpg")});
    if (missing) return false;
    const Reason why = lastReason(); // at once: the next absent result replaces it
    switch (why.code) {
    case ReasonCode::noSuchFile:
        return true;
    case ReasonCode::missingModule:
        std::puts("please install the package for this format");
        break;
    case ReasonCode::overLimit:
        std::puts("too large to open");
        break;
    default:
        std::puts(why.message.c_str());
    }
    return false;
}

bool header(const URL& photo) {
    const auto source = CGImageSource::make(photo);
    if (!source) return false;
    const ImageProperties& says = source->properties();
    std::printf("%s, %d x %d as stored\n", displayName(says.format).data(), says.pixelWidth,
                says.pixelHeight);
    const auto taken = PexExif::basicData(photo).shotDate;
    std::puts(taken ? localTimeText(*taken).c_str() : "no date");
    return source->bytesRead() < 100'000; // the pixels were not touched
}

bool budget(const PexImage& photo, const URL& folder) {
    const auto picture = photo.resize({.withMaxSide = 1000});
    const auto fitted = PexImageHelper::jpegDataWithin(picture, {.desiredSize = 100'000});
    if (!fitted) return false;
    std::printf("quality %.3f, %.0f x %.0f, %zu bytes\n", fitted->quality, fitted->size.width,
                fitted->size.height, fitted->bytes.size());
    return fitted->bytes.write(folder.appendingPathComponent("fitted.jpg"), Data::Writing::atomically);
}

bool saveUnlessStopped(const PexImage& photo, const URL& to, std::stop_token stop) {
    const WorkControl control(std::move(stop));
    const auto preview = photo.resize({.withMaxSide = 256});
    const bool isSaved = preview && preview->saveToJpeg({.quality = 0.8, .url = to});
    return isSaved || lastReason().code == ReasonCode::cancelled;
}

Task<bool> savePreview(URL from, URL to) {
    auto loading = PexImage::download({.from = std::move(from)}); // gcc 12 needs a line of its own for it
    const auto photo = co_await loading;
    const auto preview = photo ? photo->resize({.withMaxSide = 256}) : nullptr;
    co_return preview && preview->saveToJpeg({.quality = 0.8, .url = to});
}

bool tasks(const URL& photo, const URL& folder) {
    return savePreview(photo, folder.appendingPathComponent("preview.jpg")).get();
}

bool stopping(const PexImage& photo, const URL& folder) {
    const URL file = folder.appendingPathComponent("stopped.jpg");
    std::stop_source stop;
    if (!saveUnlessStopped(photo, file, stop.get_token()) || !Data::contentsOf(file)) return false;
    stop.request_stop();
    return saveUnlessStopped(photo, file, stop.get_token());
}

bool mainThread() {
    XMain::becomeMain();
    int shown = 0;
    Queue::execute(true, [&] {
        // … work that takes a while, then:
        XMain::execute([&] { ++shown; });
    });
    while (shown == 0)
        XMain::waitAndDrain(); // an event loop calls XMain::drain() instead
    return shown == 1;
}

bool limits(const URL& photo) {
    const ImageLimits usual = ImageLimits::current();
    ImageLimits tight = usual;
    tight.maxPixels = 10'000;
    ImageLimits::setCurrent(tight);
    const bool refused = !CGImageSource::make(photo) && lastReason().code == ReasonCode::overLimit;
    ImageLimits::setCurrent(usual);
    return refused;
}

bool pixels(const PexImage& photo) {
    PexImageBitmapRGBA bitmap(photo);
    bitmap.setPixel({.x = 10, .y = 20, .color = PexColor255(255, 0, 0, 255), .invertedY = false});
    bitmap.key(0, 255, 0, 30); // what is nearly green becomes transparent
    const auto keyed = bitmap.pexImage();

    const int width = photo.cgImage->width(), height = photo.cgImage->height();
    std::vector<std::uint8_t> bytes(std::size_t(width) * std::size_t(height) * 3);
    const ApplicationPixels mine{.data = bytes.data(),
                                 .width = width,
                                 .height = height,
                                 .bytesPerRow = width * 3,
                                 .bytes = PixelBytes::bgr};
    return keyed && copyPixels(*photo.cgImage, mine);
}

bool points(const PexImage& photo) {
    NSScreen::setScreens({{.backingScaleFactor = 2}});
    const auto box = photo.resize({.withMaxSide = 1000})->resizeWithFit({300, 200}); // points
    NSScreen::setScreens({});
    return box && box->size.width == 600 && box->size.height == 400; // pixels
}

bool caches(const std::shared_ptr<PexImage>& photo) {
    const auto inMemory = PexImageCache::make({.maxImagesInCache = 200});
    const auto onDisk = PexImageStoredCache::make({.name = "Previews",
                                                   .removeItemsAfterDays = 30,
                                                   .mode = PexImageStoredCache::Mode::heif,
                                                   .resizeMinSideToMax = 256});
    const auto preview = inMemory->getImageOrCalc(
        {.withId = "photo 1", .maxSize = 256, .calcClosure = [&] {
             return onDisk->retrieveOrCalc({.imageWithId = "photo 1", .calc = [&] { return photo; }});
         }});
    return preview != nullptr;
}

bool metadata(const PexImage& picture, const URL& photo, const URL& folder) {
    ImageMetadata says = ImageMetadata::of(photo).withoutLocation();
    says.setExifField(ExifDirectory::image, 0x8298, std::string("© Studio")); // copyright
    const auto small = picture.resize({.withMaxSide = 800});
    return small &&
           small->saveToJpeg(
               {.toUrl = folder.appendingPathComponent("signed.jpg"), .maxSize = 100'000, .metadata = says});
}

bool incomplete(const URL& photo, const URL& folder) {
    const auto whole = Data::contentsOf(photo);
    const URL cut = folder.appendingPathComponent("cut.jpg");
    const auto half = std::string(whole->text().substr(0, whole->size() / 2));
    if (!Data(half).write(cut, Data::Writing::inPlace)) return false;

    const auto picture = PexImage::make({.fastUrl = cut}); // there, with what the file has
    if (!picture || !picture->cgImage->isIncomplete()) return false;
    std::printf("%.0f %% of the rows\n", 100 * picture->cgImage->decodedFraction());
    return picture->cgImage->decodedFraction() < 1;
}

struct Preferences : PexSaveable<Preferences> {
    inline static std::string appName = "Guide";
    inline static std::optional<std::string> subSettings = "preferences";
    std::string configurationName = "Default";
    double quality = 0.8;

    static constexpr auto documentKeys() {
        return std::tuple(keyed::lenient("quality", &Preferences::quality));
    }
};

bool settings() {
    Preferences preferences = Preferences::load().value_or(Preferences());
    preferences.quality = 0.9;
    return preferences.save() && Preferences::load()->quality == 0.9;
}

bool composers() {
    const auto manager = PexComposerManager::make({.appName = "Guide"});
    const auto watching = manager->objectWillChange.subscribe([] { std::puts("changed"); });
    manager->newComposer();
    if (!manager->isSaved()) std::puts(manager->whyNotSaved().message.c_str());
    return manager->isSaved();
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    diagnostics::setSink({});
    const URL url = URL::fromPath(argv[1]), folder = URL::fromPath(argv[2]);
    const auto photo = PexImage::make({.fastUrl = url});
    if (!photo) return 1;

    const std::pair<const char*, std::function<bool()>> chapters[] = {
        {"reasons", reasons},
        {"header", [&] { return header(url); }},
        {"budget", [&] { return budget(*photo, folder); }},
        {"tasks", [&] { return tasks(url, folder); }},
        {"stopping", [&] { return stopping(*photo, folder); }},
        {"mainThread", mainThread},
        {"limits", [&] { return limits(url); }},
        {"pixels", [&] { return pixels(*photo); }},
        {"points", [&] { return points(*photo); }},
        {"caches", [&] { return caches(photo); }},
        {"metadata", [&] { return metadata(*photo, url, folder); }},
        {"incomplete", [&] { return incomplete(url, folder); }},
        {"settings", settings},
        {"composers", composers},
    };
    int failures = 0;
    for (const auto& [name, chapter] : chapters) {
        if (chapter()) continue;
        ++failures;
        std::fprintf(stderr, "%s failed: %s\n", name, lastReason().message.c_str());
    }
    return failures;
}
