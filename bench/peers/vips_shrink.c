/* What a careful C program over libvips does to fit a photo into a byte budget: decode and resize once, keep
 * the pixels in memory, and bisect for the highest quality that fits.
 *
 *     vips-shrink IN.jpg OUT.jpg MAXBYTES [MAXSIDE]
 */
#include "budget.h"

#include <vips/vips.h>

static int fail(const char* what) {
    fprintf(stderr, "vips-shrink: %s: %s\n", what, vips_error_buffer());
    return 1;
}

static VipsImage* load(const char* path, int maxSide) {
    VipsImage* lazy = NULL;
    if (maxSide > 0)
        vips_thumbnail(path, &lazy, maxSide, "height", maxSide, "size", VIPS_SIZE_DOWN, NULL);
    else
        lazy = vips_image_new_from_file(path, "access", VIPS_ACCESS_SEQUENTIAL, NULL);
    if (!lazy) return NULL;
    VipsImage* pixels = vips_image_copy_memory(lazy);
    g_object_unref(lazy);
    return pixels;
}

static struct Encoded encode(const void* picture, int quality) {
    void* bytes = NULL;
    size_t size = 0;
    vips_jpegsave_buffer((VipsImage*)picture, &bytes, &size, "Q", quality, "strip", TRUE, NULL);
    return (struct Encoded){bytes, size};
}

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        fprintf(stderr, "usage: vips-shrink IN.jpg OUT.jpg MAXBYTES [MAXSIDE]\n");
        return 2;
    }
    if (vips_init(argv[0])) return fail("starting");
    VipsImage* pixels = load(argv[1], argc == 5 ? atoi(argv[4]) : 0);
    if (!pixels) return fail(argv[1]);
    const struct Encoded best = encodeWithin(pixels, encode, strtoul(argv[3], NULL, 10));
    g_object_unref(pixels);
    if (!writeFile(argv[2], best)) return fail(argv[2]);
    free(best.bytes);
    return 0;
}
