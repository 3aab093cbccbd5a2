/* What the peers' programs have in common: the bisection over whole qualities, and writing the file. */
#ifndef BUDGET_H
#define BUDGET_H

#include <stdio.h>
#include <stdlib.h>

struct Encoded {
    unsigned char* bytes; /* from malloc */
    unsigned long size;
};

typedef struct Encoded (*Encoder)(const void* picture, int quality);

/* The file of the highest quality that fits; nothing when even quality 1 does not. */
static inline struct Encoded encodeWithin(const void* picture, Encoder encode, unsigned long maxBytes) {
    struct Encoded best = {NULL, 0};
    int low = 1, high = 100;
    while (low <= high) {
        const int quality = (low + high) / 2;
        const struct Encoded tried = encode(picture, quality);
        if (tried.bytes && tried.size <= maxBytes) {
            free(best.bytes);
            best = tried;
            low = quality + 1;
        } else {
            free(tried.bytes);
            high = quality - 1;
        }
    }
    return best;
}

static inline int writeFile(const char* path, struct Encoded jpeg) {
    FILE* out = jpeg.bytes ? fopen(path, "wb") : NULL;
    if (!out) return 0;
    const size_t written = fwrite(jpeg.bytes, 1, jpeg.size, out);
    return fclose(out) == 0 && written == jpeg.size;
}

#endif
