// What our decoder makes of progressive files must be what the codec library makes of them.

#include "peximage/platform/codecs/jpeg/decode/JpegProgressiveBlocks.h"
#include "peximage/platform/foundation/Workers.h"
#include "tests/support/DecodedJpeg.h"
#include "tests/support/JpegFiles.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Script = std::vector<jpeg_scan_info>;

Recipe progressive(int across, int down, const Script& script = {}) {
    return {.settings = [=](jpeg_compress_struct& info) {
        info.comp_info[0].h_samp_factor = across;
        info.comp_info[0].v_samp_factor = down;
        if (script.empty()) return jpeg_simple_progression(&info);
        info.scan_info = script.data();
        info.num_scans = static_cast<int>(script.size());
    }};
}

/// Whether our decoder takes the file, at a scale in eighths.
bool isTaken(const Bytes& file, unsigned eighths = 8) {
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), file.size());
    jpeg_read_header(&info, TRUE);
    info.scale_num = eighths;
    info.scale_denom = 8;
    jpeg_calc_output_dimensions(&info);
    const auto blocks = pex::JpegProgressiveBlocks::decode(&info);
    jpeg_destroy_decompress(&info);
    return blocks != nullptr;
}

TEST(JpegProgressiveTest, DecodesWhatTheLibraryDecodes) {
    for (const auto& [width, height] : {std::pair{1, 1}, {8, 8}, {17, 9}, {33, 40}, {250, 190}}) {
        for (const auto& [across, down] : {std::pair{1, 1}, {2, 1}, {2, 2}, {1, 2}, {4, 1}}) {
            for (const auto& sample : {noise, extremes, smooth}) {
                const Bytes file = makeJpeg(width, height, progressive(across, down), sample);
                EXPECT_TRUE(isTaken(file) && isTaken(file, 1));
                expectSame(file, std::to_string(width) + 'x' + std::to_string(height) + ' ' +
                                     std::to_string(across) + 'x' + std::to_string(down));
            }
        }
    }
}

TEST(JpegProgressiveTest, DecodesAnyOrderOfScans) {
    const jpeg_scan_info allFirsts{3, {0, 1, 2}, 0, 0, 0, 0}, coarseFirsts{3, {0, 1, 2}, 0, 0, 0, 3};
    const auto band = [](int component, int first, int last, int known, int low) {
        return jpeg_scan_info{1, {component}, first, last, known, low};
    };
    const Script bands = {allFirsts,           band(2, 1, 63, 0, 0), band(0, 6, 63, 0, 0),
                          band(0, 1, 5, 0, 0), band(1, 1, 1, 0, 0),  band(1, 2, 63, 0, 0)};
    Script refined = {coarseFirsts};
    for (int c = 0; c < 3; ++c)
        refined.push_back(band(c, 1, 63, 0, 3));
    for (int low = 2; low >= 0; --low) {
        for (int c = 0; c < 3; ++c) {
            refined.push_back(band(c, 0, 0, low + 1, low));
            refined.push_back(band(c, 1, 63, low + 1, low));
        }
    }
    for (const Script& script : {bands, refined}) {
        for (const int threads : {1, 2, 4}) {
            const pex::Workers::Limit limit(threads);
            for (const auto& sample : {noise, extremes, smooth}) {
                const Bytes file = makeJpeg(300, 210, progressive(2, 2, script), sample);
                EXPECT_TRUE(isTaken(file));
                expectSame(file, std::to_string(script.size()) + " scans on " + std::to_string(threads));
            }
        }
    }
}

TEST(JpegProgressiveTest, LeavesUnusualFilesToTheLibrary) {
    const auto restarts = [](jpeg_compress_struct& info) {
        jpeg_simple_progression(&info);
        info.restart_interval = 5;
    };
    const Script separateFirsts = {{1, {0}, 0, 0, 0, 0},
                                   {2, {1, 2}, 0, 0, 0, 0},
                                   {1, {0}, 1, 63, 0, 0},
                                   {1, {1}, 1, 63, 0, 0},
                                   {1, {2}, 1, 63, 0, 0}};
    const Script unfinished = {{3, {0, 1, 2}, 0, 0, 0, 0}, {1, {0}, 1, 63, 0, 2}};
    for (const Recipe& recipe :
         {Recipe{.settings = restarts}, progressive(2, 2, separateFirsts), progressive(2, 2, unfinished)}) {
        const Bytes file = makeJpeg(100, 80, recipe, noise);
        EXPECT_FALSE(isTaken(file));
        expectSame(file, "unusual");
    }
    const Bytes file = makeJpeg(100, 80, progressive(1, 1), noise);
    EXPECT_FALSE(isTaken({file.begin(), file.end() - 2})) << "no end of the picture";
}

TEST(JpegProgressiveTest, GreyPicturesAndThoseOfFourColours) {
    const auto inSpace = [](J_COLOR_SPACE space) {
        return [space](jpeg_compress_struct& info) {
            jpeg_set_colorspace(&info, space);
            jpeg_simple_progression(&info);
        };
    };
    const Bytes grey = makeJpeg(203, 101, {.settings = inSpace(JCS_GRAYSCALE)}, noise);
    EXPECT_TRUE(isTaken(grey));
    expectSame(grey, "grey");
    const Recipe inks{.colors = JCS_CMYK, .components = 4, .settings = inSpace(JCS_YCCK)};
    const Bytes four = makeJpeg(203, 101, inks, noise);
    EXPECT_TRUE(isTaken(four));
    expectSame(four, "four colours", JCS_CMYK);
}

TEST(JpegProgressiveTest, DamagedFilesGiveWhatTheLibraryMakesOfThem) {
    std::mt19937 random(11);
    const Bytes plain = makeJpeg(200, 150, progressive(2, 2), noise);
    int damagedFiles = 0;
    for (int round = 0; round < 150; ++round)
        damagedFiles += expectSameOfDamaged(damaged(plain, 300, random), "round " + std::to_string(round));
    EXPECT_GT(damagedFiles, 75);
}

} // namespace
