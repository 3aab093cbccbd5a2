#include "tests/platform/codecs/jpeg/encode/EncoderReference.h"

#include "tests/support/JpegFiles.h"

#include <cmath>
#include <random>

namespace pex::jpegtest {
namespace {

template <class Value>
Picture painted(int width, int height, bool grey, Value value) {
    Picture picture(width, height, grey);
    const int channels = grey ? 1 : 4;
    std::size_t i = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                picture.bytes[i++] = static_cast<std::uint8_t>(value(x, y, c));
    return picture;
}

/// The library's own scaling works in whole per cent; this one does not round the quality.
void setTables(jpeg_compress_struct& info, double quality) {
    const double q = quality >= 0.01 ? std::fmin(quality * 100, 100) : 1;
    const double percent = q < 50 ? 5000 / q : 200 - q * 2;
    jpeg_set_quality(&info, 50, TRUE); // the tables as the standard recommends them
    for (JQUANT_TBL* table : {info.quant_tbl_ptrs[0], info.quant_tbl_ptrs[1]}) {
        for (UINT16& entry : table->quantval) {
            const double scaled = std::floor((entry * percent + 50) / 100);
            entry = static_cast<UINT16>(std::fmax(1, std::fmin(scaled, 255)));
        }
    }
}

} // namespace

Picture::Picture(int w, int h, bool isGrey) : width(w), height(h), grey(isGrey) {
    bytes.resize(bytesPerRow() * static_cast<std::size_t>(h));
}

Picture noise(int width, int height, bool grey, unsigned seed) {
    std::mt19937 random(seed);
    return painted(width, height, grey, [&](int, int, int) { return random() & 255; });
}

Picture extremes(int width, int height, bool grey) {
    std::mt19937 random(7);
    return painted(width, height, grey, [&](int, int, int) { return random() & 1 ? 255 : 0; });
}

Picture gradient(int width, int height, bool grey) {
    return painted(width, height, grey, [&](int x, int y, int c) {
        return (x * (c + 1) + y * 2) * 255 / (3 * width + 2 * height);
    });
}

Picture mixed(int width, int height, bool grey) {
    std::mt19937 random(3);
    return painted(width, height, grey, [&](int x, int y, int c) {
        const double tone = 128 + 70 * std::sin(x * 0.011 + c) + 40 * std::cos(y * 0.017 - c);
        const int edge = (x / 37 + y / 53) % 5 == 0 ? 40 : 0;
        const int grain =
            static_cast<int>(random() % static_cast<unsigned>(2 + (x + y) * 40 / (width + height)));
        return std::fmin(255, std::fmax(0, tone - edge + grain));
    });
}

jpeg::EncoderInput inputOf(const Picture& picture) {
    return {picture.width, picture.height, picture.grey,
            [&picture](int y, std::uint8_t*) { return picture.row(y); }, picture.iccProfile};
}

std::vector<std::uint8_t> reference(const Picture& picture, double quality) {
    Recipe recipe;
    recipe.colors = picture.grey ? JCS_GRAYSCALE : JCS_EXT_RGBX;
    recipe.components = picture.grey ? 1 : 4;
    recipe.icc = picture.iccProfile;
    recipe.settings = [quality](jpeg_compress_struct& info) {
        setTables(info, quality);
        info.dct_method = JDCT_ISLOW;
        if (quality >= 0.9) info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
    };
    return writeJpeg(picture.width, picture.height, recipe, [&](int y) { return picture.row(y); });
}

} // namespace pex::jpegtest
