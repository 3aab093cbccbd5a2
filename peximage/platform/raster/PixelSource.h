#pragma once

#include "peximage/platform/raster/CGColorSpace.h"
#include "peximage/platform/raster/DecodingRecord.h"
#include "peximage/platform/raster/PixelView.h"

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace pex {

struct PixelSize {
    int width = 0;
    int height = 0;

    friend constexpr bool operator==(PixelSize, PixelSize) = default;
};

/// The outcome of decoding some rows.
struct DecodedRows {
    /// How many of them show something of the picture, if only coarsely, as after the first scans of a
    /// progressive file. `fillMissing` has filled the others.
    int shown = 0;
    /// False once the file was found cut short or damaged, even if all rows show something.
    bool isSound = true;
};

/// Hands out the rows of a picture from top to bottom, once.
class RowReader {
  public:
    virtual ~RowReader() = default;

    /// Fills `rows` (of the picture's width and layout) with the next rows. Absent, with a reason,
    /// when memory runs out, or when the last row was read and none has shown anything.
    std::optional<DecodedRows> read(MutablePixelView rows);

  private:
    friend class PixelSource;
    /// Does the work of `read`. When this computer rather than the file is the cause of a failure:
    /// absent with a reason, or throws `std::bad_alloc`. It is not called again afterwards.
    virtual std::optional<DecodedRows> readNext(MutablePixelView rows) = 0;

    std::shared_ptr<DecodingRecord> record_;
    int height_ = 0, asked_ = 0, shown_ = 0;
    bool isSound_ = true, failed_ = false;
    std::chrono::steady_clock::duration taken_{}; // in `readNext`
};

/// A picture that is not in memory yet: an encoded file, or another source turned upright. Immutable but for
/// the record of its decodings: any number of threads may decode it at once.
class PixelSource {
  public:
    PixelSource() : PixelSource(std::make_shared<DecodingRecord>()) {}
    /// For a source that shows the picture of another one and shares its record.
    explicit PixelSource(std::shared_ptr<DecodingRecord> record) : record_(std::move(record)) {}
    virtual ~PixelSource() = default;

    virtual PixelSize size() const = 0;
    virtual PixelLayout layout() const = 0;
    virtual CGColorSpace colorSpace() const = 0;

    /// The smallest size of at least `minimum` at which the source decodes more cheaply without loss of
    /// quality; its own size when there is none.
    virtual PixelSize reducedSize(PixelSize minimum) const;

    /// Rows at `size`, which is the own size or one that `reducedSize` gave. Null when the source cannot be
    /// decoded row by row without holding the whole picture, or not at all; `decode` then does it or has the
    /// reason.
    std::unique_ptr<RowReader> rows(PixelSize size) const;

    /// Decodes the whole picture into `pixels`, which has such a size and the source's layout.
    /// Absent, with a reason, when memory runs out or no row shows anything.
    std::optional<DecodedRows> decode(MutablePixelView pixels) const;

    const std::shared_ptr<DecodingRecord>& record() const { return record_; }

  protected:
    virtual std::unique_ptr<RowReader> makeRows(PixelSize size) const = 0;
    /// As `RowReader::readNext`, for the whole picture; by default decodes row by row.
    virtual std::optional<DecodedRows> decodeAll(MutablePixelView pixels) const;

  private:
    std::shared_ptr<DecodingRecord> record_;
};

/// Fills rows that could not be decoded: transparent, or mid grey without alpha.
void fillMissing(MutablePixelView rows);

/// The reason why a picture of which no row is shown is absent.
void giveNothingShown();

} // namespace pex
