#include "tests/platform/codecs/PngFiles.h"

#include <random>
#include <zlib.h>

namespace pex::pngtest {
namespace {

constexpr std::size_t headerEnd = 8 + 25; // signature and IHDR

int channelsOf(int colourType) {
    if (colourType == PNG_COLOR_TYPE_PALETTE) return 1;
    return ((colourType & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1) +
           ((colourType & PNG_COLOR_MASK_ALPHA) != 0 ? 1 : 0);
}

std::uint32_t numberAt(const Bytes& file, std::size_t at) {
    return std::uint32_t{file[at]} << 24 | std::uint32_t{file[at + 1]} << 16 |
           std::uint32_t{file[at + 2]} << 8 | file[at + 3];
}

/// The row's samples one behind the other in `depth` bits each.
Bytes packRow(const Samples& samples, int y) {
    const int depth = samples.file.depth, count = samples.file.width * samples.channels;
    Bytes row(static_cast<std::size_t>((count * depth + 7) / 8));
    for (int i = 0; i < count * depth; ++i) {
        const int value = samples.at(i / depth / samples.channels, y, i / depth % samples.channels);
        const int bit = value >> (depth - 1 - i % depth) & 1;
        row[static_cast<std::size_t>(i / 8)] |= static_cast<std::uint8_t>(bit << (7 - i % 8));
    }
    return row;
}

void setTransparency(png_structp png, png_infop info, const Samples& samples) {
    if (samples.file.colourType == PNG_COLOR_TYPE_PALETTE) {
        png_set_tRNS(png, info, samples.paletteAlpha.data(), static_cast<int>(samples.paletteAlpha.size()),
                     nullptr);
    } else {
        png_set_tRNS(png, info, nullptr, 0, &samples.transparent);
    }
}

std::uint8_t toEightBits(int value, int depth) {
    const int most = (1 << depth) - 1;
    return static_cast<std::uint8_t>((value * 255 + most / 2) / most);
}

} // namespace

Samples randomSamples(const File& file) {
    std::mt19937 random(file.seed);
    Samples samples{file, channelsOf(file.colourType), {}, {}, {}, {}};
    samples.values.resize(static_cast<std::size_t>(file.width * file.height * samples.channels));
    for (auto& value : samples.values)
        value = static_cast<std::uint16_t>(random() >> 8 & ((1U << file.depth) - 1));
    if (file.colourType == PNG_COLOR_TYPE_PALETTE) {
        for (int i = 0; i < 1 << file.depth; ++i) {
            const auto c = random();
            samples.palette.push_back(
                {static_cast<png_byte>(c), static_cast<png_byte>(c >> 8), static_cast<png_byte>(c >> 16)});
            // The last colour is not mentioned, and so is opaque.
            if (i > 0) samples.paletteAlpha.push_back(static_cast<png_byte>(c >> 24));
        }
    } else if (samples.channels >= 3) {
        samples.transparent.red = samples.values[0];
        samples.transparent.green = samples.values[1];
        samples.transparent.blue = samples.values[2];
    } else {
        samples.transparent.gray = samples.values[0];
    }
    return samples;
}

Bytes write(const Samples& samples) {
    const File& file = samples.file;
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp writer, png_bytep bytes, std::size_t count) {
            auto& to = *static_cast<Bytes*>(png_get_io_ptr(writer));
            to.insert(to.end(), bytes, bytes + count);
        },
        nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(file.width), static_cast<png_uint_32>(file.height),
                 file.depth, file.colourType, file.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!samples.palette.empty())
        png_set_PLTE(png, info, samples.palette.data(), static_cast<int>(samples.palette.size()));
    if (file.transparency) setTransparency(png, info, samples);
    png_write_info(png, info);
    std::vector<Bytes> rows;
    std::vector<png_bytep> pointers;
    for (int y = 0; y < file.height; ++y)
        rows.push_back(packRow(samples, y));
    for (Bytes& row : rows)
        pointers.push_back(row.data());
    png_write_image(png, pointers.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

std::vector<std::uint8_t> expectedPixel(const Samples& samples, int x, int y) {
    const File& file = samples.file;
    const int first = samples.at(x, y, 0);
    if (file.colourType == PNG_COLOR_TYPE_PALETTE) {
        const png_color c = samples.palette[static_cast<std::size_t>(first)];
        const bool listed =
            file.transparency && static_cast<std::size_t>(first) < samples.paletteAlpha.size();
        return {c.red, c.green, c.blue,
                listed ? samples.paletteAlpha[static_cast<std::size_t>(first)] : std::uint8_t{255}};
    }
    const bool colour = samples.channels >= 3;
    const int green = colour ? samples.at(x, y, 1) : first, blue = colour ? samples.at(x, y, 2) : first;
    int alpha = (1 << file.depth) - 1;
    if (samples.channels % 2 == 0) alpha = samples.at(x, y, samples.channels - 1);
    const png_color_16& t = samples.transparent;
    if (file.transparency &&
        (colour ? first == t.red && green == t.green && blue == t.blue : first == t.gray))
        alpha = 0;
    return {toEightBits(first, file.depth), toEightBits(green, file.depth), toEightBits(blue, file.depth),
            toEightBits(alpha, file.depth)};
}

Bytes bigEndian(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
            static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes chunk(std::string_view type, const Bytes& content) {
    const Bytes checked = Bytes(type.begin(), type.end()) + content;
    const auto sum = ::crc32(0, checked.data(), static_cast<unsigned>(checked.size()));
    return bigEndian(static_cast<std::uint32_t>(content.size())) + checked +
           bigEndian(static_cast<std::uint32_t>(sum));
}

Bytes withChunks(const Bytes& file, const std::vector<std::pair<std::string_view, Bytes>>& chunks) {
    Bytes out(file.begin(), file.begin() + headerEnd);
    for (const auto& [type, content] : chunks)
        out = out + chunk(type, content);
    out.insert(out.end(), file.begin() + headerEnd, file.end());
    return out;
}

std::vector<std::string_view> chunkNames(const Bytes& file) {
    std::vector<std::string_view> names;
    for (std::size_t at = 8; at + 12 <= file.size(); at += 12 + numberAt(file, at))
        names.emplace_back(reinterpret_cast<const char*>(file.data()) + at + 4, 4);
    return names;
}

} // namespace pex::pngtest
