#pragma once

#include "peximage/platform/codecs/JpegProgression.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace pex {

/// The coefficients of all blocks of a progressive file, decoded in the place of the codec library: faster,
/// on all cores, and into memory of large pages. The library goes on from there.
class JpegProgressiveBlocks {
  public:
    /// Of a decompressor that has read the header from bytes in memory, and knows the scale of its output.
    /// Null when the file is damaged or unusual, and for lack of memory: it is then for the library alone.
    static std::unique_ptr<JpegProgressiveBlocks> decode(j_decompress_ptr info);

    /// Has a decompressor take the coefficients from here when it is started. Must live as long as the
    /// decoding, and is the decompressor's `client_data`.
    void prepare(j_decompress_ptr info);
    /// Begins the output of a decompressor that was prepared and started.
    static void startOutput(j_decompress_ptr info);

  private:
    class Scan;

    /// The blocks of one component, to whole MCUs.
    struct Plane {
        bool showsDetail;     // more than the first coefficients
        int across, down;     // the blocks in an MCU
        int ownWide, ownHigh; // the blocks that a scan of the component alone has
        std::vector<JBLOCKROW> rows;
        /// For each block, bit k is set where coefficient k, in the order of the file, is not zero.
        std::vector<std::uint64_t*> nonzero;
    };

    JpegProgressiveBlocks() = default;
    bool allocate(j_decompress_ptr info);
    bool decode(const JpegProgression& progression);

    static jvirt_barray_ptr requestRows(j_common_ptr info, int pool, boolean zeroed, JDIMENSION wide,
                                        JDIMENSION high, JDIMENSION atOnce);
    static JBLOCKARRAY accessRows(j_common_ptr info, jvirt_barray_ptr plane, JDIMENSION row, JDIMENSION count,
                                  boolean isWritten);

    PixelBuffer memory_;
    std::vector<Plane> planes_;
    std::size_t requested_ = 0; // planes that the library has asked for
    int mcusWide_ = 0, mcusHigh_ = 0;
};

} // namespace pex
