#include "peximage/platform/codecs/jpeg/decode/Frame.h"

#include <algorithm>

namespace pex::jpeg {
namespace {

int ceilDiv(int a, int b) { return (a + b - 1) / b; }

bool isUsual(const jpeg_decompress_struct& info) {
    const bool isGrey = info.num_components == 1 && info.jpeg_color_space == JCS_GRAYSCALE;
    const bool isColour =
        info.num_components == 3 && (info.jpeg_color_space == JCS_YCbCr || info.jpeg_color_space == JCS_RGB);
    if (!(isGrey || isColour) || info.data_precision != BITS_IN_JSAMPLE || info.arith_code) return false;
    if (info.comps_in_scan != info.num_components) return false;
    for (int i = 0; i < info.num_components; ++i) {
        const jpeg_component_info& of = info.comp_info[i];
        const bool fits =
            info.max_h_samp_factor % of.h_samp_factor == 0 && info.max_v_samp_factor % of.v_samp_factor == 0;
        const bool hasTable = of.quant_tbl_no >= 0 && of.quant_tbl_no < NUM_QUANT_TBLS &&
                              info.quant_tbl_ptrs[of.quant_tbl_no] != nullptr;
        if (!fits || !hasTable || info.cur_comp_info[i] != &of) return false;
    }
    return true;
}

} // namespace

int Frame::blocksOfMcu() const {
    int blocks = 0;
    for (const Component& component : components)
        blocks += component.across * component.down;
    return blocks;
}

std::optional<Frame> Frame::of(const jpeg_decompress_struct& info) {
    if (!isUsual(info)) return std::nullopt;
    const int width = static_cast<int>(info.image_width), height = static_cast<int>(info.image_height);
    // A component alone has one block in an MCU, whatever its file says.
    const bool isAlone = info.num_components == 1;
    Frame frame{width, height, info.jpeg_color_space == JCS_YCbCr, {}, 1, 1, 0, 0};
    if (!isAlone) {
        frame.mostAcross = info.max_h_samp_factor;
        frame.mostDown = info.max_v_samp_factor;
    }
    frame.mcusWide = ceilDiv(width, frame.mostAcross * DCTSIZE);
    frame.mcusHigh = ceilDiv(height, frame.mostDown * DCTSIZE);
    for (int i = 0; i < info.num_components; ++i) {
        const jpeg_component_info& of = info.comp_info[i];
        const int across = isAlone ? 1 : of.h_samp_factor, down = isAlone ? 1 : of.v_samp_factor;
        const int wide = ceilDiv(width * across, frame.mostAcross),
                  high = ceilDiv(height * down, frame.mostDown);
        Component component{across, down, ceilDiv(wide, DCTSIZE), ceilDiv(high, DCTSIZE), wide, high, {}};
        std::copy_n(info.quant_tbl_ptrs[of.quant_tbl_no]->quantval, DCTSIZE2, component.steps.begin());
        frame.components.push_back(component);
    }
    return frame.blocksOfMcu() <= D_MAX_BLOCKS_IN_MCU ? std::optional(frame) : std::nullopt;
}

} // namespace pex::jpeg
