#include "peximage/platform/varda/PexNet.h"

#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/OnQueue.h"

#include <mutex>
#include <utility>

namespace pex {
namespace {

std::mutex serverMutex;
std::optional<URL> serverInUse;

bool isThisMachine(const URL& url) {
    const std::string host = url.host();
    return host == "localhost" || host == "127.0.0.1" || host == "[::1]";
}

} // namespace

Task<bool> PexNet::upload(Upload what) {
    co_await OnQueue{};
    const NetworkFile file{std::move(what.data), std::move(what.withFileName), std::move(what.mimetype)};
    co_return postFile(what.to, file).empty();
}

bool PexNet::setServer(std::optional<URL> server) {
    if (server && server->scheme() != "https" && !(server->scheme() == "http" && isThisMachine(*server)))
        return false;
    const std::lock_guard lock(serverMutex);
    serverInUse = std::move(server);
    return true;
}

std::optional<URL> PexNet::server() {
    const std::lock_guard lock(serverMutex);
    return serverInUse;
}

} // namespace pex
