// Encodes one picture with tables and rounding that are given to it, for the search for good ones.
//
//   jpeg-trial PICTURE.ppm [best]
//
// Reads lines of words from standard input: the file to write, three numbers of `Rounding`, 64 entries of
// each of the tables of Y, Cb and Cr in natural order. Answers each with the file's size.
#include "peximage/platform/codecs/jpeg/encode/Encoder.h"
#include "peximage/platform/raster/kernels/JpegDct.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgbx;
};

Picture readPpm(const char* path) {
    std::ifstream file(path, std::ios::binary);
    std::string magic;
    int most = 0;
    Picture picture;
    file >> magic >> picture.width >> picture.height >> most;
    file.get();
    if (!file || magic != "P6" || most != 255) return {};
    picture.rgbx.resize(std::size_t{4} * static_cast<std::size_t>(picture.width * picture.height));
    for (std::size_t i = 0; i < picture.rgbx.size(); ++i)
        picture.rgbx[i] = i % 4 < 3 ? static_cast<std::uint8_t>(file.get()) : 0;
    return file ? picture : Picture();
}

bool readTable(std::istream& words, pex::jpeg::QuantTable& table) {
    double natural[64];
    for (double& entry : natural)
        words >> entry;
    for (std::size_t k = 0; k < 64; ++k)
        table[k] = static_cast<std::uint8_t>(std::clamp(natural[pex::kernels::zigzag[k]], 1.0, 255.0));
    return !words.fail();
}

} // namespace

int main(int argc, char** argv) {
    const Picture picture = argc > 1 ? readPpm(argv[1]) : Picture();
    const auto row = [&](int y, std::uint8_t*) {
        return picture.rgbx.data() + std::ptrdiff_t{4} * picture.width * y;
    };
    const auto encoder = pex::jpeg::Encoder::make({picture.width, picture.height, false, row, {}, {}},
                                                  {argc > 2 ? pex::Effort::best : pex::Effort::normal});
    if (!encoder) return 1;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string path;
        pex::jpeg::Quantisation how;
        words >> path >> how.rounding.deadZone >> how.rounding.roundUp >> how.rounding.bitWorth;
        if (!readTable(words, how.luma) || !readTable(words, how.cb) || !readTable(words, how.cr)) return 1;
        const auto bytes = encoder->encode(how);
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        std::cout << bytes.size() << std::endl;
    }
}
