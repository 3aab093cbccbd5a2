#pragma once

#include "peximage/platform/codecs/jpeg/decode/CodecLibrary.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace pex::jpeg {

/// One of a picture's colours, as its file holds it.
struct Component {
    /// Its blocks in an MCU.
    int across, down;
    /// The blocks that show something of the picture: those of a scan of this component alone.
    int blocksWide, blocksHigh;
    /// Those of its samples that do.
    int samplesWide, samplesHigh;
    /// The quantisation table in natural order, as bits of 16.
    std::array<std::int16_t, DCTSIZE2> steps;
};

/// What a file's header says of a picture: in rows of MCUs, each a few blocks of every component.
struct Frame {
    int width, height;
    /// Luma and two chromas, else grey or red, green and blue.
    bool isYcc;
    std::vector<Component> components;
    /// The most blocks that a component has in an MCU.
    int mostAcross, mostDown;
    int mcusWide, mcusHigh;

    int blocksOfMcu() const;
    /// Of a decompressor that has read the header. Absent for pictures of other kinds than those with eight
    /// bits a sample, Huffman codes, and one or three colours, whose first scan holds all of them.
    static std::optional<Frame> of(const jpeg_decompress_struct& info);
};

} // namespace pex::jpeg
