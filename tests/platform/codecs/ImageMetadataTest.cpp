#include "peximage/platform/codecs/ImageMetadata.h"

#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ExifBlock.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Surroundings.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace pex {
namespace {

/// A TIFF header and one directory with one entry, the orientation, written by hand.
Bytes littleEndianExif(std::uint8_t orientation) {
    return {'I', 'I', 42, 0, 8, 0,           0, 0, 1, 0, 0x12, 0x01, 3,
            0,   1,   0,  0, 0, orientation, 0, 0, 0, 0, 0,    0,    0};
}

Bytes bigEndianExif(std::uint8_t orientation) {
    return {'M', 'M', 0, 42, 0, 0, 0,           8, 0, 1, 0x01, 0x12, 0,
            3,   0,   0, 0,  1, 0, orientation, 0, 0, 0, 0,    0,    0};
}

std::optional<Orientation> orientationIn(std::span<const std::uint8_t> exif) {
    return ExifBlock(exif).orientation();
}

Bytes withSignature(const Bytes& exif) {
    Bytes bytes = exif;
    bytes.insert(bytes.begin(), {'E', 'x', 'i', 'f', 0, 0});
    return bytes;
}

TEST(ExifBlock, OrientationIsReadInBothByteOrdersWithAndWithoutSignature) {
    for (int value = 1; value <= 8; ++value) {
        const auto expected = static_cast<Orientation>(value);
        const auto byte = static_cast<std::uint8_t>(value);
        for (const Bytes& exif : {littleEndianExif(byte), bigEndianExif(byte)}) {
            EXPECT_EQ(orientationIn(exif), expected);
            EXPECT_EQ(orientationIn(withSignature(exif)), expected);
        }
    }
}

TEST(ExifBlock, WhatIsNoOrientationIsAbsent) {
    for (const std::uint8_t number : {0, 9, 255})
        EXPECT_EQ(orientationIn(littleEndianExif(number)), std::nullopt);
    const Bytes whole = littleEndianExif(6);
    // At these places: another type of as many bytes and of more, another tag, a directory that is far away.
    using Change = std::vector<std::pair<std::size_t, std::uint8_t>>;
    for (const Change& change : {Change{{12, 2}, {14, 2}}, {{12, 4}}, {{12, 8}}, {{10, 0}}, {{7, 0x7F}}}) {
        Bytes changed = whole;
        for (const auto& [at, byte] : change)
            changed[at] = byte;
        EXPECT_EQ(orientationIn(changed), std::nullopt) << change[0].first << ' ' << int(change[0].second);
    }
    for (std::size_t length = 0; length < 20; ++length)
        EXPECT_EQ(orientationIn({whole.data(), length}), std::nullopt) << length;
    Bytes manyEntries = whole;
    manyEntries[8] = manyEntries[9] = 0xff;
    EXPECT_EQ(orientationIn(manyEntries), Orientation::right);
}

constexpr int width = 60, height = 40;
constexpr std::array everyFormat{ImageFormat::jpeg, ImageFormat::png,  ImageFormat::tiff,
                                 ImageFormat::webp, ImageFormat::heif, ImageFormat::avif};
const std::string makerNote = "a maker's note in Hidden Valley", thumbnail = "old pixels, made small";
constexpr std::string_view xap = "http://ns.adobe.com/xap/1.0/";

std::string stringOf(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }
Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

bool contains(const Data& data, std::string_view text) { return data.text().find(text) != std::string::npos; }

/// The block with a directory behind its main one that tells of a thumbnail at the end.
Bytes withThumbnail(Bytes block) {
    const auto put = [&](std::size_t at, std::size_t value) {
        for (std::size_t i = 0; i < 4; ++i)
            block[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
    };
    const std::size_t entries = block[8], at = block.size();
    put(10 + 12 * entries, at);
    const Bytes table{2, 0, 1, 2, 4, 0, 1, 0, 0, 0, 0, 0, 0, 0, 2,
                      2, 4, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    block.insert(block.end(), table.begin(), table.end());
    put(at + 10, block.size());
    put(at + 22, thumbnail.size());
    block.insert(block.end(), thumbnail.begin(), thumbnail.end());
    return block;
}

Bytes exifOfPhoto() {
    const ExifField note{0x927C, 7, static_cast<std::uint32_t>(makerNote.size()), bytesOf(makerNote)};
    return withThumbnail(exifBlock(
        {exifText(0x010F, "Maker of cameras"), exifShort(0x0112, 6), exifFractions(0x011A, {72, 1}),
         exifFractions(0x011B, {72, 1})},
        {exifText(0x9003, "2021:07:14 18:03:55"), exifShort(0xA002, 4000), exifShort(0xA003, 3000), note},
        {exifText(1, "S"), exifFractions(2, {33, 1, 51, 1, 36, 1}), exifText(0x1C, "In Hidden Valley")}));
}

std::string xmpOfPhoto() {
    return R"(<?xpacket begin="" id="W5M0MpCehiHzreSzNTczkc9d"?>
<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
 <rdf:Description rdf:about="" xmlns:t="http://ns.adobe.com/tiff/1.0/" t:Orientation = '6' t:Make="A &amp; B"
   xmlns:e="http://ns.adobe.com/exif/1.0/" e:GPSLatitude="33,51.6S"
   xmlns:p="http://ns.adobe.com/photoshop/1.0/" p:City='Hidden Valley'>
  <e:PixelXDimension>4000</e:PixelXDimension>
  <xmp:Rating xmlns:xmp="http://ns.adobe.com/xap/1.0/">4</xmp:Rating>
  <i:LocationShown xmlns:i="http://iptc.org/std/Iptc4xmpExt/2008-02-29/"><rdf:Bag><rdf:li i:Sublocation="Hidden
    Valley"/></rdf:Bag></i:LocationShown>
 </rdf:Description></rdf:RDF></x:xmpmeta>
<?xpacket end="w"?>)";
}

Bytes iptcOfPhoto() {
    Bytes records{0x1C, 2, 105, 0, 8, 'H', 'e', 'a', 'd', 'l', 'i', 'n', 'e', 0x1C, 2, 90, 0, 13};
    const std::string city = "Hidden Valley";
    records.insert(records.end(), city.begin(), city.end());
    return records;
}

ImageMetadata photo() {
    ImageMetadata metadata{.exif = Data(exifOfPhoto()), .xmp = Data(std::string_view(xmpOfPhoto()))};
    metadata.setIptc(Data(iptcOfPhoto()));
    return metadata;
}

Data fileWith(const ImageMetadata& metadata, ImageFormat format = ImageFormat::jpeg) {
    CGImageDestination::Options options;
    options.metadata = metadata;
    return encoded(photoLike(width, height), format, options);
}

TEST(ImageMetadata, EveryFormatKeepsWhatItCanHold) {
    std::string xmp = replaced(xmpOfPhoto(), "'6'", "'1'");
    xmp = replaced(xmp, ">4000<", ">60<");
    for (const ImageFormat format : everyFormat) {
        SCOPED_TRACE(displayName(format));
        const Data file = fileWith(photo(), format);
        const auto source = CGImageSource::make(file);
        ASSERT_TRUE(source);
        const PropertyDictionary all = source->copyProperties();
        EXPECT_EQ(all.integer("Orientation"), 1);
        EXPECT_EQ(*all.dictionary("TIFF").text("Make"), "Maker of cameras");
        EXPECT_EQ(*all.dictionary("Exif").text("DateTimeOriginal"), "2021:07:14 18:03:55");
        EXPECT_EQ(all.dictionary("Exif").integer("PixelXDimension"), width);
        EXPECT_EQ(all.dictionary("Exif").integer("PixelYDimension"), height);
        EXPECT_DOUBLE_EQ(all.dictionary("GPS").number("Latitude").value_or(0), 33.86);

        const ImageMetadata kept = source->metadata();
        EXPECT_EQ(stringOf({kept.exif.bytes().begin(), kept.exif.bytes().end()}).find(makerNote),
                  stringOf(exifOfPhoto()).find(makerNote));
        EXPECT_EQ(kept.xmp.text(), xmp);
        EXPECT_FALSE(contains(file, thumbnail));
        const bool holdsIptc =
            format == ImageFormat::jpeg || format == ImageFormat::png || format == ImageFormat::tiff;
        EXPECT_EQ(kept.iptc(), holdsIptc ? Data(iptcOfPhoto()) : Data());
        EXPECT_EQ(photo().lostIn(kept),
                  holdsIptc ? std::vector<std::string_view>{} : std::vector<std::string_view>{"IPTC"});
    }
}

TEST(ImageMetadata, WhatNeedsNoChangeIsCarriedOverByteForByte) {
    ImageMetadata metadata{
        .exif = Data(exifBlock({exifShort(0x0112, 1)}, {exifShort(0xA002, width)})),
        .xmp = Data(std::string_view(replaced(replaced(xmpOfPhoto(), "'6'", "'1'"), ">4000<", ">60<")))};
    metadata.setIptc(Data(iptcOfPhoto()));
    EXPECT_EQ(ImageMetadata::of(fileWith(metadata)), metadata);
    // The JFIF segment stays the first.
    EXPECT_EQ(fileWith(metadata).text().substr(2, 18), fileWith({}).text().substr(2, 18));
}

TEST(ImageMetadata, NothingOfThePlaceStaysReadable) {
    const ImageMetadata left = photo().withoutLocation();
    for (const Data* block : {&left.exif, &left.xmp, &left.resources}) {
        EXPECT_FALSE(block->empty());
        for (const std::string_view trace : {"Hidden", "Valley", "33,51", "LocationShown", "City"})
            EXPECT_FALSE(contains(*block, trace)) << trace;
    }
    EXPECT_FALSE(contains(left.exif, std::string_view("\x21\0\0\0\x01\0\0\0\x33", 9))); // 33 and 51 degrees
    EXPECT_TRUE(contains(left.exif, thumbnail));
    EXPECT_EQ(left.exifField(ExifDirectory::exif, 0x9003), PropertyDictionary::Value("2021:07:14 18:03:55"));
    EXPECT_EQ(left.xmpProperty(xap, "Rating"), "4");
    EXPECT_EQ(left.iptcField(105), std::vector<std::string>{"Headline"});

    // A GPS directory that is the main one: it cannot be taken out.
    Bytes twisted = exifOfPhoto();
    const std::size_t pointer = 10 + 12 * 5;
    ASSERT_EQ(twisted[pointer] | twisted[pointer + 1] << 8, 0x8825);
    twisted[pointer + 8] = 8;
    twisted[pointer + 9] = 0;
    EXPECT_TRUE(ImageMetadata{.exif = Data(twisted)}.withoutLocation().exif.empty());
}

TEST(ImageMetadata, FieldsAreReadAndSet) {
    using Value = PropertyDictionary::Value;
    using enum ExifDirectory;
    for (const bool isNew : {true, false}) {
        ImageMetadata metadata = isNew ? ImageMetadata() : photo();
        EXPECT_TRUE(metadata.setExifField(image, 0x010F, std::string("A longer name than there was before")));
        EXPECT_TRUE(metadata.setExifField(image, 0x8298, std::string("(c)")));
        EXPECT_TRUE(metadata.setExifField(exif, 0x8827, std::int64_t{400}));
        EXPECT_TRUE(metadata.setExifField(exif, 0x9204, -0.5));
        EXPECT_TRUE(metadata.setExifField(gps, 2, std::vector<double>{59, 55, 30.25}));
        EXPECT_FALSE(metadata.setExifField(gps, 2, std::vector<double>{}));
        EXPECT_EQ(metadata.exifField(image, 0x8298), Value("(c)"));
        EXPECT_EQ(metadata.exifField(exif, 0x9204), Value(-0.5));
        // Another library reads them.
        const auto all = CGImageSource::make(fileWith(metadata))->copyProperties();
        EXPECT_EQ(*all.dictionary("TIFF").text("Make"), "A longer name than there was before");
        EXPECT_EQ(*all.dictionary("TIFF").text("Copyright"), "(c)");
        EXPECT_EQ(all.dictionary("Exif").integer("ISOSpeedRatings"), 400);
        EXPECT_EQ(all.dictionary("Exif").number("ExposureBiasValue"), -0.5);
        EXPECT_DOUBLE_EQ(all.dictionary("GPS").number("Latitude").value_or(0), 59 + 55 / 60.0 + 30.25 / 3600);
        EXPECT_EQ(all.dictionary("Exif").text("DateTimeOriginal") == nullptr, isNew);
        metadata.removeExifField(image, 0x010F);
        EXPECT_FALSE(metadata.exifField(image, 0x010F));
        EXPECT_FALSE(contains(metadata.exif, "longer name"));

        EXPECT_TRUE(metadata.setXmpProperty(xap, "Rating", "5"));
        EXPECT_TRUE(metadata.setXmpProperty(xap, "Label", "<\"&'>"));
        EXPECT_EQ(metadata.xmpProperty(xap, "Rating"), "5");
        EXPECT_EQ(metadata.xmpProperty(xap, "Label"), "<\"&'>");
        metadata.setIptcField(25, {"red", "cup"});
        EXPECT_EQ(metadata.iptcField(25), (std::vector<std::string>{"red", "cup"}));
        EXPECT_EQ(metadata.iptcField(105).empty(), isNew);
    }
}

TEST(ImageMetadata, ALongPacketGoesThroughAJpegInParts) {
    const std::string filling(150'000, 'x');
    const ImageMetadata metadata{.xmp = Data(std::string_view(replaced(xmpOfPhoto(), "A &amp; B", filling)))};
    const ImageMetadata inJpeg = ImageMetadata::of(fileWith(metadata));
    EXPECT_LT(inJpeg.xmp.size(), 1000u);
    EXPECT_EQ(inJpeg.extendedXmp, metadata.uprighted(width, height).xmp);
    EXPECT_EQ(ImageMetadata::of(fileWith(inJpeg)), inJpeg);
    const ImageMetadata inPng = ImageMetadata::of(fileWith(inJpeg, ImageFormat::png));
    EXPECT_TRUE(inPng.extendedXmp.empty());
    EXPECT_EQ(inPng.xmpProperty("http://ns.adobe.com/tiff/1.0/", "Make"), filling);
    EXPECT_TRUE(inJpeg.lostIn(inPng).empty());
}

TEST(ImageMetadata, WhatIsTooLargeOrBrokenIsLeftOut) {
    const Data file = fileWith(photo());
    ImageLimits limits;
    limits.maxMetadataBytes = 100;
    ImageLimits::setCurrent(limits);
    const ImageMetadata little = ImageMetadata::of(file);
    ImageLimits::setCurrent({});
    EXPECT_EQ(photo().lostIn(little), (std::vector<std::string_view>{"EXIF", "XMP"}));

    const ImageMetadata broken{.exif = Data(std::string_view("II*\0\xFF\xFF\xFF\x7F", 8)),
                               .xmp = Data(std::string_view("<x t:Orientation='6'>"))};
    EXPECT_TRUE(broken.uprighted(width, height).empty());
    EXPECT_TRUE(ImageMetadata::of(Data(std::string_view("no picture"))).empty());
    // Of a block that is too large for a JPEG the rest is held without the maker's notes.
    const auto large = [](std::uint16_t tag) {
        const Bytes value(70'000, 1);
        return ImageMetadata{.exif = Data(exifBlock({exifText(0x010F, "Maker")}, {{tag, 7, 70'000, value}}))};
    };
    const ImageMetadata notes = large(0x927C), comment = large(0x9286);
    EXPECT_FALSE(notes.heldBy(ImageFormat::jpeg).exif.empty());
    EXPECT_EQ(notes.lostIn(notes.heldBy(ImageFormat::jpeg)),
              std::vector<std::string_view>{"the maker's notes"});
    EXPECT_TRUE(comment.heldBy(ImageFormat::jpeg).exif.empty());
}

TEST(ImageMetadata, ABlockIsTheSameWithoutTheSignatureThatSomeWrite) {
    const Bytes block = exifBlock({exifText(0x010F, "Maker")}),
                png = ::bytesOf(fileWith({}, ImageFormat::png));
    for (const Bytes& written : {block, withSignature(block)})
        EXPECT_EQ(ImageMetadata::of(Data(withPngChunks(png, {{"eXIf", written}}))).exif, Data(block));
}

} // namespace
} // namespace pex
