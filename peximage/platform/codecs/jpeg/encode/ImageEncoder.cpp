#include "peximage/platform/codecs/jpeg/encode/ImageEncoder.h"

#include "peximage/platform/codecs/jpeg/JpegMetadata.h"
#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"
#include "peximage/platform/codecs/jpeg/encode/ImageRows.h"

namespace pex {
namespace {

class RepeatedJpeg : public RepeatedEncoding {
  public:
    RepeatedJpeg(CGSize size, std::shared_ptr<jpeg::Encoder> encoder)
        : size_(size), encoder_(std::move(encoder)) {}

    CGSize size() const override { return size_; }

    std::optional<Data> encode(double quality) override {
        std::vector<std::uint8_t> bytes = encoder_->encode(quality);
        return bytes.empty() ? std::nullopt : std::optional(Data(std::move(bytes)));
    }

    long long byteCount(double quality) override {
        return static_cast<long long>(encoder_->byteCount(quality));
    }

    void prepare(const Search& search) override {
        sizes_.emplace(encoder_, search.budget, search.target, search.tolerance);
    }

    double sizeForSearch(double quality) override {
        return sizes_ ? sizes_->sizeForSearch(quality) : static_cast<double>(byteCount(quality));
    }

  private:
    CGSize size_;
    std::shared_ptr<jpeg::Encoder> encoder_;
    std::optional<jpeg::BudgetSizes> sizes_;
};

} // namespace

std::shared_ptr<jpeg::Encoder> jpeg::encoderOf(const CGImage& image, std::vector<std::uint8_t> metadata,
                                               const JpegOptions& options) {
    jpeg::EncoderInput input;
    input.width = image.width();
    input.height = image.height();
    input.grey = image.layout() == PixelLayout::grey;
    input.metadata = std::move(metadata);
    if (!takeRows(image, input)) return nullptr;
    if (!image.colorSpace().isStandard()) {
        const auto icc = image.colorSpace().iccProfile().bytes();
        input.iccProfile.assign(icc.begin(), icc.end());
    }
    return jpeg::Encoder::make(std::move(input), options);
}

std::optional<Data> encodeJpeg(const CGImage& image, const CGImageDestination::Options& options) {
    const auto encoding = encodeJpegRepeatedly(image, options);
    return encoding ? encoding->encode(options.quality) : std::nullopt;
}

std::unique_ptr<RepeatedEncoding> encodeJpegRepeatedly(const CGImage& image,
                                                       const CGImageDestination::Options& options) {
    auto encoder = jpeg::encoderOf(image, jpegMetadataSegments(options.metadata), options.jpeg);
    if (!encoder) return nullptr;
    return std::make_unique<RepeatedJpeg>(image.size(), std::move(encoder));
}

} // namespace pex
