#include "HttpTransfer.h"

#include <cstdio>
#include <openssl/crypto.h>

namespace {

using Module = pex::NetModule;

bool start() {
    // A transfer may still run while the process ends: what it uses is not to be taken from below it.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

long milliseconds(double seconds) { return static_cast<long>(seconds * 1000); }

std::size_t hand(char* bytes, std::size_t unit, std::size_t count, void* to) {
    const auto& wanted = *static_cast<const Module::Transfer*>(to);
    const std::size_t size = unit * count;
    return wanted.take(wanted.context, reinterpret_cast<std::uint8_t*>(bytes), size) ? size : 0;
}

int isCancelled(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<const HttpTransfer*>(transfer)->isCancelled() ? 1 : 0;
}

} // namespace

Module::Outcome outcomeOf(Module::Ending ending, const char* text) {
    Module::Outcome outcome{ending, {}};
    std::snprintf(outcome.text, sizeof outcome.text, "%s", text);
    return outcome;
}

HttpTransfer::HttpTransfer(const Module::Transfer& wanted)
    : wanted_(wanted),
      latest_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(wanted.patience.whole))) {
    static const bool started = start();
    curl_.reset(started ? curl_easy_init() : nullptr);
    if (curl_) setUp();
}

void HttpTransfer::setUp() {
    CURL* const curl = curl_.get();
    curl_easy_setopt(curl, CURLOPT_URL, wanted_.address);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, details_);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_QUICK_EXIT, 1L); // a name that cannot be looked up holds nobody up
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "PexImage");
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(wanted_.patience.connecting));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, milliseconds(wanted_.patience.whole));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(wanted_.patience.stalled));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, Module::crawlBytesPerSecond);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, ::isCancelled);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, hand);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &wanted_);
    if (wanted_.posted == nullptr)
        setUpReading();
    else if (!setUpPosting())
        curl_.reset();
}

void HttpTransfer::setUpReading() {
    CURL* const curl = curl_.get();
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, Module::mostRedirects);
    curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "");
}

bool HttpTransfer::setUpPosting() {
    const Module::File& file = *wanted_.posted;
    form_.reset(curl_mime_init(curl_.get()));
    curl_mimepart* part = form_ ? curl_mime_addpart(form_.get()) : nullptr;
    return part != nullptr && curl_mime_name(part, "file") == CURLE_OK &&
           curl_mime_filename(part, file.name) == CURLE_OK &&
           curl_mime_type(part, file.mimeType) == CURLE_OK &&
           curl_mime_data(part, reinterpret_cast<const char*>(file.bytes), file.size) == CURLE_OK &&
           curl_easy_setopt(curl_.get(), CURLOPT_MIMEPOST, form_.get()) == CURLE_OK;
}

Module::Outcome HttpTransfer::outcome(CURLcode ended) const {
    long status = 0;
    curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
    if ((ended == CURLE_OK && status / 100 != 2) || ended == CURLE_HTTP_RETURNED_ERROR) {
        Module::Outcome refused{Module::Ending::failed, {}};
        std::snprintf(refused.text, sizeof refused.text, "the server answered %ld", status);
        return refused;
    }
    switch (ended) {
    case CURLE_OK:
        return outcomeOf(Module::Ending::success, "");
    case CURLE_ABORTED_BY_CALLBACK:
        return outcomeOf(Module::Ending::cancelled, "cancelled");
    case CURLE_OPERATION_TIMEDOUT:
        return outcomeOf(Module::Ending::timedOut, *details_ != 0 ? details_ : curl_easy_strerror(ended));
    default:
        return outcomeOf(Module::Ending::failed, *details_ != 0 ? details_ : curl_easy_strerror(ended));
    }
}
