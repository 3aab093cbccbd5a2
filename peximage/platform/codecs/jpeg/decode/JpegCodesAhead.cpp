#include "peximage/platform/codecs/jpeg/decode/JpegCodesAhead.h"

#include "peximage/platform/codecs/jpeg/decode/JpegScanStretch.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <jerror.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

extern "C" {
#include <jpegint.h>
}

namespace pex {
namespace {

/// What is decoded in one go: enough that threads need not wake each other often, and that it weighs little
/// what is decoded in vain before codes fall into step.
constexpr std::size_t blocksOfStretch = 2500;
constexpr std::size_t shortestStretch = 8192, longestStretch = 65536;

/// Transforming takes some third of the time that codes take: more helpers would wait.
int mostHelpers() { return std::min(Workers::count() - 1, 3); }

std::size_t stretchBytes(j_decompress_ptr info) {
    const std::size_t blocks = std::size_t{info->MCUs_per_row} * info->MCU_rows_in_scan *
                               static_cast<std::size_t>(info->blocks_in_MCU);
    const std::size_t bytes = info->src->bytes_in_buffer / (blocks / blocksOfStretch + 1);
    return std::clamp(bytes, shortestStretch, longestStretch);
}

} // namespace

/// The stretches of a scan that are decoded and not yet used, in a ring. Whoever is free decodes the next
/// one; so does who needs one that another is still at.
struct JpegCodesAhead::Stretches : std::enable_shared_from_this<JpegCodesAhead::Stretches> {
    Stretches(j_decompress_ptr info, Data bytes)
        : file(std::move(bytes)),
          codes(info),
          begin(info->src->next_input_byte),
          end(begin + info->src->bytes_in_buffer),
          bytesOfOne(stretchBytes(info)),
          count(static_cast<int>((info->src->bytes_in_buffer + bytesOfOne - 1) / bytesOfOne)),
          helpers(mostHelpers()),
          kept(std::min(2 * helpers + 2, count)),
          memory(PixelBuffer::make(static_cast<std::size_t>(kept) * JpegScanStretch::memoryFor(bytesOfOne))),
          decoded(static_cast<std::size_t>(kept)) {
        ring.reserve(decoded.size());
        for (int i = 0; memory && i < kept; ++i)
            ring.emplace_back(memory.data() +
                                  static_cast<std::size_t>(i) * JpegScanStretch::memoryFor(bytesOfOne),
                              bytesOfOne);
    }

    std::size_t place(int index) const { return static_cast<std::size_t>(index % kept); }
    bool isDecoded(int index) const { return decoded[place(index)] == index + 1; }

    /// Where a stretch begins: not between the two bytes of a marker.
    const std::uint8_t* beginOf(int index) const {
        const auto offset = static_cast<std::size_t>(index) * bytesOfOne;
        const std::uint8_t* const at = begin + std::min(offset, static_cast<std::size_t>(end - begin));
        return at > begin && at < end && at[-1] == 0xFF ? at + 1 : at;
    }

    /// `bit` is where an MCU may begin.
    void decode(int index, std::uint32_t bit) {
        JpegScanStretch& stretch = ring[place(index)];
        stretch.read(beginOf(index), beginOf(index + 1), end);
        stretch.findMcus(codes, bit);
        decoded[place(index)] = index + 1;
        ++events;
        events.notify_all();
    }

    /// The next stretch that nobody is at is the caller's to decode; -1 when there is none, or no room.
    int claim() {
        int index = claimed;
        do {
            if (index >= count || index - used >= kept || isAbandoned) return -1;
        } while (!claimed.compare_exchange_weak(index, index + 1));
        return index;
    }

    void workAhead() {
        for (int index = claim(); index >= 0; index = claim())
            decode(index, 0);
        --helping;
    }

    /// Returns the stretch of this index when it is decoded; an MCU begins at `bit` of it. Those before are
    /// used.
    JpegScanStretch& wait(int index, std::uint32_t bit) {
        used = index;
        askForHelp();
        for (unsigned seen = events; !isDecoded(index); seen = events) {
            const int mine = claim();
            if (mine >= 0)
                decode(mine, mine == index ? bit : 0);
            else
                events.wait(seen); // somebody is at it
        }
        return ring[place(index)];
    }

    void askForHelp() {
        const bool worthIt = claimed < count - 1 && claimed - used <= kept / 2;
        if (!worthIt || helping >= helpers) return;
        ++helping;
        try { // nothing may be thrown through the codec library
            Workers::run([all = shared_from_this()] { all->workAhead(); });
        } catch (const std::bad_alloc&) {
            --helping;
        }
    }

