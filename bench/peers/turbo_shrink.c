/* What a careful C program over libjpeg-turbo alone does to fit a photo into a byte budget: decode at the
 * smallest reduced scale that is no smaller than wanted, and bisect for the highest quality that fits. It
 * cannot resize, so it serves only where a reduced scale hits the wanted size.
 *
 *     turbo-shrink IN.jpg OUT.jpg MAXBYTES [MAXSIDE]
 */
#include "budget.h"

#include <jpeglib.h>

struct Picture {
    JDIMENSION width, height;
    unsigned char* pixels;
};

static int fail(const char* what) {
    fprintf(stderr, "turbo-shrink: %s\n", what);
    return 1;
}

static void chooseScale(struct jpeg_decompress_struct* reader, JDIMENSION maxSide) {
    reader->scale_denom = 8;
    for (reader->scale_num = 1; reader->scale_num < 8; ++reader->scale_num) {
        jpeg_calc_output_dimensions(reader);
        const JDIMENSION width = reader->output_width, height = reader->output_height;
        if ((width > height ? width : height) >= maxSide) return;
    }
}

static struct Picture load(FILE* file, JDIMENSION maxSide) {
    struct jpeg_decompress_struct reader;
    struct jpeg_error_mgr errors;
    reader.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&reader);
    jpeg_stdio_src(&reader, file);
    jpeg_read_header(&reader, TRUE);
    reader.out_color_space = JCS_RGB;
    if (maxSide > 0) chooseScale(&reader, maxSide);
    jpeg_start_decompress(&reader);
    struct Picture picture = {reader.output_width, reader.output_height, NULL};
    const size_t rowBytes = (size_t)picture.width * 3;
    picture.pixels = malloc(rowBytes * picture.height);
    while (picture.pixels && reader.output_scanline < reader.output_height) {
        JSAMPROW row = picture.pixels + rowBytes * reader.output_scanline;
        jpeg_read_scanlines(&reader, &row, 1);
    }
    jpeg_destroy_decompress(&reader);
    return picture;
}

static struct Encoded encode(const void* pixels, int quality) {
    const struct Picture* picture = pixels;
    struct jpeg_compress_struct writer;
    struct jpeg_error_mgr errors;
    struct Encoded jpeg = {NULL, 0};
    writer.err = jpeg_std_error(&errors);
    jpeg_create_compress(&writer);
    jpeg_mem_dest(&writer, &jpeg.bytes, &jpeg.size);
    writer.image_width = picture->width;
    writer.image_height = picture->height;
    writer.input_components = 3;
    writer.in_color_space = JCS_RGB;
    jpeg_set_defaults(&writer);
    jpeg_set_quality(&writer, quality, TRUE);
    jpeg_start_compress(&writer, TRUE);
    while (writer.next_scanline < writer.image_height) {
        JSAMPROW row = picture->pixels + (size_t)picture->width * 3 * writer.next_scanline;
        jpeg_write_scanlines(&writer, &row, 1);
    }
    jpeg_finish_compress(&writer);
    jpeg_destroy_compress(&writer);
    return jpeg;
}

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        fprintf(stderr, "usage: turbo-shrink IN.jpg OUT.jpg MAXBYTES [MAXSIDE]\n");
        return 2;
    }
    FILE* in = fopen(argv[1], "rb");
    if (!in) return fail(argv[1]);
    const struct Picture picture = load(in, argc == 5 ? (JDIMENSION)atoi(argv[4]) : 0);
    fclose(in);
    if (!picture.pixels) return fail("not enough memory");
    const struct Encoded best = encodeWithin(&picture, encode, strtoul(argv[3], NULL, 10));
    free(picture.pixels);
    if (!writeFile(argv[2], best)) return fail(argv[2]);
    free(best.bytes);
    return 0;
}
