#include "peximage/platform/foundation/Network.h"

#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/foundation/NetModule.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace pex {
namespace {

Guarded<NetworkLimits> limitsInForce;

constexpr const char* withoutNetwork = "built without network access";

/// What arrives, up to a bound.
struct Arriving {
    std::size_t maxBytes;
    std::vector<std::uint8_t> bytes{};
    bool tooMany = false;

    bool take(const std::uint8_t* more, std::size_t size) {
        tooMany = size > maxBytes - bytes.size();
        if (tooMany) return false;
        try {
            bytes.insert(bytes.end(), more, more + size);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }
};

/// Longer than anyone waits; what is longer would not fit the transfer's own counters.
double inBounds(double seconds) {
    constexpr double aWeek = 7 * 24 * 3600;
    return std::isfinite(seconds) ? std::clamp(seconds, 0.001, aWeek) : aWeek;
}

NetModule::Patience patience(const NetworkLimits& limits, std::optional<double> whole) {
    return {inBounds(limits.connectSeconds), std::max(limits.stallSeconds, 1), whole ? inBounds(*whole) : 0};
}

NetworkReply readFile(const URL& url, std::size_t maxBytes) {
    NetworkReply reply{Data::contentsOf(url, maxBytes), {}};
    if (!reply.data) reply.problem = "no such file, or it cannot be read";
    return reply;
}

} // namespace

NetworkLimits NetworkLimits::current() { return limitsInForce.get(); }

void NetworkLimits::setCurrent(const NetworkLimits& limits) { limitsInForce.set(limits); }

NetworkReply readAddress(const URL& url, std::optional<double> timeOutSeconds) {
    const NetworkLimits limits = NetworkLimits::current();
    if (url.isFileURL()) return readFile(url, limits.maxBytes);
    const auto* net = loadModule<NetModule>(NetModule::name);
    if (net == nullptr) return {std::nullopt, withoutNetwork};
    Arriving arriving{limits.maxBytes};
    const NetModule::Receiver receiver{&arriving, [](void* to, const std::uint8_t* bytes, std::size_t size) {
                                           return static_cast<Arriving*>(to)->take(bytes, size);
                                       }};
    const NetModule::Patience bounds = patience(limits, timeOutSeconds);
    NetModule::Problem problem{};
    if (net->get(url.absoluteString().c_str(), &bounds, &receiver, &problem))
        return {Data(std::move(arriving.bytes)), {}};
    if (arriving.tooMany) return {std::nullopt, "larger than " + std::to_string(limits.maxBytes) + " bytes"};
    return {std::nullopt, problem.text};
}

std::string postFile(const URL& to, const NetworkFile& file) {
    const auto* net = loadModule<NetModule>(NetModule::name);
    if (net == nullptr) return withoutNetwork;
    const NetModule::Patience bounds = patience(NetworkLimits::current(), {});
    const NetModule::File posted{file.data.data(), file.data.size(), file.name.c_str(),
                                 file.mimeType.c_str()};
    NetModule::Problem problem{};
    if (net->post(to.absoluteString().c_str(), &bounds, &posted, &problem)) return {};
    return problem.text;
}

} // namespace pex