    const Data file; // kept while somebody works on it
    const JpegScanCodes codes;
    const std::uint8_t *const begin, *const end;
    const std::size_t bytesOfOne;
    const int count, helpers, kept;
    const PixelBuffer memory;
    std::vector<JpegScanStretch> ring;
    std::vector<std::atomic<int>> decoded; // of each place, the stretch that is there, counted from 1
    std::atomic<int> claimed{0}, used{0}, helping{0};
    std::atomic<unsigned> events{0}; // a stretch has been decoded
    std::atomic<bool> isAbandoned{false};
};

JpegCodesAhead::JpegCodesAhead(j_decompress_ptr info, std::shared_ptr<Stretches> stretches)
    : stretches_(std::move(stretches)),
      blocksOfMcu_(info->blocks_in_MCU),
      restartInterval_(info->restart_interval),
      restartsToGo_(info->restart_interval),
      mcu_(stretches_->codes.longestMcu()) {
    std::copy_n(info->MCU_membership, blocksOfMcu_, componentOf_.begin());
}

std::unique_ptr<JpegCodesAhead> JpegCodesAhead::takeOver(j_decompress_ptr info, const Data& file) {
    if (!JpegScanCodes::areUsual(info) || info->src->bytes_in_buffer == 0) return nullptr;
    auto stretches = std::make_shared<Stretches>(info, file);
    if (!stretches->memory) return nullptr;
    std::unique_ptr<JpegCodesAhead> ahead(new JpegCodesAhead(info, std::move(stretches)));
    info->client_data = ahead.get();
    info->entropy->decode_mcu = decodeMcu;
    return ahead;
}

JpegCodesAhead::~JpegCodesAhead() { stretches_->isAbandoned = true; }

boolean JpegCodesAhead::decodeMcu(j_decompress_ptr info, JBLOCKROW* blocks) {
    auto& self = *static_cast<JpegCodesAhead*>(info->client_data);
    if (!self.copyMcu(blocks)) self.giveUp(info);
    return TRUE;
}

/// Into blocks that the library has cleared.
bool JpegCodesAhead::copyMcu(JBLOCKROW* blocks) {
    if (restartInterval_ != 0 && restartsToGo_-- == 0 && !passRestart()) return false;
    while (bit_ >= endOfStretch_) {
        if (!nextStretch()) return false;
    }
    if (bit_ >= endOfSegment_) return false;
    const Coefficient* from = stretch_->takeMcu(bit_);
    if (from == nullptr) {
        if (!stretch_->decodeMcu(stretches_->codes, bit_, nextRestart_, mcu_.data())) return false;
        from = mcu_.data();
    }
    for (int i = 0; i < blocksOfMcu_; ++i) {
        JCOEF* const block = blocks[i][0];
        int& dc = lastDc_[static_cast<std::size_t>(componentOf_[static_cast<std::size_t>(i)])];
        dc += static_cast<std::int16_t>(from[1]);
        block[0] = static_cast<JCOEF>(dc);
        const Coefficient* const end = from + 1 + *from;
        for (from += 2; from != end; ++from)
            block[*from >> 16] = static_cast<JCOEF>(*from);
    }
    return true;
}

bool JpegCodesAhead::nextStretch() {
    constexpr int farOut =
        1 << 20; // no picture has such a brightness, and within a stretch it cannot overflow
    const bool isUsedUp = stretch_ == nullptr || nextRestart_ == stretch_->restarts().size();
    const bool isDark =
        std::any_of(lastDc_.begin(), lastDc_.end(), [](int dc) { return std::abs(dc) > farOut; });
    if (!isUsedUp || isDark || ++index_ >= stretches_->count) return false;
    bit_ -= std::min(bit_, endOfStretch_);
    stretch_ = &stretches_->wait(index_, bit_);
    endOfStretch_ = stretch_->bits();
    nextRestart_ = 0;
    endOfSegment_ = stretch_->endOfSegment(0);
    return true;
}

/// False when what comes next is not the restart marker that is due.
bool JpegCodesAhead::passRestart() {
    constexpr std::uint32_t mostPadding = 7;
    restartsToGo_ = restartInterval_ - 1;
    lastDc_ = {};
    while (nextRestart_ == stretch_->restarts().size()) {
        // It may be the first thing in the next stretch.
        if (bit_ + mostPadding < endOfStretch_ || !nextStretch()) return false;
    }
    const auto [bit, number] = stretch_->restarts()[nextRestart_];
    if (number != restartNumber_ || bit_ > bit || bit - bit_ > mostPadding) return false;
    bit_ = bit;
    restartNumber_ = (number + 1) & 7;
    endOfSegment_ = stretch_->endOfSegment(++nextRestart_);
    return true;
}

void JpegCodesAhead::giveUp(j_decompress_ptr info) {
    gaveUp_ = true;
    ERREXIT(info, JERR_INPUT_EOF);
    std::abort(); // the error handler does not return
}

} // namespace pex
