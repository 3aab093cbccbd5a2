#include "peximage/platform/codecs/CodecModule.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <vector>
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace {

using Module = pex::CodecModule;
using Pixels = Module::Pixels;

struct Chunk {
    std::size_t at = 0, size = 0; // of its content
};

std::uint32_t number(const std::uint8_t* bytes) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | std::uint32_t{bytes[3]} << 24;
}

} // namespace

struct pex::CodecModule::Picture {
    Module::Input input;
    Module::Header header{};
    bool isAnimated = false;
    std::vector<std::uint8_t> profile{}, exif{}, xmp{};

    std::vector<std::uint8_t> bytes(std::size_t at, std::size_t count) const {
        std::vector<std::uint8_t> read(at < input.size ? std::min(count, input.size - at) : 0);
        read.resize(input.read(input.context, at, read.data(), read.size()));
        return read;
    }
};

namespace {

using Picture = Module::Picture;

/// Calls `visit(name, chunk)` by the chunks' heads alone, until it is false.
template <class Visit>
void forEachChunk(const Picture& picture, const Visit& visit) {
    constexpr int mostChunks = 1 << 16;
    std::size_t at = 12;
    for (int i = 0; i < mostChunks; ++i) {
        std::uint8_t head[8];
        if (picture.input.read(picture.input.context, at, head, sizeof head) < sizeof head) break;
        const std::size_t size = number(head + 4);
        if (!visit(reinterpret_cast<const char*>(head), Chunk{at + 8, size})) break;
        at += 8 + size + (size & 1);
    }
}

/// The content of the first chunk of a name.
Chunk findChunk(const Picture& picture, const char* name) {
    Chunk found;
    forEachChunk(picture, [&](const char* its, const Chunk& chunk) {
        const bool isIt = std::memcmp(its, name, 4) == 0;
        if (isIt) found = chunk;
        return !isIt;
    });
    return found;
}

std::vector<std::uint8_t> chunk(const Picture& picture, const char* name, std::size_t maxBytes) {
    const Chunk found = findChunk(picture, name);
    return found.size > 0 && found.size <= maxBytes ? picture.bytes(found.at, found.size)
                                                    : std::vector<std::uint8_t>();
}

/// Of the extended format the head tells the canvas; of the others the pixels' own head does.
bool readHeader(Picture& picture) {
    constexpr std::size_t enough = 64;
    const auto start = picture.bytes(0, enough);
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(start.data(), start.size(), &features) != VP8_STATUS_OK) return false;
    picture.header.width = features.width;
    picture.header.height = features.height;
    picture.header.orientation = 0;
    picture.isAnimated = features.has_animation != 0;
    picture.header.pixels = features.has_alpha ? Pixels::rgbaStraight : Pixels::rgbx;
    return true;
}

/// How many chunks of a name there are.
int countChunks(const Picture& picture, const char* name) {
    int found = 0;
    forEachChunk(picture, [&](const char* its, const Chunk&) {
        found += std::memcmp(its, name, 4) == 0;
        return true;
    });
    return found;
}

Picture* open(const Module::Input& input, const Module::Limits& limits, Module::Header* header,
              Module::Failure* failure) {
    auto picture = std::make_unique<Picture>();
    picture->input = input;
    *failure = Module::Failure::damaged;
    if (!readHeader(*picture)) return nullptr;
    if (picture->isAnimated) picture->header.pages = std::max(1, countChunks(*picture, "ANMF"));
    *header = picture->header;
    *failure = Module::Failure::overLimit;
    if (!limits.allow(picture->header.width, picture->header.height)) return nullptr;
    picture->profile = chunk(*picture, "ICCP", limits.metadataBytes);
    picture->exif = chunk(*picture, "EXIF", limits.metadataBytes);
    picture->header.profile = picture->profile.data();
    picture->header.profileBytes = picture->profile.size();
    picture->header.exif = picture->exif.data();
    picture->header.exifBytes = picture->exif.size();
    picture->xmp = chunk(*picture, "XMP ", limits.metadataBytes);
    picture->header.xmp = picture->xmp.data();
    picture->header.xmpBytes = picture->xmp.size();
    *header = picture->header;
    return picture.release();
}

void close(Picture* picture) { delete picture; }

/// A frame, laid on the canvas with those before it.
Module::Decoded decodeFrame(const Picture& picture, const WebPData& data, std::uint8_t* pixels) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return {0, false};
    options.color_mode = MODE_RGBA;
    const std::unique_ptr<WebPAnimDecoder, decltype(&WebPAnimDecoderDelete)> decoder(
        WebPAnimDecoderNew(&data, &options), WebPAnimDecoderDelete);
    std::uint8_t* frame = nullptr;
    int time = 0;
    for (int page = 0; page <= picture.input.page; ++page) {
        if (!decoder || !WebPAnimDecoderGetNext(decoder.get(), &frame, &time)) return {0, false};
    }
    std::memcpy(pixels, frame, static_cast<std::size_t>(picture.header.width * picture.header.height * 4));
    return {picture.header.height};
}

