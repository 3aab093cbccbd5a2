#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"
#include "peximage/platform/codecs/jpeg/encode/ImageEncoder.h"
#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"
#include "peximage/platform/foundation/Workers.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/PictureFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace pex {
namespace {

using namespace jpeg;
using enum PixelLayout;

std::uint8_t byte(double value) { return static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0)); }

CGImage painted(int width, int height, PixelLayout layout,
                const std::function<double(int x, int y, int c)>& value) {
    return makePicture(width, height, layout, [&](int x, int y) {
        const auto channel = [&](int c) { return byte(value(x, y, c)); };
        return layout == grey ? Pixel{channel(0)} : Pixel{channel(0), channel(1), channel(2), channel(3)};
    });
}

/// Noise of nothing but 0 and 255: the largest coefficients there are.
CGImage extremes(int width, int height, PixelLayout layout) {
    std::mt19937 random(7);
    return painted(width, height, layout, [&](int, int, int) { return random() & 1 ? 255 : 0; });
}

CGImage gradient(int width, int height, PixelLayout layout = skipLast) {
    return painted(width, height, layout, [&](int x, int y, int c) {
        return (x * (c + 1) + y * 2) * 255 / (3 * width + 2 * height);
    });
}

/// Something like a photo: smooth tones, edges, and noise that differs from place to place.
CGImage mixed(int width, int height, PixelLayout layout = skipLast) {
    std::mt19937 random(3);
    return painted(width, height, layout, [&](int x, int y, int c) {
        const double tone = 128 + 70 * std::sin(x * 0.011 + c) + 40 * std::cos(y * 0.017 - c);
        const int edge = (x / 37 + y / 53) % 5 == 0 ? 40 : 0;
        const auto most = static_cast<unsigned>(2 + (x + y) * 40 / (width + height));
        return tone - edge + static_cast<int>(random() % most);
    });
}

EncoderInput inputOf(const CGImage& picture) {
    return {picture.width(),
            picture.height(),
            picture.layout() == grey,
            [view = *picture.pixels()](int y, std::uint8_t*) { return view.row(y); },
            {}};
}

/// What the codec library reads in a file.
struct ReadFile {
    int width = 0, height = 0, warnings = 0;
    bool isProgressive = false;
    /// The sampling factor of the first component.
    int across = 0;
    Bytes iccProfile;
    /// Of each component in natural order: its table, and its blocks row by row.
    struct Component {
        std::vector<int> table, levels;
    };
    std::vector<Component> components;
};

ReadFile::Component readComponent(jpeg_decompress_struct& info, jvirt_barray_ptr blocks,
                                  const jpeg_component_info& of) {
    ReadFile::Component component;
    component.table.assign(of.quant_table->quantval, of.quant_table->quantval + 64);
    for (JDIMENSION y = 0; y < of.height_in_blocks; ++y) {
        JBLOCKARRAY row =
            info.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&info), blocks, y, 1, FALSE);
        for (JDIMENSION x = 0; x < of.width_in_blocks; ++x)
            component.levels.insert(component.levels.end(), row[0][x], row[0][x] + 64);
    }
    return component;
}

/// Ends the test program on errors, which no file here may have.
ReadFile readFile(const Bytes& file) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), file.size());
    jpeg_save_markers(&info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&info, TRUE);
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
    for (int c = 0; c < info.num_components; ++c)
        read.components.push_back(readComponent(info, blocks[c], info.comp_info[c]));
    jpeg_finish_decompress(&info);
    read.warnings = static_cast<int>(errors.num_warnings);
    jpeg_destroy_decompress(&info);
    return read;
}

