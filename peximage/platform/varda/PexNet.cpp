#include "peximage/platform/varda/PexNet.h"

#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/OnQueue.h"

#include <utility>

namespace pex {
namespace {

Guarded<std::optional<URL>>& serverInUse() {
    // Never freed: background work may still ask while the process ends.
    static auto& instance = *new Guarded<std::optional<URL>>;
    return instance;
}

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
    serverInUse().set(std::move(server));
    return true;
}

std::optional<URL> PexNet::server() { return serverInUse().get(); }

} // namespace pex
