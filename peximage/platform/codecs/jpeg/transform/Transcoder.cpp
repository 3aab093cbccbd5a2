#include "peximage/platform/codecs/jpeg/transform/Transcoder.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace pex::jpeg {
namespace {

/// Where each coefficient of a block comes from, and whether it changes its sign: the waves of odd frequency
/// are those that a mirror turns over.
struct CoefficientPlan {
    std::array<int, DCTSIZE2> from;
    std::array<bool, DCTSIZE2> isNegated;

    explicit CoefficientPlan(const BlockPlan& plan) {
        for (int i = 0; i < DCTSIZE2; ++i) {
            int x = i % DCTSIZE, y = i / DCTSIZE;
            if (plan.isTransposed) std::swap(x, y);
            const bool across = plan.across.isMirrored && x % 2 == 1,
                       down = plan.down.isMirrored && y % 2 == 1;
            from[static_cast<std::size_t>(i)] = y * DCTSIZE + x;
            isNegated[static_cast<std::size_t>(i)] = across != down;
        }
    }

    void apply(const JCOEF* block, JCOEF* into) const {
        for (std::size_t i = 0; i < DCTSIZE2; ++i) {
            const JCOEF value = block[from[i]];
            into[i] = isNegated[i] ? static_cast<JCOEF>(-value) : value;
        }
    }
};

/// The blocks of one axis of a component, from that which comes first in the result.
class BlockRun {
  public:
    BlockRun(const Stretch& stretch, int factor, int mostFactor)
        : isMirrored_(stretch.isMirrored),
          first_(stretch.start() * static_cast<JDIMENSION>(factor) /
                 static_cast<JDIMENSION>(mostFactor * DCTSIZE)) {}

    JDIMENSION at(JDIMENSION i) const { return isMirrored_ ? first_ - 1 - i : first_ + i; }

  private:
    bool isMirrored_;
    JDIMENSION first_;
};

JDIMENSION roundedUp(JDIMENSION blocks, int factor) {
    const auto step = static_cast<JDIMENSION>(factor);
    return (blocks + step - 1) / step * step;
}

JDIMENSION blocksOf(JDIMENSION pixels, int factor, int mostFactor) {
    const auto unit = static_cast<JDIMENSION>(mostFactor * DCTSIZE);
    return (pixels * static_cast<JDIMENSION>(factor) + unit - 1) / unit;
}

/// What the codec library writes by itself, or what tells of bytes or pixels that are no longer there.
bool isLeftOut(const jpeg_marker_struct& segment) {
    const auto has = [&](int marker, const char* mark, std::size_t length) {
        return segment.marker == marker && segment.data_length >= length &&
               std::memcmp(segment.data, mark, length) == 0;
    };
    return has(JPEG_APP0, "JFIF", 5) || has(JPEG_APP0, "JFXX", 5) || has(JPEG_APP0 + 14, "Adobe", 5) ||
           has(JPEG_APP0 + 2, "MPF", 4);
}

} // namespace

Transcoder::~Transcoder() {
    if (to_.mem != nullptr) jpeg_destroy_compress(&to_);
    std::free(file_); // NOLINT: the codec library hands out malloc'd memory
}

std::optional<Data> Transcoder::write(const BlockPlan& plan) {
    const bool isRead = decoder_.guarded([&] { stored_ = jpeg_read_coefficients(&decoder_.info()); });
    if (!isRead || decoder_.isDamaged()) return std::nullopt; // writing begins to count anew
    const bool isWritten = decoder_.guarded([&] {
        begin(plan);
        arrange(plan);
        jpeg_mem_dest(&to_, &file_, &bytes_);
        jpeg_write_coefficients(&to_, arranged_);
        copySegments();
        jpeg_finish_compress(&to_);
    });
    if (!isWritten) return std::nullopt;
    return Data(std::vector<std::uint8_t>(file_, file_ + bytes_));
}

