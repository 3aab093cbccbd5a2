#include "peximage/platform/codecs/ImageCodec.h"
#include "tests/platform/codecs/PngFiles.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <zlib.h>

using namespace pex;
using namespace pex::pngtest;

namespace {

std::optional<OpenedImage> open(const Bytes& file, const ImageLimits& limits = {}) {
    return pngCodec.open(CGDataProvider(Data(file)), limits);
}

Bytes smallPicture(int width = 3, int height = 2) {
    File file;
    file.width = width;
    file.height = height;
    return write(randomSamples(file));
}

/// The picture that only says its size: no pixels behind it but `data`.
Bytes headerOnly(std::uint32_t width, std::uint32_t height, const Bytes& data, std::uint8_t colourType = 2) {
    const Bytes signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    const Bytes header = bigEndian(width) + bigEndian(height) + Bytes{8, colourType, 0, 0, 0};
    return signature + chunk("IHDR", header) + chunk("IDAT", data) + chunk("IEND", {});
}

Bytes profileChunk(const Bytes& profile) {
    uLongf size = compressBound(profile.size());
    Bytes packed(size);
    compress(packed.data(), &size, profile.data(), profile.size());
    packed.resize(size);
    return Bytes{'p', 0, 0} + packed;
}

void expectSamples(const Samples& samples, const CGImage& image) {
    EXPECT_FALSE(image.isIncomplete());
    expectPixels(image, [&](int x, int y) {
        auto wanted = expectedPixel(samples, x, y);
        wanted.resize(image.layout() == PixelLayout::grey ? 1 : 4);
        return wanted;
    });
}

PixelLayout layoutOf(const File& file) {
    if (file.transparency || (file.colourType & PNG_COLOR_MASK_ALPHA) != 0) return PixelLayout::straightLast;
    return file.colourType == PNG_COLOR_TYPE_GRAY ? PixelLayout::grey : PixelLayout::skipLast;
}

struct Type {
    int colourType;
    std::vector<int> depths;
};

const std::vector<Type> types{{PNG_COLOR_TYPE_GRAY, {1, 2, 4, 8, 16}},
                              {PNG_COLOR_TYPE_RGB, {8, 16}},
                              {PNG_COLOR_TYPE_PALETTE, {1, 2, 4, 8}},
                              {PNG_COLOR_TYPE_GRAY_ALPHA, {8, 16}},
                              {PNG_COLOR_TYPE_RGB_ALPHA, {8, 16}}};

void expectEveryDepth(const Type& type, bool interlaced, bool transparency) {
    for (const int depth : type.depths) {
        const File file{13, 11, type.colourType, depth, interlaced, transparency, 7};
        SCOPED_TRACE(testing::Message() << "type " << type.colourType << " depth " << depth << " interlaced "
                                        << interlaced << " transparency " << transparency);
        const Samples samples = randomSamples(file);
        const auto opened = open(write(samples));
        ASSERT_TRUE(opened && opened->source);
        EXPECT_EQ(opened->properties.depth, type.colourType == PNG_COLOR_TYPE_PALETTE ? 8 : depth);
        EXPECT_EQ(opened->properties.hasAlpha, hasAlpha(layoutOf(file)));
        EXPECT_EQ(opened->source->layout(), layoutOf(file));
        EXPECT_EQ(opened->source->rows({13, 11}) == nullptr, interlaced);
        expectSamples(samples, CGImage::make(opened->source));
    }
}

} // namespace

TEST(PngReader, readsEveryColourTypeDepthAndInterlacing) {
    for (const Type& type : types) {
        for (const bool interlaced : {false, true}) {
            expectEveryDepth(type, interlaced, false);
            if ((type.colourType & PNG_COLOR_MASK_ALPHA) == 0) expectEveryDepth(type, interlaced, true);
        }
    }
}

TEST(PngReader, readsDensityAndOrientation) {
    const Bytes exif{'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0};
    const Bytes density = bigEndian(11811) + bigEndian(1000) + Bytes{1};
    const auto opened = open(withChunks(smallPicture(), {{"pHYs", density}, {"eXIf", exif}}));
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->properties.dpiWidth, 300);
    EXPECT_DOUBLE_EQ(opened->properties.dpiHeight.value_or(0), 25.4);
    EXPECT_EQ(opened->properties.orientation, Orientation::right);

    for (const Bytes& none :
         {bigEndian(2) + bigEndian(1) + Bytes{0}, bigEndian(0) + bigEndian(1) + Bytes{1}}) {
        const auto ratio = open(withChunks(smallPicture(), {{"pHYs", none}}));
        ASSERT_TRUE(ratio);
        EXPECT_FALSE(ratio->properties.dpiWidth);
        EXPECT_FALSE(ratio->properties.dpiHeight);
    }
}

TEST(PngReader, keepsProfilesThatFitThePictureAndTheLimit) {
    const Bytes wide = wideProfile();
    const Bytes file = withChunks(smallPicture(), {{"iCCP", profileChunk(wide)}});
    const auto opened = open(file);
    ASSERT_TRUE(opened && opened->source);
    EXPECT_TRUE(opened->properties.profileName);
    EXPECT_EQ(opened->source->colorSpace().iccProfile(), Data(wide));

    const auto mismatched = open(withChunks(smallPicture(), {{"iCCP", profileChunk(grayProfile(1.8))}}));
    ASSERT_TRUE(mismatched && mismatched->source);
    EXPECT_TRUE(mismatched->source->colorSpace().isStandard());
}