/// The picture's own coefficients, in whole steps of one: as the codec library writes them with tables of
/// ones.
ReadFile coefficientsOf(const CGImage& picture, bool fullChroma) {
    const bool isGrey = picture.layout() == grey;
    const auto settings = [fullChroma](jpeg_compress_struct& info) {
        jpeg_set_quality(&info, 100, TRUE);
        info.dct_method = JDCT_ISLOW;
        if (fullChroma) info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
    };
    return readFile(writeJpeg(picture.width(), picture.height(),
                              {isGrey ? JCS_GRAYSCALE : JCS_EXT_RGBX, isGrey ? 1 : 4, settings},
                              [view = *picture.pixels()](int y) { return view.row(y); }));
}

Bytes ours(const CGImage& picture, double quality, const JpegOptions& options = {}) {
    return Encoder::make(inputOf(picture), options)->encode(quality);
}

constexpr JpegOptions allOptions[] = {{Effort::fast},
                                      {Effort::normal},
                                      {Effort::best, Chroma::half},
                                      {Effort::fast, Chroma::half, true},
                                      {Effort::normal, Chroma::full, true},
                                      {Effort::best, Chroma::half, true}};

/// Expects that the codec library reads the levels that the picture's own coefficients round to: the mean
/// tones to the nearest, the others less than 1.3 steps off.
void expectFaithful(const CGImage& picture, const Bytes& file, const std::string& label) {
    const ReadFile read = readFile(file);
    ASSERT_EQ(read.warnings, 0) << label;
    ASSERT_EQ(std::pair(read.width, read.height), std::pair(picture.width(), picture.height())) << label;
    const ReadFile exact = coefficientsOf(picture, read.across == 1 && picture.layout() != grey);
    ASSERT_EQ(read.components.size(), exact.components.size()) << label;
    for (std::size_t c = 0; c < exact.components.size(); ++c) {
        const auto &levels = read.components[c].levels, &wanted = exact.components[c].levels;
        ASSERT_EQ(levels.size(), wanted.size()) << label;
        for (std::size_t i = 0; i < levels.size(); ++i) {
            const int step = read.components[c].table[i % 64];
            const double off = std::abs(levels[i] * step - wanted[i]);
            ASSERT_LE(off, i % 64 == 0 ? (step + 1) / 2 : 1 + 1.3 * step)
                << label << ", component " << c << ", level " << i;
        }
    }
}

TEST(JpegEncoder, FilesOfEverySmallSizeHoldThePicture) {
    for (int height = 1; height <= 40; ++height) {
        for (int width = 1; width <= 40; ++width) {
            const auto seed = static_cast<unsigned>(height * 64 + width);
            const CGImage picture = seed % 3 == 0
                                        ? gradient(width, height)
                                        : noise(width, height, seed % 5 == 0 ? grey : skipLast, seed);
            const JpegOptions& options = allOptions[seed % std::size(allOptions)];
            expectFaithful(picture, ours(picture, 0.2 + 0.1 * (seed % 9), options),
                           std::to_string(width) + " x " + std::to_string(height));
        }
    }
}

TEST(JpegEncoder, FilesOfAnyContentAndQualityHoldThePicture) {
    const CGImage pictures[] = {noise(517, 301, skipLast, 1),
                                extremes(256, 250, grey),
                                extremes(333, 222, skipLast),
                                gradient(1030, 411),
                                painted(65, 3000, grey, [](int, int, int) { return 0; }),
                                mixed(1200, 801),
                                mixed(2049, 64, grey)};
    const double qualities[] = {0, 0.0101, 0.4999, 0.8125, 0.9, 0.9921875, 1, 2, -1, std::nan("")};
    for (const auto& picture : pictures) {
        for (const JpegOptions& options : allOptions) {
            const auto encoder = Encoder::make(inputOf(picture), options);
            for (const double quality : qualities)
                expectFaithful(picture, encoder->encode(quality),
                               std::to_string(picture.width()) + " at " + std::to_string(quality));
        }
    }
}

