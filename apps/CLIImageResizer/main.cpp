// CLIImageResizer SOURCE DESTINATION MAXSIZE: reduces an image so that its longer side has at most MAXSIZE
// pixels, writes it in the format of the destination's extension, and prints DONE.
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/foundation/Diagnostics.h"

#include <charconv>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr int maxPixels = 1 << 30;

std::optional<int> parseSide(std::string_view text) {
    int side = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), side);
    const bool good = error == std::errc() && end == text.data() + text.size();
    return good && side >= 1 && side <= maxPixels ? std::optional(side) : std::nullopt;
}

/// Empty when all went well.
std::string resize(const std::string& source, const std::string& destination, std::string_view maxSize) {
    const std::optional<int> side = parseSide(maxSize);
    if (!side) return std::string(maxSize) + " is no size in pixels";
    const pex::URL target = pex::URL::fromPath(destination);
    const auto format = pex::imageFormatForExtension(target.pathExtension());
    if (!format || !pex::CGImageDestination::writes(*format))
        return destination + " has the extension of no format that can be written";
    const auto image = pex::PexImage::make({.fastUrl = pex::URL::fromPath(source)});
    if (!image) return source + " is not an image";
    const auto resized = image->resize({.withMaxSide = *side});
    const auto bytes = resized && resized->cgImage
                           ? pex::CGImageDestination::encode(*resized->cgImage, *format, {})
                           : std::nullopt;
    if (!bytes) return source + " cannot be resized";
    return bytes->write(target, pex::Data::Writing::atomically) ? "" : destination + " cannot be written";
}

} // namespace

int main(int argc, char** argv) {
    pex::diagnostics::setSink({});
    if (argc != 4) {
        std::cout << "usage: CLIImageResizer SOURCE DESTINATION MAXSIZE\n";
        return 2;
    }
    const std::string problem = resize(argv[1], argv[2], argv[3]);
    std::cout << (problem.empty() ? "DONE" : problem + ".") << '\n';
    return problem.empty() ? 0 : 1;
}
