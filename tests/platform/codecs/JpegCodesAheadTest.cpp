// What our decoder of Huffman codes makes of a file must be what the codec library makes of it.

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/JpegDecompressor.h"
#include "peximage/platform/foundation/Workers.h"
#include "tests/support/JpegFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

using pex::Data;
using pex::JpegDecompressor;
using Bytes = std::vector<std::uint8_t>;
using Settings = std::function<void(jpeg_compress_struct&)>;

struct Decoded {
    std::vector<Bytes> rows;
    bool isDamaged = false, isForLibrary = false;
};

Decoded decode(const Bytes& file, unsigned eighths, JpegDecompressor::Codes codes) {
    JpegDecompressor decoder{pex::CGDataProvider(Data(file))};
    Decoded decoded;
    if (!decoder.readHeader(1 << 20) || !decoder.start(eighths, JCS_EXT_RGBX, codes)) return decoded;
    for (unsigned y = 0; y < decoder.info().output_height; ++y) {
        Bytes row(std::size_t{decoder.info().output_width} * 4);
        JSAMPROW pointer = row.data();
        if (!decoder.readRows(&pointer, 1)) break;
        decoded.rows.push_back(std::move(row));
    }
    decoded.isDamaged = decoder.isDamaged();
    decoded.isForLibrary = decoder.isForLibrary();
    return decoded;
}

void expectSame(const Bytes& file, const std::string& what) {
    for (const unsigned eighths : {8U, 4U, 2U, 1U}) {
        const Decoded ours = decode(file, eighths, JpegDecompressor::Codes::fast);
        const Decoded theirs = decode(file, eighths, JpegDecompressor::Codes::library);
        ASSERT_FALSE(theirs.rows.empty()) << what;
        EXPECT_FALSE(ours.isForLibrary) << what << " at " << eighths;
        EXPECT_EQ(ours.rows, theirs.rows) << what << " at " << eighths;
    }
}

std::uint8_t noise(int x, int y, int c) {
    unsigned hash = static_cast<unsigned>(x) * 73856093U ^ static_cast<unsigned>(y) * 19349663U ^
                    static_cast<unsigned>(c) * 83492791U;
    hash = (hash ^ (hash >> 13)) * 1274126177U;
    return static_cast<std::uint8_t>(hash >> 24);
}
std::uint8_t extremes(int x, int y, int c) { return noise(x, y, c) < 128 ? 0 : 255; }
std::uint8_t smooth(int x, int y, int c) { return static_cast<std::uint8_t>(40 + x / 3 + y / 5 + c * 30); }

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

/// The pixels that the library's users get, and whether they are told that the picture is damaged.
Decoded read(const Bytes& file) {
    Decoded decoded;
    const auto source = pex::CGImageSource::make(Data(file));
    const auto image = source ? source->createImage() : std::nullopt;
    const auto pixels = image ? image->pixels() : std::nullopt;
    if (!pixels) return decoded;
    for (int y = 0; y < pixels->height; ++y)
        decoded.rows.emplace_back(pixels->row(y), pixels->row(y) + std::ptrdiff_t{pixels->width} * 4);
    decoded.isDamaged = image->isIncomplete();
    return decoded;
}

TEST(JpegCodesAheadTest, DamagedFilesGiveWhatTheLibraryMakesOfThem) {
    std::mt19937 random(7);
    const Bytes plain = makeJpeg(400, 300, {.settings = sampled(2, 2, 80)}, noise);
    const Bytes restarting =
        makeJpeg(400, 300, {.settings = [](auto& info) { info.restart_interval = 7; }}, smooth);
    int damaged = 0, handedOver = 0;
    for (int round = 0; round < 120; ++round) {
        Bytes file = round % 2 == 0 ? plain : restarting;
        if (round % 3 == 0) {
            file.resize(700 + random() % (file.size() - 700));
        } else {
            for (unsigned i = 0; i <= random() % 3; ++i)
                file[650 + random() % (file.size() - 650)] =
                    static_cast<std::uint8_t>(random() % 4 == 0 ? 0xFF : random());
        }
        const Decoded theirs = decode(file, 8, JpegDecompressor::Codes::library), ours = read(file);
        if (theirs.rows.empty()) continue;
        handedOver += decode(file, 8, JpegDecompressor::Codes::fast).isForLibrary;
        damaged += theirs.isDamaged;
        ASSERT_GE(ours.rows.size(), theirs.rows.size()) << round;
        EXPECT_EQ(ours.isDamaged, theirs.isDamaged) << round;
        for (std::size_t y = 0; y < theirs.rows.size(); ++y)
            ASSERT_EQ(ours.rows[y], theirs.rows[y]) << "round " << round << ", row " << y;
    }
    EXPECT_GT(damaged, 40);
    EXPECT_GT(handedOver, 40);
}

} // namespace
