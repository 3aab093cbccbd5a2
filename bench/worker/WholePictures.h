#pragma once

#include "bench/worker/Jobs.h"
#include "bench/worker/Picture.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Workers.h"

#include <memory>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <vips/vips.h>

/// Jobs that change a whole opaque picture of 4000 × 3000 pixels in memory, by this library and its peers.
namespace bench {

using JobMap = std::map<std::string, Prepare>;
using Shared = std::shared_ptr<Picture>;

/// The photo at a width, four channels, opaque.
Shared load(const std::string& folder, int width);
/// A copy of its pixels as an image.
pex::CGImage imageOf(const Picture& picture);

/// A job that makes no file.
template <class Work>
Run run(Work work) {
    return [=]() -> std::size_t {
        work();
        return 0;
    };
}

/// `change(in, &out)` describes the result, which is then computed; nonzero where it cannot.
template <class Change>
void addVips(JobMap& jobs, const std::string& name, const std::string& folder, Change change,
             int channels = 4) {
    jobs[name] = [=]() -> Run {
        const auto picture = std::make_shared<Picture>(withChannels(*load(folder, 4000), channels));
        return run([=] {
            VipsImage* in =
                vips_image_new_from_memory(picture->bytes.data(), picture->bytes.size(), picture->width,
                                           picture->height, channels, VIPS_FORMAT_UCHAR);
            VipsImage* out = nullptr;
            std::size_t size = 0;
            if (change(in, &out)) throw std::runtime_error("libvips cannot");
            g_free(vips_image_write_to_memory(out, &size));
            g_object_unref(out);
            g_object_unref(in);
        });
    };
}

/// `change(in, out)` on as many threads as the job may have.
template <class Change>
void addOpenCv(JobMap& jobs, const std::string& name, const std::string& folder, Change change) {
    jobs[name] = [=]() -> Run {
        const Shared picture = load(folder, 4000);
        return run([=] {
            const cv::Mat in(picture->height, picture->width, CV_8UC4, picture->bytes.data());
            cv::Mat out;
            cv::setNumThreads(pex::Workers::count());
            change(in, out);
        });
    };
}

/// `change(image)` on a picture in memory.
template <class Change>
void addOurs(JobMap& jobs, const std::string& name, const std::string& folder, Change change) {
    jobs[name] = [=]() -> Run {
        const auto image = pex::PexImage::make(imageOf(*load(folder, 4000)));
        return run([=] { change(*image); });
    };
}

} // namespace bench
