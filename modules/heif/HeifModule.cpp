#include "modules/heif/CodedSize.h"
#include "modules/heif/Held.h"
#include "modules/heif/Startable.h"
#include "peximage/platform/codecs/CodecModule.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <libheif/heif.h>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using Module = pex::CodecModule;
using Pixels = Module::Pixels;
using Failure = Module::Failure;

using pex::heif::Held;

/// A picture's rows, colours and alpha interleaved.
constexpr heif_channel channel = heif_channel_interleaved;

} // namespace

struct pex::CodecModule::Picture {
    Module::Input input;
    std::int64_t position = 0;
    Held<heif_context> context{};
    Held<heif_image_handle> handle{};
    Module::Limits limits{};
    Module::Header header{};
    std::vector<std::uint8_t> profile{}, exif{}, xmp{};
};

namespace {

using Picture = Module::Picture;

std::int64_t tell(void* picture) { return static_cast<Picture*>(picture)->position; }

int readBytes(void* into, std::size_t count, void* data) {
    auto& picture = *static_cast<Picture*>(data);
    const std::size_t got =
        picture.input.read(picture.input.context, static_cast<std::size_t>(picture.position),
                           static_cast<std::uint8_t*>(into), count);
    picture.position += static_cast<std::int64_t>(got);
    return got == count ? 0 : 1;
}

int seek(std::int64_t position, void* data) {
    auto& picture = *static_cast<Picture*>(data);
    if (position < 0 || static_cast<std::size_t>(position) > picture.input.size) return 1;
    picture.position = position;
    return 0;
}

heif_reader_grow_status waitFor(std::int64_t size, void* data) {
    return static_cast<std::size_t>(size) <= static_cast<Picture*>(data)->input.size
               ? heif_reader_grow_status_size_reached
               : heif_reader_grow_status_size_beyond_eof;
}

constexpr heif_reader reader{1, tell, readBytes, seek, waitFor};

void readProfile(Picture& picture, std::size_t maxBytes) {
    const auto type = heif_image_handle_get_color_profile_type(picture.handle.get());
    if (type != heif_color_profile_type_prof && type != heif_color_profile_type_rICC) return;
    const std::size_t size = heif_image_handle_get_raw_color_profile_size(picture.handle.get());
    if (size == 0 || size > maxBytes) return;
    picture.profile.resize(size);
    if (heif_image_handle_get_raw_color_profile(picture.handle.get(), picture.profile.data()).code !=
        heif_error_Ok)
        picture.profile.clear();
}

/// The block begins with the distance to its own header.
void readExif(Picture& picture, std::size_t maxBytes) {
    heif_item_id id = 0;
    if (heif_image_handle_get_list_of_metadata_block_IDs(picture.handle.get(), "Exif", &id, 1) < 1) return;
    const std::size_t size = heif_image_handle_get_metadata_size(picture.handle.get(), id);
    if (size < 4 || size > maxBytes) return;
    std::vector<std::uint8_t> block(size);
    if (heif_image_handle_get_metadata(picture.handle.get(), id, block.data()).code != heif_error_Ok) return;
    const std::size_t skipped =
        std::size_t{4} + (std::size_t{block[0]} << 24 | block[1] << 16 | block[2] << 8 | block[3]);
    if (skipped < size)
        picture.exif.assign(block.begin() + static_cast<std::ptrdiff_t>(skipped), block.end());
}

void readXmp(Picture& picture, std::size_t maxBytes) {
    constexpr int most = 16;
    heif_item_id ids[most] = {};
    heif_image_handle* handle = picture.handle.get();
    const int count = heif_image_handle_get_list_of_metadata_block_IDs(handle, "mime", ids, most);
    for (int i = 0; i < count && picture.xmp.empty(); ++i) {
        const char* type = heif_image_handle_get_metadata_content_type(handle, ids[i]);
        const std::size_t size = heif_image_handle_get_metadata_size(handle, ids[i]);
        const bool isXmp = type != nullptr && std::strcmp(type, "application/rdf+xml") == 0;
        if (!isXmp || size == 0 || size > maxBytes) continue;
        picture.xmp.resize(size);
        if (heif_image_handle_get_metadata(handle, ids[i], picture.xmp.data()).code != heif_error_Ok)
            picture.xmp.clear();
    }
}

/// What the container says of turning is done when decoding, so that EXIF's word on it does not count.
void readHeader(Picture& picture, std::size_t maxMetadataBytes) {
    heif_image_handle* handle = picture.handle.get();
    Module::Header& header = picture.header;
    header.pages = std::max(1, heif_context_get_number_of_top_level_images(picture.context.get()));
    header.width = heif_image_handle_get_width(handle);
    header.height = heif_image_handle_get_height(handle);
    header.depth = std::max(heif_image_handle_get_luma_bits_per_pixel(handle), 8);
    if (heif_image_handle_has_alpha_channel(handle))
        header.pixels = heif_image_handle_is_premultiplied_alpha(handle) ? Pixels::rgbaPremultiplied
                                                                         : Pixels::rgbaStraight;
    readProfile(picture, maxMetadataBytes);
    readExif(picture, maxMetadataBytes);
    readXmp(picture, maxMetadataBytes);
    header.profile = picture.profile.data();
    header.profileBytes = picture.profile.size();
    header.exif = picture.exif.data();
    header.exifBytes = picture.exif.size();
    header.xmp = picture.xmp.data();
    header.xmpBytes = picture.xmp.size();
}

Failure failureOf(const heif_error& error) {
    if (error.code == heif_error_Ok) return Failure::none;
    if (error.subcode == heif_suberror_Security_limit_exceeded) return Failure::overLimit;
    return error.code == heif_error_Memory_allocation_error ? Failure::outOfMemory : Failure::damaged;
}

/// Of the pictures that stand by themselves: the primary one is the first.
heif_error handleOf(heif_context* context, int page, heif_image_handle** handle) {
    if (page == 0) return heif_context_get_primary_image_handle(context, handle);
    heif_item_id primary = 0;
    const heif_error error = heif_context_get_primary_image_ID(context, &primary);
    if (error.code != heif_error_Ok) return error;
    std::vector<heif_item_id> ids(
        static_cast<std::size_t>(std::max(0, heif_context_get_number_of_top_level_images(context))));
    heif_context_get_list_of_top_level_image_IDs(context, ids.data(), static_cast<int>(ids.size()));
    std::erase(ids, primary);
    const auto wanted = static_cast<std::size_t>(page) - 1;
    return heif_context_get_image_handle(context, wanted < ids.size() ? ids[wanted] : primary, handle);
}

/// Null, and `failure` says why, where there is no picture.
heif_image_handle* openedImage(Picture& picture, Failure& failure) {
    heif_context* context = picture.context.get();
    failure = failureOf(heif_context_read_from_reader(context, &reader, &picture, nullptr));
    if (failure == Failure::none && !pex::heif::derivationsEnd(picture.input)) failure = Failure::damaged;
    if (failure != Failure::none) return nullptr;
    heif_image_handle* handle = nullptr;
    failure = failureOf(handleOf(context, picture.input.page, &handle));
    return handle;
}

Picture* open(const Module::Input& input, const Module::Limits& limits, Module::Header* header,
              Failure* failure) {
    auto picture = std::make_unique<Picture>();
    picture->input = input;
    picture->limits = limits;
    picture->context.reset(heif_context_alloc());
    *failure = Failure::outOfMemory;
    if (!picture->context) return nullptr;
    picture->handle.reset(openedImage(*picture, *failure));
    if (!picture->handle) return nullptr;
    readHeader(*picture, limits.metadataBytes);
    *header = picture->header;
    *failure = Failure::overLimit;
    if (!limits.allow(picture->header.width, picture->header.height)) return nullptr;
    // What is decoded may be cropped afterwards, is of whole blocks, and of tiles is as large as these say.
    constexpr int mostOfABlock = 63;
    const int width = heif_image_handle_get_ispe_width(picture->handle.get()),
              height = heif_image_handle_get_ispe_height(picture->handle.get());
    header->width = width;
    header->height = height;
    if (!limits.allow(width, height)) return nullptr;
    heif_context_set_maximum_image_size_limit(picture->context.get(), std::max(width, height) + mostOfABlock);
    *header = picture->header;
    return picture.release();
}

void close(Picture* picture) { delete picture; }

Module::Decoded decode(Picture* picture, std::uint8_t* pixels) {
    if (!pex::heif::canStart(pex::heif::decodersThreads)) return {0, false, Failure::noThread};
    if (!pex::heif::codedSizesFit(picture->input, picture->limits)) return {0, false};
    heif_image* decoded = nullptr;
    const Failure failure = failureOf(heif_decode_image(picture->handle.get(), &decoded, heif_colorspace_RGB,
                                                        heif_chroma_interleaved_RGBA, nullptr));
    if (failure == Failure::damaged) return {0, false};
    if (failure != Failure::none) return {0, false, failure};
    const Held<heif_image> image(decoded);
    int stride = 0;
    const std::uint8_t* from = heif_image_get_plane_readonly(image.get(), channel, &stride);
    const bool fits = heif_image_get_width(image.get(), channel) == picture->header.width &&
                      heif_image_get_height(image.get(), channel) == picture->header.height;
    if (from == nullptr || !fits) return {0, false};
    const auto rowBytes = static_cast<std::size_t>(picture->header.width) * 4;
    for (std::int64_t y = 0; y < picture->header.height; ++y)
        std::memcpy(pixels + static_cast<std::size_t>(y) * rowBytes, from + y * stride, rowBytes);
    return {picture->header.height};
}

Held<heif_image> imageOf(const Module::Encoding& how) {
    const heif_chroma chroma = how.hasAlpha  ? heif_chroma_interleaved_RGBA
                               : how.tenBits ? heif_chroma_interleaved_RRGGBB_LE
                                             : heif_chroma_interleaved_RGB;
    const int bits = how.tenBits ? 10 : 8;
    heif_image* made = nullptr;
    if (heif_image_create(how.width, how.height, heif_colorspace_RGB, chroma, &made).code != heif_error_Ok)
        return nullptr;
    Held<heif_image> image(made);
    if (heif_image_add_plane(made, channel, how.width, how.height, bits).code != heif_error_Ok)
        return nullptr;
    int stride = 0;
    std::uint8_t* to = heif_image_get_plane(made, channel, &stride);
    for (int y = 0; y < how.height; ++y) {
        const std::uint8_t* from = how.pixels + y * how.bytesPerRow;
        std::uint8_t* row = to + std::ptrdiff_t{y} * stride;
        for (int x = 0; x < how.width; ++x, from += 4) {
            for (int c = 0; c < (how.hasAlpha ? 4 : 3); ++c) {
                if (!how.tenBits) {
                    *row++ = from[c];
                    continue;
                }
                const int wide = (from[c] * 1023 + 127) / 255;
                *row++ = static_cast<std::uint8_t>(wide);
                *row++ = static_cast<std::uint8_t>(wide >> 8);
            }
        }
    }
    if (how.profileBytes > 0) heif_image_set_raw_color_profile(made, "prof", how.profile, how.profileBytes);
    return image;
}

/// In between: the encoders' own defaults take several times as long for a tenth fewer bytes.
void choosePace(heif_encoder* encoder, const Module::Encoding& how) {
    constexpr int middleSpeed = 7; // of AV1's 0 to 9
    if (how.compression == Module::Compression::usual) {
        heif_encoder_set_parameter_string(encoder, "preset", "veryfast");
        heif_encoder_set_parameter_string(encoder, "x265:pools", std::to_string(how.threads).c_str());
        heif_encoder_set_parameter_string(encoder, "x265:frame-threads", "1"); // of one picture
        return;
    }
    heif_encoder_set_parameter_integer(encoder, "speed", middleSpeed);
    heif_encoder_set_parameter_integer(encoder, "threads", std::clamp(how.threads, 1, 16));
}

struct Sink {
    void (*write)(void*, const std::uint8_t*, std::size_t);
    void* context;
};

heif_error writeBytes(heif_context*, const void* bytes, std::size_t count, void* data) {
    const Sink& sink = *static_cast<const Sink*>(data);
    try {
        sink.write(sink.context, static_cast<const std::uint8_t*>(bytes), count);
    } catch (const std::bad_alloc&) {
        return {heif_error_Memory_allocation_error, heif_suberror_Unspecified, ""};
    }
    return {heif_error_Ok, heif_suberror_Unspecified, ""};
}

bool putMetadata(heif_context* file, heif_image_handle* picture, const Module::Encoding& how) {
    const auto put = [&](auto* add, const std::uint8_t* bytes, std::size_t count) {
        return count == 0 || add(file, picture, bytes, static_cast<int>(count)).code == heif_error_Ok;
    };
    return put(heif_context_add_exif_metadata, how.exif, how.exifBytes) &&
           put(heif_context_add_XMP_metadata, how.xmp, how.xmpBytes);
}

Failure encode(const Module::Encoding& how, void (*write)(void*, const std::uint8_t*, std::size_t),
               void* context) {
    const bool isAv1 = how.compression == Module::Compression::other;
    if (isAv1 && how.tenBits) return Failure::overLimit; // the encoder of some releases aborts
    const Held<heif_context> file(heif_context_alloc());
    heif_encoder* found = nullptr;
    const auto format = isAv1 ? heif_compression_AV1 : heif_compression_HEVC;
    if (!file) return Failure::outOfMemory;
    if (!pex::heif::canStart(how.threads + pex::heif::encodersOwnThreads)) return Failure::noThread;
    Failure failure = failureOf(heif_context_get_encoder_for_format(file.get(), format, &found));
    if (failure != Failure::none) return failure;
    const Held<heif_encoder> encoder(found);
    choosePace(found, how);
    heif_encoder_set_lossy_quality(found, static_cast<int>(std::lround(how.quality * 100)));
    const Held<heif_image> image = imageOf(how);
    if (!image) return Failure::outOfMemory;
    heif_image_handle* handle = nullptr;
    failure = failureOf(heif_context_encode_image(file.get(), image.get(), found, nullptr, &handle));
    if (failure != Failure::none) return failure;
    const Held<heif_image_handle> done(handle);
    if (!putMetadata(file.get(), handle, how)) return Failure::damaged;
    heif_writer writer{1, writeBytes};
    Sink sink{write, context};
    return failureOf(heif_context_write(file.get(), &writer, &sink));
}

constexpr Module functions{open, close, decode, nullptr, encode};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
