#include "bench/worker/PlainCodecs.h"

#include <jpeglib.h>
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace bench {
namespace {

J_COLOR_SPACE colours(int channels) { return channels == 4 ? JCS_EXT_RGBX : JCS_RGB; }

} // namespace

Picture decodeJpeg(std::span<const std::uint8_t> jpeg, int eighths, int channels) {
    jpeg_decompress_struct reader{};
    jpeg_error_mgr errors{};
    reader.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&reader);
    jpeg_mem_src(&reader, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    jpeg_read_header(&reader, TRUE);
    reader.out_color_space = colours(channels);
    reader.scale_num = static_cast<unsigned>(eighths);
    reader.scale_denom = 8;
    jpeg_start_decompress(&reader);
    Picture picture(static_cast<int>(reader.output_width), static_cast<int>(reader.output_height), channels);
    while (reader.output_scanline < reader.output_height) {
        JSAMPROW row = picture.row(static_cast<int>(reader.output_scanline));
        jpeg_read_scanlines(&reader, &row, 1);
    }
    jpeg_finish_decompress(&reader);
    jpeg_destroy_decompress(&reader);
    return picture;
}

std::size_t encodeJpeg(const Picture& picture, int quality) {
    jpeg_compress_struct writer{};
    jpeg_error_mgr errors{};
    writer.err = jpeg_std_error(&errors);
    jpeg_create_compress(&writer);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&writer, &bytes, &size);
    writer.image_width = static_cast<JDIMENSION>(picture.width);
    writer.image_height = static_cast<JDIMENSION>(picture.height);
    writer.input_components = picture.channels;
    writer.in_color_space = colours(picture.channels);
    jpeg_set_defaults(&writer);
    jpeg_set_quality(&writer, quality, TRUE);
    jpeg_start_compress(&writer, TRUE);
    while (writer.next_scanline < writer.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(picture.row(static_cast<int>(writer.next_scanline)));
        jpeg_write_scanlines(&writer, &row, 1);
    }
    jpeg_finish_compress(&writer);
    jpeg_destroy_compress(&writer);
    std::free(bytes);
    return size;
}

Picture decodePng(std::span<const std::uint8_t> png, int channels) {
    png_image reader{};
    reader.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&reader, png.data(), png.size()))
        throw std::runtime_error(reader.message);
    reader.format = channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    Picture picture(static_cast<int>(reader.width), static_cast<int>(reader.height), channels);
    if (!png_image_finish_read(&reader, nullptr, picture.bytes.data(), 0, nullptr))
        throw std::runtime_error(reader.message);
    return picture;
}

std::size_t encodePng(const Picture& picture) {
    std::vector<std::uint8_t> file;
    png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(writer);
    const auto append = [](png_structp png, png_bytep bytes, png_size_t count) {
        auto* to = static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(png));
        to->insert(to->end(), bytes, bytes + count);
    };
    png_set_write_fn(writer, &file, append, nullptr);
    png_set_IHDR(writer, info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(writer, info);
    if (picture.channels == 4) png_set_filler(writer, 0, PNG_FILLER_AFTER);
    for (int y = 0; y < picture.height; ++y)
        png_write_row(writer, picture.row(y));
    png_write_end(writer, nullptr);
    png_destroy_write_struct(&writer, &info);
    return file.size();
}

} // namespace bench
