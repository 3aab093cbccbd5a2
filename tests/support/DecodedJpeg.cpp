#include "tests/support/DecodedJpeg.h"

#include "peximage/platform/codecs/CGImageSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

namespace {

using pex::Data;
using pex::JpegDecompressor;
using Bytes = std::vector<std::uint8_t>;

DecodedJpeg read(const Bytes& file) {
    DecodedJpeg decoded;
    const auto source = pex::CGImageSource::make(Data(file));
    const auto image = source ? source->createImage() : std::nullopt;
    const auto pixels = image ? image->pixels() : std::nullopt;
    if (!pixels) return decoded;
    for (int y = 0; y < pixels->height; ++y)
        decoded.rows.emplace_back(pixels->row(y), pixels->row(y) + std::ptrdiff_t{pixels->width} * 4);
    decoded.isDamaged = image->isIncomplete();
    return decoded;
}

} // namespace

DecodedJpeg decodeJpeg(const Bytes& file, unsigned eighths, JpegDecompressor::Codes codes,
                       J_COLOR_SPACE space) {
    JpegDecompressor decoder{pex::CGDataProvider(Data(file))};
    DecodedJpeg decoded;
    if (!decoder.readHeader(1 << 20) || !decoder.start(eighths, space, codes)) return decoded;
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

void expectSame(const Bytes& file, const std::string& what, J_COLOR_SPACE space) {
    for (const unsigned eighths : {8U, 4U, 2U, 1U}) {
        const DecodedJpeg ours = decodeJpeg(file, eighths, JpegDecompressor::Codes::fast, space);
        const DecodedJpeg theirs = decodeJpeg(file, eighths, JpegDecompressor::Codes::library, space);
        ASSERT_FALSE(theirs.rows.empty()) << what;
        EXPECT_FALSE(ours.isForLibrary) << what << " at " << eighths;
        EXPECT_EQ(ours.rows, theirs.rows) << what << " at " << eighths;
    }
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

bool expectSameOfDamaged(const Bytes& file, const std::string& what) {
    const DecodedJpeg theirs = decodeJpeg(file, 8, JpegDecompressor::Codes::library), ours = read(file);
    if (theirs.rows.empty()) return false;
    EXPECT_EQ(ours.isDamaged, theirs.isDamaged) << what;
    EXPECT_GE(ours.rows.size(), theirs.rows.size()) << what;
    for (std::size_t y = 0; y < std::min(ours.rows.size(), theirs.rows.size()); ++y) {
        EXPECT_EQ(ours.rows[y], theirs.rows[y]) << what << ", row " << y;
        if (ours.rows[y] != theirs.rows[y]) break;
    }
    return theirs.isDamaged;
}

std::uint8_t noise(int x, int y, int c) {
    unsigned hash = static_cast<unsigned>(x) * 73856093U ^ static_cast<unsigned>(y) * 19349663U ^
                    static_cast<unsigned>(c) * 83492791U;
    hash = (hash ^ (hash >> 13)) * 1274126177U;
    return static_cast<std::uint8_t>(hash >> 24);
}
std::uint8_t extremes(int x, int y, int c) { return noise(x, y, c) < 128 ? 0 : 255; }
std::uint8_t smooth(int x, int y, int c) { return static_cast<std::uint8_t>(40 + x / 3 + y / 5 + c * 30); }
