#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"
#include "peximage/platform/codecs/jpeg/decode/CodecLibrary.h"

#include <array>
#include <csetjmp>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// The codec library's decompressor reading from a provider, with its errors turned into false. Not to be
/// moved: the library keeps pointers into it.
class LibraryDecoder {
  public:
    explicit LibraryDecoder(CGDataProvider bytes);
    ~LibraryDecoder();
    LibraryDecoder(const LibraryDecoder&) = delete;
    LibraryDecoder& operator=(const LibraryDecoder&) = delete;

    /// Keeps all application segments and comments from the header on; to be called before it is read.
    void keepSegments();
    /// Reads up to the first scan, keeping profile and EXIF segments of at most `maxMetadataBytes` together.
    /// False when this is no JPEG that can be decoded.
    bool readHeader(std::size_t maxMetadataBytes);
    /// Begins to decode, as colours of `colorSpace`.
    bool start(J_COLOR_SPACE colorSpace);
    /// Decodes the next rows; less than `count` only when the file broke off. Never fails before the first
    /// error.
    bool readRows(JSAMPROW* rows, unsigned count);

    /// True when the file turned out damaged or cut short; what was decoded until then is good.
    bool isDamaged() const { return damaged_ || info_.err->num_warnings > 0; }
    /// True when reading ended for lack of memory.
    bool lacksMemory() const { return errors_.lacksMemory; }
    /// How many of the rows from the top show something of the picture, as far as decoding came: behind them
    /// the codes were missing.
    int rowsShown() const;
    const jpeg_decompress_struct& info() const { return info_; }
    jpeg_decompress_struct& info() { return info_; }

    /// Runs calls of the codec library; false when one reported an error. The callable must leave nothing
    /// behind that needs destroying: an error jumps out of it.
    template <class Call>
    bool guarded(Call&& call) {
        if (setjmp(errors_.escape) != 0) { // NOLINT: the codec library knows no other way out
            damaged_ = true;
            return false;
        }
        call();
        return true;
    }

    /// The embedded ICC profile, put together from its segments; empty when there is none.
    std::vector<std::uint8_t> iccProfile();
    /// The contents of the EXIF segments in the file's order, each beginning with "Exif".
    std::vector<std::vector<std::uint8_t>> exifSegments() const;

  private:
    struct Errors {
        jpeg_error_mgr base;
        std::jmp_buf escape;
        bool lacksMemory = false;
        bool endsEarly = false;
        JDIMENSION blockRowsShown = 0; // of whole MCUs, where it ends early
    };
    struct Source {
        jpeg_source_mgr base;
        CGDataProvider bytes;
        std::size_t position = 0;
        std::array<std::uint8_t, 4096> block{};
        bool ended = false;
    };

    static void fail(j_common_ptr info);
    static void noteMessage(j_common_ptr info, int level);
    static void initSource(j_decompress_ptr) {}
    static boolean fillSource(j_decompress_ptr info);
    static void skipSource(j_decompress_ptr info, long count);
    static void endSource(j_decompress_ptr) {}
    static void watchScans(j_common_ptr info);

    jpeg_decompress_struct info_{};
    Errors errors_{};
    Source source_;
    jpeg_progress_mgr progress_{};
    bool damaged_ = false;
};

} // namespace pex::jpeg
