#include "peximage/platform/codecs/jpeg/decode/LibraryDecoder.h"

#include <jerror.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace pex::jpeg {
namespace {

/// A progressive file may repeat scans without end; each costs a pass over all coefficients. Real files have
/// about ten, small ones may have as many as there are bits to tell.
constexpr int mostScans = 3000, scansOfLargeFile = 100;
constexpr std::int64_t mostPixelsOfScans = 4'000'000'000;

constexpr int exifMarker = JPEG_APP0 + 1;
constexpr int iccMarker = JPEG_APP0 + 2;

void ignoreMessage(j_common_ptr) {}

bool isWhole(const jpeg_marker_struct& marker) { return marker.data_length == marker.original_length; }

} // namespace

LibraryDecoder::LibraryDecoder(CGDataProvider bytes) : source_{{}, std::move(bytes)} {
    info_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = fail;
    errors_.base.emit_message = noteMessage;
    errors_.base.output_message = ignoreMessage;
    if (!guarded([&] { jpeg_create_decompress(&info_); })) return;

    source_.base.init_source = initSource;
    source_.base.fill_input_buffer = fillSource;
    source_.base.skip_input_data = skipSource;
    source_.base.resync_to_restart = jpeg_resync_to_restart;
    source_.base.term_source = endSource;
    info_.src = &source_.base;

    progress_.progress_monitor = watchScans;
    info_.progress = &progress_;
}

LibraryDecoder::~LibraryDecoder() { jpeg_destroy_decompress(&info_); }

void LibraryDecoder::fail(j_common_ptr info) {
    if (info->err->msg_code == JERR_OUT_OF_MEMORY) reinterpret_cast<Errors*>(info->err)->lacksMemory = true;
    std::longjmp(reinterpret_cast<Errors*>(info->err)->escape, 1);
}

/// Counts warnings. Codes that are missing where an MCU should be leave it and all behind it blank, unless
/// the decoder has met a restart marker, at which it goes on. Blank refinements still show what came before.
void LibraryDecoder::noteMessage(j_common_ptr info, int level) {
    if (level >= 0) return;
    ++info->err->num_warnings;
    auto& errors = *reinterpret_cast<Errors*>(info->err);
    if (info->err->msg_code != JWRN_HIT_MARKER || errors.endsEarly) return;
    const auto& decoder = *reinterpret_cast<j_decompress_ptr>(info);
    const bool isRestart = decoder.unread_marker >= JPEG_RST0 && decoder.unread_marker < JPEG_RST0 + 8;
    const bool isOfPicture = !decoder.progressive_mode || (decoder.Ss == 0 && decoder.Ah == 0);
    const bool isFirstScan = isOfPicture && decoder.cur_comp_info[0]->component_index == 0;
    if (isRestart || !isFirstScan) return;
    errors.endsEarly = true;
    errors.blockRowsShown = decoder.input_iMCU_row;
}

int LibraryDecoder::rowsShown() const {
    if (!errors_.endsEarly) return static_cast<int>(info_.output_height);
    const auto rowsOfMcu = static_cast<JDIMENSION>(info_.max_v_samp_factor * info_.min_DCT_scaled_size);
    return static_cast<int>(std::min(errors_.blockRowsShown * rowsOfMcu, info_.output_height));
}

/// Bytes in memory are handed over whole, those of a file block by block. Behind the end stands an
/// end-of-image marker, so that a file cut short decodes as far as it goes.
boolean LibraryDecoder::fillSource(j_decompress_ptr info) {
    static constexpr JOCTET endOfImage[] = {0xFF, JPEG_EOI};
    auto& source = *reinterpret_cast<Source*>(info->src);
    const Data& memory = source.bytes.data();
    if (!memory.empty() && source.position < memory.size()) {
        source.base.next_input_byte = memory.data() + source.position;
        source.base.bytes_in_buffer = memory.size() - source.position;
        source.position = memory.size();
        return TRUE;
    }
    const std::size_t got = source.bytes.read(source.position, source.block);
    source.position += got;
    source.base.next_input_byte = source.block.data();
    source.base.bytes_in_buffer = got;
    if (got > 0) return TRUE;
    if (source.position == 0) ERREXIT(info, JERR_INPUT_EMPTY);
    WARNMS(info, JWRN_JPEG_EOF);
    source.ended = true;
    source.base.next_input_byte = endOfImage;
    source.base.bytes_in_buffer = sizeof endOfImage;
    return TRUE;
}

