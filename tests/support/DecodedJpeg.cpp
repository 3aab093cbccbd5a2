#include "tests/support/DecodedJpeg.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/jpeg/decode/LibraryDecoder.h"
#include "peximage/platform/codecs/jpeg/decode/RowDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

using pex::Data;
using pex::jpeg::LibraryDecoder;
using Bytes = std::vector<std::uint8_t>;

namespace {

struct Header {
    explicit Header(const Bytes& bytes) : file(bytes), decompressor(pex::CGDataProvider(file)) {
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

} // namespace

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

DecodedJpeg decodeByOurs(const Bytes& file) {
    const Header header(file);
    DecodedJpeg decoded;
    const auto decoder = header.isGood ? pex::jpeg::RowDecoder::make(header.info(), header.file) : nullptr;
    for (unsigned y = 0; decoder && y < header.info().image_height; ++y) {
        Bytes row(header.rowBytes);
        if (decoder->read({row.data(), static_cast<int>(header.info().image_width), 1, 0,
                           header.isGrey ? pex::PixelLayout::grey : pex::PixelLayout::skipLast}) == 0)
            break;
        decoded.rows.push_back(std::move(row));
    }
    return decoded;
}

DecodedJpeg decodeForUsers(const Bytes& file) {
    DecodedJpeg decoded;
    const auto source = pex::CGImageSource::make(Data(file));
    const auto image = source ? source->createImage() : std::nullopt;
    const auto pixels = image ? image->pixels() : std::nullopt;
    if (!pixels) return decoded;
    for (int y = 0; y < pixels->height; ++y)
        decoded.rows.emplace_back(pixels->row(y), pixels->row(y) + std::ptrdiff_t{pixels->width} *
                                                                       pex::bytesPerPixel(pixels->layout));
    decoded.isDamaged = image->isIncomplete();
    return decoded;
}

void expectSame(const Bytes& file, const std::string& what) {
    const DecodedJpeg ours = decodeByOurs(file), theirs = decodeByLibrary(file);
    ASSERT_FALSE(theirs.rows.empty()) << what;
    EXPECT_EQ(ours.rows, theirs.rows) << what;
}

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

std::vector<std::uint8_t> damaged(std::vector<std::uint8_t> file, std::size_t header, std::mt19937& random) {
    if (random() % 3 == 0) {
        file.resize(header + random() % (file.size() - header));
        return file;
    }
    for (unsigned i = 0; i <= random() % 3; ++i)
        file[header + random() % (file.size() - header)] =
            static_cast<std::uint8_t>(random() % 4 == 0 ? 0xFF : random());
    return file;
}

std::uint8_t noise(int x, int y, int c) {
    unsigned hash = static_cast<unsigned>(x) * 73856093U ^ static_cast<unsigned>(y) * 19349663U ^
                    static_cast<unsigned>(c) * 83492791U;
    hash = (hash ^ (hash >> 13)) * 1274126177U;
    return static_cast<std::uint8_t>(hash >> 24);
}
std::uint8_t extremes(int x, int y, int c) { return noise(x, y, c) < 128 ? 0 : 255; }
std::uint8_t smooth(int x, int y, int c) { return static_cast<std::uint8_t>(40 + x / 3 + y / 5 + c * 30); }
std::uint8_t flat(int, int, int) { return 70; }
