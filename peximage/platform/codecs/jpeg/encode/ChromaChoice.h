#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"

namespace pex::jpeg {

/// Finds out whether a picture loses something visible with half chroma: drawings, screenshots and text have
/// saturated colours that change from one pixel to the next, photos hardly ever. Looks at a quarter of the
/// rows.
class ChromaChoice {
  public:
    /// The input has to outlive this.
    explicit ChromaChoice(const EncoderInput& input);

    /// Looks at the next strip of rows, from a multiple of 16 on; true while the picture looks well with half
    /// chroma.
    bool allowsHalf(int top, int end);

  private:
    const EncoderInput& input_;
    /// Cells that half chroma smears: so far, and up to how many nobody minds.
    int smeared_ = 0;
    double tolerable_;
};

} // namespace pex::jpeg
