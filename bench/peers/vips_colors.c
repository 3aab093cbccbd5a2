/* What a C program over libvips does to tell a photo's average colour and a grid of its colours: one small
 * thumbnail, decoded at a reduced size, whose pixels it prints, and their mean.
 *
 *     vips-colors IN.jpg COLUMNS ROWS
 */
#include <stdio.h>
#include <stdlib.h>
#include <vips/vips.h>

static int fail(const char* what) {
    fprintf(stderr, "vips-colors: %s: %s\n", what, vips_error_buffer());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: vips-colors IN.jpg COLUMNS ROWS\n");
        return 2;
    }
    if (vips_init(argv[0])) return fail("starting");
    const int columns = atoi(argv[2]), rows = atoi(argv[3]);
    VipsImage* grid = NULL;
    if (vips_thumbnail(argv[1], &grid, columns, "height", rows, "size", VIPS_SIZE_FORCE, NULL))
        return fail(argv[1]);
    size_t size = 0;
    unsigned char* pixels = vips_image_write_to_memory(grid, &size);
    if (!pixels || size != (size_t)columns * rows * 3) return fail(argv[1]);
    double sums[3] = {0, 0, 0};
    for (size_t i = 0; i < size; i += 3) {
        printf("#%02x%02x%02x\n", pixels[i], pixels[i + 1], pixels[i + 2]);
        for (int c = 0; c < 3; ++c)
            sums[c] += pixels[i + c];
    }
    const double count = (double)size / 3;
    printf("%.1f %.1f %.1f\n", sums[0] / count, sums[1] / count, sums[2] / count);
    g_free(pixels);
    g_object_unref(grid);
    return 0;
}
