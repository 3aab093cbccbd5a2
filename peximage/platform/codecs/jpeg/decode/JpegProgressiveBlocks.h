#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

// clang-format off: it needs what stands before it
#include <jpeglib.h>
// clang-format on

namespace pex {

/// Decodes the coefficients of progressive files in the place of the codec library: faster, on all cores, and
/// into memory of large pages. The library goes on from there, while the last scans are still being decoded.
/// At the first sign of damage it is given up with an error: the file is then for the library alone.
class JpegProgressiveBlocks {
  public:
    /// Of a decompressor that has read the header from bytes in memory, and knows the scale of its output.
    /// Null when the file is unusual or seen to be damaged, and for lack of memory.
    static std::unique_ptr<JpegProgressiveBlocks> decode(j_decompress_ptr info);
    ~JpegProgressiveBlocks();

    /// Has a decompressor take the coefficients from here when it is started. Must live as long as the
    /// decoding, and is the decompressor's `client_data`.
    void prepare(j_decompress_ptr info);
    /// Begins the output of a decompressor that was prepared and started.
    static void startOutput(j_decompress_ptr info);

    bool gaveUp() const { return gaveUp_; }

  private:
    struct Plane;
    class Scan;
    struct Picture;

    explicit JpegProgressiveBlocks(std::shared_ptr<Picture> picture);
    static jvirt_barray_ptr requestRows(j_common_ptr info, int pool, boolean zeroed, JDIMENSION wide,
                                        JDIMENSION high, JDIMENSION atOnce);
    static JBLOCKARRAY accessRows(j_common_ptr info, jvirt_barray_ptr rowsOf, JDIMENSION row,
                                  JDIMENSION count, boolean isWritten);

    std::shared_ptr<Picture> picture_; // shared with who decodes
    std::size_t requested_ = 0;        // planes that the library has asked for
    bool gaveUp_ = false;
};

} // namespace pex
