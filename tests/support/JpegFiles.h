#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

// clang-format off: it needs what stands before it
#include <jpeglib.h>
// clang-format on

/// A file made by the codec library itself.
struct Recipe {
    J_COLOR_SPACE colors = JCS_RGB;
    int components = 3;
    std::function<void(jpeg_compress_struct&)> settings = [](jpeg_compress_struct&) {};
    std::vector<std::uint8_t> icc = {};
};

/// `row` gives the components of row y, from the top.
inline std::vector<std::uint8_t> writeJpeg(int width, int height, const Recipe& recipe,
                                           const std::function<const JSAMPLE*(int y)>& row) {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &memory, &size);
    info.image_width = static_cast<JDIMENSION>(width);
    info.image_height = static_cast<JDIMENSION>(height);
    info.input_components = recipe.components;
    info.in_color_space = recipe.colors;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 95, TRUE);
    recipe.settings(info);
    jpeg_start_compress(&info, TRUE);
    if (!recipe.icc.empty())
        jpeg_write_icc_profile(&info, recipe.icc.data(), static_cast<unsigned>(recipe.icc.size()));
    for (int y = 0; y < height; ++y) {
        JSAMPROW pointer = const_cast<JSAMPROW>(row(y)); // which is only read
        jpeg_write_scanlines(&info, &pointer, 1);
    }
    jpeg_finish_compress(&info);
    std::vector<std::uint8_t> bytes(memory, memory + size);
    std::free(memory);
    jpeg_destroy_compress(&info);
    return bytes;
}

/// `sample` gives the component c of the pixel at (x, y), rows top first.
inline std::vector<std::uint8_t> makeJpeg(int width, int height, const Recipe& recipe,
                                          const std::function<std::uint8_t(int x, int y, int c)>& sample) {
    std::vector<JSAMPLE> samples(static_cast<std::size_t>(width * recipe.components));
    return writeJpeg(width, height, recipe, [&](int y) {
        for (int i = 0; i < width * recipe.components; ++i)
            samples[static_cast<std::size_t>(i)] = sample(i / recipe.components, y, i % recipe.components);
        return samples.data();
    });
}
