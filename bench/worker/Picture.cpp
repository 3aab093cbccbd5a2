#include "bench/worker/Picture.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace bench {

Picture withChannels(const Picture& picture, int channels) {
    Picture result(picture.width, picture.height, channels);
    const int shared = std::min(channels, picture.channels);
    const std::size_t pixels = std::size_t(picture.width) * std::size_t(picture.height);
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint8_t* from = &picture.bytes[i * std::size_t(picture.channels)];
        std::copy_n(from, shared, &result.bytes[i * std::size_t(channels)]);
    }
    return result;
}

Picture readPpm(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string magic;
    int width = 0, height = 0, largest = 0;
    file >> magic >> width >> height >> largest;
    file.get();
    if (!file || magic != "P6" || largest != 255) throw std::runtime_error(path + ": no PPM");
    Picture picture(width, height, 3);
    file.read(reinterpret_cast<char*>(picture.bytes.data()), std::streamsize(picture.bytes.size()));
    if (!file) throw std::runtime_error(path + ": cut short");
    return picture;
}

void writePpm(const Picture& picture, const std::string& path) {
    const Picture rgb = withChannels(picture, 3);
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << rgb.width << ' ' << rgb.height << "\n255\n";
    file.write(reinterpret_cast<const char*>(rgb.bytes.data()), std::streamsize(rgb.bytes.size()));
    if (!file.flush()) throw std::runtime_error(path + ": cannot be written");
}

std::vector<std::uint8_t> readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace bench
