#include "peximage/budget/BudgetSearch.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"
#include "peximage/image/arguments/Destination.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/varda/FileUtilities.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace pex {
namespace {

/// Makes the folder and clears the place.
void prepareDestination(const URL& url) {
    fu_createFolder(url.deletingLastPathComponent());
    if (fu_fileExists(url)) fu_deleteFile(url);
}

/// Writes the density into the JFIF segment that begins the file: its unit (1: dots per inch) at byte 13,
/// then both densities with their high bytes first. Bytes that begin otherwise are left alone.
void stampDpi(std::vector<std::uint8_t>& jpeg, int dpi) {
    static constexpr std::uint8_t jfifStart[] = {0xFF, 0xD8, 0xFF, 0xE0};
    constexpr std::size_t unit = 13, segmentEnd = 20, identifier = 6;
    if (jpeg.size() < segmentEnd || !std::equal(std::begin(jfifStart), std::end(jfifStart), jpeg.begin()))
        return;
    if (std::string_view(reinterpret_cast<const char*>(&jpeg[identifier]), 5) !=
        std::string_view("JFIF\0", 5))
        return;
    jpeg[unit] = 1;
    for (const std::size_t density : {unit + 1, unit + 3}) {
        jpeg[density] = static_cast<std::uint8_t>(dpi >> 8);
        jpeg[density + 1] = static_cast<std::uint8_t>(dpi);
    }
}

/// The file at a quality, stamped; absent when there is nothing to encode or encoding fails.
std::optional<Data> encoded(RepeatedEncoding* encoding, double quality, std::optional<int> dpi) {
    diagnostics::print("saveToJpeg (quality: " + decimalText(quality) + ")");
    std::optional<Data> file = encoding ? encoding->encode(quality) : std::nullopt;
    if (!file || !dpi) return file;
    std::vector<std::uint8_t> bytes(file->bytes().begin(), file->bytes().end());
    stampDpi(bytes, *dpi);
    return Data(std::move(bytes));
}

bool saveEncoded(RepeatedEncoding* encoding, double quality, std::optional<int> dpi, const URL& url) {
    prepareDestination(url);
    const std::optional<Data> bytes = encoded(encoding, quality, dpi);
    return bytes && bytes->write(url, Data::Writing::atomically);
}

/// Null with the reason.
template <class How>
std::unique_ptr<RepeatedEncoding> jpegOf(const PexImage* image, const How& how) {
    const auto rep = image ? image->bitmapRep() : nullptr;
    if (!rep) {
        giveReason(ReasonCode::badArgument, image ? "has no bitmap" : "there is no image");
        return nullptr;
    }
    CGImageDestination::Options options;
    options.jpeg = how.options;
    options.metadata =
        how.dpi && !how.metadata.empty() ? how.metadata.withResolution(*how.dpi, *how.dpi) : how.metadata;
    return CGImageDestination::repeated(rep->cgImage(), ImageFormat::jpeg, options);
}

/// Null with the reason.
std::unique_ptr<RepeatedEncoding> fileOf(const PexImage* image, const PexImageHelper::DataWithin& how) {
    if (!image || !image->cgImage) {
        giveReason(ReasonCode::badArgument, image ? "has no bitmap" : "there is no image");
        return nullptr;
    }
    CGImageDestination::Options options;
    if (how.dpi) options.dpiWidth = options.dpiHeight = *how.dpi;
    options.metadata = how.metadata;
    return CGImageDestination::repeated(*image->cgImage, how.format, options);
}

/// What `encodingOf` makes of the image and then of ever smaller ones.
template <class EncodingOf>
std::optional<WithinBudget> fitInto(long long budget, const std::shared_ptr<PexImage>& image,
                                    const EncodingOf& encodingOf) {
    std::shared_ptr<PexImage> current;
    return BudgetSearch{.budget = budget}.run([&]() -> std::unique_ptr<RepeatedEncoding> {
        if (!current) return encodingOf((current = image).get());
        current = current->resize({.to = (current->size * budgetShrinkFactor).boundToInt()});
        return current ? encodingOf(current.get()) : nullptr;
    });
}

std::optional<WithinBudget> jpegWithin(const PexImageHelper::JpegWithin& how,
                                       const std::shared_ptr<PexImage>& image) {
    return fitInto(how.desiredSize, image, [&](const PexImage* current) { return jpegOf(current, how); });
}

} // namespace

