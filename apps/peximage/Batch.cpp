#include "Batch.h"

#include "Incomplete.h"
#include "Interrupt.h"
#include "Printable.h"
#include "peximage/platform/foundation/Diagnostics.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int someFailed = 1;

/// A bar on standard error while there is more than one thing to do and somebody is looking.
class Progress {
  public:
    Progress(std::size_t total, bool wanted)
        : total_(total), shown_(wanted && total > 1 && ::isatty(STDERR_FILENO)) {}
    ~Progress() { clear(); }

    void show(std::size_t done) const {
        if (!shown_) return;
        constexpr std::size_t width = 30;
        const std::size_t filled = width * done / total_;
        std::cerr << "\r[" << std::string(filled, '=') << std::string(width - filled, ' ') << "] " << done
                  << " of " << total_ << std::flush;
    }
    void clear() const {
        if (shown_) std::cerr << "\r\033[K" << std::flush;
    }

  private:
    std::size_t total_;
    bool shown_;
};

/// Collects outcomes and lets them out in the order of the inputs.
class Report {
  public:
    Report(const Settings& settings, std::size_t count)
        : settings_(settings), outcomes_(count), progress_(count, !settings.quiet) {}

    struct Told {
        Outcome outcome;
        std::vector<std::string> warnings;
    };

    void add(std::size_t index, Told outcome) {
        const std::lock_guard lock(mutex_);
        outcomes_[index] = std::move(outcome);
        progress_.clear();
        for (; next_ < outcomes_.size() && outcomes_[next_]; ++next_)
            tell(next_);
        progress_.show(++done_);
    }

    /// Whatever was done, in order, also when earlier inputs were left out by an interrupt.
    int finish() {
        progress_.clear();
        for (; next_ < outcomes_.size(); ++next_) {
            if (outcomes_[next_]) tell(next_);
        }
        if (settings_.json)
            std::cout << jsonText(outcomes_.size() == 1 && !list_.empty() ? list_[0] : list_) << '\n';
        std::cout.flush();
        if (interrupted()) {
            std::cerr << "peximage: interrupted\n";
            return interruptedStatus();
        }
        return failed_ || !std::cout ? someFailed : 0;
    }

  private:
    void tell(std::size_t index) {
        for (const std::string& warning : outcomes_[index]->warnings)
            std::cerr << "peximage: " << printable(warning) << std::endl;
        Outcome& outcome = outcomes_[index]->outcome;
        if (const auto* failure = std::get_if<Failure>(&outcome)) return complain(index, failure->message);
        Result& result = std::get<Result>(outcome);
        for (const std::string& problem : result.problems)
            complain(index, problem);
        if (!settings_.quiet) {
            for (const std::string& note : result.notes)
                std::cerr << "peximage: " << printable(settings_.inputs[index] + ": " + note) << std::endl;
        }
        if (settings_.json)
            list_.push_back(withFileBytes(std::move(result.json)));
        else if (!settings_.quiet)
            std::cout << printableLines(result.line) << std::endl;
    }

    void complain(std::size_t index, const std::string& message) {
        std::cerr << "peximage: " << printable(settings_.inputs[index] + ": " + message) << std::endl;
        failed_ = true;
    }

    const Settings& settings_;
    std::mutex mutex_;
    std::vector<std::optional<Told>> outcomes_;
    std::size_t next_ = 0, done_ = 0;
    bool failed_ = false;
    nlohmann::ordered_json list_ = nlohmann::ordered_json::array();
    Progress progress_;
};

/// The outcome of one input, with what there is to warn of.
Report::Told done(const std::function<Outcome(std::size_t)>& work, std::size_t index) {
    incomplete::begin();
    Outcome outcome = work(index);
    return {std::move(outcome), incomplete::warnings()};
}

void directDiagnostics(const Settings& settings) {
    if (settings.verbose)
        pex::diagnostics::setSink([](std::string_view line) { std::cerr << printable(line) << '\n'; });
    else
        pex::diagnostics::setSink({});
}

} // namespace

int runBatch(const Settings& settings, const std::function<Outcome(std::size_t)>& work) {
    directDiagnostics(settings);
    const std::size_t count = settings.inputs.size();
    Report report(settings, count);
    std::atomic<std::size_t> next{0};
    const auto workOff = [&] {
        for (std::size_t i = next++; i < count && !interrupted(); i = next++)
            report.add(i, done(work, i));
    };
    const std::size_t wanted = settings.jobs > 0 ? static_cast<std::size_t>(settings.jobs)
                                                 : std::max(std::thread::hardware_concurrency(), 1U);
    std::vector<std::thread> helpers;
    try {
        for (std::size_t i = 1; i < std::min(wanted, count); ++i)
            helpers.emplace_back(workOff);
    } catch (const std::system_error&) { // no more threads to be had: those that there are do it all
    }
    workOff();
    for (std::thread& helper : helpers)
        helper.join();
    return report.finish();
}
