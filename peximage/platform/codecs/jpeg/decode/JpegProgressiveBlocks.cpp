#include "peximage/platform/codecs/jpeg/decode/JpegProgressiveBlocks.h"

#include "peximage/platform/codecs/jpeg/decode/JpegProgression.h"
#include "peximage/platform/codecs/jpeg/decode/JpegProgressiveCodes.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <jerror.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <limits>
#include <utility>
#include <vector>

extern "C" {
#include <jpegint.h>
}

namespace pex {
namespace {

int ceilDiv(JDIMENSION a, int b) { return (static_cast<int>(a) + b - 1) / b; }

} // namespace

/// The blocks of one component, to whole MCUs.
struct JpegProgressiveBlocks::Plane {
    bool showsDetail;     // more than the first coefficients
    int across, down;     // the blocks in an MCU
    int ownWide, ownHigh; // the blocks that a scan of the component alone has
    std::vector<JBLOCKROW> rows;
    /// For each block, bit k is set where coefficient k, in the order of the file, is not zero.
    std::vector<std::uint64_t*> nonzero;
};

/// A scan that is being decoded, and how far it is.
class JpegProgressiveBlocks::Scan {
  public:
    Scan(Picture& picture, const JpegProgressiveScan& scan)
        : picture_(picture), scan_(scan), codes_(scan), isInTurns_(scan.components.size() > 1) {}

    void follow(const Scan& scan) {
        const auto isShared = [&](int component) {
            return std::count(scan_.components.begin(), scan_.components.end(), component) > 0;
        };
        if (std::any_of(scan.scan_.components.begin(), scan.scan_.components.end(), isShared))
            before_.push_back(&scan);
    }

    void decode();

    void waitFor(int mcuRow) const {
        for (int done = mcuRowsDone_; done <= mcuRow; done = mcuRowsDone_)
            mcuRowsDone_.wait(done);
    }

  private:
    const Plane& plane(std::size_t i) const;
    int mcuRowOf(int row) const { return isInTurns_ ? row : row / plane(0).down; }
    void tell(int mcuRowsDone) {
        mcuRowsDone_ = mcuRowsDone;
        mcuRowsDone_.notify_all();
    }
    bool decodeRow(int row);
    bool decodeTurns(int row);
    bool decodeFirsts(const Plane& of, int row, std::size_t i, int begin, int end);

    Picture& picture_;
    const JpegProgressiveScan& scan_;
    JpegProgressiveCodes codes_;
    const bool isInTurns_;
    std::vector<const Scan*> before_; // of the same components
    std::atomic<int> mcuRowsDone_{0};
};

struct JpegProgressiveBlocks::Picture : std::enable_shared_from_this<Picture> {
    Picture(j_decompress_ptr info, JpegProgression theProgression)
        : progression(std::move(theProgression)),
          mcusWide(ceilDiv(info->image_width, info->max_h_samp_factor * DCTSIZE)),
          mcusHigh(ceilDiv(info->image_height, info->max_v_samp_factor * DCTSIZE)) {}

    bool allocate(j_decompress_ptr info);
    void addScans();
    void decode();
    void decodeScans();

