#include "peximage/platform/codecs/jpeg/decode/ProgressiveBlocks.h"

#include "peximage/platform/codecs/jpeg/decode/Progression.h"
#include "peximage/platform/codecs/jpeg/decode/ProgressiveCodes.h"
#include "peximage/platform/foundation/WorkState.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <limits>
#include <new>
#include <sys/mman.h>
#include <utility>
#include <vector>

namespace pex::jpeg {
namespace {

/// Returns memory of large pages to the system, as far as whole ones lie in the range.
void giveBack(const void* begin, const void* end) {
    constexpr std::uintptr_t page = std::uintptr_t{2} << 20;
    const std::uintptr_t first = (reinterpret_cast<std::uintptr_t>(begin) + page - 1) / page * page;
    const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(end) / page * page;
    if (first < last) madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
}

} // namespace

/// The blocks of one component, to whole MCUs.
struct ProgressiveBlocks::Plane {
    int across, down;     // the blocks in an MCU
    int ownWide, ownHigh; // the blocks that a scan of the component alone has
    int quads, high;      // of a row, and rows
    Coefficient* blocks;
    /// For each block, bit k is set where coefficient k, in the order of the file, is not zero.
    std::uint64_t* nonzero;

    std::size_t coefficientsOfRow() const {
        return static_cast<std::size_t>(quads) * kernels::coefficientsOfQuad;
    }
    std::size_t blocksOfRow() const { return static_cast<std::size_t>(quads) * kernels::blocksOfQuad; }
    Coefficient* row(int y) const { return blocks + static_cast<std::size_t>(y) * coefficientsOfRow(); }
    std::uint64_t* nonzeroOf(int y) const { return nonzero + static_cast<std::size_t>(y) * blocksOfRow(); }
    void clear(int y) const {
        std::fill_n(row(y), coefficientsOfRow(), Coefficient{0});
        std::fill_n(nonzeroOf(y), blocksOfRow(), std::uint64_t{0});
    }
};

/// A scan that is being decoded, and how far it is.
class ProgressiveBlocks::Scan {
  public:
    Scan(Picture& picture, const ProgressiveScan& scan)
        : picture_(picture), scan_(scan), codes_(scan), isInTurns_(scan.components.size() > 1) {}

    /// Decodes behind a scan that has some of the same components.
    void follow(const Scan& scan) { before_.push_back(&scan); }
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

    Picture& picture_;
    const ProgressiveScan& scan_;
    ProgressiveCodes codes_;
    const bool isInTurns_;
    std::vector<const Scan*> before_;
    std::atomic<int> mcuRowsDone_{0};
};

struct ProgressiveBlocks::Picture : std::enable_shared_from_this<Picture> {
    Picture(const Frame& frame, Progression theProgression)
        : progression(std::move(theProgression)), mcusWide(frame.mcusWide), mcusHigh(frame.mcusHigh) {}

    bool allocate(const Frame& frame);
    void addScans();
    void decode();
    void decodeScans();