/// The rows that came, as far as the decoder can tell.
Module::Decoded told(const Picture& picture, VP8StatusCode status, const WebPIDecoder* decoder) {
    if (status == VP8_STATUS_OK) return {picture.header.height};
    if (status == VP8_STATUS_OUT_OF_MEMORY) return {0, false, Module::Failure::outOfMemory};
    int last = 0;
    WebPIDecGetRGB(decoder, &last, nullptr, nullptr, nullptr);
    return {std::clamp<std::int64_t>(last, 0, picture.header.height), false};
}

Module::Decoded decode(Picture* picture, std::uint8_t* pixels) {
    const Module::Input& input = picture->input; // all of it in memory
    if (picture->isAnimated) return decodeFrame(*picture, {input.bytes, input.size}, pixels);
    const auto rowBytes = static_cast<std::size_t>(picture->header.width) * 4;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return {0, false};
    config.options.use_threads = 1;
    config.output.colorspace = MODE_RGBA;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = pixels;
    config.output.u.RGBA.stride = static_cast<int>(rowBytes);
    config.output.u.RGBA.size = rowBytes * static_cast<std::size_t>(picture->header.height);
    const std::unique_ptr<WebPIDecoder, decltype(&WebPIDelete)> decoder(WebPIDecode(nullptr, 0, &config),
                                                                        WebPIDelete);
    if (!decoder) return {0, false, Module::Failure::outOfMemory};
    return told(*picture, WebPIUpdate(decoder.get(), input.bytes, input.size), decoder.get());
}

int keep(const std::uint8_t* bytes, std::size_t count, const WebPPicture* picture) {
    auto& file = *static_cast<std::vector<std::uint8_t>*>(picture->custom_ptr);
    try {
        file.insert(file.end(), bytes, bytes + count);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}

Module::Failure encodePixels(const Module::Encoding& how, std::vector<std::uint8_t>& file) {
    WebPConfig config;
    WebPPicture picture;
    if (!WebPConfigInit(&config) || !WebPPictureInit(&picture)) return Module::Failure::damaged;
    config.lossless = how.quality >= 1;
    config.quality = config.lossless ? 75 : static_cast<float>(how.quality * 100);
    config.thread_level = how.threads > 1;
    picture.width = how.width;
    picture.height = how.height;
    picture.use_argb = config.lossless;
    picture.writer = keep;
    picture.custom_ptr = &file;
    const auto import = how.hasAlpha ? WebPPictureImportRGBA : WebPPictureImportRGBX;
    const bool good =
        import(&picture, how.pixels, static_cast<int>(how.bytesPerRow)) && WebPEncode(&config, &picture);
    const WebPEncodingError error = picture.error_code;
    WebPPictureFree(&picture);
    if (good) return Module::Failure::none;
    // The callback that keeps the bytes fails for lack of memory alone.
    const bool isMemory = error == VP8_ENC_ERROR_OUT_OF_MEMORY ||
                          error == VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY || error == VP8_ENC_ERROR_BAD_WRITE;
    return isMemory ? Module::Failure::outOfMemory : Module::Failure::damaged;
}

Module::Failure encode(const Module::Encoding& how, void (*write)(void*, const std::uint8_t*, std::size_t),
                       void* context) {
    if (how.width > WEBP_MAX_DIMENSION || how.height > WEBP_MAX_DIMENSION) return Module::Failure::overLimit;
    std::vector<std::uint8_t> file;
    const Module::Failure failure = encodePixels(how, file);
    if (failure != Module::Failure::none) return failure;
    if (how.profileBytes + how.exifBytes + how.xmpBytes == 0) {
        write(context, file.data(), file.size());
        return Module::Failure::none;
    }
    const WebPData picture{file.data(), file.size()}, profile{how.profile, how.profileBytes},
        exif{how.exif, how.exifBytes}, xmp{how.xmp, how.xmpBytes};
    const std::unique_ptr<WebPMux, decltype(&WebPMuxDelete)> mux(WebPMuxCreate(&picture, 0), WebPMuxDelete);
    WebPData whole{};
    const auto put = [&](const char* name, const WebPData& chunk) {
        return chunk.size == 0 || WebPMuxSetChunk(mux.get(), name, &chunk, 0) == WEBP_MUX_OK;
    };
    const bool good = mux && put("ICCP", profile) && put("EXIF", exif) && put("XMP ", xmp) &&
                      WebPMuxAssemble(mux.get(), &whole) == WEBP_MUX_OK;
    const std::unique_ptr<WebPData, decltype(&WebPDataClear)> freed(&whole, WebPDataClear);
    if (!good) return Module::Failure::outOfMemory; // a file that was just made has nothing else amiss
    write(context, whole.bytes, whole.size);
    return Module::Failure::none;
}

constexpr Module functions{open, close, decode, nullptr, encode};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