    const JpegProgression progression;
    const int mcusWide, mcusHigh;
    PixelBuffer memory;
    std::vector<Plane> planes;
    std::deque<Scan> scans;
    std::atomic<std::size_t> next{0};   // scan that nobody decodes yet
    std::atomic<bool> isStopped{false}; // it is damaged, or nobody wants it any more
};

const JpegProgressiveBlocks::Plane& JpegProgressiveBlocks::Scan::plane(std::size_t i) const {
    return picture_.planes[static_cast<std::size_t>(scan_.components[i])];
}

void JpegProgressiveBlocks::Scan::decode() {
    const int count = isInTurns_ ? picture_.mcusHigh : plane(0).ownHigh;
    bool isGood = true;
    for (int row = 0; row < count && isGood; ++row) {
        for (const Scan* scan : before_)
            scan->waitFor(mcuRowOf(row));
        isGood = !picture_.isStopped && decodeRow(row);
        if (isGood && row + 1 < count) tell(mcuRowOf(row + 1));
    }
    if (!isGood || !codes_.isAtEnd()) picture_.isStopped = true;
    tell(std::numeric_limits<int>::max());
}

bool JpegProgressiveBlocks::Scan::decodeRow(int row) {
    const Plane& of = plane(0);
    if (scan_.first == 0) return isInTurns_ ? decodeTurns(row) : decodeFirsts(of, row, 0, 0, of.ownWide);
    const auto y = static_cast<std::size_t>(row);
    return codes_.decodeBand(of.rows[y], of.nonzero[y], of.ownWide);
}

/// A row of MCUs.
bool JpegProgressiveBlocks::Scan::decodeTurns(int row) {
    for (int x = 0; x < picture_.mcusWide; ++x) {
        for (std::size_t i = 0; i < scan_.components.size(); ++i) {
            const Plane& of = plane(i);
            for (int y = 0; y < of.down; ++y) {
                if (!decodeFirsts(of, row * of.down + y, i, x * of.across, (x + 1) * of.across)) return false;
            }
        }
    }
    return true;
}

bool JpegProgressiveBlocks::Scan::decodeFirsts(const Plane& of, int row, std::size_t i, int begin, int end) {
    const auto y = static_cast<std::size_t>(row);
    if (!scan_.refines) std::fill(of.nonzero[y] + begin, of.nonzero[y] + end, 0);
    return codes_.decodeFirsts(of.rows[y] + begin, end - begin, i);
}

bool JpegProgressiveBlocks::Picture::allocate(j_decompress_ptr info) {
    std::size_t blocks = 0;
    for (int i = 0; i < info->num_components; ++i) {
        const jpeg_component_info& of = info->comp_info[i];
        const auto rows = static_cast<std::size_t>(mcusHigh) * static_cast<std::size_t>(of.v_samp_factor);
        planes.push_back({of.DCT_scaled_size > 1, of.h_samp_factor, of.v_samp_factor,
                          static_cast<int>(of.width_in_blocks), static_cast<int>(of.height_in_blocks),
                          std::vector<JBLOCKROW>(rows), std::vector<std::uint64_t*>(rows)});
        blocks += rows * static_cast<std::size_t>(mcusWide) * static_cast<std::size_t>(of.h_samp_factor);
    }
    memory = PixelBuffer::make(blocks * (sizeof(JBLOCK) + sizeof(std::uint64_t)));
    if (!memory) return false;
    auto* block = reinterpret_cast<JBLOCKROW>(memory.data());
    auto* nonzero = reinterpret_cast<std::uint64_t*>(memory.data() + blocks * sizeof(JBLOCK));
    for (Plane& plane : planes) {
        const int wide = mcusWide * plane.across;
        for (std::size_t y = 0; y < plane.rows.size(); ++y, block += wide, nonzero += wide) {
            plane.rows[y] = block;
            plane.nonzero[y] = nonzero;
        }
    }
    return true;
}

void JpegProgressiveBlocks::Picture::addScans() {
    for (const JpegProgressiveScan& scan : progression.scans) {
        const bool shows =
            scan.first == 0 || planes[static_cast<std::size_t>(scan.components[0])].showsDetail;
        if (!shows) continue;
        Scan& added = scans.emplace_back(*this, scan);
        for (const Scan& before : scans) {
            if (&before != &added) added.follow(before);
        }
    }
}

/// Returns when every scan has at least somebody who decodes it.
void JpegProgressiveBlocks::Picture::decode() {
    const int helpers = std::min(Workers::count(), static_cast<int>(scans.size())) - 1;
    for (int i = 0; i < helpers; ++i)
        Workers::run([self = shared_from_this()] { self->decodeScans(); });
    decodeScans();
}

/// One after the other that nobody is at. A scan waits only for earlier ones, that somebody is at.
void JpegProgressiveBlocks::Picture::decodeScans() {
    for (std::size_t i = next++; i < scans.size(); i = next++)
        scans[i].decode();
}

JpegProgressiveBlocks::JpegProgressiveBlocks(std::shared_ptr<Picture> picture)
    : picture_(std::move(picture)) {}

JpegProgressiveBlocks::~JpegProgressiveBlocks() { picture_->isStopped = true; }

std::unique_ptr<JpegProgressiveBlocks> JpegProgressiveBlocks::decode(j_decompress_ptr info) {
    JpegProgression progression = JpegProgression::read(info);
    if (progression.scans.empty()) return nullptr;
    auto picture = std::make_shared<Picture>(info, std::move(progression));
    if (!picture->allocate(info)) return nullptr;
    picture->addScans();
    std::unique_ptr<JpegProgressiveBlocks> blocks(new JpegProgressiveBlocks(picture));
    picture->decode();
    return picture->isStopped ? nullptr : std::move(blocks);
}

void JpegProgressiveBlocks::prepare(j_decompress_ptr info) {
    info->client_data = this;
    info->mem->request_virt_barray = requestRows;
    info->mem->access_virt_barray = accessRows;
    info->do_block_smoothing = FALSE; // there is nothing to guess
    info->buffered_image = TRUE;      // else it would read the scans itself
}

void JpegProgressiveBlocks::startOutput(j_decompress_ptr info) {
    info->inputctl->eoi_reached = TRUE;
    info->input_iMCU_row = info->total_iMCU_rows;
    jpeg_start_output(info, 1);
}

/// The library asks once for each component, in their order.
jvirt_barray_ptr JpegProgressiveBlocks::requestRows(j_common_ptr info, int, boolean, JDIMENSION, JDIMENSION,
                                                    JDIMENSION) {
    auto& self = *static_cast<JpegProgressiveBlocks*>(info->client_data);
    return reinterpret_cast<jvirt_barray_ptr>(&self.picture_->planes[self.requested_++]);
}

JBLOCKARRAY JpegProgressiveBlocks::accessRows(j_common_ptr info, jvirt_barray_ptr rowsOf, JDIMENSION row,
                                              JDIMENSION count, boolean) {
    auto& self = *static_cast<JpegProgressiveBlocks*>(info->client_data);
    auto& plane = *reinterpret_cast<Plane*>(rowsOf);
    for (const Scan& scan : self.picture_->scans)
        scan.waitFor(static_cast<int>(row + count - 1) / plane.down);
    if (self.picture_->isStopped) {
        self.gaveUp_ = true;
        ERREXIT(info, JERR_INPUT_EOF);
    }
    return &plane.rows[row];
}

} // namespace pex
