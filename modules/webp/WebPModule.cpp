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

/// The content of the first chunk of a name, found by the chunks' heads alone.
Chunk findChunk(const Picture& picture, const char* name) {
    constexpr int mostChunks = 4096;
    std::size_t at = 12;
    for (int i = 0; i < mostChunks; ++i) {
        const auto head = picture.bytes(at, 8);
        if (head.size() < 8) break;
        const std::size_t size = number(head.data() + 4);
        if (std::memcmp(head.data(), name, 4) == 0) return {at + 8, size};
        at += 8 + size + (size & 1);
    }
    return {};
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

Picture* open(const Module::Input& input, const Module::Limits& limits, Module::Header* header) {
    auto picture = std::make_unique<Picture>();
    picture->input = input;
    if (!readHeader(*picture) || !limits.allow(picture->header.width, picture->header.height)) return nullptr;
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

/// The first frame, laid on the canvas.
std::int64_t decodeFrame(const Picture& picture, const std::vector<std::uint8_t>& file,
                         std::uint8_t* pixels) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return 0;
    options.color_mode = MODE_RGBA;
    const WebPData data{file.data(), file.size()};
    const std::unique_ptr<WebPAnimDecoder, decltype(&WebPAnimDecoderDelete)> decoder(
        WebPAnimDecoderNew(&data, &options), WebPAnimDecoderDelete);
    std::uint8_t* frame = nullptr;
    int time = 0;
    if (!decoder || !WebPAnimDecoderGetNext(decoder.get(), &frame, &time)) return 0;
    std::memcpy(pixels, frame, static_cast<std::size_t>(picture.header.width * picture.header.height * 4));
    return picture.header.height;
}

std::int64_t decode(Picture* picture, std::uint8_t* pixels) {
    const auto file = picture->bytes(0, picture->input.size);
    if (picture->isAnimated) return decodeFrame(*picture, file, pixels);
    const auto rowBytes = static_cast<std::size_t>(picture->header.width) * 4;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return 0;
    config.options.use_threads = 1;
    config.output.colorspace = MODE_RGBA;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = pixels;
    config.output.u.RGBA.stride = static_cast<int>(rowBytes);
    config.output.u.RGBA.size = rowBytes * static_cast<std::size_t>(picture->header.height);
    const std::unique_ptr<WebPIDecoder, decltype(&WebPIDelete)> decoder(WebPIDecode(nullptr, 0, &config),
                                                                        WebPIDelete);
    if (!decoder) return 0;
    const VP8StatusCode status = WebPIUpdate(decoder.get(), file.data(), file.size());
    if (status == VP8_STATUS_OK) return picture->header.height;
    int last = 0;
    WebPIDecGetRGB(decoder.get(), &last, nullptr, nullptr, nullptr);
    return std::clamp<std::int64_t>(last, 0, picture->header.height - 1);
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

std::vector<std::uint8_t> encodePixels(const Module::Encoding& how) {
    std::vector<std::uint8_t> file;
    WebPConfig config;
    WebPPicture picture;
    if (!WebPConfigInit(&config) || !WebPPictureInit(&picture)) return file;
    config.lossless = how.quality >= 1;
    config.quality = config.lossless ? 75 : static_cast<float>(how.quality * 100);
    config.thread_level = how.threads > 1;
    picture.width = how.width;
    picture.height = how.height;
    picture.use_argb = config.lossless;
    picture.writer = keep;
    picture.custom_ptr = &file;
    const auto import = how.hasAlpha ? WebPPictureImportRGBA : WebPPictureImportRGBX;
    if (!import(&picture, how.pixels, static_cast<int>(how.bytesPerRow)) || !WebPEncode(&config, &picture))
        file.clear();
    WebPPictureFree(&picture);
    return file;
}

bool encode(const Module::Encoding& how, void (*write)(void*, const std::uint8_t*, std::size_t),
            void* context) {
    if (how.width > WEBP_MAX_DIMENSION || how.height > WEBP_MAX_DIMENSION) return false;
    const std::vector<std::uint8_t> file = encodePixels(how);
    if (file.empty()) return false;
    if (how.profileBytes + how.exifBytes + how.xmpBytes == 0) {
        write(context, file.data(), file.size());
        return true;
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
    if (good) write(context, whole.bytes, whole.size);
    WebPDataClear(&whole);
    return good;
}

constexpr Module functions{open, close, decode, nullptr, encode};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