bool PexImageHelper::saveToJpeg(const std::shared_ptr<PexImage>& image, const JpegAtQuality& how) {
    return absentWithoutMemory([&] {
        const URL* const url = destinationOf(how);
        const auto encoding = jpegOf(image.get(), how);
        return url && image && saveEncoded(encoding.get(), how.quality, how.dpi, *url);
    });
}

std::optional<Data> PexImageHelper::jpegData(const std::shared_ptr<PexImage>& image, const JpegBytes& how) {
    return absentWithoutMemory([&] { return encoded(jpegOf(image.get(), how).get(), how.quality, how.dpi); });
}

bool PexImageHelper::saveToJpeg(const std::shared_ptr<PexImage>& image, const JpegOfSize& how) {
    return absentWithoutMemory([&] {
        const URL* const url = destinationOf(how);
        const std::optional<WithinBudget> fit =
            jpegWithin({how.desiredSize, how.dpi, how.options, how.metadata}, image);
        return url && fit && saveEncoded(fit->encoding.get(), fit->quality, how.dpi, *url);
    });
}

std::optional<FittedPicture> PexImageHelper::jpegDataWithin(const std::shared_ptr<PexImage>& image,
                                                            const JpegWithin& how) {
    return absentWithoutMemory([&]() -> std::optional<FittedPicture> {
        const std::optional<WithinBudget> fit = jpegWithin(how, image);
        auto bytes = fit ? encoded(fit->encoding.get(), fit->quality, how.dpi) : std::nullopt;
        if (!bytes) return std::nullopt;
        return FittedPicture{std::move(*bytes), fit->quality, fit->encoding->size()};
    });
}

std::optional<FittedPicture> PexImageHelper::dataWithin(const std::shared_ptr<PexImage>& image,
                                                        const DataWithin& how) {
    if (how.format == ImageFormat::jpeg)
        return jpegDataWithin(image, {how.desiredSize, how.dpi, how.options, how.metadata});
    return absentWithoutMemory([&]() -> std::optional<FittedPicture> {
        const auto fit =
            fitInto(how.desiredSize, image, [&](const PexImage* current) { return fileOf(current, how); });
        auto bytes = fit ? fit->encoding->encode(fit->quality) : std::nullopt;
        if (!bytes) return std::nullopt;
        return FittedPicture{std::move(*bytes), fit->quality, fit->encoding->size()};
    });
}

bool PexImageHelper::saveToPNG(const PexImage& image, const URL& toUrl, const ImageMetadata& metadata) {
    return absentWithoutMemory([&] {
        prepareDestination(toUrl);
        const std::optional<Data> png = image.pngData({.metadata = metadata});
        return png && png->write(toUrl, Data::Writing::inPlace);
    });
}

bool PexImageHelper::saveToTIFF(const PexImage& image, const URL& toUrl, const ImageMetadata& metadata) {
    return absentWithoutMemory([&] {
        prepareDestination(toUrl);
        const std::optional<CGImage> bitmap = image.image->cgImageForProposedRect();
        if (!bitmap) return false;
        NSBitmapImageRep rep(*bitmap);
        rep.setSize(image.image->size());
        const std::optional<Data> tiff = rep.representation(ImageFormat::tiff, {.metadata = metadata});
        return tiff && tiff->write(toUrl, Data::Writing::inPlace);
    });
}

bool PexImage::saveToJpeg(const QualityToUrl& how) {
    return absentWithoutMemory([&] {
        return PexImageHelper::saveToJpeg(
            shared_from_this(), PexImageHelper::JpegAtQuality{
                                    how.quality, how.dpi, how.url, how.toUrl, how.to, {}, how.metadata});
    });
}

bool PexImage::saveToJpeg(const ToUrlOfMaxSize& how) {
    return absentWithoutMemory([&] {
        return PexImageHelper::saveToJpeg(
            shared_from_this(),
            PexImageHelper::JpegOfSize{how.maxSize, how.dpi, how.toUrl, how.to, how.url, {}, how.metadata});
    });
}

bool PexImage::saveToPNG(const URL& url) const { return PexImageHelper::saveToPNG(*this, url); }

} // namespace pex