TEST(PngReader, survivesProfilesThatUnpackToGigabytes) {
    Bytes huge(std::size_t{40} << 20);
    std::copy_n(bigEndian(static_cast<std::uint32_t>(huge.size())).begin(), 4, huge.begin());
    const auto opened = open(withChunks(smallPicture(), {{"iCCP", profileChunk(huge)}}));
    ASSERT_TRUE(opened && opened->source);
    EXPECT_FALSE(opened->properties.profileName);
    EXPECT_FALSE(CGImage::make(opened->source).isIncomplete());
}

TEST(PngReader, turnsAGreyProfileIntoOneOfColoursWhereAlphaNeedsThem) {
    File file;
    file.colourType = PNG_COLOR_TYPE_GRAY_ALPHA;
    const auto opened =
        open(withChunks(write(randomSamples(file)), {{"iCCP", profileChunk(grayProfile(1.8))}}));
    ASSERT_TRUE(opened && opened->source);
    const CGColorSpace space = opened->source->colorSpace();
    EXPECT_EQ(space.model(), CGColorSpace::Model::rgb);
    EXPECT_FALSE(space.isStandard());
}

TEST(PngReader, takesGammaAndPrimariesForAProfileUnlessTheyAreOfSRGB) {
    const Bytes usual = bigEndian(45455), linear = bigEndian(100000);
    const auto primaries = [](std::vector<std::uint32_t> values) {
        Bytes bytes;
        for (const std::uint32_t value : values)
            bytes = bytes + bigEndian(value);
        return bytes;
    };
    const Bytes srgb = primaries({31270, 32900, 64000, 33000, 30000, 60000, 15000, 6000});
    const Bytes wide = primaries({31270, 32900, 68000, 32000, 26500, 69000, 15000, 6000});
    using Chunks = std::vector<std::pair<std::string_view, Bytes>>;
    const std::vector<std::pair<Chunks, bool>> cases{
        {{{"gAMA", usual}}, true},
        {{{"gAMA", usual}, {"cHRM", srgb}}, true},
        {{{"gAMA", linear}}, false},
        {{{"gAMA", usual}, {"cHRM", wide}}, false},
        {{{"sRGB", {0}}, {"gAMA", usual}, {"cHRM", srgb}}, true},
    };
    for (const auto& [chunks, standard] : cases) {
        const auto opened = open(withChunks(smallPicture(), chunks));
        ASSERT_TRUE(opened && opened->source);
        EXPECT_EQ(opened->source->colorSpace().isStandard(), standard) << (&chunks - &cases[0].first);
        EXPECT_FALSE(opened->properties.profileName);
    }
}

TEST(PngReader, readsOnlyTheHeaderOfAFile) {
    const TempFolder folder;
    const URL url = folder.url("big.png");
    const Bytes file = smallPicture(300, 300); // noise: 270 KB
    ASSERT_TRUE(Data(file).write(url, Data::Writing::inPlace));
    const auto provider = CGDataProvider::open(url);
    ASSERT_TRUE(provider);
    const auto opened = pngCodec.open(*provider, {});
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->properties.pixelWidth, 300);
    EXPECT_EQ(opened->source, nullptr);
    EXPECT_LT(provider->bytesRead(), 500U); // and the heads of 34 chunks, in search of EXIF
}

TEST(PngReader, tellsDamageInThePixels) {
    const Bytes whole = smallPicture(40, 40);
    Bytes checksum = whole, stream = whole;
    checksum[whole.size() - 13] ^= 1; // the last byte of IDAT's
    stream[whole.size() / 2] ^= 0x55;
    for (const Bytes& file : {checksum, stream}) {
        const auto opened = open(file);
        ASSERT_TRUE(opened && opened->source);
        EXPECT_TRUE(CGImage::make(opened->source).isIncomplete());
    }
    const auto rows = open(checksum)->source;
    EXPECT_EQ(pixelAt(CGImage::make(rows), 39, 38), pixelAt(CGImage::make(open(whole)->source), 39, 38));
}

TEST(PngReader, refusesWhatIsNoPictureOrTooLarge) {
    const std::vector<std::pair<const char*, Bytes>> cases{
        {"no width", headerOnly(0, 5, {})},
        {"beyond the format", headerOnly(0x80000000U, 1, {})},
        {"as large as can be", headerOnly(0x7FFFFFFF, 0x7FFFFFFF, {})},
        {"more pixels than the bytes can hold", headerOnly(16000, 16000, Bytes(1000))},
        {"an unknown colour type", headerOnly(5, 5, {}, 5)},
        {"a palette picture without palette", headerOnly(5, 5, {}, 3)},
        {"nothing", {}},
    };
    for (const auto& [name, file] : cases)
        EXPECT_FALSE(open(file)) << name;

    Bytes wrongHeaderChecksum = smallPicture();
    wrongHeaderChecksum[29] ^= 1;
    EXPECT_FALSE(open(wrongHeaderChecksum));
}
