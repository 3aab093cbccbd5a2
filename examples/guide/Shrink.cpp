// The guide's first program: fits a photo into 300 KB.
#include <cstdio>
#include <peximage/peximage.h>

int complain(const char* path) {
    std::fprintf(stderr, "%s: %s\n", path, pex::lastReason().message.c_str());
    return 1;
}

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    pex::diagnostics::setSink({}); // no lines like "quality: 0.5" on standard output
    const auto photo = pex::PexImage::make({.fastUrl = pex::URL::fromPath(argv[1])});
    if (!photo) return complain(argv[1]);
    const auto small = photo->resize({.withMaxSide = 2000});
    if (!small) return complain(argv[1]);
    const bool saved = small->saveToJpeg({.toUrl = pex::URL::fromPath(argv[2]), .maxSize = 300'000});
    return saved ? 0 : complain(argv[2]);
}
