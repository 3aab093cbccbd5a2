#include "tests/platform/codecs/jpeg/encode/EncoderReference.h"

#include "tests/support/JpegFiles.h"

#include <cmath>
#include <cstdlib>
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

/// Counts warnings; ends the test program on errors, which no file here may have.
void listen(jpeg_decompress_struct& info, jpeg_error_mgr& errors, const std::vector<std::uint8_t>& file) {
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), file.size());
    jpeg_save_markers(&info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&info, TRUE);
}

ReadFile::Component readComponent(jpeg_decompress_struct& info, jvirt_barray_ptr blocks, int index) {
    const jpeg_component_info& of = info.comp_info[index];
    ReadFile::Component component{
        static_cast<int>(of.width_in_blocks), static_cast<int>(of.height_in_blocks), {}, {}};
    component.table.assign(of.quant_table->quantval, of.quant_table->quantval + 64);
    for (JDIMENSION y = 0; y < of.height_in_blocks; ++y) {
        JBLOCKARRAY row =
            info.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&info), blocks, y, 1, FALSE);
        for (JDIMENSION x = 0; x < of.width_in_blocks; ++x)
            component.levels.insert(component.levels.end(), row[0][x], row[0][x] + 64);
    }
    return component;
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

ReadFile readFile(const std::vector<std::uint8_t>& file) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    listen(info, errors, file);
    ReadFile read;
    JOCTET* profile = nullptr;
    unsigned profileBytes = 0;
    if (jpeg_read_icc_profile(&info, &profile, &profileBytes))
        read.iccProfile.assign(profile, profile + profileBytes);
    std::free(profile);
    jvirt_barray_ptr* blocks = jpeg_read_coefficients(&info);
    read.width = static_cast<int>(info.image_width);
    read.height = static_cast<int>(info.image_height);
    read.isProgressive = info.progressive_mode;
    read.across = info.comp_info[0].h_samp_factor;
    read.down = info.comp_info[0].v_samp_factor;
    for (int c = 0; c < info.num_components; ++c)
        read.components.push_back(readComponent(info, blocks[c], c));
    jpeg_finish_decompress(&info);
    read.warnings = static_cast<int>(errors.num_warnings);
    jpeg_destroy_decompress(&info);
    return read;
}

ReadFile coefficientsOf(const Picture& picture, bool fullChroma) {
    Recipe recipe;
    recipe.colors = picture.grey ? JCS_GRAYSCALE : JCS_EXT_RGBX;
    recipe.components = picture.grey ? 1 : 4;
    recipe.settings = [fullChroma](jpeg_compress_struct& info) {
        jpeg_set_quality(&info, 100, TRUE);
        info.dct_method = JDCT_ISLOW;
        if (fullChroma) info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
    };
    return readFile(writeJpeg(picture.width, picture.height, recipe, [&](int y) { return picture.row(y); }));
}

double meanSquaredError(const Picture& picture, const std::vector<std::uint8_t>& file) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    listen(info, errors, file);
    info.out_color_space = picture.grey ? JCS_GRAYSCALE : JCS_EXT_RGBX;
    jpeg_start_decompress(&info);
    std::vector<std::uint8_t> decoded(picture.bytesPerRow());
    double sum = 0;
    for (int y = 0; y < picture.height; ++y) {
        JSAMPROW row = decoded.data();
        jpeg_read_scanlines(&info, &row, 1);
        for (std::size_t i = 0; i < decoded.size(); ++i) {
            const double off = picture.grey || i % 4 < 3 ? decoded[i] - picture.row(y)[i] : 0;
            sum += off * off;
        }
    }
    jpeg_destroy_decompress(&info);
    return sum / picture.width / picture.height / (picture.grey ? 1 : 3);
}

} // namespace pex::jpegtest
