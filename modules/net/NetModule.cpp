#include "peximage/platform/foundation/NetModule.h"

#include "peximage/platform/foundation/Module.h"

#include <cstdio>
#include <curl/curl.h>
#include <memory>
#include <openssl/crypto.h>

namespace {

using Module = pex::NetModule;

constexpr long mostRedirects = 10;

struct EndTransfer {
    void operator()(CURL* transfer) const { curl_easy_cleanup(transfer); }
};
using Transfer = std::unique_ptr<CURL, EndTransfer>;

bool start() {
    // A transfer may still run while the process ends: what it uses is not to be taken from below it.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

/// Null when there is no memory for it.
Transfer makeTransfer(const char* address, const Module::Patience& patience, char* problem) {
    static const bool started = start();
    Transfer transfer(started ? curl_easy_init() : nullptr);
    CURL* const curl = transfer.get();
    if (curl == nullptr) return transfer;
    curl_easy_setopt(curl, CURLOPT_URL, address);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, problem);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "PexImage");
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(patience.connecting * 1000));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(patience.whole * 1000));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(patience.stalled));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, Module::crawlBytesPerSecond);
    return transfer;
}

void describe(Module::Problem& problem, const char* text) {
    std::snprintf(problem.text, sizeof problem.text, "%s", text);
}

/// Runs the transfer; true for an answer of 2xx, else tells why not.
bool perform(const Transfer& transfer, const char* details, Module::Problem& problem) {
    if (!transfer) {
        describe(problem, "no transfer could be started");
        return false;
    }
    const CURLcode ended = curl_easy_perform(transfer.get());
    long status = 0;
    curl_easy_getinfo(transfer.get(), CURLINFO_RESPONSE_CODE, &status);
    if ((ended == CURLE_OK && status / 100 != 2) || ended == CURLE_HTTP_RETURNED_ERROR) {
        std::snprintf(problem.text, sizeof problem.text, "the server answered %ld", status);
        return false;
    }
    if (ended == CURLE_OK) return true;
    describe(problem, *details != 0 ? details : curl_easy_strerror(ended));
    return false;
}

std::size_t hand(char* bytes, std::size_t unit, std::size_t count, void* to) {
    const auto& receiver = *static_cast<const Module::Receiver*>(to);
    const std::size_t size = unit * count;
    return receiver.take(receiver.context, reinterpret_cast<std::uint8_t*>(bytes), size) ? size : 0;
}

std::size_t drop(char*, std::size_t unit, std::size_t count, void*) { return unit * count; }

bool get(const char* address, const Module::Patience* patience, const Module::Receiver* receiver,
         Module::Problem* problem) {
    char details[CURL_ERROR_SIZE] = "";
    const Transfer transfer = makeTransfer(address, *patience, details);
    if (CURL* const curl = transfer.get()) {
        curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(curl, CURLOPT_MAXREDIRS, mostRedirects);
        curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, hand);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, receiver);
    }
    return perform(transfer, details, *problem);
}

struct FreeForm {
    void operator()(curl_mime* form) const { curl_mime_free(form); }
};

bool post(const char* address, const Module::Patience* patience, const Module::File* file,
          Module::Problem* problem) {
    char details[CURL_ERROR_SIZE] = "";
    std::unique_ptr<curl_mime, FreeForm> form; // used until the transfer has ended
    const Transfer transfer = makeTransfer(address, *patience, details);
    if (CURL* const curl = transfer.get()) {
        form.reset(curl_mime_init(curl));
        curl_mimepart* part = form ? curl_mime_addpart(form.get()) : nullptr;
        const auto* bytes = reinterpret_cast<const char*>(file->bytes);
        if (part == nullptr || curl_mime_name(part, "file") != CURLE_OK ||
            curl_mime_filename(part, file->name) != CURLE_OK ||
            curl_mime_type(part, file->mimeType) != CURLE_OK ||
            curl_mime_data(part, bytes, file->size) != CURLE_OK) {
            describe(*problem, "no memory for the form");
            return false;
        }
        curl_easy_setopt(curl, CURLOPT_MIMEPOST, form.get());
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, drop);
    }
    return perform(transfer, details, *problem);
}

constexpr Module functions{get, post};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{Module::version, &functions};
