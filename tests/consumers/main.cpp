// What an application does first: include the library, call it, link it.
#include <cstdio>
#include <peximage/platform/geometry/CGRect.h>
#include <peximage/platform/raster/PixelBuffer.h>

int main() {
    const pex::CGRect seen = pex::CGRect(0, 0, 40, 30).intersection({10, 20, 100, 100});
    const pex::PixelBuffer pixels =
        pex::PixelBuffer::make(static_cast<std::size_t>(seen.width() * seen.height()));
    std::printf("%zu\n", pixels.size());
    return pixels.size() == 300 ? 0 : 1;
}
