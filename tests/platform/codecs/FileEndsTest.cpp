#include "peximage/platform/codecs/CGImageSource.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

namespace pex {
namespace {

struct Ending {
    std::string what;
    Bytes file;
    /// From how many bytes on the picture is whole.
    std::size_t whole;
};

Bytes joined(Bytes file, const Bytes& more) {
    file.insert(file.end(), more.begin(), more.end());
    return file;
}

Ending plain(ImageFormat format) {
    const Bytes file = bytesOf(encoded(photoLike(200, 150), format));
    return {std::string(displayName(format)), file, file.size()};
}

std::vector<Ending> files() {
    std::vector<Ending> all;
    for (const ImageFormat format : {ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp})
        all.push_back(plain(format));
    const Bytes jpeg = all[0].file, png = all[1].file;
    // Cameras put films, notes and second pictures behind the first; none of these is missed.
    const Bytes film(70'000, 0x5A);
    all.push_back({"JPEG with more behind it", joined(jpeg, film), jpeg.size()});
    all.push_back({"JPEG with a JPEG behind it", joined(jpeg, jpeg), jpeg.size()});
    all.push_back({"PNG with more behind it", joined(png, film), png.size()});
    // A thumbnail before the pixels ends like a picture.
    all.push_back({"JPEG with a JPEG inside",
                   withExif(jpeg, exifBlock({{0x9999, 7, 4, {0xFF, 0xD9, 0xFF, 0xD9}}})), 0});
    all.back().whole = all.back().file.size();
    const Bytes bmp = bmpFile(40, 40, 24, 0, {}, Bytes(40 * 120));
    all.push_back({"BMP", bmp, bmp.size()});
    const Bytes gif = smallGif();
    all.push_back({"GIF", gif, gif.size() - 1}); // its trailer may lack
    all.push_back({"GIF with more behind it", joined(gif, film), gif.size() - 1});
    return all;
}

bool isIncomplete(const Bytes& file) {
    const TempFolder folder;
    const URL url = folder.url("picture");
    Data(file).write(url, Data::Writing::inPlace);
    auto source = CGImageSource::make(url);
    auto memory = CGImageSource::make(Data(file));
    if (!source || !memory) {
        ADD_FAILURE() << "does not open at " << file.size();
        return false;
    }
    const bool incomplete = source->isIncomplete();
    EXPECT_EQ(memory->isIncomplete(), incomplete);
    return incomplete;
}

TEST(FileEnds, APictureThatBreaksOffIsIncompleteAndNoOther) {
    for (const auto& [what, file, whole] : files()) {
        SCOPED_TRACE(what);
        for (const std::size_t length : {file.size(), whole})
            EXPECT_FALSE(isIncomplete({file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)}))
                << length;
        for (const std::size_t length : {whole - 1, whole - 2, whole - 5})
            EXPECT_TRUE(isIncomplete({file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)}))
                << length << " of " << whole;
    }
    const Ending jpeg = plain(ImageFormat::jpeg), png = plain(ImageFormat::png);
    for (const auto& file : {jpeg.file, png.file}) {
        for (const std::size_t part : {2, 3, 5})
            EXPECT_TRUE(isIncomplete(
                {file.begin(), file.begin() + static_cast<std::ptrdiff_t>(file.size() * (part - 1) / part)}));
    }
}

TEST(FileEnds, ATiffWhoseStripsAreNotAllThereIsIncomplete) {
    const TiffPicture picture{
        64, 64, [](int x, int) { return std::array<std::uint16_t, 4>{static_cast<std::uint16_t>(x)}; }};
    for (const bool tiled : {false, true}) {
        Bytes file = tiffFile({.tiled = tiled}, {picture});
        EXPECT_FALSE(isIncomplete(file));
        // The directory last: moved to the front it leaves strips behind the end.
        const std::uint32_t at = file[4] | file[5] << 8 | std::uint32_t{file[6]} << 16;
        const Bytes directory(file.begin() + at, file.end());
        ASSERT_LT(directory.size(), at - 8); // or it does not fit there
        // What does not fit an entry stands behind the directory and moves along.
        Bytes moved(file.begin(), file.begin() + at);
        std::copy(directory.begin(), directory.end(), moved.begin() + 8);
        const std::size_t entries = moved[8] | moved[9] << 8;
        moved[4] = 8, moved[5] = 0, moved[6] = 0;
        for (std::size_t i = 0; i < entries; ++i) {
            const std::size_t entry = 8 + 2 + 12 * i;
            std::uint32_t value =
                moved[entry + 8] | moved[entry + 9] << 8 | std::uint32_t{moved[entry + 10]} << 16;
            if (value < at || value >= file.size()) continue;
            value -= at - 8;
            for (std::size_t b = 0; b < 3; ++b)
                moved[entry + 8 + b] = static_cast<std::uint8_t>(value >> (8 * b));
        }
        EXPECT_FALSE(isIncomplete(moved));
        moved.resize(at - 1);
        EXPECT_TRUE(isIncomplete(moved));
    }
}

TEST(FileEnds, LittleIsReadOfAWholeFile) {
    const TempFolder folder;
    const URL url = folder.url("picture");
    for (const ImageFormat format : {ImageFormat::jpeg, ImageFormat::png}) {
        encoded(noise(600, 600, PixelLayout::skipLast), format).write(url, Data::Writing::inPlace);
        auto source = CGImageSource::make(url);
        const std::size_t header = source->bytesRead();
        EXPECT_FALSE(source->isIncomplete());
        EXPECT_GT(source->bytesRead(), header);
        EXPECT_LE(source->bytesRead(), header + 12);
    }
}

} // namespace
} // namespace pex
