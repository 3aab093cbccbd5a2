#pragma once

#include "peximage/platform/foundation/NetModule.h"

#include <chrono>
#include <curl/curl.h>
#include <memory>

/// One transfer of the module, ready for the transfer library.
class HttpTransfer {
  public:
    using Clock = std::chrono::steady_clock;

    explicit HttpTransfer(const pex::NetModule::Transfer& wanted);
    HttpTransfer(const HttpTransfer&) = delete;
    HttpTransfer& operator=(const HttpTransfer&) = delete;

    /// Null when it cannot be made: there is no memory for it.
    CURL* handle() const { return curl_.get(); }
    const pex::NetModule::Transfer& wanted() const { return wanted_; }
    bool isCancelled() const { return wanted_.isCancelled(wanted_.context); }
    bool isLate(Clock::time_point now) const { return now > latest_; }

    /// What it comes to, from what the library says.
    pex::NetModule::Outcome outcome(CURLcode ended) const;

  private:
    struct Free {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
        void operator()(curl_mime* form) const { curl_mime_free(form); }
    };

    void setUp();
    void setUpReading();
    bool setUpPosting();

    const pex::NetModule::Transfer& wanted_;
    const Clock::time_point latest_;
    char details_[CURL_ERROR_SIZE] = "";
    std::unique_ptr<curl_mime, Free> form_; // used until the handle is gone
    std::unique_ptr<CURL, Free> curl_;
};

pex::NetModule::Outcome outcomeOf(pex::NetModule::Ending ending, const char* text);
