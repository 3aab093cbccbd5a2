#include "peximage/platform/codecs/jpeg/decode/BaselineBlocks.h"

#include "peximage/platform/codecs/jpeg/decode/ScanStretch.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace pex::jpeg {
namespace {

/// What is decoded in one go: enough that threads need not wake each other often, and that it weighs little
/// what is decoded in vain before codes fall into step.
constexpr std::size_t blocksOfStretch = 2500;
constexpr std::size_t shortestStretch = 8192, longestStretch = 65536;

/// Transforming takes some third of the time that codes take: more helpers would wait.
int mostHelpers() { return std::min(Workers::count() - 1, 3); }

std::size_t stretchBytes(const Frame& frame, std::size_t bytesOfScan) {
    const std::size_t blocks = static_cast<std::size_t>(frame.mcusWide) *
                               static_cast<std::size_t>(frame.mcusHigh) *
                               static_cast<std::size_t>(frame.blocksOfMcu());
    const std::size_t bytes = bytesOfScan / (blocks / blocksOfStretch + 1);
    return std::clamp(bytes, shortestStretch, longestStretch);
}

} // namespace

/// The stretches of a scan that are decoded and not yet used, in a ring. Whoever is free decodes the next
/// one; so does who needs one that another is still at.
struct BaselineBlocks::Stretches : std::enable_shared_from_this<BaselineBlocks::Stretches> {
    Stretches(const jpeg_decompress_struct& info, const Frame& frame, Data bytes)
        : file(std::move(bytes)),
          codes(info, frame),
          begin(info.src->next_input_byte),
          end(begin + info.src->bytes_in_buffer),
          bytesOfOne(stretchBytes(frame, info.src->bytes_in_buffer)),
          count(static_cast<int>((info.src->bytes_in_buffer + bytesOfOne - 1) / bytesOfOne)),
          helpers(mostHelpers()),
          kept(std::min(2 * helpers + 2, count)),
          memory(PixelBuffer::make(static_cast<std::size_t>(kept) * ScanStretch::memoryFor(bytesOfOne))),
          decoded(static_cast<std::size_t>(kept)) {
        ring.reserve(decoded.size());
        for (int i = 0; memory && i < kept; ++i)
            ring.emplace_back(
                memory.data() + static_cast<std::size_t>(i) * ScanStretch::memoryFor(bytesOfOne), bytesOfOne);
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
        ScanStretch& stretch = ring[place(index)];
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
    ScanStretch& wait(int index, std::uint32_t bit) {
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
        try {
            Workers::run([all = shared_from_this()] { all->workAhead(); });
        } catch (const std::bad_alloc&) { // then it goes on alone
            --helping;
        }
    }

    const Data file; // kept while somebody works on it
    const BaselineCodes codes;
    const std::uint8_t *const begin, *const end;
    const std::size_t bytesOfOne;
    const int count, helpers, kept;
    const PixelBuffer memory;
    std::vector<ScanStretch> ring;
    std::vector<std::atomic<int>> decoded; // of each place, the stretch that is there, counted from 1
    std::atomic<int> claimed{0}, used{0}, helping{0};
    std::atomic<unsigned> events{0}; // a stretch has been decoded
    std::atomic<bool> isAbandoned{false};
};

BaselineBlocks::BaselineBlocks(const Frame& frame, std::shared_ptr<Stretches> stretches,
                               unsigned restartInterval)
    : stretches_(std::move(stretches)),
      frame_(frame),
      planes_(frame.components.size()),
      restartInterval_(restartInterval),
      restartsToGo_(restartInterval),
      mcu_(stretches_->codes.longestMcu()) {
    for (std::size_t c = 0; c < frame.components.size(); ++c) {
        const Component& of = frame.components[c];
        for (int i = 0; i < of.across * of.down; ++i)
            blocks_.push_back({c, of.across, i % of.across, i / of.across});
    }
}

std::unique_ptr<BlockSource> BaselineBlocks::make(const jpeg_decompress_struct& info, const Frame& frame,
                                                  const Data& file) {
    if (!BaselineCodes::areUsual(info) || info.src->bytes_in_buffer == 0) return nullptr;
    auto stretches = std::make_shared<Stretches>(info, frame, file);
    if (!stretches->memory) return nullptr;
    return std::unique_ptr<BlockSource>(
        new BaselineBlocks(frame, std::move(stretches), info.restart_interval));
}

BaselineBlocks::~BaselineBlocks() { stretches_->isAbandoned = true; }

const Coefficient* BaselineBlocks::row(std::size_t component, int y) const {
    const Plane& plane = planes_[component];
    return plane.blocks + (y - plane.firstRow) * plane.rowLength;
}

bool BaselineBlocks::advance(int begin, int end) {
    if (!makeRoom(begin, end)) return false;
    for (int y = begin; y < end; ++y) {
        goToRow(y);
        for (int x = 0; x < frame_.mcusWide; ++x) {
            if (!decodeMcu(x)) return false;
        }
    }
    return true;
}

/// Blocks of zeros.
bool BaselineBlocks::makeRoom(int begin, int end) {
    std::size_t coefficients = 0;
    for (std::size_t c = 0; c < planes_.size(); ++c) {
        const Component& of = frame_.components[c];
        planes_[c].firstRow = begin * of.down;
        planes_[c].rowLength =
            std::ptrdiff_t{quadsFor(frame_.mcusWide * of.across)} * kernels::coefficientsOfQuad;
        coefficients += static_cast<std::size_t>(planes_[c].rowLength * (end - begin) * of.down);
    }
    if (memory_.size() < coefficients * sizeof(Coefficient))
        memory_ = PixelBuffer::make(coefficients * sizeof(Coefficient));
    if (!memory_) return false;
    std::memset(memory_.data(), 0, coefficients * sizeof(Coefficient));
    auto* next = reinterpret_cast<Coefficient*>(memory_.data());
    for (std::size_t c = 0; c < planes_.size(); ++c) {
        planes_[c].blocks = next;
        next += planes_[c].rowLength * (end - begin) * frame_.components[c].down;
    }
    return true;
}

void BaselineBlocks::goToRow(int y) {
    for (BlockOfMcu& block : blocks_) {
        const Plane& plane = planes_[block.component];
        const int row = y * frame_.components[block.component].down + block.rowInMcu;
        block.row = plane.blocks + (row - plane.firstRow) * plane.rowLength;
    }
}

bool BaselineBlocks::decodeMcu(int x) {
    const Packed* from = nextMcu();
    if (from == nullptr) return false;
    for (const BlockOfMcu& of : blocks_) {
        Coefficient* const block = blockAt(of.row, x * of.across + of.column);
        int& dc = planes_[of.component].lastDc;
        dc += static_cast<Coefficient>(from[1]);
        block[0] = static_cast<Coefficient>(dc);
        const Packed* const end = from + 1 + *from;
        for (from += 2; from != end; ++from)
            block[*from >> 16] = static_cast<Coefficient>(*from);
    }
    return true;
}

/// Null when it is damaged.
const BaselineBlocks::Packed* BaselineBlocks::nextMcu() {
    if (restartInterval_ != 0 && restartsToGo_-- == 0 && !passRestart()) return nullptr;
    while (bit_ >= endOfStretch_) {
        if (!nextStretch()) return nullptr;
    }
    if (bit_ >= endOfSegment_) return nullptr;
    if (const Packed* const found = stretch_->takeMcu(bit_)) return found;
    return stretch_->decodeMcu(stretches_->codes, bit_, nextRestart_, mcu_.data()) ? mcu_.data() : nullptr;
}

bool BaselineBlocks::nextStretch() {
    constexpr int farOut =
        1 << 20; // no picture has such a brightness, and within a stretch it cannot overflow
    const bool isUsedUp = stretch_ == nullptr || nextRestart_ == stretch_->restarts().size();
    const bool isDark = std::any_of(planes_.begin(), planes_.end(),
                                    [](const Plane& plane) { return std::abs(plane.lastDc) > farOut; });
    if (!isUsedUp || isDark || ++index_ >= stretches_->count) return false;
    bit_ -= std::min(bit_, endOfStretch_);
    stretch_ = &stretches_->wait(index_, bit_);
    endOfStretch_ = stretch_->bits();
    nextRestart_ = 0;
    endOfSegment_ = stretch_->endOfSegment(0);
    return true;
}

/// False when what comes next is not the restart marker that is due.
bool BaselineBlocks::passRestart() {
    constexpr std::uint32_t mostPadding = 7;
    restartsToGo_ = restartInterval_ - 1;
    for (Plane& plane : planes_)
        plane.lastDc = 0;
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

} // namespace pex::jpeg
