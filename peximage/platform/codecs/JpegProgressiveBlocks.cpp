#include "peximage/platform/codecs/JpegProgressiveBlocks.h"

#include "peximage/platform/codecs/JpegProgressiveCodes.h"
#include "peximage/platform/foundation/Workers.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <utility>

extern "C" {
#include <jpegint.h>
}

namespace pex {
namespace {

int ceilDiv(JDIMENSION a, int b) { return (static_cast<int>(a) + b - 1) / b; }

} // namespace

/// A scan that is being decoded, and how far it is.
class JpegProgressiveBlocks::Scan {
  public:
    Scan(JpegProgressiveBlocks& blocks, const JpegProgressiveScan& scan)
        : blocks_(blocks), scan_(scan), codes_(scan), isInTurns_(scan.components.size() > 1) {}

    void follow(const Scan& scan) {
        const auto isShared = [&](int component) {
            return std::count(scan_.components.begin(), scan_.components.end(), component) > 0;
        };
        if (std::any_of(scan.scan_.components.begin(), scan.scan_.components.end(), isShared))
            before_.push_back(&scan);
    }

    /// False when it is damaged.
    bool decode() {
        const int count = isInTurns_ ? blocks_.mcusHigh_ : plane(0).ownHigh;
        bool isGood = true;
        for (int row = 0; row < count && isGood; ++row) {
            for (const Scan* scan : before_)
                scan->waitFor(mcuRowOf(row));
            isGood = decodeRow(row);
            tell(mcuRowOf(row + 1));
        }
        tell(std::numeric_limits<int>::max());
        return isGood && codes_.isAtEnd();
    }

  private:
    Plane& plane(std::size_t i) const {
        return blocks_.planes_[static_cast<std::size_t>(scan_.components[i])];
    }
    int mcuRowOf(int row) const { return isInTurns_ ? row : row / plane(0).down; }

    void tell(int mcuRowsDone) {
        mcuRowsDone_ = mcuRowsDone;
        mcuRowsDone_.notify_all();
    }
    void waitFor(int mcuRow) const {
        for (int done = mcuRowsDone_; done <= mcuRow; done = mcuRowsDone_)
            mcuRowsDone_.wait(done);
    }

    bool decodeRow(int row) {
        if (scan_.first == 0)
            return isInTurns_ ? decodeTurns(row) : decodeFirsts(plane(0), row, 0, 0, plane(0).ownWide);
        const Plane& of = plane(0);
        const auto y = static_cast<std::size_t>(row);
        return codes_.decodeBand(of.rows[y], of.nonzero[y], of.ownWide);
    }

    /// A row of MCUs.
    bool decodeTurns(int row) {
        for (int x = 0; x < blocks_.mcusWide_; ++x) {
            for (std::size_t i = 0; i < scan_.components.size(); ++i) {
                const Plane& of = plane(i);
                for (int y = 0; y < of.down; ++y) {
                    if (!decodeFirsts(of, row * of.down + y, i, x * of.across, (x + 1) * of.across))
                        return false;
                }
            }
        }
        return true;
    }

    bool decodeFirsts(const Plane& of, int row, std::size_t i, int begin, int end) {
        const auto y = static_cast<std::size_t>(row);
        if (!scan_.refines) std::fill(of.nonzero[y] + begin, of.nonzero[y] + end, 0);
        return codes_.decodeFirsts(of.rows[y] + begin, end - begin, i);
    }

    JpegProgressiveBlocks& blocks_;
    const JpegProgressiveScan& scan_;
    JpegProgressiveCodes codes_;
    const bool isInTurns_;
    std::vector<const Scan*> before_; // of the same components
    std::atomic<int> mcuRowsDone_{0};
};

std::unique_ptr<JpegProgressiveBlocks> JpegProgressiveBlocks::decode(j_decompress_ptr info) {
    const JpegProgression progression = JpegProgression::read(info);
    if (progression.scans.empty()) return nullptr;
    std::unique_ptr<JpegProgressiveBlocks> blocks(new JpegProgressiveBlocks);
    return blocks->allocate(info) && blocks->decode(progression) ? std::move(blocks) : nullptr;
}

bool JpegProgressiveBlocks::allocate(j_decompress_ptr info) {
    mcusWide_ = ceilDiv(info->image_width, info->max_h_samp_factor * DCTSIZE);
    mcusHigh_ = ceilDiv(info->image_height, info->max_v_samp_factor * DCTSIZE);
    std::size_t blocks = 0;
    for (int i = 0; i < info->num_components; ++i) {
        const jpeg_component_info& of = info->comp_info[i];
        planes_.push_back(
            {of.DCT_scaled_size > 1, of.h_samp_factor, of.v_samp_factor, static_cast<int>(of.width_in_blocks),
             static_cast<int>(of.height_in_blocks),
             std::vector<JBLOCKROW>(static_cast<std::size_t>(mcusHigh_ * of.v_samp_factor)),
             std::vector<std::uint64_t*>(static_cast<std::size_t>(mcusHigh_ * of.v_samp_factor))});
        blocks += planes_.back().rows.size() * static_cast<std::size_t>(mcusWide_ * of.h_samp_factor);
    }
    memory_ = PixelBuffer::make(blocks * (sizeof(JBLOCK) + sizeof(std::uint64_t)));
    if (!memory_) return false;
    auto* block = reinterpret_cast<JBLOCKROW>(memory_.data());
    auto* nonzero = reinterpret_cast<std::uint64_t*>(memory_.data() + blocks * sizeof(JBLOCK));
    for (Plane& plane : planes_) {
        const int wide = mcusWide_ * plane.across;
        for (std::size_t y = 0; y < plane.rows.size(); ++y, block += wide, nonzero += wide) {
            plane.rows[y] = block;
            plane.nonzero[y] = nonzero;
        }
    }
    return true;
}

/// On all cores: a scan that builds on others follows them row by row.
bool JpegProgressiveBlocks::decode(const JpegProgression& progression) {
    std::deque<Scan> scans;
    for (const JpegProgressiveScan& scan : progression.scans) {
        const bool shows =
            scan.first == 0 || planes_[static_cast<std::size_t>(scan.components[0])].showsDetail;
        if (!shows) continue;
        Scan& added = scans.emplace_back(*this, scan);
        for (const Scan& before : scans) {
            if (&before != &added) added.follow(before);
        }
    }
    // Whoever is free takes the next one, so that those that it waits for are being decoded.
    std::atomic<std::size_t> next{0};
    std::atomic<bool> isGood{true};
    Workers::forEach(std::min(Workers::count(), static_cast<int>(scans.size())), [&](int, int) {
        for (std::size_t i = next++; i < scans.size(); i = next++) {
            if (!scans[i].decode()) isGood = false;
        }
    });
    return isGood;
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
    return reinterpret_cast<jvirt_barray_ptr>(&self.planes_[self.requested_++]);
}

JBLOCKARRAY JpegProgressiveBlocks::accessRows(j_common_ptr, jvirt_barray_ptr plane, JDIMENSION row,
                                              JDIMENSION, boolean) {
    return &reinterpret_cast<Plane*>(plane)->rows[row];
}

} // namespace pex
