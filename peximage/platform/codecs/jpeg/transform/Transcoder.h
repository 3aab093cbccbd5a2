#pragma once

#include "peximage/platform/codecs/jpeg/decode/LibraryDecoder.h"
#include "peximage/platform/foundation/Data.h"

#include <optional>

namespace pex::jpeg {

/// Along one axis of the stored picture: the pixels that stay, and whether they change ends.
struct Stretch {
    JDIMENSION begin = 0, end = 0;
    bool isMirrored = false;

    /// Where the result begins; that has to be a border between blocks.
    JDIMENSION start() const { return isMirrored ? end : begin; }
};

/// How a picture's blocks are laid out anew.
struct BlockPlan {
    Stretch across, down;      // as stored
    bool isTransposed = false; // rows become columns, once the stretches are cut and mirrored
    bool isProgressive = false;
};

/// Writes the coefficients of a file in another arrangement.
class Transcoder {
  public:
    /// Of a decoder that has read its header, and whose segments are all kept.
    explicit Transcoder(LibraryDecoder& decoder) : decoder_(decoder) {}
    ~Transcoder();
    Transcoder(const Transcoder&) = delete;
    Transcoder& operator=(const Transcoder&) = delete;

    /// Absent when the file turns out damaged. Stretches start at borders between blocks.
    std::optional<Data> write(const BlockPlan& plan);

  private:
    void begin(const BlockPlan& plan);
    void transpose();
    void arrange(const BlockPlan& plan);
    void arrange(int component, const BlockPlan& plan);
    void copySegments();

    LibraryDecoder& decoder_;
    jvirt_barray_ptr* stored_ = nullptr;
    jvirt_barray_ptr arranged_[MAX_COMPONENTS] = {};
    jpeg_compress_struct to_{};
    unsigned char* file_ = nullptr;
    unsigned long bytes_ = 0;
};

} // namespace pex::jpeg
