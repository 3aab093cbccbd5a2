#include "Bindings.h"
#include "Failure.h"
#include "Running.h"
#include "peximage/canvas/PexCanvas.h"
#include "peximage/composer/PexComposerManager.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/varda/XMain.h"

#include <mutex>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

namespace nb = nanobind;
using namespace nb::literals;

namespace pexpy {
namespace {

using pex::PexCanvas;
using pex::PexComposer;
using Images = std::vector<std::optional<Image>>;
using Place = std::optional<double>;

/// Canvases and composers cross over as documents, which Python's classes are written as and read from.
template <class T>
T read(const std::string& document) {
    pex::DocumentError error;
    auto value = pex::decode<T>(document, &error);
    if (!value) failArgument(error.message());
    return std::move(*value);
}

template <class T>
std::string rewritten(const std::string& document) {
    return pex::encode(read<T>(document));
}

/// A canvas without a picture to begin with has no pixels.
pex::CGImage transparent(PexCanvas::Size size) {
    const auto context = pex::CGContext::make(static_cast<int>(size.width), static_cast<int>(size.height),
                                              pex::PixelLayout::premultipliedLast, pex::CGColorSpace::sRGB());
    const auto image = context ? context->makeImage() : std::nullopt;
    if (!image) fail("not enough memory");
    return *image;
}

void loadLayers(PexCanvas& canvas, const Images& images) {
    for (std::size_t i = 0; i < std::min(images.size(), canvas.layerList.size()); ++i)
        if (images[i]) canvas.layerList[i].image = images[i]->picture();
    canvas.shareApp.emplace();
    canvas.loadAllLayers().get();
    for (std::size_t i = 0; i < canvas.layerList.size(); ++i)
        if (!canvas.layerList[i].image) failArgument("layer " + std::to_string(i) + " has no picture");
}

Image drawCanvas(const std::string& document, const Images& images) {
    auto canvas = read<PexCanvas>(document);
    if (!pex::ImageLimits::current().allows(canvas.size.width, canvas.size.height)) fail("too large");
    if (canvas.layerList.empty()) return Image(pex::PexImage::make(transparent(canvas.size)));
    loadLayers(canvas, images);
    pex::giveReason(pex::ReasonCode::none, {}); // what is told below is of the drawing
    const auto drawn = canvas.getImage();
    if (!drawn || pex::lastReason()) fail("cannot be drawn");
    for (const auto& image : images)
        if (image) image->checkWhole();
    return Image(drawn);
}

const PexComposer::Layer& layerOf(const PexComposer& composer, std::size_t index) {
    if (index >= composer.layerList.size()) failArgument("the composer has no such layer");
    return composer.layerList[index];
}

std::string guides(const std::string& document, const std::vector<double>& margins) {
    return pex::encode(read<PexComposer>(document).guideList(margins));
}

/// The positions x and y at which others can align with the layer.
std::pair<std::vector<double>, std::vector<double>> layerGuides(const std::string& document,
                                                                std::size_t index) {
    const auto composer = read<PexComposer>(document);
    const PexComposer::Layer& layer = layerOf(composer, index);
    return {layer.verticalGuides(composer), layer.horizontalGuides(composer)};
}

std::pair<Place, Place> snap(const std::string& document, std::size_t index, std::pair<double, double> at,
                             std::pair<double, double> shown) {
    const auto composer = read<PexComposer>(document);
    const PexComposer::Layer& layer = layerOf(composer, index);
    const pex::CGSize size{shown.first, shown.second};
    return {composer.nearestVerticalGuide(layer, at.first, size),
            composer.nearestHorizontalGuide(layer, at.second, size)};
}

std::string replaced(const std::string& document, const std::string& search, const std::string& with) {
    return pex::encode(read<PexComposer>(document).composer({.search = search, .replace = with}));
}

/// An application's composers. The library's managers share the application's name and announce changes on
/// the main thread, so one call goes at a time, on a thread that counts as the main one.
class Store {
    template <class Work>
    auto alone(const Work& work) {
        static std::mutex mutex;
        const std::lock_guard lock(mutex);
        pex::PexComposerManager::appName = app_;
        pex::XMain::becomeMain();
        return work();
    }

  public:
    explicit Store(std::string app) : app_(std::move(app)) {
        manager_ = alone([&] { return pex::PexComposerManager::make({app_}); });
    }

    std::string composers() const { return pex::encode(manager_->composerList()); }
    std::optional<std::string> selected() const { return manager_->selectedComposerId(); }
    std::string problem() const { return manager_->whyNotSaved().message; }

    void save(const std::string& composers, std::optional<std::string> selected, bool takesOver) {
        auto list = read<std::vector<PexComposer>>(composers);
        const bool saved = alone([&] {
            manager_->setComposerList(std::move(list));
            if (selected != manager_->selectedComposerId())
                manager_->setSelectedComposerId(std::move(selected));
            return takesOver ? manager_->takeOver() : manager_->isSaved();
        });
        if (!saved) throw Failure(manager_->whyNotSaved(), {});
    }

    void reload() {
        if (!alone([&] { return manager_->reload(); })) fail("there is nothing to load");
    }

  private:
    std::string app_;
    std::shared_ptr<pex::PexComposerManager> manager_;
};

void addStore(nb::module_& module) {
    nb::class_<Store>(module, "_ComposerStore")
        .def(nb::init<std::string>(), "app_name"_a, Unlocked())
        .def_prop_ro("composers", &Store::composers)
        .def_prop_ro("selected", &Store::selected)
        .def_prop_ro("problem", &Store::problem)
        .def("save", &Store::save, "composers"_a, "selected"_a.none(), "takes_over"_a, Unlocked())
        .def("reload", &Store::reload, Unlocked());
}

} // namespace

void addPages(nb::module_& module) {
    module.def(
        "_new_id", [](const std::string& tag) { return pex::PexId::newId("", tag, true); }, "tag"_a);
    module.def("_canvas_document", &rewritten<PexCanvas>, "document"_a, Unlocked());
    module.def(
        "_draw_canvas",
        [](const std::string& document, const Images& images) {
            return interruptibly(true, [=] { return drawCanvas(document, images); });
        },
        "document"_a, "images"_a);
    module.def("_composer_document", &rewritten<PexComposer>, "document"_a, Unlocked());
    module.def("_composer_guides", &guides, "document"_a, "margins"_a, Unlocked());
    module.def("_composer_layer_guides", &layerGuides, "document"_a, "layer"_a, Unlocked());
    module.def("_composer_snap", &snap, "document"_a, "layer"_a, "at"_a, "shown"_a, Unlocked());
    module.def("_composer_replaced", &replaced, "document"_a, "search"_a, "replace"_a, Unlocked());
    addStore(module);
}

} // namespace pexpy
