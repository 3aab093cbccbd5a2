#include "peximage/platform/varda/PexSubFiles.h"

#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/StoredName.h"

namespace pex {
namespace {

Task<std::optional<Data>> readInBackground(URL file) {
    co_await onBackground();
    co_return Data::contentsOf(file);
}

} // namespace

URL PexSubFiles::fileFor(std::string_view id) const { return folder_.appendingPathComponent(storedPath(id)); }

Task<std::optional<Data>> PexSubFiles::data(const ForId& item) const {
    return readInBackground(fileFor(item.forId));
}

bool PexSubFiles::setData(const Data& data, std::string_view forId) const {
    return data.write(fileFor(forId), Data::Writing::atomically);
}

bool PexSubFiles::remove(std::string_view forId) const { return fu_deleteFile(fileFor(forId)); }

} // namespace pex
