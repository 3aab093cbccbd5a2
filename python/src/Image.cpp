#include "Image.h"

#include "Failure.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/raster/ApplicationPixels.h"

#include <utility>

namespace pexpy {
namespace {

bool showsAsItLies(const pex::CGImage& bitmap) {
    using enum pex::PixelLayout;
    const pex::PixelLayout layout = bitmap.layout();
    return layout == grey || layout == skipLast || layout == straightLast;
}

/// The bitmap as R G B x, or straight R G B A.
pex::CGImage converted(const pex::CGImage& bitmap) {
    const bool alpha = pex::hasAlpha(bitmap.layout());
    const std::ptrdiff_t stride = std::ptrdiff_t{bitmap.width()} * 4;
    pex::PixelBuffer pixels =
        pex::PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(bitmap.height()));
    if (!pixels) throw Failure({pex::ReasonCode::outOfMemory, "not enough memory"}, {});
    const pex::ApplicationPixels to{pixels.data(), bitmap.width(), bitmap.height(), stride,
                                    alpha ? pex::PixelBytes::rgba : pex::PixelBytes::rgbx};
    if (!pex::copyPixels(bitmap, to)) fail("the pixels cannot be had");
    const auto layout = alpha ? pex::PixelLayout::straightLast : pex::PixelLayout::skipLast;
    return *pex::CGImage::make(to.width, to.height, stride, layout, bitmap.colorSpace(), std::move(pixels));
}

std::string modeOf(bool hasAlpha, bool isGrey) {
    if (hasAlpha) return "RGBA";
    return isGrey ? "L" : "RGB";
}

pex::CGSize uprightSize(const pex::ImageProperties& properties) {
    const pex::CGSize stored{static_cast<double>(properties.pixelWidth),
                             static_cast<double>(properties.pixelHeight)};
    return pex::swapsSides(properties.orientation) ? pex::CGSize{stored.height, stored.width} : stored;
}

/// Their first use writes the object, which several threads may share from now on.
void prepare(const pex::PexImage& picture) {
    (void)picture.ciImage();
    (void)picture.bitmapRep();
}

} // namespace

Image Image::ofFile(const std::string& path) {
    auto source = pex::CGImageSource::make(pex::URL::fromPath(path));
    if (!source) fail("not an image", path);
    auto state = std::make_shared<State>();
    state->path = path;
    state->source = state->origin = std::make_shared<const pex::CGImageSource>(std::move(*source));
    return Image(std::move(state));
}

Image Image::ofBytes(pex::Data bytes) {
    auto source = pex::CGImageSource::make(bytes);
    if (!source) fail("not an image");
    auto state = std::make_shared<State>();
    state->source = state->origin = std::make_shared<const pex::CGImageSource>(std::move(*source));
    state->picture = pex::PexImage::make(bytes, {});
    if (!state->picture) fail("not an image");
    prepare(*state->picture);
    return Image(std::move(state));
}

Image::Image(Picture picture, pex::ImageMetadata metadata) : state_(std::make_shared<State>()) {
    prepare(*picture);
    state_->picture = std::move(picture);
    state_->metadata = std::move(metadata);
}

pex::ImageMetadata Image::metadata() const {
    return state_->origin ? state_->origin->metadata() : state_->metadata;
}

Image Image::derived(Picture picture) const {
    Image result(std::move(picture), state_->metadata);
    result.state_->origin = state_->origin;
    return result;
}

pex::CGSize Image::size() const {
    return state_->source ? uprightSize(state_->source->properties()) : state_->picture->size;
}

std::string Image::mode() const {
    if (state_->source) {
        const pex::ImageProperties& properties = state_->source->properties();
        return modeOf(properties.hasAlpha, properties.colorModel == pex::CGColorSpace::Model::gray);
    }
    const auto& bitmap = state_->picture->cgImage;
    if (!bitmap) return "RGBA"; // a blank picture
    return modeOf(pex::hasAlpha(bitmap->layout()), bitmap->layout() == pex::PixelLayout::grey);
}

const pex::CGImageSource* Image::source() const { return state_->source.get(); }

Image::Picture Image::picture() const {
    const std::lock_guard lock(state_->mutex);
    if (!state_->picture) {
        state_->picture = pex::PexImage::make({.fastUrl = pex::URL::fromPath(state_->path)});
        if (!state_->picture) fail("not an image", state_->path);
        prepare(*state_->picture);
    }
    return state_->picture;
}

pex::CGImage Image::bitmap() const {
    const Picture whole = picture();
    if (!whole->cgImage) throw Failure({pex::ReasonCode::damaged, "has no pixels"}, state_->path);
    return *whole->cgImage;
}

Image Image::changed(const std::function<Picture(pex::PexImage&)>& operation, const std::string& what) const {
    const Picture receiver = picture();
    pex::giveReason(pex::ReasonCode::none, {}); // what is told below is of this operation
    const Picture result = operation(*receiver);
    if (!result && !pex::lastReason()) failArgument(what);
    if (!result) fail(what, state_->path);
    checkWhole();
    return derived(result);
}

void Image::checkWhole() const {
    const auto& bitmap = picture()->cgImage;
    if (state_->allowsCut || !bitmap || !bitmap->isIncomplete()) return;
    auto rest = std::make_shared<State>();
    rest->path = state_->path;
    rest->source = state_->source;
    rest->origin = state_->origin;
    rest->picture = state_->picture;
    rest->allowsCut = true;
    throw CutPicture{std::shared_ptr<const Image>(new Image(std::move(rest))), bitmap->decodedFraction(),
                     state_->path};
}

pex::CGImage Image::arrayBitmap() const {
    const pex::CGImage whole = bitmap();
    if (!whole.pixels()) fail("the pixels cannot be had", state_->path);
    checkWhole();
    if (showsAsItLies(whole)) return whole;
    const std::lock_guard lock(state_->mutex);
    if (!state_->array) state_->array = converted(whole);
    return *state_->array;
}

} // namespace pexpy
