#include "peximage/platform/codecs/CGImageDestination.h"

#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/foundation/OutOfMemory.h"

#include <map>
#include <utility>

namespace pex {
namespace {

/// The resolution of a JPEG is stamped later by the saver.
ImageMetadata metadataFor(const CGImage& image, ImageFormat format,
                          const CGImageDestination::Options& options) {
    const ImageMetadata upright = options.metadata.uprighted(image.width(), image.height());
    const auto x = options.dpiWidth ? options.dpiWidth : options.dpiHeight;
    const auto y = options.dpiHeight ? options.dpiHeight : options.dpiWidth;
    const bool isTold = format != ImageFormat::jpeg && x && y;
    return (isTold ? upright.withResolution(*x, *y) : upright).heldBy(format);
}

CGImageDestination::Options fitted(const CGImage& image, ImageFormat format,
                                   CGImageDestination::Options options) {
    if (!options.metadata.empty()) options.metadata = metadataFor(image, format, options);
    return options;
}

/// For formats whose encoders begin anew for each quality: encodes whole files, each quality once.
class WholeFiles : public RepeatedEncoding {
  public:
    WholeFiles(const ImageCodec& codec, const CGImage& image, CGImageDestination::Options options)
        : codec_(codec), image_(image), options_(std::move(options)) {}

    CGSize size() const override { return image_.size(); }

    std::optional<Data> encode(double quality) override {
        const auto [found, isNew] = files_.try_emplace(quality);
        options_.quality = quality;
        if (isNew) found->second = codec_.encode(image_, options_);
        return found->second;
    }

    long long byteCount(double quality) override {
        const std::optional<Data> file = encode(quality);
        return file ? static_cast<long long>(file->size()) : 0;
    }

  private:
    const ImageCodec& codec_;
    CGImage image_;
    CGImageDestination::Options options_;
    std::map<double, std::optional<Data>> files_;
};

} // namespace

bool CGImageDestination::writes(ImageFormat format) {
    const ImageCodec* codec = codecForFormat(format);
    return codec && codec->encode && codec->isAvailable();
}

std::optional<Data> CGImageDestination::encode(const CGImage& image, ImageFormat format,
                                               const Options& options) {
    const ImageCodec* codec = codecForFormat(format);
    if (!codec || !codec->encode) return std::nullopt;
    return absentWithoutMemory([&] { return codec->encode(image, fitted(image, format, options)); });
}

std::unique_ptr<RepeatedEncoding> CGImageDestination::repeated(const CGImage& image, ImageFormat format,
                                                               const Options& options) {
    const ImageCodec* codec = codecForFormat(format);
    if (!codec || !codec->encode) return nullptr;
    return absentWithoutMemory([&]() -> std::unique_ptr<RepeatedEncoding> {
        if (codec->repeated) return codec->repeated(image, fitted(image, format, options));
        return std::make_unique<WholeFiles>(*codec, image, fitted(image, format, options));
    });
}

} // namespace pex