TEST(JpegEncoder, EveryInstructionSetAndThreadCountGivesTheSameFile) {
    const CGImage pictures[] = {mixed(1111, 903), mixed(500, 333, grey), noise(300, 200, skipLast, 8)};
    for (const auto& picture : pictures) {
        for (const JpegOptions& options : allOptions) {
            const Bytes expected = ours(picture, 0.8, options);
            kernels::onEveryInstructionSet([&] { EXPECT_TRUE(ours(picture, 0.8, options) == expected); });
            for (const int threads : {1, 2, 5}) {
                const Workers::Limit control(threads);
                EXPECT_TRUE(ours(picture, 0.8, options) == expected) << threads;
            }
        }
    }
}

TEST(JpegEncoder, EffortSavesBytesAndProgressiveOrderChangesNoLevel) {
    const CGImage picture = mixed(1700, 1500); // more blocks than are looked at in trying how to tell them
    for (const bool progressive : {false, true}) {
        const auto size = [&](Effort effort) {
            return ours(picture, 0.8, {effort, Chroma::automatic, progressive}).size();
        };
        EXPECT_LT(size(Effort::normal), size(Effort::fast)) << progressive;
        EXPECT_LT(size(Effort::best), size(Effort::normal)) << progressive;
    }
    const ReadFile baseline = readFile(ours(picture, 0.8)),
                   progressive = readFile(ours(picture, 0.8, {.progressive = true}));
    EXPECT_FALSE(baseline.isProgressive);
    EXPECT_TRUE(progressive.isProgressive);
    for (std::size_t c = 0; c < 3; ++c) // the same picture
        EXPECT_TRUE(progressive.components[c].levels == baseline.components[c].levels);
}

TEST(JpegEncoder, SizeAndFaithfulnessGrowWithTheQuality) {
    for (const CGImage& picture : {mixed(500, 400), mixed(400, 300, grey), noise(200, 150, skipLast, 2)}) {
        const auto encoder = Encoder::make(inputOf(picture));
        Bytes last = encoder->encode(0);
        for (double quality = 0.05; quality < 1.01; quality += 0.05) {
            Bytes next = encoder->encode(quality);
            EXPECT_GT(next.size(), last.size()) << quality;
            EXPECT_LT(difference(picture, *decoded(next)), 1.02 * difference(picture, *decoded(last)))
                << quality;
            last = std::move(next);
        }
    }
}

/// Grey, with something written far down on it in one colour.
CGImage writtenOn(int red, int blue, int height = 300) {
    return painted(400, height, skipLast, [=](int x, int y, int c) {
        const bool isWritten = y >= height - 40 && y < height - 24 && x >= 40 && x < 200 && x % 3 == 1;
        return isWritten && c == 0 ? red : isWritten && c == 2 ? blue : (x + y * 2) * 255 / 1800;
    });
}

TEST(JpegEncoder, ChromaKeepsItsSizeWhereThePictureNeedsItWhateverTheQuality) {
    const std::pair<CGImage, int> cases[] = {{writtenOn(255, 0), 1},
                                             {writtenOn(0, 255), 1},
                                             {noise(64, 64, skipLast, 1), 1},
                                             {gradient(400, 300), 2},
                                             {mixed(400, 300), 2}};
    for (const auto& [picture, doubled] : cases)
        for (const double quality : {0.1, 0.8, 0.95})
            EXPECT_EQ(readFile(ours(picture, quality)).across, doubled)
                << picture.width() << " at " << quality;
    EXPECT_EQ(readFile(ours(writtenOn(255, 0), 0.8, {.chroma = Chroma::half})).across, 2);
    EXPECT_EQ(readFile(ours(gradient(400, 300), 0.8, {.chroma = Chroma::full})).across, 1);
}

