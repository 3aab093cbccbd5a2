#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/jpeg/decode/LibraryDecoder.h"
#include "peximage/platform/codecs/jpeg/decode/RowDecoder.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/CGContext.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/PictureFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <utility>

namespace pex {
namespace {

using jpeg::LibraryDecoder;
using Script = std::vector<jpeg_scan_info>;
using Info = jpeg_compress_struct;

std::uint8_t noise(int x, int y, int c) {
    unsigned hash = static_cast<unsigned>(x) * 73856093U ^ static_cast<unsigned>(y) * 19349663U ^
                    static_cast<unsigned>(c) * 83492791U;
    hash = (hash ^ (hash >> 13)) * 1274126177U;
    return static_cast<std::uint8_t>(hash >> 24);
}
std::uint8_t extremes(int x, int y, int c) { return noise(x, y, c) < 128 ? 0 : 255; }
std::uint8_t smooth(int x, int y, int c) { return static_cast<std::uint8_t>(40 + x / 3 + y / 5 + c * 30); }
std::uint8_t flat(int, int, int) { return 70; }

/// What a decoder makes of a JPEG file.
struct DecodedJpeg {
    std::vector<Bytes> rows; // R G B x, or grey
    bool isDamaged = false;
};

struct Header {
    explicit Header(const Bytes& bytes) : file(bytes), decompressor(CGDataProvider(file)) {
        isGood = decompressor.readHeader(1 << 20);
        isGrey = info().jpeg_color_space == JCS_GRAYSCALE;
        rowBytes = std::size_t{info().image_width} * (isGrey ? 1 : 4);
    }
    const jpeg_decompress_struct& info() const { return decompressor.info(); }