void LibraryDecoder::skipSource(j_decompress_ptr info, long count) {
    auto& source = *reinterpret_cast<Source*>(info->src);
    if (count <= 0) return;
    const auto wanted = static_cast<std::size_t>(count);
    const std::size_t here = std::min(wanted, source.base.bytes_in_buffer);
    source.base.next_input_byte += here;
    source.base.bytes_in_buffer -= here;
    source.position +=
        std::min(wanted - here, source.bytes.size() - std::min(source.position, source.bytes.size()));
}

void LibraryDecoder::watchScans(j_common_ptr info) {
    if (!info->is_decompressor) return;
    const auto& decoder = *reinterpret_cast<j_decompress_ptr>(info);
    const std::int64_t pixels = std::int64_t{decoder.image_width} * decoder.image_height;
    const auto most = std::clamp<std::int64_t>(mostPixelsOfScans / pixels, scansOfLargeFile, mostScans);
    if (decoder.input_scan_number > most) ERREXIT(info, JERR_BAD_PROGRESSION);
}

void LibraryDecoder::keepSegments() {
    constexpr int applicationSegments = 16;
    constexpr unsigned whole = 0xFFFF;
    guarded([&] {
        jpeg_save_markers(&info_, JPEG_COM, whole);
        for (int i = 0; i < applicationSegments; ++i)
            jpeg_save_markers(&info_, JPEG_APP0 + i, whole);
    });
}

bool LibraryDecoder::readHeader(std::size_t maxMetadataBytes) {
    if (damaged_) return false;
    // A segment holds at most 65,533 bytes, its signature among them; many make up a large profile.
    const auto limit = [&](std::size_t signature) {
        return static_cast<unsigned>(std::min<std::size_t>(maxMetadataBytes, 0xFFFF) + signature);
    };
    bool found = false;
    const bool good = guarded([&] {
        jpeg_save_markers(&info_, exifMarker, limit(6));
        jpeg_save_markers(&info_, iccMarker, limit(14));
        found = jpeg_read_header(&info_, TRUE) == JPEG_HEADER_OK;
    });
    return good && found;
}

bool LibraryDecoder::start(J_COLOR_SPACE colorSpace) {
    info_.out_color_space = colorSpace;
    return guarded([&] { jpeg_start_decompress(&info_); });
}

bool LibraryDecoder::readRows(JSAMPROW* rows, unsigned count) {
    if (damaged_) return false;
    return guarded([&] {
        for (unsigned done = 0; done < count;) {
            const unsigned got = jpeg_read_scanlines(&info_, rows + done, count - done);
            if (got == 0) ERREXIT(&info_, JERR_INPUT_EOF);
            done += got;
        }
    });
}

std::vector<std::uint8_t> LibraryDecoder::iccProfile() {
    for (jpeg_saved_marker_ptr marker = info_.marker_list; marker; marker = marker->next) {
        if (marker->marker == iccMarker && !isWhole(*marker)) return {};
    }
    JOCTET* profile = nullptr;
    unsigned length = 0;
    boolean found = FALSE;
    guarded([&] { found = jpeg_read_icc_profile(&info_, &profile, &length); });
    std::vector<std::uint8_t> bytes;
    if (found) bytes.assign(profile, profile + length);
    std::free(profile); // NOLINT: the codec library hands out malloc'd memory
    return bytes;
}

std::vector<std::vector<std::uint8_t>> LibraryDecoder::exifSegments() const {
    std::vector<std::vector<std::uint8_t>> segments;
    static constexpr char name[] = "Exif"; // with its closing zero
    for (jpeg_saved_marker_ptr marker = info_.marker_list; marker; marker = marker->next) {
        const bool isExif = marker->marker == exifMarker && isWhole(*marker) &&
                            marker->data_length > sizeof name &&
                            std::memcmp(marker->data, name, sizeof name) == 0;
        if (isExif) segments.emplace_back(marker->data, marker->data + marker->data_length);
    }
    return segments;
}

} // namespace pex::jpeg
