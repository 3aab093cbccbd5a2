// The example of the README, as an application would build it.
#include <peximage/peximage.h>

int main(int argc, char** argv) {
    if (argc < 3) return 0;
    const auto photo = pex::PexImage::make({.fastUrl = pex::URL::fromPath(argv[1])});
    if (!photo) return 1; // pex::lastReason() tells why
    const auto small = photo->resize({.withMaxSide = 2000});
    const bool saved = small && small->saveToJpeg({.toUrl = pex::URL::fromPath(argv[2]), .maxSize = 300'000});
    return saved ? 0 : 1;
}
