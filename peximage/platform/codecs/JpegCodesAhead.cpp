#include "peximage/platform/codecs/JpegCodesAhead.h"

#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <climits>
#include <jerror.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

extern "C" {
#include <jpegint.h>
}

namespace pex {
namespace {

/// What is decoded in one go: enough that threads need not wake each other often.
constexpr std::int64_t blocksOfPart = 2500;
/// Parts that are kept: the one in use, and those decoded ahead.
constexpr int partsKept = 4;

} // namespace

/// The parts of a scan that are decoded and not yet used, in a ring. Whoever needs the next one decodes it;
/// where another core is free, that has mostly happened before.
struct JpegCodesAhead::Parts : std::enable_shared_from_this<JpegCodesAhead::Parts> {
    using Coefficient = JpegScanCodes::Coefficient;

    Parts(j_decompress_ptr info, Data bytes)
        : file(std::move(bytes)),
          codes(info),
          mcus(std::int64_t{info->MCUs_per_row} * info->MCU_rows_in_scan),
          mcusOfPart(std::min(blocksOfPart / codes.blocksOfMcu(), mcus)),
          count(static_cast<int>((mcus + mcusOfPart - 1) / mcusOfPart)),
          longestPart(static_cast<std::size_t>(mcusOfPart) * codes.longestMcu()),
          ring(PixelBuffer::make(static_cast<std::size_t>(std::min(partsKept, count)) * longestPart *
                                 sizeof(Coefficient))) {}

    Coefficient* part(int index) const {
        return reinterpret_cast<Coefficient*>(ring.data()) +
               static_cast<std::size_t>(index % partsKept) * longestPart;
    }

    /// Holding `decoding`.
    void decodePart() {
        const int index = decoded;
        const std::int64_t left = mcus - index * mcusOfPart;
        if (!codes.writeMcus(std::min(mcusOfPart, left), part(index))) damagedPart = index;
        decoded = index + 1;
        tell();
    }

    /// False when the part is damaged.
    bool wait(int index) {
        for (unsigned seen = events; decoded <= index; seen = events) {
            const std::unique_lock lock(decoding, std::try_to_lock);
            if (!lock)
                events.wait(seen);     // somebody is at it
            else if (decoded <= index) // still: a further part could take the place of this one
                decodePart();
        }
        return index < damagedPart;
    }

    bool hasRoom() const {
        return decoded < count && decoded - used < partsKept && damagedPart == INT_MAX && !abandoned;
    }

    /// Until the ring is full; what is freed meanwhile is filled, too.
    void workAhead() {
        for (bool goesOn = true; goesOn;) {
            const std::lock_guard lock(decoding);
            goesOn = hasRoom();
            if (goesOn) decodePart();
        }
        tell(); // that the lock is free
        isHelped = false;
    }

    void tell() {
        ++events;
        events.notify_one();
    }

    void askForHelp() {
        const bool worthIt = decoded < count && decoded - used <= partsKept / 2;
        if (!worthIt || Workers::count() == 1 || isHelped.exchange(true)) return;
        try { // nothing may be thrown through the codec library
            Workers::run([parts = shared_from_this()] { parts->workAhead(); });
        } catch (const std::bad_alloc&) {
            isHelped = false;
        }
    }

    const Data file; // kept while somebody works on it
    JpegScanCodes codes;
    const std::int64_t mcus, mcusOfPart;
    const int count;
    const std::size_t longestPart;
    const PixelBuffer ring;
    std::mutex decoding;
    std::atomic<int> decoded{0}, used{0}, damagedPart{INT_MAX};
    std::atomic<unsigned> events{0}; // a part has been decoded, or a helper has gone
    std::atomic<bool> isHelped{false}, abandoned{false};
};

JpegCodesAhead::JpegCodesAhead(std::shared_ptr<Parts> parts)
    : parts_(std::move(parts)), blocksOfMcu_(parts_->codes.blocksOfMcu()), mcusOfPart_(parts_->mcusOfPart) {}

std::unique_ptr<JpegCodesAhead> JpegCodesAhead::takeOver(j_decompress_ptr info, const Data& file) {
    if (!JpegScanCodes::areUsual(info) || info->src->bytes_in_buffer == 0) return nullptr;
    auto parts = std::make_shared<Parts>(info, file);
    if (!parts->ring) return nullptr;
    std::unique_ptr<JpegCodesAhead> ahead(new JpegCodesAhead(std::move(parts)));
    info->client_data = ahead.get();
    info->entropy->decode_mcu = decodeMcu;
    return ahead;
}

JpegCodesAhead::~JpegCodesAhead() { parts_->abandoned = true; }

boolean JpegCodesAhead::decodeMcu(j_decompress_ptr info, JBLOCKROW* blocks) {
    auto& self = *static_cast<JpegCodesAhead*>(info->client_data);
    if (!self.copyMcu(blocks)) self.giveUp(info);
    return TRUE;
}

/// Into blocks that the library has cleared.
bool JpegCodesAhead::copyMcu(JBLOCKROW* blocks) {
    if (mcu_ == 0) {
        parts_->askForHelp();
        if (!parts_->wait(part_)) return false;
        next_ = parts_->part(part_);
    }
    for (int i = 0; i < blocksOfMcu_; ++i) {
        JCOEF* const block = blocks[i][0];
        for (const JpegScanCodes::Coefficient* const end = next_ + 1 + *next_; ++next_ != end;)
            block[*next_ >> 16] = static_cast<JCOEF>(*next_);
    }
    if (++mcu_ == mcusOfPart_) {
        mcu_ = 0;
        parts_->used = ++part_;
    }
    return true;
}

void JpegCodesAhead::giveUp(j_decompress_ptr info) {
    gaveUp_ = true;
    ERREXIT(info, JERR_INPUT_EOF);
    std::abort(); // the error handler does not return
}

} // namespace pex
