#include "peximage/platform/foundation/NetModule.h"

#include "HttpTransfer.h"
#include "TransferLoop.h"
#include "peximage/platform/foundation/Module.h"

namespace {

using Module = pex::NetModule;

Module::Outcome perform(const Module::Transfer* wanted) {
    const HttpTransfer transfer(*wanted);
    if (transfer.handle() == nullptr)
        return outcomeOf(Module::Ending::failed, "no transfer could be started");
    return transfer.outcome(curl_easy_perform(transfer.handle()));
}

bool begin(const Module::Transfer* wanted) { return TransferLoop::shared().begin(*wanted); }

void lookForCancelled() { TransferLoop::shared().lookForCancelled(); }

constexpr Module functions{perform, begin, lookForCancelled};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