    Data file;
    LibraryDecoder decompressor;
    bool isGood, isGrey;
    std::size_t rowBytes;
};

/// By the codec library alone.
DecodedJpeg decodeByLibrary(const Bytes& file) {
    Header header(file);
    DecodedJpeg decoded;
    if (!header.isGood || !header.decompressor.start(header.isGrey ? JCS_GRAYSCALE : JCS_EXT_RGBX))
        return decoded;
    for (unsigned y = 0; y < header.info().image_height; ++y) {
        Bytes row(header.rowBytes);
        JSAMPROW pointer = row.data();
        if (!header.decompressor.readRows(&pointer, 1)) break;
        decoded.rows.push_back(std::move(row));
    }
    decoded.isDamaged = header.decompressor.isDamaged();
    return decoded;
}

/// By our own decoder alone: no rows when it leaves the file to the library, and fewer when it meets damage.
DecodedJpeg decodeByOurs(const Bytes& file) {
    const Header header(file);
    DecodedJpeg decoded;
    const auto decoder = header.isGood ? jpeg::RowDecoder::make(header.info(), header.file) : nullptr;
    for (unsigned y = 0; decoder && y < header.info().image_height; ++y) {
        Bytes row(header.rowBytes);
        if (decoder->read({row.data(), static_cast<int>(header.info().image_width), 1, 0,
                           header.isGrey ? PixelLayout::grey : PixelLayout::skipLast}) == 0)
            break;
        decoded.rows.push_back(std::move(row));
    }
    return decoded;
}

/// As the library's users get it, damage and all.
DecodedJpeg decodeForUsers(const Bytes& file) {
    const auto image = decoded(file);
    if (!image) return {};
    const PixelView pixels = *image->pixels();
    DecodedJpeg shown{{}, image->isIncomplete()};
    for (int y = 0; y < pixels.height; ++y)
        shown.rows.emplace_back(pixels.row(y), pixels.row(y) + pixels.width * bytesPerPixel(pixels.layout));
    return shown;
}

/// Expects that our own decoder makes the same of the file as the codec library, to the byte.
void expectSame(const Bytes& file, const std::string& what) {
    const DecodedJpeg ours = decodeByOurs(file), theirs = decodeByLibrary(file);
    ASSERT_FALSE(theirs.rows.empty()) << what;
    EXPECT_EQ(ours.rows, theirs.rows) << what;
}

/// Expects that users get the pixels that the codec library makes of a damaged file, and are told so; returns
/// whether it is damaged after all.
bool expectSameOfDamaged(const Bytes& file, const std::string& what) {
    const DecodedJpeg theirs = decodeByLibrary(file), ours = decodeForUsers(file);
    if (theirs.rows.empty()) return false;
    if (ours.rows.empty()) { // nothing is shown below the first row of blocks, and what it bleeds into
        for (std::size_t y = 33; y < theirs.rows.size(); ++y)
            EXPECT_EQ(theirs.rows[y], theirs.rows.back()) << what << ", row " << y;
        return true;
    }
    EXPECT_EQ(ours.isDamaged, theirs.isDamaged) << what;
    EXPECT_GE(ours.rows.size(), theirs.rows.size()) << what;
    for (std::size_t y = 0; y < std::min(ours.rows.size(), theirs.rows.size()); ++y) {
        EXPECT_EQ(ours.rows[y], theirs.rows[y]) << what << ", row " << y;
        if (ours.rows[y] != theirs.rows[y]) break;
    }
    return theirs.isDamaged;
}

/// The factors of the components across and down.
using Sampling = std::array<std::pair<int, int>, 3>;
constexpr Sampling samplings[] = {
    {{{1, 1}, {1, 1}, {1, 1}}}, {{{2, 1}, {1, 1}, {1, 1}}}, {{{2, 2}, {1, 1}, {1, 1}}},
    {{{1, 2}, {1, 1}, {1, 1}}}, {{{4, 1}, {1, 1}, {1, 1}}}, {{{3, 1}, {1, 1}, {1, 1}}},
    {{{1, 3}, {1, 1}, {1, 1}}}, {{{2, 4}, {1, 1}, {1, 1}}}, {{{4, 2}, {1, 1}, {1, 1}}},
    {{{1, 1}, {2, 2}, {2, 2}}}, {{{2, 2}, {1, 2}, {2, 1}}},
};

void sample(Info& info, const Sampling& sampling) {
    for (std::size_t c = 0; c < sampling.size(); ++c)
        std::tie(info.comp_info[c].h_samp_factor, info.comp_info[c].v_samp_factor) = sampling[c];
}

void inPasses(Info& info) { jpeg_simple_progression(&info); }

Recipe inScans(const Script& script) {
    return {.settings = [=](Info& info) {
        info.scan_info = script.data();
        info.num_scans = static_cast<int>(script.size());
    }};
}

TEST(RowDecoderTest, DecodesAllSamplingsAndSizes) {
    for (const Sampling& sampling : samplings) {
        for (const bool isProgressive : {false, true}) {
            for (const auto& [width, height] :
                 {std::pair{1, 1}, {4, 3}, {8, 8}, {17, 9}, {33, 40}, {250, 190}}) {
                for (const int quality : {3, 75, 100}) {
                    const auto settings = [&](Info& info) {
                        sample(info, sampling);
                        jpeg_set_quality(&info, quality, TRUE);
                        if (isProgressive) jpeg_simple_progression(&info);
                    };
                    for (const auto& picture : {noise, extremes, smooth})
                        expectSame(makeJpeg(width, height, {.settings = settings}, picture),
                                   std::to_string(&sampling - samplings) + ": " + std::to_string(width) +
                                       " wide, q" + std::to_string(quality));
                }
            }
        }
    }
}

TEST(RowDecoderTest, DecodesAllKindsFromSeveralPlacesAtOnce) {
    const std::pair<const char*, void (*)(Info&)> kinds[] = {
        {"4:2:0", [](Info&) {}},
        {"4:4:4", [](Info& info) { info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1; }},
        {"own tables", [](Info& info) { info.optimize_coding = TRUE; }},
        {"progressive", inPasses},
        // Codes that fall into step, but not always with the first block of an MCU.
        {"one pair of tables for all", [](Info& info) { jpeg_set_colorspace(&info, JCS_RGB); }},
        {"grey", [](Info& info) { jpeg_set_colorspace(&info, JCS_GRAYSCALE); }},
        // Whatever the length of a stretch is, one of them ends within a marker of the flat picture.
        {"grey, a restart after each MCU",
         [](Info& info) {
             jpeg_set_colorspace(&info, JCS_GRAYSCALE);
             info.restart_interval = 1;
         }},
        {"a restart after each MCU", [](Info& info) { info.restart_interval = 1; }},
        {"restarts within rows", [](Info& info) { info.restart_interval = 13; }},
        {"a restart after some rows", [](Info& info) { info.restart_in_rows = 11; }},
    };
    for (const auto& [what, settings] : kinds) {
        for (const auto& picture : {noise, smooth, flat}) {
            Bytes file = makeJpeg(900, 700, {.settings = settings}, picture);
            const auto rows = decodeByLibrary(file).rows;
            for (const int threads : {1, 2, 4}) {
                const Workers::Limit limit(threads);
                EXPECT_EQ(decodeByOurs(file).rows, rows) << what << " on " << threads;
            }
            const Bytes other = makeJpeg(300, 200, {}, noise);
            file.insert(file.end(), other.begin(), other.end());
            EXPECT_EQ(decodeByOurs(file).rows, rows) << what << " with another file behind it";
        }
    }
}

TEST(RowDecoderTest, DecodesTheSameOnAnyInstructionSetEvenWhatNoPictureHas) {
    const auto best = [](Info& info) { jpeg_set_quality(&info, 100, TRUE); };
    Bytes file = makeJpeg(250, 190, {.settings = best}, noise);
    kernels::onEveryInstructionSet([&] { expectSame(file, "4:2:0"); });
    const std::uint8_t tables[] = {0xFF, 0xDB};
    const auto table = std::search(file.begin(), file.end(), std::begin(tables), std::end(tables)) + 5;
    std::fill(table + 1, table + 64, std::uint8_t{199});
    kernels::onEveryInstructionSet([&] { expectSame(file, "details beyond 16 bits"); });
    *table = 255;
    EXPECT_TRUE(decodeByOurs(file).rows.empty()) << "whiter than white";
    EXPECT_EQ(decodeForUsers(file).rows, decodeByLibrary(file).rows);
}

TEST(RowDecoderTest, DecodesAnyOrderOfScans) {
    const jpeg_scan_info allFirsts{3, {0, 1, 2}, 0, 0, 0, 0}, coarseFirsts{3, {0, 1, 2}, 0, 0, 0, 3};
    const auto band = [](int component, int first, int last, int known, int low) {
        return jpeg_scan_info{1, {component}, first, last, known, low};
    };
    const Script bands = {allFirsts,           band(2, 1, 63, 0, 0), band(0, 6, 63, 0, 0),
                          band(0, 1, 5, 0, 0), band(1, 1, 1, 0, 0),  band(1, 2, 63, 0, 0)};
    Script refined = {coarseFirsts}, oneByOne = {allFirsts};
    for (int c = 0; c < 3; ++c) {
        refined.push_back(band(c, 1, 63, 0, 3));
        for (int k = 1; k <= 63; ++k)
            oneByOne.push_back(band(c, k, k, 0, 0));
    }
    for (int low = 2; low >= 0; --low) {
        for (int c = 0; c < 3; ++c) {
            refined.push_back(band(c, 0, 0, low + 1, low));
            refined.push_back(band(c, 1, 63, low + 1, low));
        }
    }
    for (const Script& script : {bands, refined, oneByOne}) {
        for (const int threads : {1, 2, 4}) {
            const Workers::Limit limit(threads);
            for (const auto& picture : {noise, extremes, smooth})
                expectSame(makeJpeg(300, 210, inScans(script), picture),
                           std::to_string(script.size()) + " scans on " + std::to_string(threads));
        }
    }
}

TEST(RowDecoderTest, LeavesUnusualFilesToTheLibrary) {
    const Script separateFirsts = {{1, {0}, 0, 0, 0, 0},
                                   {2, {1, 2}, 0, 0, 0, 0},
                                   {1, {0}, 1, 63, 0, 0},
                                   {1, {1}, 1, 63, 0, 0},
                                   {1, {2}, 1, 63, 0, 0}};
    const Script unfinished = {{3, {0, 1, 2}, 0, 0, 0, 0}, {1, {0}, 1, 63, 0, 2}};
    const Script inTurns = {{1, {0}, 0, 63, 0, 0}, {1, {1}, 0, 63, 0, 0}, {1, {2}, 0, 63, 0, 0}};
    const auto restarts = [](Info& info) {
        jpeg_simple_progression(&info);
        info.restart_interval = 5;
    };
    const auto arithmetic = [](Info& info) { info.arith_code = TRUE; };
    Bytes endless = makeJpeg(100, 80, {.settings = inPasses}, noise);
    endless.resize(endless.size() - 2);
    Bytes tooManyCodes = makeJpeg(60, 40, {}, noise);
    Bytes table = {0xFF, 0xC4, 0x01, 0x12, 0x02, 0xFF}; // of 274 bytes: 255 codes of one bit
    table.resize(table.size() + 15 + 255);
    tooManyCodes.insert(tooManyCodes.begin() + 2, table.begin(), table.end());
    expectSame(tooManyCodes, "an impossible table that nobody uses");
    for (const Bytes& file :
         {makeJpeg(100, 80, {.settings = restarts}, noise),
          makeJpeg(100, 80, {.settings = arithmetic}, noise),
          makeJpeg(100, 80, inScans(separateFirsts), noise), makeJpeg(100, 80, inScans(unfinished), noise),
          makeJpeg(100, 80, inScans(inTurns), noise), endless}) {
        EXPECT_TRUE(decodeByOurs(file).rows.empty());
        EXPECT_EQ(decodeForUsers(file).rows, decodeByLibrary(file).rows);
    }
}

/// Cuts the file, or changes some bytes, behind the first `header` ones.
Bytes damaged(Bytes file, std::size_t header, std::mt19937& random) {
    if (random() % 3 == 0) {
        file.resize(header + random() % (file.size() - header));
        return file;
    }
    for (unsigned i = 0; i <= random() % 3; ++i)
        file[header + random() % (file.size() - header)] =
            static_cast<std::uint8_t>(random() % 4 == 0 ? 0xFF : random());
    return file;
}

TEST(RowDecoderTest, DamagedFilesGiveWhatTheLibraryMakesOfThem) {
    std::mt19937 random(7);
    const Bytes files[] = {
        makeJpeg(400, 300, {}, noise),
        makeJpeg(400, 300, {.settings = [](Info& info) { info.restart_interval = 7; }}, smooth),
        makeJpeg(200, 150, {.settings = inPasses}, noise),
    };
    int damagedFiles = 0, handedOver = 0;
    for (int round = 0; round < 240; ++round) {
        const Bytes file = damaged(files[round % 3], 650, random);
        damagedFiles += expectSameOfDamaged(file, "round " + std::to_string(round));
        const std::size_t rows = decodeByOurs(file).rows.size();
        handedOver += rows > 0 && rows < 300;
    }
    EXPECT_GT(damagedFiles, 80);
    EXPECT_GT(handedOver, 40);
}

TEST(RowDecoderTest, RestartsOutOfTurnAreDamage) {
    Bytes file = makeJpeg(400, 300, {.settings = [](Info& info) { info.restart_in_rows = 1; }}, noise);
    const std::uint8_t third[] = {0xFF, 0xD2};
    auto marker = std::search(file.begin(), file.end(), std::begin(third), std::end(third));
    ASSERT_NE(marker, file.end());
    marker[1] = 0xD4;
    EXPECT_LT(decodeByOurs(file).rows.size(), 300U);
    EXPECT_TRUE(expectSameOfDamaged(file, "a wrong number"));
}

TEST(JpegReader, InkBecomesLight) {
    // Adobe's files hold inverted ink, as the codec library writes it here: 255 is none.
    const auto ink = [](int x, int, int c) {
        return static_cast<std::uint8_t>(c == 3 ? 255 - x : c == 0 ? 55 : 255);
    };
    for (const bool ycck : {false, true}) {
        Recipe recipe{.colors = JCS_CMYK, .components = 4};
        if (ycck) recipe.settings = [](auto& info) { jpeg_set_colorspace(&info, JCS_YCCK); };
        const auto image = PexImage::make(Data(makeJpeg(32, 16, recipe, ink)), {});
        ASSERT_TRUE(image);
        const Pixel pixel = pixelAt(*image->cgImage, 16, 8); // cyan 200, black 16
        EXPECT_NEAR(pixel[0], 55 * 239 / 255, 6);
        EXPECT_NEAR(pixel[1], 239, 6);
        EXPECT_NEAR(pixel[2], 239, 6);
    }
}

TEST(JpegReader, ResizedBeforeItsPixelsAreTouchedOrAfterItIsTheSame) {
    for (const std::uint16_t orientation : {1, 3, 5, 6, 8}) {
        for (const bool progressive : {false, true}) {
            Recipe recipe;
            if (progressive) recipe.settings = inPasses;
            const Data file(
                withExif(makeJpeg(200, 120, recipe, noise), exifBlock({exifShort(0x0112, orientation)})));
            for (const double side : {100, 66, 40, 12, 3}) {
                const auto touched = PexImage::make(file, {});
                ASSERT_TRUE(touched->cgImage->pixels());
                const auto expected = touched->resize({.withMaxSide = side}),
                           fresh = PexImage::make(file, {})->resize({.withMaxSide = side});
                ASSERT_EQ(fresh->size, expected->size);
                SCOPED_TRACE(side);
                expectPixels(
                    *fresh->cgImage, [&](int x, int y) { return pixelAt(*expected->cgImage, x, y); }, 1);
            }
        }
    }
}

TEST(JpegReader, ProfilesStayWithThePicture) {
    const auto icc = wideProfile(1); // linear light
    const auto image = PexImage::make(Data(makeJpeg(64, 48, {.icc = icc}, smooth)), {});
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->cgImage->colorSpace().isStandard());
    for (const auto& data : {image->jpegData(0.95), image->resize({.withMaxSide = 20})->pngData(),
                             image->resize({.withMaxSide = 32})->jpegData(0.5)}) {
        const auto again = PexImage::make(*data, {});
        const auto kept = again->cgImage->colorSpace().iccProfile().bytes();
        EXPECT_TRUE(std::equal(icc.begin(), icc.end(), kept.begin(), kept.end()));
    }
    const Data grey(makeJpeg(64, 48, {.colors = JCS_GRAYSCALE, .components = 1, .icc = icc}, smooth));
    EXPECT_EQ(CGImageSource::make(grey)->properties().profileName, std::nullopt) << "it is one for colours";
    EXPECT_EQ(PexImage::make(grey, {})->cgImage->colorSpace().model(), CGColorSpace::Model::gray);
    // Drawn into a context of sRGB the numbers change with the meaning: linear 0.25 is sRGB 0.537.
    const auto flat = PexImage::make(
        Data(makeJpeg(16, 16, {.icc = icc}, [](int, int, int) { return std::uint8_t{64}; })), {});
    const auto context = CGContext::make(16, 16, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    context->draw(*flat->cgImage, {0, 0, 16, 16});
    EXPECT_NEAR(pixelAt(*context->makeImage(), 8, 8)[1], 137, 2);
}

TEST(JpegReader, DensityGivesPoints) {
    for (const auto& [unit, density, dpi] : {std::tuple(1, 144, 144.), {2, 100, 254.}}) {
        const auto jpeg = makeJpeg(72, 36,
                                   {.settings =
                                        [unit = unit, density = density](auto& info) {
                                            info.density_unit = static_cast<UINT8>(unit);
                                            info.X_density = info.Y_density = static_cast<UINT16>(density);
                                        }},
                                   smooth);
        EXPECT_EQ(CGImageSource::make(Data(jpeg))->properties().dpiWidth, dpi);
        EXPECT_NEAR(NSImage::make(Data(jpeg))->width(), 72 * 72 / dpi, 1e-9);
    }
    EXPECT_EQ(CGImageSource::make(Data(makeJpeg(8, 8, {}, smooth)))->properties().dpiWidth, std::nullopt);
}

} // namespace
} // namespace pex
