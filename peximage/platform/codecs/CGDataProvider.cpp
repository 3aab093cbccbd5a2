#include "peximage/platform/codecs/CGDataProvider.h"

#include "peximage/platform/foundation/URL.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pex {

struct CGDataProvider::State {
    Data data;
    int descriptor = -1;
    std::size_t size = 0;
    std::size_t bytesRead = 0;

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        if (descriptor >= 0) ::close(descriptor);
    }
};

CGDataProvider::CGDataProvider(Data data) : state_(std::make_shared<State>()) {
    state_->size = data.size();
    state_->data = std::move(data);
}

std::optional<CGDataProvider> CGDataProvider::open(const URL& url) {
    if (!url.isFileURL()) return std::nullopt;
    auto state = std::make_shared<State>();
    state->descriptor = ::open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat info {};
    if (state->descriptor < 0 || ::fstat(state->descriptor, &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    state->size = static_cast<std::size_t>(info.st_size);
    return CGDataProvider(std::move(state));
}

std::size_t CGDataProvider::size() const { return state_->size; }
const Data& CGDataProvider::data() const { return state_->data; }
std::size_t CGDataProvider::bytesRead() const { return state_->bytesRead; }

std::size_t CGDataProvider::read(std::size_t offset, std::span<std::uint8_t> into) const {
    if (offset >= state_->size || into.empty()) return 0;
    const std::size_t wanted = std::min(into.size(), state_->size - offset);
    if (state_->descriptor < 0) {
        std::memcpy(into.data(), state_->data.data() + offset, wanted);
        return wanted;
    }
    std::size_t got = 0;
    while (got < wanted) {
        const ssize_t n =
            ::pread(state_->descriptor, into.data() + got, wanted - got, static_cast<off_t>(offset + got));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    state_->bytesRead += got;
    return got;
}

} // namespace pex
