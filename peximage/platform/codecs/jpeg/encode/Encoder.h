#pragma once

#include "peximage/platform/codecs/JpegOptions.h"
#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"
#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"
#include "peximage/platform/codecs/jpeg/encode/Quantisation.h"
#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace pex::jpeg {

/// Encodes one picture at one quality after another. What does not depend on the quality (colour conversion,
/// the cosine transform) is done once, in `make`; a further quality costs a fraction of a whole encoding. All
/// cores are used, and the bytes do not depend on their number.
///
/// Files begin with a JFIF segment. They are baseline JPEGs of one scan, or progressive ones, and have the
/// Huffman codes that suit them best.
///
/// An object serves one thread at a time.
class Encoder {
  public:
    static constexpr int mostPixelsPerSide = 65500;

    /// Null for sizes outside 1 to 65,500, and when there is not enough memory.
    static std::shared_ptr<Encoder> make(EncoderInput input, const JpegOptions& options = {});

    double pixelCount() const { return static_cast<double>(input_.width) * input_.height; }

    /// The picture at a quality from 0 to 1 (100 x quality is taken as it is, not rounded; at least 1).
    std::vector<std::uint8_t> encode(double quality);
    /// The same with whatever tables and rounding.
    std::vector<std::uint8_t> encode(const Quantisation& quantisation) const;

    /// The exact size of what `encode` gives. The bytes of the last two qualities asked for are kept, so that
    /// encoding one of them costs no more than a copy.
    std::size_t byteCount(double quality);
    bool knowsByteCount(double quality) const { return byteCounts_.contains(quality); }

    /// How much of the picture an estimate looks at: spots that tell the size to a few per cent, or four
    /// times as many for less than one.
    enum class Estimate { rough, fine };

    /// About what `byteCount` would say. Of a small picture it is exact up to the stuffing of the coded
    /// bytes.
    double estimatedByteCount(double quality, Estimate estimate) const;

    /// True only when `byteCount(quality)` is at least `bytes`; the proof stops as soon as it is found. False
    /// says nothing.
    bool surelyReaches(double quality, double bytes) const;

  private:
    struct Encoded {
        double quality;
        std::vector<std::uint8_t> bytes;
    };

    Encoder(EncoderInput input, TransformedPicture picture, const JpegOptions& options);

    /// With a trellis where there are codes for it.
    Scan scan(const Quantisation& quantisation, const ScanCodes* codes = nullptr) const;
    /// The scan at the encoder's effort; `count` tells the symbols of a scan.
    Scan bestScan(const Quantisation& quantisation,
                  const std::function<ScanCounts(const Scan&)>& count) const;
    FileHeader header(const Quantisation& quantisation) const;
    const std::vector<std::uint8_t>& encoded(double quality);

    /// Whose rows are not asked for any more.
    EncoderInput input_;
    TransformedPicture picture_;
    JpegOptions options_;
    std::deque<Encoded> lastEncoded_;
    std::map<double, std::size_t> byteCounts_;
};

} // namespace pex::jpeg
