#include "peximage/metadata/PexExif.h"

#include "peximage/helpers/PexImageHelperExifDates.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <unordered_set>

namespace pex {
namespace {

using Lines = std::vector<std::string>;
namespace helper = PexImageHelper;

/// The machine's time zone for one test.
class TimeZone {
  public:
    explicit TimeZone(const char* name) {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~TimeZone() {
        ::unsetenv("TZ");
        ::tzset();
    }
};

ExifField shotAt(const std::string& text) { return exifText(0x9003, text); }

Bytes fullBlock() {
    return exifBlock({exifText(0x010F, "Maker"), exifShort(0x0112, 6), exifFractions(0x011A, {300, 1}),
                      exifFractions(0x011B, {600, 2}), exifShort(0x0128, 2)},
                     {shotAt("2021:07:14 18:03:55"), exifFractions(0x829A, {1, 640}), exifShort(0x8827, 400),
                      exifFractions(0x920A, {5, 0}), exifText(0xA434, "Caf\xE9 lens ")},
                     {exifText(1, "S"), exifFractions(2, {33, 1, 51, 1, 3600, 100}), exifText(3, "E"),
                      exifFractions(4, {151, 1, 1266, 100, 0, 1}), exifFractions(7, {9, 1, 5, 1, 30, 1})});
}

class Exif : public ::testing::Test {
  protected:
    URL write(const std::string& name, const Bytes& bytes) {
        writeFile(folder_.path() / name, {bytes.begin(), bytes.end()});
        return folder_.url(name);
    }
    URL photo(const Bytes& block, const std::string& name = "photo.jpg") {
        return write(name, withExif(bytesOf(encoded(photoLike(200, 100), ImageFormat::jpeg)), block));
    }

