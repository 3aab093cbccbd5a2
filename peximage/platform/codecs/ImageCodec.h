#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/codecs/ImageProperties.h"
#include "peximage/platform/raster/CGImage.h"
#include "peximage/platform/raster/PixelSource.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace pex {

/// The result of opening a file: its header and, if the provider holds all bytes in memory, its pixels. A
/// provider over a file is only asked for the header; `source` is null then.
struct OpenedImage {
    ImageProperties properties;
    std::shared_ptr<const PixelSource> source;
    /// The file's EXIF block, with or without JPEG's signature before it; empty when there is none.
    Data exif = {};
};

/// One file format. `open` is absent for bytes that are not such an image or break a limit; it never decodes
/// pixels. `encode` is absent when the picture cannot be held in the format, and null for a format that is
/// only read.
struct ImageCodec {
    ImageFormat format;
    bool (*sniff)(std::span<const std::uint8_t> firstBytes);
    std::optional<OpenedImage> (*open)(const CGDataProvider& bytes, const ImageLimits& limits);
    std::optional<Data> (*encode)(const CGImage& image, const CGImageDestination::Options& options);
    /// The module that does it; null where none is needed.
    const char* module = nullptr;
    /// Whether the file breaks off before its first image ends, told without decoding; null where that cannot
    /// be told.
    bool (*breaksOff)(const CGDataProvider& bytes) = nullptr;
    /// What the file says of its first image; empty when it says nothing or is broken. Null where the
    /// format's metadata are not read.
    ImageMetadata (*metadata)(const CGDataProvider& bytes, const ImageLimits& limits) = nullptr;
    /// Encodes one image at several qualities; null when that saves no work.
    std::unique_ptr<RepeatedEncoding> (*repeated)(const CGImage& image,
                                                  const CGImageDestination::Options& options) = nullptr;
    /// Opens another of the file's pictures, counted from 0, of which there are as many as `open` says. Null
    /// where a file holds one alone.
    std::optional<OpenedImage> (*openPage)(const CGDataProvider& bytes, const ImageLimits& limits,
                                           int page) = nullptr;

    /// Whether its module, if it needs one, is there.
    bool isAvailable() const;
};

/// How many first bytes `sniff` is given, where the file has as many.
inline constexpr std::size_t sniffBytes = 32;

/// The codec whose format the first bytes show; null when none does.
const ImageCodec* codecForBytes(std::span<const std::uint8_t> firstBytes);
const ImageCodec* codecForBytes(const CGDataProvider& bytes);
const ImageCodec* codecForFormat(ImageFormat format);

extern const ImageCodec jpegCodec;
extern const ImageCodec pngCodec;
extern const ImageCodec tiffCodec;
extern const ImageCodec webpCodec;
extern const ImageCodec heifCodec;
extern const ImageCodec avifCodec;
extern const ImageCodec gifCodec;
extern const ImageCodec bmpCodec;
extern const ImageCodec pdfCodec;

} // namespace pex
