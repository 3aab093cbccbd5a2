#include "peximage/platform/codecs/CGDataProvider.h"

#include "peximage/platform/foundation/OpenFile.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace pex {

/// Small reads are served from a block of the file, since headers are read a few bytes at a time.
struct CGDataProvider::State {
    static constexpr std::size_t blockBytes = 4096;

    Data data;
    std::optional<OpenFile> file = {};
    std::size_t size = 0;
    std::size_t bytesRead = 0;
    std::size_t blockStart = 0, blockFilled = 0;
    std::array<std::uint8_t, blockBytes> block;

    std::size_t throughBlock(std::size_t offset, std::span<std::uint8_t> into) {
        if (offset < blockStart || offset + into.size() > blockStart + blockFilled) {
            blockStart = offset;
            blockFilled = file->read(offset, block).value_or(0);
        }
        const std::size_t got = std::min(into.size(), blockFilled - (offset - blockStart));
        std::memcpy(into.data(), block.data() + (offset - blockStart), got);
        return got;
    }
};

CGDataProvider::CGDataProvider(Data data) : state_(std::make_shared<State>()) {
    state_->size = data.size();
    state_->data = std::move(data);
}

std::optional<CGDataProvider> CGDataProvider::open(const URL& url) {
    std::optional<OpenFile> file = OpenFile::toRead(url);
    if (!file) return std::nullopt;
    auto state = std::make_shared<State>();
    state->size = file->size();
    state->file.emplace(std::move(*file));
    return CGDataProvider(std::move(state));
}

std::size_t CGDataProvider::size() const { return state_->size; }
const Data& CGDataProvider::data() const { return state_->data; }
std::size_t CGDataProvider::bytesRead() const { return state_->bytesRead; }

std::size_t CGDataProvider::read(std::size_t offset, std::span<std::uint8_t> into) const {
    if (offset >= state_->size || into.empty()) return 0;
    const std::size_t wanted = std::min(into.size(), state_->size - offset);
    const std::span<std::uint8_t> part = into.first(wanted);
    if (state_->file) {
        const bool isSmall = wanted < State::blockBytes;
        const std::size_t got =
            isSmall ? state_->throughBlock(offset, part) : state_->file->read(offset, part).value_or(0);
        state_->bytesRead += got;
        return got;
    }
    std::memcpy(part.data(), state_->data.data() + offset, wanted);
    return wanted;
}

} // namespace pex