    TempFolder folder_;
};

TEST_F(Exif, PropertiesComeInDictionariesByTheStandardsNames) {
    const auto all = PexExif::exifDict(photo(fullBlock()));
    EXPECT_EQ(all.integer("PixelWidth"), 200);
    EXPECT_EQ(all.integer("Orientation"), 6);
    EXPECT_EQ(*all.dictionary("TIFF").text("Make"), "Maker");
    const auto& exif = all.dictionary("Exif");
    EXPECT_EQ(*exif.text("DateTimeOriginal"), "2021:07:14 18:03:55");
    EXPECT_EQ(exif.number("ExposureTime"), 1 / 640.0);
    EXPECT_EQ(exif.integer("ISOSpeedRatings"), 400);
    EXPECT_EQ(*exif.text("LensModel"), "Caf\xC3\xA9 lens"); // Latin-1, and a trailing space
    EXPECT_FALSE(exif.number("FocalLength"));               // a fraction without value
    const auto& gps = all.dictionary("GPS");
    EXPECT_DOUBLE_EQ(*gps.number("Latitude"), 33 + 51 / 60.0 + 36 / 3600.0);
    EXPECT_DOUBLE_EQ(*gps.number("Longitude"), 151 + 12.66 / 60);
    EXPECT_EQ(*gps.text("LatitudeRef"), "S");
    EXPECT_EQ(*gps.text("TimeStamp"), "09:05:30");
}

TEST_F(Exif, OnlyTheHeaderOfAFileIsRead) {
    const Bytes plain = bytesOf(encoded(noise(1500, 1000, PixelLayout::skipLast), ImageFormat::jpeg));
    const URL url = write("big.jpg", withExif(plain, fullBlock()));
    EXPECT_LT(CGImageSource::make(url)->bytesRead(), 10'000u);
    EXPECT_GT(plain.size(), 1'000'000u);
}

TEST_F(Exif, ResolutionIsTakenFromTheBlockWhereTheFileSaysNothingElse) {
    Bytes bare = bytesOf(encoded(photoLike(20, 10), ImageFormat::jpeg));
    bare.erase(bare.begin() + 2, bare.begin() + 20); // without the JFIF segment
    const auto dpiOf = [&](const Bytes& block) {
        return CGImageSource::make(write("bare.jpg", withExif(bare, block)))->properties().dpiWidth;
    };
    EXPECT_EQ(dpiOf(fullBlock()), 300);
    EXPECT_EQ(dpiOf(exifBlock(
                  {exifFractions(0x011A, {100, 1}), exifFractions(0x011B, {100, 1}), exifShort(0x0128, 3)})),
              254);
    EXPECT_EQ(dpiOf(exifBlock({exifFractions(0x011A, {100, 1}), exifFractions(0x011B, {100, 1})})), 100);
    EXPECT_EQ(dpiOf(exifBlock(
                  {exifFractions(0x011A, {100, 0}), exifFractions(0x011B, {1, 1}), exifShort(0x0128, 2)})),
              std::nullopt);
}

TEST_F(Exif, APngTellsItBeforeItsPixelsOrBehindThem) {
    const Bytes plain = bytesOf(encoded(photoLike(50, 30), ImageFormat::png)), block = fullBlock();
    Bytes chunk{0, 0, static_cast<std::uint8_t>(block.size() >> 8), static_cast<std::uint8_t>(block.size())};
    chunk.insert(chunk.end(), {'e', 'X', 'I', 'f'});
    chunk.insert(chunk.end(), block.begin(), block.end());
    chunk.insert(chunk.end(), {0, 0, 0, 0}); // nobody checks the sum of what is no pixel
    for (const std::ptrdiff_t at : {std::ptrdiff_t{33}, static_cast<std::ptrdiff_t>(plain.size() - 12)}) {
        Bytes file = plain;
        file.insert(file.begin() + at, chunk.begin(), chunk.end());
        const auto image = CGImageSource::make(write("a.png", file));
        ASSERT_TRUE(image);
        EXPECT_EQ(image->properties().orientation, Orientation::right) << at;
        EXPECT_EQ(*image->copyProperties().dictionary("TIFF").text("Make"), "Maker") << at;
    }
}

TEST_F(Exif, ABrokenSegmentDoesNotHideAGoodOne) {
    const std::string good = photo(fullBlock()).path();
    for (const Bytes& broken : {Bytes(30, 'x'), Bytes{'I', 'I', 42, 0, 255, 255, 0, 0, 1, 0}}) {
        const std::string bytes = readFile(good);
        const URL file = write("two.jpg", withExif({bytes.begin(), bytes.end()}, broken));
        EXPECT_EQ(PexExif::basicData(file), PexExif::basicData(URL::fromPath(good)));
        EXPECT_EQ(CGImageSource::make(file)->properties().orientation, Orientation::right);
    }
}

TEST_F(Exif, ATiffTellsItWhereverItsDirectoriesStand) {
    const TiffPicture picture{300, 100, [](int, int) { return std::array<std::uint16_t, 4>{}; }};
    for (const char* mode : {"wl", "wb"}) {
        const Bytes file = tiffFile({.mode = mode, .shotAt = "2021:07:14 18:03:55"}, {picture, picture});
        ASSERT_GT(file.size(), 2U * 300 * 100 * 3);
        const auto data = PexExif::basicData(write("a.tif", file));
        EXPECT_EQ(data.shotDate, momentFromExifText("2021:07:14 18:03:55")) << mode;
        EXPECT_FLOAT_EQ(data.coordinates.lat.value_or(0), 33.51) << mode;
        EXPECT_LT(CGImageSource::make(write("a.tif", file))->bytesRead(), 10'000U);
    }
}

TEST_F(Exif, BasicDataAreDateAndPlace) {
    const TimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    const CapturedLines printed;
    const auto data = PexExif::basicData(photo(fullBlock()));
    // 18:03:55 in New York in summer is 22:03:55 UTC.
    EXPECT_EQ(data.shotDate->time_since_epoch(), std::chrono::seconds(1626300235));
    EXPECT_DOUBLE_EQ(*data.coordinates.lat, 33 + 51 / 60.0 + 36 / 3600.0);
    const auto noLongitude =
        PexExif::basicData(photo(exifBlock({}, {}, {exifFractions(2, {1, 1, 0, 1, 0, 1})})));
    EXPECT_EQ(noLongitude, (PexExif::BasicData{{}, {1.0, {}}}));
    const std::pair<std::vector<std::uint32_t>, std::optional<double>> latitudes[] = {
        {{67, 2}, 33.5},
        {{33, 1, 63, 2}, 33.525},
        {{33, 1, 30, 1, 36, 1}, 33.51},
        {{33, 1, 30, 0}, {}},
        {{1, 1, 2, 1, 3, 1, 4, 1}, {}}};
    for (const auto& [parts, degrees] : latitudes) {
        const auto read = PexExif::basicData(photo(exifBlock({}, {}, {exifFractions(2, parts)})));
        EXPECT_EQ(read.coordinates.lat, degrees) << parts.size();
    }
    const URL png = write("a.png", bytesOf(encoded(photoLike(5, 5), ImageFormat::png)));
    EXPECT_EQ(PexExif::basicData(png), PexExif::BasicData());
    EXPECT_EQ(printed.lines, Lines{});
}

TEST_F(Exif, WhatCannotBeReadIsTold) {
    const URL missing = folder_.url("missing.jpg"),
              dashes = photo(exifBlock({}, {shotAt("2021-07-14 18:03:55")}));
    {
        const CapturedLines printed;
        EXPECT_TRUE(PexExif::exifDict(missing).empty());
        EXPECT_EQ(PexExif::basicData(missing), PexExif::BasicData());
        EXPECT_EQ(PexExif::basicData(dashes), PexExif::BasicData());
        EXPECT_EQ(printed.lines, (Lines{"Failed to create image source", "Failed to create image source",
                                        "Failed to convert EXIF DateTime to Date"}));
    }
    const CapturedLines printed;
    EXPECT_FALSE(helper::getExifData(missing));
    EXPECT_FALSE(helper::exifShotDate(missing));
    EXPECT_FALSE(helper::exifShotDate(dashes));
    EXPECT_EQ(helper::exifShotDate(photo(fullBlock())), momentFromExifText("2021:07:14 18:03:55"));
    EXPECT_FALSE(helper::getShotDateFromExif({}));
    EXPECT_EQ(printed.lines, (Lines{"Error creating image source", "Error creating image source"}));
}

TEST_F(Exif, DatesAreReadStrictly) {
    for (const char* text :
         {"", "2021:07:14 18:30:5", "2021:07:14 18:30:05 ", "2021:13:14 18:30:05", "2023:02:29 00:00:00",
          "2021:07:14 24:00:00", "2021:07:14T18:30:05", "    :  :     :  :  "})
        EXPECT_FALSE(momentFromExifText(text)) << text;
}

// Of every year, whatever was read before, in zones west and east of UTC. The seconds are another program's.
TEST_F(Exif, DatesOfAllYearsAreRightOnEveryCall) {
    const char* const newYork = "EST5EDT,M3.2.0,M11.1.0";
    const char* const dublin = "IST-1GMT0,M10.5.0,M3.5.0/1";
    const struct {
        const char *zone, *text;
        std::int64_t seconds;
        const char* shown; // where it is not the text again
    } cases[] = {
        {"UTC", "2021:07:14 18:30:05", 1626287405, nullptr},
        {"UTC", "2024:02:29 00:00:00", 1709164800, nullptr},
        {"UTC", "0001:01:01 00:00:00", -62135596800, nullptr},
        {"UTC", "1677:01:01 00:00:00", -9246096000, nullptr},
        {"UTC", "1969:12:31 23:59:59", -1, nullptr},
        {"UTC", "2263:01:01 00:00:00", 9246182400, nullptr},
        {"UTC", "9999:12:31 00:00:00", 253402214400, nullptr},
        {newYork, "2021:11:07 01:30:00", 1636263000, nullptr}, // the first of two
        {newYork, "2021:03:14 02:30:00", 1615707000, "2021-03-14 03:30:00"},
        {dublin, "2021:10:31 01:30:00", 1635640200, nullptr},
    };
    for (const auto& [zoneName, text, seconds, shown] : cases) {
        const TimeZone zone(zoneName);
        for (const char* before : {"2021:01:01 00:00:00", "2021:07:01 00:00:00"}) {
            momentFromExifText(before);
            const Moment moment = momentFromExifText(text).value();
            EXPECT_EQ(moment.time_since_epoch(), std::chrono::seconds(seconds)) << text;
            std::string again = text;
            again[4] = again[7] = '-';
            EXPECT_EQ(localTimeText(moment), shown ? shown : again);
        }
    }
}

TEST(ExifDocument, IsLenient) {
    using Data = PexExif::BasicData;
    EXPECT_EQ(encode(Data()), R"({"coordinates":{}})");
    const std::chrono::sys_days new_year_2001 = std::chrono::January / 1 / 2001;
    const Data full{new_year_2001 + std::chrono::milliseconds(90500), {1.5, -2}};
    const std::string text = R"({"shotDate":90.5,"coordinates":{"lat":1.5,"lon":-2}})";
    EXPECT_EQ(encode(full), text);
    EXPECT_EQ(decode<Data>(text), full);
    EXPECT_EQ(decode<Data>(R"({"shotDate":"x","coordinates":{"lat":true,"lon":3}})"), (Data{{}, {{}, 3.0}}));
    EXPECT_EQ(decode<Data>(R"({"coordinates":[1]})"), Data());
    for (const std::string date : {"1e300", "-1e300", R"({"nonFinite":"nan"})"})
        EXPECT_EQ(decode<Data>(R"({"shotDate":)" + date + "}"), Data()) << date;
    EXPECT_FALSE(decode<Data>("[]"));
    EXPECT_EQ((std::unordered_set<Data>{full, full, Data()}).size(), 2u);
}

} // namespace
} // namespace pex