TEST(JpegEncoder, APictureIsEncodedTheSameWhileItIsDecoded) {
    for (const CGImage& picture : {mixed(33, 7), mixed(301, 777, grey), mixed(1500, 1100),
                                   writtenOn(255, 0, 700), noise(700, 300, straightLast)}) {
        const Data file = encoded(picture, ImageFormat::png);
        const CGImage untouched = *CGImageSource::make(file)->createImage();
        const CGImage touched = *CGImageSource::make(file)->createImage();
        ASSERT_TRUE(touched.pixels());
        const Bytes expected = encoderOf(touched)->encode(0.8);
        EXPECT_TRUE(encoderOf(untouched)->encode(0.8) == expected) << picture.height();
        EXPECT_TRUE(untouched.source()) << "nothing was kept";
        EXPECT_TRUE(encoderOf(untouched)->encode(0.8) == expected) << "again, " << picture.height();
        EXPECT_FALSE(untouched.source()) << "it is needed again and again";
    }
    Bytes cut = bytesOf(encoded(mixed(300, 600), ImageFormat::jpeg));
    const Bytes scan{0xFF, 0xDA, 0, 12};
    cut.erase(std::search(cut.begin(), cut.end(), scan.begin(), scan.end()) + 14, cut.end());
    EXPECT_FALSE(encoderOf(*CGImageSource::make(Data(cut))->createImage())) << "nothing is left of it";
}

TEST(JpegEncoder, EmbedsTheProfileInAsManySegmentsAsItTakes) {
    const CGImage picture = gradient(40, 30);
    const auto withProfile = [&](std::size_t bytes) {
        EncoderInput input = inputOf(picture);
        for (std::size_t i = 0; i < bytes; ++i)
            input.iccProfile.push_back(static_cast<std::uint8_t>(i * 7));
        return std::pair(input.iccProfile, Encoder::make(input)->encode(0.7));
    };
    for (const std::size_t bytes : {1u, 3144u, 65519u, 65520u, 200'000u}) {
        const auto [profile, file] = withProfile(bytes);
        EXPECT_TRUE(readFile(file).iccProfile == profile) << bytes;
    }
    EXPECT_EQ(withProfile(65519 * 255 + 1).second, ours(picture, 0.7));
}

TEST(JpegEncoder, BeginsWithAJfifSegmentWhoseDensityCanBeStamped) {
    const auto bytes = ours(gradient(20, 10), 0.8);
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 11),
              (std::vector<std::uint8_t>{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0}));
    EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin() + 13, bytes.begin() + 18),
              (std::vector<std::uint8_t>{0, 0, 1, 0, 1}));
}

TEST(JpegEncoder, RefusesSizesThatTheFormatHasNot) {
    for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {-1, 5}, {65501, 1}, {1, 65501}}) {
        EncoderInput input = inputOf(extremes(1, 1, grey));
        input.width = width;
        input.height = height;
        EXPECT_EQ(Encoder::make(input), nullptr) << width << " x " << height;
    }
    const CGImage widest = gradient(65500, 1, grey), tallest = gradient(1, 65500);
    expectFaithful(widest, ours(widest, 0.5), "widest");
    expectFaithful(tallest, ours(tallest, 0.5), "tallest");
}

TEST(JpegEncoder, SizesAreThoseOfTheFiles) {
    const CGImage picture = mixed(700, 600);
    for (const JpegOptions& options : allOptions) {
        const auto encoder = Encoder::make(inputOf(picture), options);
        for (const double quality : {0.0, 0.3, 0.75, 0.92, 1.0, 0.3}) {
            const auto size = static_cast<double>(ours(picture, quality, options).size());
            EXPECT_EQ(static_cast<double>(encoder->byteCount(quality)), size);
            EXPECT_FALSE(encoder->surelyReaches(quality, size + 1));
            if (quality == 0 || options.progressive) continue; // little but headers, other symbols
            EXPECT_NEAR(encoder->estimatedByteCount(quality, Encoder::Estimate::rough), size, 0.25 * size);
            EXPECT_NEAR(encoder->estimatedByteCount(quality, Encoder::Estimate::fine), size, 0.1 * size);
            EXPECT_EQ(encoder->surelyReaches(quality, size / 2), options.effort != Effort::best);
        }
    }
}

