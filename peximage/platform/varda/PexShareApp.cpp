#include "peximage/platform/varda/PexShareApp.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/UserFolders.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/PexId.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace pex {
namespace {

bool isPlainLetter(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// Whether the identifier has the form of ours; then it names a file inside the folder.
bool isIdentifier(std::string_view id) {
    const auto allowed = [](unsigned char c) { return isPlainLetter(c) || c == '-' || c == '.'; };
    return !id.empty() && id.size() <= 200 && id.front() != '.' && std::all_of(id.begin(), id.end(), allowed);
}

/// A new identifier. It keeps a short plain extension, so that other programs know the file's kind.
std::string newIdentifier(const URL& source) {
    const std::string extension = source.pathExtension();
    const bool plain = !extension.empty() && extension.size() <= 16 &&
                       std::all_of(extension.begin(), extension.end(), isPlainLetter);
    return PexId::newId("", "share", true) + (plain ? '.' + extension : "");
}

bool copyAll(int source, AtomicFile& target) {
    std::vector<std::uint8_t> buffer(256 * 1024);
    for (;;) {
        const ssize_t got = ::read(source, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got == 0;
        if (!target.write(std::span(buffer).first(static_cast<std::size_t>(got)))) return false;
    }
}

bool copyFile(const URL& from, const URL& to) {
    const int source = ::open(from.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (source < 0) return false;
    struct stat info {};
    AtomicFile target(to.path());
    const bool copied = ::fstat(source, &info) == 0 && S_ISREG(info.st_mode) && copyAll(source, target) &&
                        target.commit(AtomicFile::Flush::yes);
    ::close(source);
    return copied;
}

// The tasks hold what they need by value: they may start after the store's value is gone.

Task<std::optional<std::string>> ingestInto(std::optional<URL> folder, URL file) {
    const std::string id = newIdentifier(file);
    if (!folder || !file.isFileURL()) co_return std::nullopt;
    AtomicFile::removeStale(folder->path());
    if (!copyFile(file, folder->appendingPathComponent(id))) co_return std::nullopt;
    co_return id;
}

Task<std::optional<URL>> lookUp(std::optional<URL> folder, std::string id) {
    if (!folder || !isIdentifier(id)) co_return std::nullopt;
    const URL stored = folder->appendingPathComponent(id);
    if (!fu_fileExists(stored)) co_return std::nullopt;
    co_return stored;
}

} // namespace

PexShareApp::PexShareApp() {
    if (const std::optional<URL> data = userDataFolder())
        folder_ = data->appendingPathComponent("PexImage-shared");
}

Task<std::optional<std::string>> PexShareApp::ingestAndGetId(Ingest file) const {
    return ingestInto(folder_, std::move(file.fileAtUrl));
}

Task<std::optional<URL>> PexShareApp::url(ForId file) const { return lookUp(folder_, std::move(file.forId)); }

} // namespace pex
