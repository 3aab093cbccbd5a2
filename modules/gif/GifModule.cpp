#include "peximage/platform/codecs/CodecModule.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <cstring>
#include <gif_lib.h>
#include <memory>
#include <vector>

namespace {

using Module = pex::CodecModule;

struct GifClose {
    void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};

} // namespace

struct pex::CodecModule::Picture {
    Module::Input input;
    std::size_t position = 0;
    std::unique_ptr<GifFileType, GifClose> gif{};
    Module::Header header{};
    GraphicsControlBlock control{}; // of the frame that comes
};

namespace {

using Picture = Module::Picture;

int readBytes(GifFileType* gif, GifByteType* into, int count) {
    auto& picture = *static_cast<Picture*>(gif->UserData);
    const std::size_t got = picture.input.read(picture.input.context, picture.position, into,
                                               static_cast<std::size_t>(std::max(count, 0)));
    picture.position += got;
    return static_cast<int>(got);
}

/// Goes on to the next frame; what extensions before it say of it is kept. False when there is none.
bool findFrame(Picture& picture) {
    GifFileType* gif = picture.gif.get();
    picture.control = {DISPOSAL_UNSPECIFIED, false, 0, NO_TRANSPARENT_COLOR};
    for (GifRecordType type; DGifGetRecordType(gif, &type) == GIF_OK;) {
        if (type == IMAGE_DESC_RECORD_TYPE) return DGifGetImageDesc(gif) == GIF_OK;
        if (type != EXTENSION_RECORD_TYPE) return false;
        int code = 0;
        GifByteType* block = nullptr;
        if (DGifGetExtension(gif, &code, &block) != GIF_OK) return false;
        for (; block != nullptr;) {
            GraphicsControlBlock control;
            if (code == GRAPHICS_EXT_FUNC_CODE && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK)
                picture.control = control;
            if (DGifGetExtensionNext(gif, &block) != GIF_OK) return false;
        }
    }
    return false;
}

/// Looks at single bytes of the file, which it reads by blocks.
class Bytes {
  public:
    explicit Bytes(const Module::Input& input) : input_(input) {}

    /// -1 behind the end.
    int at(std::size_t place) {
        if (place < begin_ || place >= begin_ + block_.size()) {
            constexpr std::size_t usual = std::size_t{1} << 16;
            block_.resize(place < input_.size ? std::min(usual, input_.size - place) : 0);
            block_.resize(input_.read(input_.context, place, block_.data(), block_.size()));
            begin_ = place;
        }
        return place < begin_ + block_.size() ? block_[place - begin_] : -1;
    }

