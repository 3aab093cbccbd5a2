#include "peximage/image/PexImage.h"
#include "peximage/platform/varda/PexNet.h"

#include <utility>

namespace pex {
namespace {

std::optional<URL> serverEndpoint() {
    const std::optional<URL> server = PexNet::server();
    return server ? std::optional(server->appendingPathComponent("quarn/filePost.php")) : std::nullopt;
}

/// Keeps the image alive: the task may start after all other owners are gone.
Task<bool> uploadJpeg(std::shared_ptr<const PexImage> image, PexImage::UploadTarget target) {
    std::optional<Data> jpeg = image->jpegData(target.quality);
    std::optional<URL> endpoint = target.to ? std::move(target.to) : serverEndpoint();
    if (!jpeg || !endpoint) co_return false;
    PexNet::Upload file{std::move(*endpoint), std::move(*jpeg), target.withName + ".jpg",
                        "application/octet-stream"};
    Task<bool> upload = PexNet::upload(std::move(file));
    co_return co_await upload;
}

} // namespace

Task<bool> PexImage::uploadAsJpeg(UploadTarget target) const {
    return uploadJpeg(shared_from_this(), std::move(target));
}

} // namespace pex
