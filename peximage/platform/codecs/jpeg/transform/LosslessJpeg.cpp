#include "peximage/platform/codecs/LosslessJpeg.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/jpeg/transform/Transcoder.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/Turning.h"

#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace pex {
namespace {

/// An orientation in its steps: rows and columns change places, then sides do.
struct Steps {
    bool isTransposed, isMirroredAcross, isMirroredDown;

    explicit Steps(Orientation orientation)
        : isTransposed(swapsSides(orientation)), isMirroredAcross(false), isMirroredDown(false) {
        using enum Orientation;
        const auto is = [orientation](auto... any) { return ((orientation == any) || ...); };
        isMirroredAcross = is(upMirrored, down, right, rightMirrored);
        isMirroredDown = is(down, downMirrored, left, rightMirrored);
    }

    void add(Steps next) {
        if (next.isTransposed) std::swap(isMirroredAcross, isMirroredDown);
        isTransposed ^= next.isTransposed;
        isMirroredAcross ^= next.isMirroredAcross;
        isMirroredDown ^= next.isMirroredDown;
    }
};

CGSize sizeOf(const ImageProperties& properties) {
    return {double(properties.pixelWidth), double(properties.pixelHeight)};
}

/// Of the stored picture what becomes the part of the upright one; empty where nothing of it does.
CGRect storedPart(const ImageProperties& properties, const std::optional<CGRect>& part) {
    const CGSize stored = sizeOf(properties);
    const CGSize upright = swapsSides(properties.orientation) ? CGSize{stored.height, stored.width} : stored;
    const CGRect whole{{0, 0}, upright};
    const CGRect cut = part ? part->integral().intersection(whole) : whole;
    return rectBeforeTurning(cut, upright, properties.orientation);
}

jpeg::BlockPlan planFor(const ImageProperties& properties, const CGRect& part, const LosslessChange& change) {
    Steps steps(properties.orientation);
    steps.add(Steps(change.turn));
    if (steps.isTransposed) std::swap(steps.isMirroredAcross, steps.isMirroredDown);
    const auto pixels = [](double place) { return static_cast<JDIMENSION>(place); };
    return {{pixels(part.minX()), pixels(part.maxX()), steps.isMirroredAcross},
            {pixels(part.minY()), pixels(part.maxY()), steps.isMirroredDown},
            steps.isTransposed};
}

/// Whether a stretch begins between blocks of that size; if not, the reason.
bool startsAtBorder(const jpeg::Stretch& stretch, int factor, std::string_view direction) {
    const auto block = static_cast<JDIMENSION>(factor * DCTSIZE);
    if (stretch.start() % block == 0) return true;
    giveReason(ReasonCode::badArgument, "cannot be done without loss: it is stored in blocks of " +
                                            std::to_string(block) + " pixels, and none begins " +
                                            std::string(direction) + " at " +
                                            std::to_string(stretch.start()));
    return false;
}

bool startsAtBorders(const jpeg::BlockPlan& plan, const jpeg_decompress_struct& info) {
    const bool isSingle = info.num_components == 1; // in which sampling means nothing
    return startsAtBorder(plan.across, isSingle ? 1 : info.max_h_samp_factor, "across") &&
           startsAtBorder(plan.down, isSingle ? 1 : info.max_v_samp_factor, "down");
}

std::optional<Data> transcoded(const Data& file, jpeg::BlockPlan plan, bool wantsProgressive) {
    jpeg::LibraryDecoder decoder{CGDataProvider(file)};
    decoder.keepSegments();
    std::optional<Data> result;
    if (decoder.readHeader(ImageLimits::current().maxMetadataBytes)) {
        if (!startsAtBorders(plan, decoder.info())) return std::nullopt;
        plan.isProgressive = wantsProgressive || decoder.info().progressive_mode;
        result = jpeg::Transcoder(decoder).write(plan);
    }
    if (decoder.lacksMemory()) throw std::bad_alloc();
    if (!result) giveReason(ReasonCode::damaged, "cannot be done without loss: the file is damaged");
    return result;
}

std::optional<Data> changed(const Data& jpeg, const LosslessChange& change) {
    const auto source = CGImageSource::make(jpeg);
    if (!source) return std::nullopt;
    const ImageProperties& properties = source->properties();
    if (properties.format != ImageFormat::jpeg) {
        giveReason(ReasonCode::notAnImage, "cannot be done without loss: not a JPEG");
        return std::nullopt;
    }
    const CGRect part = storedPart(properties, change.part);
    if (part.isEmpty()) {
        giveReason(ReasonCode::badArgument, "nothing of it lies in the rectangle");
        return std::nullopt;
    }
    const jpeg::BlockPlan plan = planFor(properties, part, change);
    const auto result = transcoded(jpeg, plan, change.progressive);
    const ImageMetadata metadata = source->metadata();
    if (!result || metadata.empty()) return result;
    CGSize size = part.size;
    if (plan.isTransposed) std::swap(size.width, size.height);
    return metadata.uprighted(static_cast<int>(size.width), static_cast<int>(size.height))
        .replacedIn(*result);
}

} // namespace

std::optional<Data> changedWithoutLoss(const Data& jpeg, const LosslessChange& change) {
    return absentWithoutMemory([&] { return changed(jpeg, change); });
}

} // namespace pex
