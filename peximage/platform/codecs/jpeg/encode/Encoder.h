#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"
#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"
#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace pex::jpeg {

/// Encodes one picture at one quality after another. What does not depend on the quality (colour conversion,
/// the cosine transform) is done once, in `make`; a further quality costs a fraction of a whole encoding. All
/// cores are used, and the bytes do not depend on their number.
///
/// Files are baseline JPEGs with a JFIF segment first, recommended Huffman tables and one scan. Chroma has
/// half the picture's width and height below quality 0.9, and full size from there.
///
/// An object serves one thread at a time.
class Encoder {
  public:
    static constexpr int mostPixelsPerSide = 65500;

    /// Null for sizes outside 1 to 65,500, and when there is not enough memory.
    static std::shared_ptr<Encoder> make(EncoderInput input);

    double pixelCount() const { return static_cast<double>(input_.width) * input_.height; }

    /// The picture at a quality from 0 to 1 (100 x quality is taken as it is, not rounded; at least 1).
    std::vector<std::uint8_t> encode(double quality);

    /// The exact size of what `encode` gives. The bytes of the last two qualities asked for are kept, so that
    /// encoding one of them costs no more than a copy.
    std::size_t byteCount(double quality);
    bool knowsByteCount(double quality) const { return byteCounts_.contains(quality); }

    /// How much of the picture an estimate looks at: spots that tell the size to a few per cent, or four
    /// times as many for less than one.
    enum class Estimate { rough, fine };

    /// About what `byteCount` would say. Of a small picture it is exact up to the stuffing of the coded
    /// bytes.
    double estimatedByteCount(double quality, Estimate estimate);

    /// True only when `byteCount(quality)` is at least `bytes`; the proof stops as soon as it is found. False
    /// says nothing.
    bool surelyReaches(double quality, double bytes);

  private:
    struct Encoded {
        double quality;
        std::vector<std::uint8_t> bytes;
    };

    Encoder(EncoderInput input, Coefficients coefficients);

    /// Full chroma is made when first needed; if there is no memory for it, no quality has it.
    bool wantsFullChroma(double quality) const;
    bool hasFullChroma(double quality);
    Scan lumaScan(double quality) const;
    Scan scan(double quality);
    std::vector<std::uint8_t> header(double quality);
    const std::vector<std::uint8_t>& encoded(double quality);

    EncoderInput input_;
    Coefficients coefficients_, fullChroma_;
    bool noFullChroma_ = false;
    std::deque<Encoded> lastEncoded_;
    std::map<double, std::size_t> byteCounts_;
};

} // namespace pex::jpeg
