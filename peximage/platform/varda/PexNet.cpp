#include "peximage/platform/varda/PexNet.h"

#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/Queue.h"

#include <coroutine>
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

/// Awaiting it posts the file; the coroutine goes on with the reply on a thread of the background queue.
struct Posting {
    URL to;
    NetworkFile file;
    NetworkReply reply;

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> suspended) {
        postFileInBackground(to, std::move(file),
                             [this, suspended, held = Queue::hold()](NetworkReply arrived) {
                                 reply = std::move(arrived);
                                 Queue::execute(false, [suspended] { suspended.resume(); });
                             });
    }
    NetworkReply await_resume() { return std::move(reply); }
};

} // namespace

Task<bool> PexNet::upload(Upload what) {
    NetworkFile file{std::move(what.data), std::move(what.withFileName), std::move(what.mimetype)};
    Posting posting{std::move(what.to), std::move(file), {}}; // gcc 12 destroys an awaited temporary twice
    const NetworkReply reply = co_await posting;
    if (!reply.data) giveReason(reply.reason);
    co_return reply.data.has_value();
}

bool PexNet::setServer(std::optional<URL> server) {
    if (server && server->scheme() != "https" && !(server->scheme() == "http" && isThisMachine(*server)))
        return false;
    serverInUse().set(std::move(server));
    return true;
}

std::optional<URL> PexNet::server() { return serverInUse().get(); }

} // namespace pex