TEST(JpegBudgetSizes, OnlyAFewQualitiesAreEncoded) {
    const CGImage picture = mixed(1600, 1200);
    const auto encoder = Encoder::make(inputOf(picture));
    const double budget = 0.1 * picture.width() * picture.height();
    BudgetSizes sizes(encoder, budget, 0.975 * budget, 0.01);
    int encoded = 0;
    for (int i = 0; i <= 128; ++i) {
        sizes.sizeForSearch(i / 128.0);
        encoded += encoder->knowsByteCount(i / 128.0) ? 1 : 0;
    }
    EXPECT_GE(encoded, 2);
    EXPECT_LE(encoded, 4);
}

TEST(JpegBudgetSizes, AnswersGrowWithTheQualityWhateverTheBudget) {
    const CGImage picture = mixed(400, 330);
    for (const double budget : {-5.0, 0.0, 1.0, 3000.0, 1e9, std::nan("")}) {
        BudgetSizes sizes(Encoder::make(inputOf(picture)), budget, 0.975 * budget, 0.01);
        double last = -1e9;
        for (int i = 0; i <= 200; ++i) {
            const double size = sizes.sizeForSearch(i / 200.0);
            EXPECT_GE(size, last) << i << " for " << budget;
            last = size;
        }
    }
}

/// The fewest bits that codes of up to 7 bits can bring these counts to, found by trying all lengths: any
/// make a code that leaves one of the longest free when their shares of the code space stay below 1.
double fewestBits(std::span<const std::uint32_t> counts, double space = 1) {
    if (space <= 0) return INFINITY;
    double fewest = counts.empty() ? 0 : INFINITY;
    for (int length = 1; length <= 7 && !counts.empty(); ++length)
        fewest = std::min(fewest, length * double(counts[0]) +
                                      fewestBits(counts.subspan(1), space - std::ldexp(1, -length)));
    return fewest;
}

TEST(JpegOptimalCode, NoOtherLengthsTakeFewerBits) {
    std::mt19937 random(1);
    for (int round = 0; round < 60; ++round) {
        SymbolCounts counts{};
        std::vector<std::uint32_t> some(1 + random() % 6);
        double values = 0; // bits that symbols announce
        for (std::size_t i = 0; i < some.size(); ++i) {
            const std::size_t symbol = i * 41 + random() % 41;
            counts[symbol] = some[i] = static_cast<std::uint32_t>(1 + (random() % 40) * (random() % 40));
            values += some[i] * static_cast<double>(symbol % 16);
        }
        ASSERT_EQ(SymbolCodes(optimalCode(counts)).bitsOf(counts), fewestBits(some) + values) << round;
    }
}

TEST(JpegOptimalCode, StaysWithinSixteenBitsWhateverTheCounts) {
    SymbolCounts growing{}, equal{}, none{};
    double count = 1;
    for (std::size_t i = 0; i < 60; ++i, count = std::min(count * 1.6, 4e9))
        growing[i] = static_cast<std::uint32_t>(count);
    equal.fill(1'000'000);
    for (const SymbolCounts& counts : {growing, equal, none}) {
        const CodeDescription code = optimalCode(counts);
        double space = 0, codes = 0;
        for (std::size_t i = 0; i < 16; ++i) {
            space += std::ldexp(code.counts[i], -static_cast<int>(i + 1));
            codes += code.counts[i];
        }
        EXPECT_LT(space, 1) << "that of ones alone stays free";
        EXPECT_EQ(codes, code.symbols.size());
        EXPECT_EQ(std::set(code.symbols.begin(), code.symbols.end()).size(), code.symbols.size());
    }
    EXPECT_EQ(optimalCode(none).symbols, std::vector<std::uint8_t>{0});
}

} // namespace
} // namespace pex
