#include "tests/support/HeifFiles.h"

#include "modules/heif/Held.h"

#include <algorithm>
#include <libheif/heif.h>
#include <memory>
#include <stdexcept>

namespace {

using pex::heif::Held;

void check(const heif_error& error) {
    if (error.code != heif_error_Ok) throw std::runtime_error(error.message);
}

Held<heif_image> imageOf(const pex::CGImage& picture) {
    heif_image* made = nullptr;
    check(heif_image_create(picture.width(), picture.height(), heif_colorspace_RGB,
                            heif_chroma_interleaved_RGB, &made));
    Held<heif_image> image(made);
    check(heif_image_add_plane(made, heif_channel_interleaved, picture.width(), picture.height(), 8));
    int stride = 0;
    std::uint8_t* rows = heif_image_get_plane(made, heif_channel_interleaved, &stride);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x)
            std::copy_n(pixelAt(picture, x, y).begin(), 3, rows + y * stride + 3 * x);
    }
    return image;
}

heif_error keep(heif_context*, const void* bytes, std::size_t count, void* file) {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    static_cast<std::vector<std::uint8_t>*>(file)->assign(first, first + count);
    return {heif_error_Ok, heif_suberror_Unspecified, ""};
}

} // namespace

std::vector<std::uint8_t> heifFile(const pex::CGImage& picture, const HeifKind& kind) {
    const Held<heif_context> context(heif_context_alloc());
    heif_encoder* found = nullptr;
    check(heif_context_get_encoder_for_format(
        context.get(), kind.av1 ? heif_compression_AV1 : heif_compression_HEVC, &found));
    const Held<heif_encoder> encoder(found);
    const Held<heif_encoding_options> options(heif_encoding_options_alloc());
    options->image_orientation = static_cast<heif_orientation>(kind.turned);
    heif_image_handle* handle = nullptr;
    check(heif_context_encode_image(context.get(), imageOf(picture).get(), found, options.get(), &handle));
    const Held<heif_image_handle> made(handle);
    if (!kind.exif.empty())
        check(heif_context_add_exif_metadata(context.get(), handle, kind.exif.data(),
                                             static_cast<int>(kind.exif.size())));
    heif_writer writer{1, keep};
    std::vector<std::uint8_t> file;
    check(heif_context_write(context.get(), &writer, &file));
    return file;
}
