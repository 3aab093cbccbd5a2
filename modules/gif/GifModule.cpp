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
    int transparent = NO_TRANSPARENT_COLOR; // of the first frame
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

/// Goes on to the first frame; what extensions before it say of its transparent colour is kept. False when
/// there is none.
bool findFrame(Picture& picture) {
    GifFileType* gif = picture.gif.get();
    for (GifRecordType type; DGifGetRecordType(gif, &type) == GIF_OK;) {
        if (type == IMAGE_DESC_RECORD_TYPE) return DGifGetImageDesc(gif) == GIF_OK;
        if (type != EXTENSION_RECORD_TYPE) return false;
        int code = 0;
        GifByteType* block = nullptr;
        if (DGifGetExtension(gif, &code, &block) != GIF_OK) return false;
        for (; block != nullptr;) {
            GraphicsControlBlock control;
            if (code == GRAPHICS_EXT_FUNC_CODE && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK)
                picture.transparent = control.TransparentColor;
            if (DGifGetExtensionNext(gif, &block) != GIF_OK) return false;
        }
    }
    return false;
}

Picture* open(const Module::Input& input, const Module::Limits& limits, Module::Header* header) {
    auto picture = std::make_unique<Picture>();
    picture->input = input;
    picture->gif.reset(DGifOpen(picture.get(), readBytes, nullptr));
    if (!picture->gif || !findFrame(*picture)) return nullptr;
    const GifFileType& gif = *picture->gif;
    picture->header.width = std::max<std::int64_t>(gif.SWidth, gif.Image.Left + gif.Image.Width);
    picture->header.height = std::max<std::int64_t>(gif.SHeight, gif.Image.Top + gif.Image.Height);
    picture->header.pixels = Module::Pixels::rgbaStraight;
    if (!limits.allow(picture->header.width, picture->header.height)) return nullptr;
    *header = picture->header;
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

std::int64_t decode(Picture* picture, std::uint8_t* pixels) {
    GifFileType* gif = picture->gif.get();
    const GifImageDesc& frame = gif->Image;
    const ColorMapObject* colors = frame.ColorMap != nullptr ? frame.ColorMap : gif->SColorMap;
    const auto rowBytes = static_cast<std::size_t>(picture->header.width) * 4;
    std::memset(pixels, 0, rowBytes * static_cast<std::size_t>(picture->header.height));
    if (colors == nullptr) return 0;
    std::vector<GifPixelType> row(static_cast<std::size_t>(frame.Width));
    for (int n = 0; n < frame.Height; ++n) {
        if (DGifGetLine(gif, row.data(), frame.Width) != GIF_OK)
            return std::min<std::int64_t>(frame.Top + (frame.Interlace ? 0 : n), picture->header.height - 1);
        std::uint8_t* to =
            pixels +
            static_cast<std::size_t>(frame.Top + rowOf(n, frame.Height, frame.Interlace)) * rowBytes +
            static_cast<std::size_t>(frame.Left) * 4;
        for (const GifPixelType index : row) {
            if (index != picture->transparent && index < colors->ColorCount) {
                const GifColorType& color = colors->Colors[index];
                to[0] = color.Red, to[1] = color.Green, to[2] = color.Blue, to[3] = 255;
            }
            to += 4;
        }
    }
    return picture->header.height;
}

constexpr Module functions{open, close, decode, nullptr, nullptr};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