  private:
    const Module::Input& input_;
    std::size_t begin_ = 0;
    std::vector<std::uint8_t> block_;
};

/// Behind a colour table that flags tell of.
std::size_t behindTable(std::size_t at, int flags) {
    return at + ((flags & 0x80) != 0 ? std::size_t{6} << (flags & 7) : 0);
}

/// As many as there are heads of; the pixels are stepped over, in their pieces of up to 255 bytes.
int countFrames(const Module::Input& input) {
    constexpr int extension = 0x21, image = 0x2C, most = 1'000'000;
    Bytes bytes(input);
    int frames = 0;
    std::size_t at = behindTable(13, bytes.at(10));
    while (frames < most) {
        const int kind = bytes.at(at);
        if (kind != image && kind != extension) break;
        frames += kind == image;
        at = kind == image ? behindTable(at + 10, bytes.at(at + 9)) + 1 : at + 2;
        for (int length = bytes.at(at); length > 0; length = bytes.at(at))
            at += 1 + static_cast<std::size_t>(length);
        ++at;
    }
    return std::max(frames, 1);
}

Module::Failure failureOf(int error) {
    const bool isMemory = error == D_GIF_ERR_NOT_ENOUGH_MEM;
    return isMemory ? Module::Failure::outOfMemory : Module::Failure::damaged;
}

Picture* open(const Module::Input& input, const Module::Limits& limits, Module::Header* header,
              Module::Failure* failure) {
    auto picture = std::make_unique<Picture>();
    picture->input = input;
    int error = 0;
    picture->gif.reset(DGifOpen(picture.get(), readBytes, &error));
    *failure = failureOf(error);
    if (!picture->gif) return nullptr;
    if (!findFrame(*picture)) {
        *failure = failureOf(picture->gif->Error);
        return nullptr;
    }
    const GifFileType& gif = *picture->gif;
    picture->header.width = std::max<std::int64_t>(gif.SWidth, gif.Image.Left + gif.Image.Width);
    picture->header.height = std::max<std::int64_t>(gif.SHeight, gif.Image.Top + gif.Image.Height);
    picture->header.pixels = Module::Pixels::rgbaStraight;
    picture->header.pages = countFrames(input);
    *header = picture->header;
    *failure = Module::Failure::overLimit;
    if (!limits.allow(picture->header.width, picture->header.height)) return nullptr;
    return picture.release();
}

void close(Picture* picture) { delete picture; }

/// The row of the frame that comes as the n-th of the file.
int rowOf(int n, int height, bool interlaced) {
    if (!interlaced) return n;
    static constexpr int starts[] = {0, 4, 2, 1}, steps[] = {8, 8, 4, 2};
    for (int pass = 0; pass < 4; ++pass) {
        const int rows = (height - starts[pass] + steps[pass] - 1) / steps[pass];
        if (n < rows) return starts[pass] + n * steps[pass];
        n -= rows;
    }
    return height - 1;
}

/// The first rows of an interlaced frame of which so many came: the others show the one above them.
void spread(const GifImageDesc& frame, int came, int rows, std::uint8_t* pixels, std::size_t rowBytes) {
    std::vector<bool> isThere(static_cast<std::size_t>(rows));
    for (int n = 0; n < came; ++n)
        isThere[static_cast<std::size_t>(rowOf(n, frame.Height, true))] = true;
    pixels += static_cast<std::size_t>(frame.Top) * rowBytes + static_cast<std::size_t>(frame.Left) * 4;
    for (std::size_t y = 1; y < isThere.size(); ++y) {
        std::uint8_t* row = pixels + y * rowBytes;
        if (!isThere[y]) std::memcpy(row, row - rowBytes, static_cast<std::size_t>(frame.Width) * 4);
    }
}

/// What there is of a frame that broke off behind so many rows.
Module::Decoded broken(const Picture& picture, int came, std::uint8_t* pixels) {
    if (picture.gif->Error == D_GIF_ERR_NOT_ENOUGH_MEM) return {0, false, Module::Failure::outOfMemory};
    const GifImageDesc& frame = picture.gif->Image;
    if (came == 0) return {0, false};
    const int rows = frame.Interlace ? std::min(8 * came, frame.Height) : came; // a first pass of every 8th
    const auto rowBytes = static_cast<std::size_t>(picture.header.width) * 4;
    if (frame.Interlace) spread(frame, came, rows, pixels, rowBytes);
    const bool isWhole = rows == frame.Height; // and what is below the frame is clear in any case
    return {isWhole ? picture.header.height : frame.Top + rows, false};
}

/// Lays the frame on the canvas, as far as it lies there.
Module::Decoded drawFrame(Picture& picture, std::uint8_t* pixels) {
    GifFileType* gif = picture.gif.get();
    const GifImageDesc& frame = gif->Image;
    const ColorMapObject* colors = frame.ColorMap != nullptr ? frame.ColorMap : gif->SColorMap;
    const std::int64_t width = picture.header.width, height = picture.header.height;
    if (colors == nullptr) return {0, false};
    const bool fits = frame.Left + frame.Width <= width && frame.Top + frame.Height <= height;
    std::vector<GifPixelType> row(static_cast<std::size_t>(frame.Width));
    const auto columns =
        static_cast<std::size_t>(std::clamp<std::int64_t>(width - frame.Left, 0, frame.Width));
    for (int n = 0; n < frame.Height; ++n) {
        if (DGifGetLine(gif, row.data(), frame.Width) != GIF_OK)
            return fits ? broken(picture, n, pixels) : Module::Decoded{0, false};
        const std::int64_t y = frame.Top + rowOf(n, frame.Height, frame.Interlace);
        if (y >= height) continue;
        std::uint8_t* to = pixels + (y * width + frame.Left) * 4;
        for (std::size_t x = 0; x < columns; ++x, to += 4) {
            if (row[x] == picture.control.TransparentColor || row[x] >= colors->ColorCount) continue;
            const GifColorType& color = colors->Colors[row[x]];
            to[0] = color.Red, to[1] = color.Green, to[2] = color.Blue, to[3] = 255;
        }
    }
    return {height};
}

/// Takes the frame's place on the canvas back to clear.
void clearFrame(const Picture& picture, std::uint8_t* pixels) {
    const GifImageDesc& frame = picture.gif->Image;
    const std::int64_t width = picture.header.width,
                       columns = std::clamp<std::int64_t>(width - frame.Left, 0, frame.Width);
    for (std::int64_t y = frame.Top;
         y < std::min<std::int64_t>(frame.Top + frame.Height, picture.header.height); ++y)
        std::memset(pixels + (y * width + frame.Left) * 4, 0, static_cast<std::size_t>(columns) * 4);
}

/// A frame stands on what those before it have left.
Module::Decoded decode(Picture* picture, std::uint8_t* pixels) {
    const auto bytes = static_cast<std::size_t>(picture->header.width * picture->header.height) * 4;
    std::memset(pixels, 0, bytes);
    for (int page = 0;; ++page) {
        const int disposal = picture->control.DisposalMode;
        std::vector<std::uint8_t> before;
        if (page < picture->input.page && disposal == DISPOSE_PREVIOUS) before.assign(pixels, pixels + bytes);
        const Module::Decoded drawn = drawFrame(*picture, pixels);
        if (page == picture->input.page) return drawn;
        if (!drawn.isSound) return {0, false, drawn.failure};
        if (disposal == DISPOSE_BACKGROUND) clearFrame(*picture, pixels);
        if (!before.empty()) std::memcpy(pixels, before.data(), bytes);
        if (!findFrame(*picture)) return {0, false};
    }
}

constexpr Module functions{open, close, decode, nullptr, nullptr};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