void Transcoder::begin(const BlockPlan& plan) {
    jpeg_decompress_struct& from = decoder_.info();
    to_.err = from.err;
    jpeg_create_compress(&to_);
    jpeg_copy_critical_parameters(&from, &to_);
    to_.image_width = plan.across.end - plan.across.begin;
    to_.image_height = plan.down.end - plan.down.begin;
    if (to_.jpeg_color_space == JCS_CMYK) to_.write_Adobe_marker = from.saw_Adobe_marker;
    if (from.saw_JFIF_marker) {
        to_.density_unit = from.density_unit;
        to_.X_density = from.X_density;
        to_.Y_density = from.Y_density;
    }
    if (to_.num_components == 1) to_.comp_info[0].h_samp_factor = to_.comp_info[0].v_samp_factor = 1;
    if (plan.isTransposed) transpose();
#if JPEG_LIB_VERSION >= 80
    to_.jpeg_width = to_.image_width;
    to_.jpeg_height = to_.image_height;
#endif
    to_.optimize_coding = TRUE;
    if (plan.isProgressive) jpeg_simple_progression(&to_);
}

void Transcoder::transpose() {
    std::swap(to_.image_width, to_.image_height);
    std::swap(to_.X_density, to_.Y_density);
    for (int c = 0; c < to_.num_components; ++c)
        std::swap(to_.comp_info[c].h_samp_factor, to_.comp_info[c].v_samp_factor);
    for (JQUANT_TBL* table : to_.quant_tbl_ptrs) {
        for (int y = 0; table != nullptr && y < DCTSIZE; ++y) {
            for (int x = 0; x < y; ++x)
                std::swap(table->quantval[y * DCTSIZE + x], table->quantval[x * DCTSIZE + y]);
        }
    }
}

void Transcoder::arrange(const BlockPlan& plan) {
    int mostAcross = 1, mostDown = 1;
    for (int c = 0; c < to_.num_components; ++c) {
        mostAcross = std::max(mostAcross, to_.comp_info[c].h_samp_factor);
        mostDown = std::max(mostDown, to_.comp_info[c].v_samp_factor);
    }
    auto* common = reinterpret_cast<j_common_ptr>(&to_);
    for (int c = 0; c < to_.num_components; ++c) {
        jpeg_component_info& component = to_.comp_info[c];
        const int across = component.h_samp_factor, down = component.v_samp_factor;
        component.width_in_blocks = blocksOf(to_.image_width, across, mostAcross);
        component.height_in_blocks = blocksOf(to_.image_height, down, mostDown);
        arranged_[c] = to_.mem->request_virt_barray(
            common, JPOOL_IMAGE, TRUE, roundedUp(component.width_in_blocks, across),
            roundedUp(component.height_in_blocks, down), static_cast<JDIMENSION>(down));
    }
    to_.mem->realize_virt_arrays(common);
    for (int c = 0; c < to_.num_components; ++c)
        arrange(c, plan);
}

void Transcoder::arrange(int c, const BlockPlan& plan) {
    jpeg_decompress_struct& from = decoder_.info();
    const jpeg_component_info &stored = from.comp_info[c], &component = to_.comp_info[c];
    const BlockRun across(plan.across, stored.h_samp_factor, from.max_h_samp_factor),
        down(plan.down, stored.v_samp_factor, from.max_v_samp_factor);
    const CoefficientPlan coefficients(plan);
    for (JDIMENSION y = 0; y < component.height_in_blocks; ++y) {
        JBLOCKROW row =
            *to_.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&to_), arranged_[c], y, 1, TRUE);
        for (JDIMENSION x = 0; x < component.width_in_blocks; ++x) {
            const JDIMENSION blockX = across.at(plan.isTransposed ? y : x),
                             blockY = down.at(plan.isTransposed ? x : y);
            JBLOCKARRAY rows = from.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&from), stored_[c],
                                                            blockY, 1, FALSE);
            coefficients.apply(rows[0][blockX], row[x]);
        }
    }
}

void Transcoder::copySegments() {
    for (auto* segment = decoder_.info().marker_list; segment != nullptr; segment = segment->next) {
        if (!isLeftOut(*segment))
            jpeg_write_marker(&to_, segment->marker, segment->data, segment->data_length);
    }
}

} // namespace pex::jpeg
