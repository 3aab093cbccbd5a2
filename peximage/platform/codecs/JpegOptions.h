#pragma once

namespace pex {

/// How much time an encoder may spend on making a file smaller at the same look.
enum class Effort {
    /// As little as it can.
    fast,
    /// A good part of what can be gained, at little more time. For most uses.
    normal,
    /// All that can be gained, at several times the time.
    best
};

/// Resolution of colour in a JPEG.
enum class Chroma {
    /// As fine as brightness where the picture needs it (drawings, screenshots, coloured text), else half.
    automatic,
    full,
    half
};

/// How a JPEG file is made, apart from its quality. A value; the defaults suit most uses.
struct JpegOptions {
    /// Time spent on a smaller file.
    Effort effort = Effort::normal;
    /// Resolution of colour.
    Chroma chroma = Chroma::automatic;
    /// A file that shows the whole picture early and gets finer, as a rule a little smaller; it takes
    /// longer to write and to read.
    bool progressive = false;

    bool operator==(const JpegOptions&) const = default;
};

} // namespace pex
