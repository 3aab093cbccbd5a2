#pragma once

#include <cstddef>
#include <cstdint>

namespace pex {

/// What a module of a picture format offers. Calls for different pictures may run at once.
struct CodecModule {
    static constexpr int version = 4;

    /// Bytes by position, of memory or of a file, and which of the pictures in them is meant.
    struct Input {
        void* context;
        std::size_t size;
        const std::uint8_t* bytes; // all of them when they are in memory, else null
        /// Copies bytes from `offset` on; how many there were.
        std::size_t (*read)(void* context, std::size_t offset, std::uint8_t* into, std::size_t count);
        int page = 0; // from 0, less than the `pages` of the header
    };

    enum class Pixels { grey, rgbx, rgbaStraight, rgbaPremultiplied, cmyk }; // cmyk: 255 is full ink

    struct Header {
        std::int64_t width = 0, height = 0;
        Pixels pixels = Pixels::rgbx; // as `decode` gives them
        int depth = 8;                // bits of a component in the file
        int orientation = 1; // as EXIF counts, 0 where its block tells; what `decode` turns does not count
        double dpiX = 0, dpiY = 0; // 0: not told
        int pages = 1;             // pictures in the file: pages, or frames of an animation
        // Held by the picture until it is closed; null where there is none.
        const std::uint8_t* profile = nullptr;
        std::size_t profileBytes = 0;
        const std::uint8_t* exif = nullptr;
        std::size_t exifBytes = 0;
        const std::uint8_t* xmp = nullptr;
        std::size_t xmpBytes = 0;
    };

    struct Limits {
        std::size_t metadataBytes; // of one piece
        std::int64_t side, pixels;

        bool allow(std::int64_t width, std::int64_t height) const {
            return width >= 1 && width <= side && height >= 1 && height <= side && width <= pixels / height;
        }
    };

    /// Why a call failed. A lack of memory may also throw `std::bad_alloc`.
    enum class Failure { none, damaged, overLimit, outOfMemory, noThread };

    struct Picture;
    /// Reads the header only. Null, and `failure` says why, when this is no such picture or breaks a limit:
    /// one of size, by that of `header`. Metadata that break one are left out. The input must outlive the
    /// picture.
    Picture* (*open)(const Input& input, const Limits& limits, Header* header, Failure* failure);
    void (*close)(Picture* picture);

    struct Decoded {
        std::int64_t rows = 0; // from the top, that show something; the pixels of the others do not count
        bool isSound = true;   // none missing, none from damaged bytes
        Failure failure = Failure::none; // what has to do with this computer and not with the file
        std::int64_t blank = 0;          // rows among those that show nothing after all
    };
    /// Decodes all rows, top first, `width` × 4 bytes each (grey: `width`) without padding; once.
    Decoded (*decode)(Picture* picture, std::uint8_t* pixels);

    /// Whether the file ends before the pixels do, as the header tells. Null where it does not.
    bool (*breaksOff)(Picture* picture);

    enum class Compression { usual, other }; // HEIF: HEVC, or AV1
    struct Encoding {
        int width, height;
        const std::uint8_t* pixels; // R G B A, straight
        std::ptrdiff_t bytesPerRow;
        bool hasAlpha;
        bool tenBits;   // a component, where there is no alpha
        double quality; // 0-1
        Compression compression;
        double dpiX, dpiY; // 0: none
        const std::uint8_t* profile;
        std::size_t profileBytes;
        int threads;
        // Null where there is none; a module whose format cannot hold them does not look at them.
        const std::uint8_t* exif;
        std::size_t exifBytes;
        const std::uint8_t* xmp;
        std::size_t xmpBytes;
    };
    /// Hands the file to `write`, in one piece or several, unless it fails. Null where the format is only
    /// read.
    Failure (*encode)(const Encoding& picture,
                      void (*write)(void* context, const std::uint8_t* bytes, std::size_t count),
                      void* context);
};

} // namespace pex
