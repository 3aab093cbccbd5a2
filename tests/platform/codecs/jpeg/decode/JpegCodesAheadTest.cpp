// What our decoder of Huffman codes makes of a file must be what the codec library makes of it.

#include "peximage/platform/foundation/Workers.h"
#include "tests/support/DecodedJpeg.h"
#include "tests/support/JpegFiles.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using pex::JpegDecompressor;
using Bytes = std::vector<std::uint8_t>;
using Settings = std::function<void(jpeg_compress_struct&)>;

Settings sampled(int horizontal, int vertical, int quality) {
    return [=](jpeg_compress_struct& info) {
        info.comp_info[0].h_samp_factor = horizontal;
        info.comp_info[0].v_samp_factor = vertical;
        jpeg_set_quality(&info, quality, TRUE);
    };
}

TEST(JpegCodesAheadTest, DecodesWhatTheLibraryDecodes) {
    for (const auto& [width, height] : {std::pair{1, 1}, {8, 8}, {17, 9}, {33, 40}, {250, 190}}) {
        for (const auto& [h, v] : {std::pair{1, 1}, {2, 1}, {2, 2}, {1, 2}, {4, 1}}) {
            for (const int quality : {3, 75, 100}) {
                const std::string what = std::to_string(width) + 'x' + std::to_string(height) + ' ' +
                                         std::to_string(h) + 'x' + std::to_string(v) + " q" +
                                         std::to_string(quality);
                const Recipe recipe{.settings = sampled(h, v, quality)};
                expectSame(makeJpeg(width, height, recipe, noise), what + " noise");
                expectSame(makeJpeg(width, height, recipe, extremes), what + " extremes");
                expectSame(makeJpeg(width, height, recipe, smooth), what + " smooth");
            }
        }
    }
}

TEST(JpegCodesAheadTest, DecodesOtherTablesRestartsAndKindsOfFile) {
    struct Kind {
        const char* what;
        void (*settings)(jpeg_compress_struct&);
    };
    const Kind kinds[] = {
        {"own tables", [](jpeg_compress_struct& info) { info.optimize_coding = TRUE; }},
        {"a restart after each MCU", [](jpeg_compress_struct& info) { info.restart_interval = 1; }},
        {"restarts by rows", [](jpeg_compress_struct& info) { info.restart_in_rows = 1; }},
        {"progressive", [](jpeg_compress_struct& info) { jpeg_simple_progression(&info); }},
        {"arithmetic codes", [](jpeg_compress_struct& info) { info.arith_code = TRUE; }},
        {"grey", [](jpeg_compress_struct& info) { jpeg_set_colorspace(&info, JCS_GRAYSCALE); }},
    };
    for (const auto& [what, settings] : kinds) {
        Recipe recipe;
        recipe.settings = settings;
        const Bytes file = makeJpeg(300, 200, recipe, noise);
        expectSame(file, what);
        const pex::Workers::Limit alone(1);
        expectSame(file, std::string(what) + ", alone");
    }
}

TEST(JpegCodesAheadTest, LargePicturesAreDecodedFromSeveralPlacesAtOnce) {
    struct Kind {
        const char* what;
        void (*settings)(jpeg_compress_struct&);
    };
    const Kind kinds[] = {
        {"4:2:0", [](jpeg_compress_struct&) {}},
        {"4:4:4", [](jpeg_compress_struct& info) { info.comp_info[0].h_samp_factor = 1; }},
        // Codes that fall into step, but not always with the first block of an MCU.
        {"one pair of tables for all",
         [](jpeg_compress_struct& info) { jpeg_set_colorspace(&info, JCS_RGB); }},
        {"grey", [](jpeg_compress_struct& info) { jpeg_set_colorspace(&info, JCS_GRAYSCALE); }},
        {"a restart after each MCU", [](jpeg_compress_struct& info) { info.restart_interval = 1; }},
        {"restarts within rows", [](jpeg_compress_struct& info) { info.restart_interval = 13; }},
        {"a restart after some rows", [](jpeg_compress_struct& info) { info.restart_in_rows = 11; }},
    };
    for (const auto& [what, settings] : kinds) {
        for (const auto& sample : {noise, smooth}) {
            Bytes file = makeJpeg(900, 700, {.settings = settings}, sample);
            for (const int threads : {1, 2, 4}) {
                const pex::Workers::Limit limit(threads);
                expectSame(file, std::string(what) + " on " + std::to_string(threads));
            }
            const Bytes other = makeJpeg(300, 200, {}, noise);
            file.insert(file.end(), other.begin(), other.end());
            expectSame(file, std::string(what) + " with another file behind it");
        }
    }
}

TEST(JpegCodesAheadTest, ImpossibleTablesThatNobodyUsesAreLeftAlone) {
    Bytes file = makeJpeg(60, 40, {}, noise);
    Bytes table = {0xFF, 0xC4, 0x01, 0x12, 0x02, 0xFF}; // of 274 bytes: 255 codes of one bit
    table.resize(table.size() + 15 + 255);
    file.insert(file.begin() + 2, table.begin(), table.end());
    expectSame(file, "a table of too many codes");
}

TEST(JpegCodesAheadTest, DamagedFilesGiveWhatTheLibraryMakesOfThem) {
    std::mt19937 random(7);
    const Bytes plain = makeJpeg(400, 300, {.settings = sampled(2, 2, 80)}, noise);
    const Bytes restarting =
        makeJpeg(400, 300, {.settings = [](auto& info) { info.restart_interval = 7; }}, smooth);
    int damagedFiles = 0, handedOver = 0;
    for (int round = 0; round < 120; ++round) {
        const Bytes file = damaged(round % 2 == 0 ? plain : restarting, 650, random);
        damagedFiles += expectSameOfDamaged(file, "round " + std::to_string(round));
        handedOver += decodeJpeg(file, 8, JpegDecompressor::Codes::fast).isForLibrary;
    }
    EXPECT_GT(damagedFiles, 40);
    EXPECT_GT(handedOver, 40);
}

} // namespace
