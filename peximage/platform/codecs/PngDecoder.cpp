#include "peximage/platform/codecs/PngDecoder.h"

#include "peximage/platform/foundation/WorkState.h"

#include <algorithm>
#include <cstdlib>

namespace pex {
namespace {

/// Chunks that nobody asks for are not kept.
constexpr png_byte ignoredChunks[] = "bKGD\0hIST\0iTXt\0oFFs\0pCAL\0sBIT\0sCAL\0sPLT\0tEXt\0tIME\0zTXt";
constexpr int ignoredChunkCount = sizeof ignoredChunks / 5;

} // namespace

PngDecoder::PngDecoder(CGDataProvider bytes) : bytes_(std::move(bytes)) {
    // An error in these calls gives null: they do not report it.
    png_ = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, this, fail, warn, this, allocate, release);
    if (png_) info_ = png_create_info_struct(png_);
}

png_voidp PngDecoder::allocate(png_structp png, png_alloc_size_t bytes) {
    void* const memory = std::malloc(bytes);
    if (memory == nullptr) static_cast<PngDecoder*>(png_get_mem_ptr(png))->lacksMemory_ = true;
    return memory;
}

void PngDecoder::release(png_structp, png_voidp memory) { std::free(memory); }

PngDecoder::~PngDecoder() { png_destroy_read_struct(&png_, &info_, nullptr); }

void PngDecoder::fail(png_structp png, png_const_charp) {
    std::longjmp(static_cast<PngDecoder*>(png_get_error_ptr(png))->escape_, 1);
}

void PngDecoder::warn(png_structp png, png_const_charp) {
    auto& decoder = *static_cast<PngDecoder*>(png_get_error_ptr(png));
    // Oddities in the header do no harm to the pixels.
    if (decoder.started_) decoder.damaged_ = true;
}

void PngDecoder::readBytes(png_structp png, png_bytep into, std::size_t count) {
    auto& decoder = *static_cast<PngDecoder*>(png_get_io_ptr(png));
    const std::size_t got = decoder.bytes_.read(decoder.position_, {into, count});
    decoder.position_ += got;
    if (got < count) png_error(png, "cut short");
}

template <class Call>
bool PngDecoder::guarded(Call&& call) {
    if (setjmp(escape_) != 0) { // NOLINT: the codec library knows no other way out
        damaged_ = true;
        return false;
    }
    call();
    return true;
}

bool PngDecoder::readHeader(std::size_t maxChunkBytes) {
    if (!png_ || !info_) return false;
    return guarded([&] {
        png_set_read_fn(png_, this, readBytes);
        png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX); // the caller has limits of its own
        png_set_chunk_malloc_max(png_, maxChunkBytes);
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, ignoredChunks, ignoredChunkCount);
        png_read_info(png_, info_);
    });
}

bool PngDecoder::start(PixelLayout layout) {
    const bool good = guarded([&] {
        // A wrong checksum of the pixels is noted, but decoding goes on to the end of the data.
        png_set_crc_action(png_, PNG_CRC_WARN_USE, PNG_CRC_NO_CHANGE);
        png_set_expand(png_);
        png_set_scale_16(png_);
        if (layout != PixelLayout::grey) png_set_gray_to_rgb(png_);
        if (layout == PixelLayout::skipLast) png_set_filler(png_, 0xFF, PNG_FILLER_AFTER);
        png_set_interlace_handling(png_);
        png_read_update_info(png_, info_);
    });
    const std::size_t width = png_get_image_width(png_, info_);
    started_ =
        good && png_get_rowbytes(png_, info_) == width * static_cast<std::size_t>(bytesPerPixel(layout));
    return started_;
}

int PngDecoder::readRows(MutablePixelView rows) {
    rowsRead_ = 0;
    if (!started_) return 0;
    started_ = guarded([&] {
        for (; rowsRead_ < rows.height && !isWorkStopped(); ++rowsRead_)
            png_read_row(png_, rows.row(rowsRead_), nullptr);
    });
    return rowsRead_;
}

int PngDecoder::readInterlaced(MutablePixelView picture) {
    rowsRead_ = 0;
    if (!started_) return 0;
    guarded([&] {
        for (int pass = 0; pass < PNG_INTERLACE_ADAM7_PASSES; ++pass) {
            for (int y = 0; y < picture.height && !isWorkStopped(); ++y) {
                png_read_row(png_, nullptr, picture.row(y));
                rowsRead_ = std::max(rowsRead_, y + 1);
            }
        }
    });
    return rowsRead_;
}

} // namespace pex
