#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"
#include "peximage/platform/raster/PixelView.h"

#include <png.h>

#include <csetjmp>
#include <cstddef>
#include <span>

namespace pex {

/// The codec library's decoder reading from a provider, with its errors turned into false. Not to be moved:
/// the library keeps a pointer to it.
class PngDecoder {
  public:
    explicit PngDecoder(CGDataProvider bytes);
    ~PngDecoder();
    PngDecoder(const PngDecoder&) = delete;
    PngDecoder& operator=(const PngDecoder&) = delete;

    /// Reads the chunks before the pixels, refusing any of more than `maxChunkBytes`, or of a profile that
    /// unpacks to more. False when this is no PNG that can be decoded.
    bool readHeader(std::size_t maxChunkBytes);
    /// Begins to decode into `layout`: grey, skipLast or straightLast.
    bool start(PixelLayout layout);
    /// Decodes the next rows of a picture that is not interlaced; how many came before the file broke off.
    int readRows(MutablePixelView rows);
    /// Decodes a picture in all its passes. Where it broke off, earlier passes still show as coarse blocks:
    /// how many rows show something.
    int readInterlaced(MutablePixelView picture);

    /// True when the pixels turned out damaged or cut short.
    bool isDamaged() const { return damaged_; }
    /// True when reading ended for lack of memory.
    bool lacksMemory() const { return lacksMemory_; }
    /// How many bytes of the file were read.
    std::size_t position() const { return position_; }

    /// For the library's getters, which neither fail nor read.
    png_const_structp png() const { return png_; }
    png_infop info() const { return info_; }

  private:
    /// Runs calls of the library; false when one reported an error. The callable must leave nothing behind
    /// that needs destroying: an error jumps out of it.
    template <class Call>
    bool guarded(Call&& call);

    static void readBytes(png_structp png, png_bytep into, std::size_t count);
    [[noreturn]] static void fail(png_structp png, png_const_charp message);
    static png_voidp allocate(png_structp png, png_alloc_size_t bytes);
    static void release(png_structp png, png_voidp memory);
    static void warn(png_structp png, png_const_charp message);

    CGDataProvider bytes_;
    std::size_t position_ = 0;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    std::jmp_buf escape_{};
    int rowsRead_ = 0; // of the call in progress: a local variable would not survive the jump
    bool started_ = false;
    bool damaged_ = false;
    bool lacksMemory_ = false;
};

} // namespace pex
