#pragma once

#include "peximage/platform/codecs/CodecModule.h"
#include "peximage/platform/codecs/ImageCodec.h"

namespace pex {

/// Codecs whose work a module does: the core keeps the limits, turns colours and orientation, and hands over
/// plain pixels.

std::optional<OpenedImage> openByModule(const char* name, ImageFormat format, const CGDataProvider& bytes,
                                        const ImageLimits& limits, int page = 0);

/// Whether the file breaks off before its first image ends, as the module's header says.
bool breaksOffByModule(const char* name, const CGDataProvider& bytes);

/// The blocks that the module's header gives.
ImageMetadata metadataByModule(const char* name, const CGDataProvider& bytes, const ImageLimits& limits);

struct ModuleEncoding {
    const char* module;
    CodecModule::Compression compression = CodecModule::Compression::usual;
};
std::optional<Data> encodeByModule(const ModuleEncoding& how, const CGImage& image,
                                   const CGImageDestination::Options& options);

} // namespace pex