    const Progression progression;
    const int mcusWide, mcusHigh;
    PixelBuffer memory;
    std::vector<Plane> planes;
    std::deque<Scan> scans;
    std::vector<const Scan*> lastScans; // of each component
    std::atomic<std::size_t> next{0};   // scan that nobody decodes yet
    std::atomic<bool> isStopped{false}; // it is damaged, or nobody wants it any more
};

const ProgressiveBlocks::Plane& ProgressiveBlocks::Scan::plane(std::size_t i) const {
    return picture_.planes[static_cast<std::size_t>(scan_.components[i])];
}

void ProgressiveBlocks::Scan::decode() {
    const int count = isInTurns_ ? picture_.mcusHigh : plane(0).ownHigh;
    bool isGood = true;
    for (int row = 0; row < count && isGood; ++row) {
        for (const Scan* scan : before_)
            scan->waitFor(mcuRowOf(row));
        isGood = !picture_.isStopped && !isWorkStopped() && decodeRow(row);
        if (isGood && row + 1 < count) tell(mcuRowOf(row + 1));
    }
    if (!isGood || !codes_.isAtEnd()) picture_.isStopped = true;
    tell(std::numeric_limits<int>::max());
}

bool ProgressiveBlocks::Scan::decodeRow(int row) {
    const Plane& of = plane(0);
    if (isInTurns_) return decodeTurns(row);
    if (scan_.first > 0) return codes_.decodeBand(of.row(row), of.nonzeroOf(row), of.ownWide);
    if (!scan_.refines) of.clear(row);
    return codes_.decodeFirsts(of.row(row), 0, of.ownWide, 0);
}

/// A row of MCUs.
bool ProgressiveBlocks::Scan::decodeTurns(int row) {
    for (std::size_t i = 0; i < scan_.components.size() && !scan_.refines; ++i) {
        for (int y = 0; y < plane(i).down; ++y)
            plane(i).clear(row * plane(i).down + y);
    }
    for (int x = 0; x < picture_.mcusWide; ++x) {
        for (std::size_t i = 0; i < scan_.components.size(); ++i) {
            const Plane& of = plane(i);
            for (int y = 0; y < of.down; ++y) {
                if (!codes_.decodeFirsts(of.row(row * of.down + y), x * of.across, (x + 1) * of.across, i))
                    return false;
            }
        }
    }
    return true;
}

bool ProgressiveBlocks::Picture::allocate(const Frame& frame) {
    std::size_t blocks = 0;
    for (const Component& of : frame.components) {
        planes.push_back({of.across, of.down, of.blocksWide, of.blocksHigh, quadsFor(mcusWide * of.across),
                          mcusHigh * of.down, nullptr, nullptr});
        blocks += planes.back().blocksOfRow() * static_cast<std::size_t>(planes.back().high);
    }
    memory = PixelBuffer::make(blocks * (sizeof(Coefficient) * DCTSIZE2 + sizeof(std::uint64_t)));
    if (!memory) return false;
    auto* block = reinterpret_cast<Coefficient*>(memory.data());
    auto* nonzero = reinterpret_cast<std::uint64_t*>(block + blocks * DCTSIZE2);
    for (Plane& plane : planes) {
        plane.blocks = block;
        plane.nonzero = nonzero;
        block = plane.row(plane.high);
        nonzero = plane.nonzeroOf(plane.high);
    }
    return true;
}

/// Each follows the last ones of its components, which follow those before.
void ProgressiveBlocks::Picture::addScans() {
    lastScans.resize(planes.size());
    for (const ProgressiveScan& scan : progression.scans) {
        Scan& added = scans.emplace_back(*this, scan);
        for (const int component : scan.components) {
            const Scan*& last = lastScans[static_cast<std::size_t>(component)];
            if (last != nullptr) added.follow(*last);
            last = &added;
        }
    }
}

/// Returns when every scan has at least somebody who decodes it.
void ProgressiveBlocks::Picture::decode() {
    const int helpers = std::min(Workers::count(), static_cast<int>(scans.size())) - 1;
    try {
        for (int i = 0; i < helpers; ++i)
            Workers::run([self = shared_from_this()] { self->decodeScans(); });
    } catch (const std::bad_alloc&) { // then with fewer
    }
    decodeScans();
}

/// One after the other that nobody is at. A scan waits only for earlier ones, that somebody is at.
void ProgressiveBlocks::Picture::decodeScans() {
    for (std::size_t i = next++; i < scans.size(); i = next++)
        scans[i].decode();
}

ProgressiveBlocks::ProgressiveBlocks(std::shared_ptr<Picture> picture) : picture_(std::move(picture)) {}

ProgressiveBlocks::~ProgressiveBlocks() { picture_->isStopped = true; }

std::unique_ptr<BlockSource> ProgressiveBlocks::make(const jpeg_decompress_struct& info, const Frame& frame) {
    Progression progression = Progression::read(info);
    if (progression.scans.empty()) return nullptr;
    auto picture = std::make_shared<Picture>(frame, std::move(progression));
    if (!picture->allocate(frame)) return nullptr;
    picture->addScans();
    std::unique_ptr<BlockSource> blocks(new ProgressiveBlocks(picture));
    picture->decode();
    endIfStopped();
    return picture->isStopped ? nullptr : std::move(blocks);
}

bool ProgressiveBlocks::advance(int begin, int end) {
    for (const Scan* scan : picture_->lastScans)
        scan->waitFor(end - 1);
    giveBackAbove(begin);
    endIfStopped();
    return !picture_->isStopped;
}

/// Now and then, for it takes the system some time.
void ProgressiveBlocks::giveBackAbove(int mcuRow) {
    constexpr int rowsAtOnce = 16;
    if (mcuRow - givenBack_ < rowsAtOnce) return;
    for (const Plane& plane : picture_->planes)
        giveBack(plane.row(0), plane.row(mcuRow * plane.down));
    givenBack_ = mcuRow;
}

const Coefficient* ProgressiveBlocks::row(std::size_t component, int y) const {
    return picture_->planes[component].row(y);
}

} // namespace pex::jpeg
