#include "peximage/cache/PexImageView.h"

#include "peximage/cache/RemoteImages.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/DocumentCodec.h"
#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/varda/Queue.h"
#include "peximage/platform/varda/XMain.h"

#include <any>
#include <utility>

namespace pex {
namespace {

Guarded<std::shared_ptr<PexImage>>& sharedPlaceholder() {
    const ForkPass pass; // a fork now would leave it half made
    // Never freed: images may arrive while the process ends.
    static auto& instance = *new Guarded<std::shared_ptr<PexImage>>;
    return instance;
}

/// The document that a view is stored as.
struct ViewDocument {
    std::vector<std::vector<double>> frame;

    static constexpr auto documentKeys() {
        return std::tuple(keyed::required("frame", &ViewDocument::frame));
    }
};

std::optional<CGRect> storedFrame(std::string_view document) {
    const std::optional<ViewDocument> stored = decode<ViewDocument>(document);
    if (!stored || stored->frame.size() != 2) return std::nullopt;
    const auto& origin = stored->frame[0];
    const auto& size = stored->frame[1];
    if (origin.size() != 2 || size.size() != 2) return std::nullopt;
    return CGRect{origin[0], origin[1], size[0], size[1]};
}

/// Shows the image on the main thread, if the view still exists then.
void showOnMain(const std::weak_ptr<NSImageView>& view, std::shared_ptr<NSImage> image) {
    XMain::execute([view, image = std::move(image)] {
        if (const auto shown = view.lock()) shown->setImage(image);
    });
}

std::size_t bytesOf(const PexImage& image) {
    return static_cast<std::size_t>(image.size.width * image.size.height) * 4;
}

void fetch(const std::shared_ptr<PexResourceDownloader>& downloader, const URL& url,
           const std::weak_ptr<NSImageView>& view) {
    const auto arrived = [view, key = url.path()](const std::shared_ptr<PexImage>& image) {
        if (!image) return;
        showOnMain(view, image->image);
        if (image->cgImage && !image->cgImage->isIncomplete()) // decoded here rather than on the main thread
            PexImageView::imageCache().setCached(key, image, bytesOf(*image));
    };
    asyncDownload(downloader, {.url = url, .completion = arrived});
}

} // namespace

std::shared_ptr<PexImageView> PexImageView::make(const Frame& options) {
    std::shared_ptr<PexImageView> view(new PexImageView(options.frame));
    view->setup();
    return view;
}

std::shared_ptr<PexImageView> PexImageView::make(const Coder& options) {
    const std::optional<CGRect> frame = storedFrame(options.coder);
    return frame ? make({.frame = *frame}) : nullptr;
}

void PexImageView::setRadius(double radius) {
    if (radius == radius_) return;
    radius_ = radius;
    showChange();
}

void PexImageView::setBorder(double border) {
    if (border == border_) return;
    border_ = border;
    showChange();
}

void PexImageView::setBorderColor(const NSColor& color) {
    if (color == borderColor_) return;
    borderColor_ = color;
    showChange();
}

bool PexImageView::setValue(const Value& value, std::string_view forKey) {
    const auto* number = std::get_if<double>(&value);
    const auto* color = std::get_if<NSColor>(&value);
    if (forKey == "radius" && number != nullptr)
        setRadius(*number);
    else if (forKey == "border" && number != nullptr)
        setBorder(*number);
    else if (forKey == "borderColor" && color != nullptr)
        setBorderColor(*color);
    else
        return false;
    return true;
}

std::optional<PexImageView::Value> PexImageView::value(std::string_view forKey) const {
    if (forKey == "radius") return radius_;
    if (forKey == "border") return border_;
    if (forKey == "borderColor") return borderColor_;
    return std::nullopt;
}

void PexImageView::setup() {
    setWantsLayer(true);
    if (CALayer* const own = layer()) *own = {radius_, border_, borderColor_.cgColor()};
}

void PexImageView::update() { showChange(); }

void PexImageView::showChange() {
    setup();
    setNeedsDisplay(frame());
}

void PexImageView::draw(const CGRect& dirtyRect) {
    setup();
    NSImageView::draw(dirtyRect);
}

void PexImageView::setPlaceholder(const std::shared_ptr<PexImage>& placeholder) {
    const std::shared_ptr<PexImage> shown = placeholder ? placeholder : placeHolder();
    if (shown) showOnMain(weak_from_this(), shown->image);
}

void PexImageView::setImage(const std::optional<URL>& url, const Placeholder& options) {
    setPlaceholder(options.placeholder);
    if (!url) return;
    const std::any known = imageCache().getCached(url->path());
    if (const auto* image = std::any_cast<std::shared_ptr<PexImage>>(&known))
        return showOnMain(weak_from_this(), (*image)->image);
    setImage(std::shared_ptr<NSImage>());
    Queue::execute(false, [downloader = imageDownloader, url = *url, view = weak_from_this()] {
        fetch(downloader, url, view);
    });
}

void PexImageView::setImage(const HttpPath& source) {
    const std::optional<URL> url = source.httpPath ? URL::parse(*source.httpPath) : std::nullopt;
    setImage(url, {.placeholder = source.placeholder});
}

PexCache& PexImageView::imageCache() {
    const ForkPass pass; // a fork now would leave it half made
    // Never freed: images may arrive while the process ends.
    static PexCache& instance = *new PexCache;
    return instance;
}

std::shared_ptr<PexImage> PexImageView::placeHolder() { return sharedPlaceholder().get(); }

void PexImageView::setPlaceHolder(std::shared_ptr<PexImage> placeholder) {
    sharedPlaceholder().set(std::move(placeholder));
}

void setImage(const std::shared_ptr<NSImageView>& view, const std::shared_ptr<PexImage>& image) {
    if (image) showOnMain(view, image->image);
}

void set(const std::shared_ptr<NSImageView>& view, std::string_view name) {
    showOnMain(view, NSImage::named(name));
}

} // namespace pex
