#include "bench/worker/Geometry.h"

#include "bench/worker/WholePictures.h"
#include "peximage/canvas/PexCanvas.h"
#include "peximage/pixels/PexImageBitmapRGBA.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/Turning.h"

#include <cstring>
#include <memory>
#include <opencv2/imgproc.hpp>

namespace bench {
namespace {

using JobMap = std::map<std::string, Prepare>;
constexpr double aslant = 10; // degrees

void addCopy(JobMap& jobs, const std::string& folder) {
    jobs["copy"] = [=]() -> Run {
        const Shared from = load(folder, 4000), to = std::make_shared<Picture>(4000, 3000, 4);
        return run([=] {
            pex::forEachStrip(from->height, [&](int begin, int end) {
                std::memcpy(to->row(begin), from->row(begin), from->rowBytes() * std::size_t(end - begin));
            });
        });
    };
}

// Turning.

void addTurning(JobMap& jobs, const std::string& folder) {
    addOurs(jobs, "turn/ours", folder,
            [](pex::PexImage& image) { image.rotate(pex::PexImage::RotationDirection::r90AntiClockWise); });
    addVips(jobs, "turn/vips", folder,
            [](VipsImage* in, VipsImage** out) { return vips_rot(in, out, VIPS_ANGLE_D90, nullptr); });
    addOpenCv(jobs, "turn/opencv", folder,
              [](const cv::Mat& in, cv::Mat& out) { cv::rotate(in, out, cv::ROTATE_90_CLOCKWISE); });

    addOurs(jobs, "flip/ours", folder,
            [](pex::PexImage& image) { pex::turnedImage(*image.cgImage, pex::Orientation::upMirrored); });
    addVips(jobs, "flip/vips", folder, [](VipsImage* in, VipsImage** out) {
        return vips_flip(in, out, VIPS_DIRECTION_HORIZONTAL, nullptr);
    });
    addOpenCv(jobs, "flip/opencv", folder, [](const cv::Mat& in, cv::Mat& out) { cv::flip(in, out, 1); });

    addOurs(jobs, "rotate/ours", folder, [](pex::PexImage& image) { image.rotate({.degrees = aslant}); });
    addOurs(jobs, "straighten/ours", folder, [](pex::PexImage& image) { image.rotateAndZoom(aslant); });
    addOpenCv(jobs, "rotate/opencv", folder, [](const cv::Mat& in, cv::Mat& out) {
        const cv::Point2f centre(float(in.cols) / 2, float(in.rows) / 2);
        cv::Mat matrix = cv::getRotationMatrix2D(centre, aslant, 1);
        const cv::Rect2f box = cv::RotatedRect({}, in.size(), float(aslant)).boundingRect2f();
        matrix.at<double>(0, 2) += box.width / 2 - centre.x;
        matrix.at<double>(1, 2) += box.height / 2 - centre.y;
        cv::warpAffine(in, out, matrix, box.size(), cv::INTER_CUBIC);
    });
    addOurs(jobs, "tiles/ours", folder, [](pex::PexImage& image) { image.split({.to = {256, 256}}); });
}

// Drawing and editing.

void addEditing(JobMap& jobs, const std::string& folder) {
    jobs["layer/ours"] = [=]() -> Run {
        const pex::CGImage layer = imageOf(*load(folder, 4000));
        const auto context = pex::CGContext::make(4000, 3000, pex::PixelLayout::premultipliedLast,
                                                  pex::CGColorSpace::deviceRGB());
        context->setAlpha(0.5);
        return run([=] { context->draw(layer, {0, 0, 4000, 3000}); });
    };
    const auto edit = [&](const std::string& name, auto change) {
        jobs[name] = [=]() -> Run {
            const auto bitmap = std::make_shared<pex::PexImageBitmapRGBA>(imageOf(*load(folder, 4000)));
            return run([=] { change(*bitmap); });
        };
    };
    edit("gate/ours", [](pex::PexImageBitmapRGBA& bitmap) { bitmap.lightDarkGate(0.5); });
    edit("key/ours", [](pex::PexImageBitmapRGBA& bitmap) { bitmap.key(10, 20, 30, 60); });
    edit("fill/ours", [](pex::PexImageBitmapRGBA& bitmap) { bitmap.fill(10, 20, 30); });
}

constexpr int layers = 10;

void addCanvas(JobMap& jobs, const std::string& folder) {
    jobs["canvas/ours"] = [=]() -> Run {
        using Source = pex::PexCanvasLayer::Source;
        const auto layer = pex::PexImage::make(imageOf(*load(folder, 2000)));
        return run([=] {
            pex::PexCanvas canvas(pex::PexCanvas::Size(2000, 1500));
            for (int i = 0; i < layers; ++i)
                canvas.layerList.emplace_back(
                    pex::PexCanvasLayer::newId(), pex::PexCanvasLayer::LayerType::image,
                    Source{.identification = Source::Identification::image, .image = layer},
                    pex::PexSpatialConforming::none, pex::PexCanvasLayer::Transform{.opacity = 0.5});
            canvas.getImage();
        });
    };
    jobs["canvas/vips"] = [=]() -> Run {
        const Shared picture = load(folder, 2000);
        for (std::size_t i = 3; i < picture->bytes.size(); i += 4)
            picture->bytes[i] = 128;
        return run([=] {
            VipsImage *in[layers], *out = nullptr;
            int modes[layers - 1];
            for (VipsImage*& image : in)
                image = vips_image_new_from_memory(picture->bytes.data(), picture->bytes.size(),
                                                   picture->width, picture->height, 4, VIPS_FORMAT_UCHAR);
            for (VipsImage* image : in)
                image->Type = VIPS_INTERPRETATION_sRGB;
            std::fill(std::begin(modes), std::end(modes), int(VIPS_BLEND_MODE_OVER));
            if (vips_composite(in, &out, layers, modes, nullptr)) throw std::runtime_error("libvips cannot");
            VipsImage* whole = vips_image_copy_memory(out);
            g_object_unref(whole);
            g_object_unref(out);
            for (VipsImage* image : in)
                g_object_unref(image);
        });
    };
}

} // namespace

void addGeometry(JobMap& jobs, const std::string& folder) {
    addCopy(jobs, folder);
    addTurning(jobs, folder);
    addEditing(jobs, folder);
    addCanvas(jobs, folder);
}

} // namespace bench
