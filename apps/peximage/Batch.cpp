#include "Batch.h"

#include "Incomplete.h"
#include "Interrupt.h"
#include "Printable.h"
#include "Text.h"
#include "peximage/platform/foundation/Diagnostics.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <iterator>
#include <malloc.h>
#include <mutex>
#include <optional>
#include <string_view>
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

struct ReasonName {
    pex::ReasonCode code;
    std::string_view name;
};

/// By which programs know reasons: the library's own words.
constexpr ReasonName reasonNames[] = {
    {pex::ReasonCode::none, "failed"},
    {pex::ReasonCode::noSuchFile, "noSuchFile"},
    {pex::ReasonCode::isFolder, "isFolder"},
    {pex::ReasonCode::notRegularFile, "notRegularFile"},
    {pex::ReasonCode::noPermission, "noPermission"},
    {pex::ReasonCode::tooManyOpenFiles, "tooManyOpenFiles"},
    {pex::ReasonCode::cannotRead, "cannotRead"},
    {pex::ReasonCode::emptyFile, "emptyFile"},
    {pex::ReasonCode::notAnImage, "notAnImage"},
    {pex::ReasonCode::missingModule, "missingModule"},
    {pex::ReasonCode::needsPassword, "needsPassword"},
    {pex::ReasonCode::damaged, "damaged"},
    {pex::ReasonCode::overLimit, "overLimit"},
    {pex::ReasonCode::outOfMemory, "outOfMemory"},
    {pex::ReasonCode::noThread, "noThread"},
    {pex::ReasonCode::diskFull, "diskFull"},
    {pex::ReasonCode::cannotWrite, "cannotWrite"},
    {pex::ReasonCode::cannotEncode, "cannotEncode"},
    {pex::ReasonCode::budgetTooSmall, "budgetTooSmall"},
    {pex::ReasonCode::networkFailed, "networkFailed"},
    {pex::ReasonCode::timedOut, "timedOut"},
    {pex::ReasonCode::cancelled, "cancelled"},
    {pex::ReasonCode::badArgument, "badArgument"},
    {pex::ReasonCode::changedElsewhere, "changedElsewhere"},
};

/// "failed" for a code that has no name yet.
std::string_view nameOf(pex::ReasonCode code) {
    const auto* found = std::ranges::find(reasonNames, code, &ReasonName::code);
    return (found != std::end(reasonNames) ? found : reasonNames)->name;
}

nlohmann::ordered_json errorOf(const std::string& name, const Failure& failure) {
    return {{"file", name}, {"error", {{"code", nameOf(failure.code)}, {"message", failure.message}}}};
}

/// What became of all inputs together.
struct Totals {
    long long files = 0, before = 0, after = 0, leftOut = 0, failed = 0;

    void add(const Result& result) {
        files += result.files;
        before += result.bytesBefore;
        after += result.bytesAfter;
        leftOut += result.leftOut ? 1 : 0;
    }

    /// "3 files  9 000 000 → 900 000 bytes  1 failed"
    std::string line() const {
        std::string text = grouped(files) + (files == 1 ? " file" : " files");
        if (after > 0) text += "  " + (before > 0 ? grouped(before) + " → " : "") + grouped(after) + " bytes";
        if (leftOut > 0) text += "  " + grouped(leftOut) + " left out";
        if (failed > 0) text += "  " + grouped(failed) + " failed";
        return text;
    }
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
            std::cout << jsonText(list_) << '\n';
        else if (settings_.totals && !settings_.quiet && outcomes_.size() > 1)
            std::cout << totals_.line() << '\n';
        std::cout.flush();
        if (interrupted()) {
            std::cerr << "peximage: interrupted\n";
            return interruptedStatus();
        }
        return totals_.failed > 0 || !std::cout ? someFailed : 0;
    }

  private:
    void tell(std::size_t index) {
        for (const std::string& warning : outcomes_[index]->warnings)
            std::cerr << "peximage: " << printable(warning) << std::endl;
        Outcome& outcome = outcomes_[index]->outcome;
        const Input& input = settings_.inputs[index];
        if (const auto* failure = std::get_if<Failure>(&outcome)) {
            ++totals_.failed;
            if (settings_.json) list_.push_back(withPage(errorOf(input.name, *failure), input));
            return complain(input, failure->message);
        }
        Result& result = std::get<Result>(outcome);
        totals_.add(result);
        totals_.failed += result.problems.empty() ? 0 : 1;
        for (const std::string& problem : result.problems)
            complain(input, problem);
        tell(input, result);
    }

    void tell(const Input& input, Result& result) {
        if (!settings_.quiet) {
            for (const std::string& note : result.notes)
                complain(input, note);
        }
        if (settings_.json && result.json.is_array())
            list_.insert(list_.end(), result.json.begin(), result.json.end());
        else if (settings_.json)
            list_.push_back(withPage(std::move(result.json), input));
        else if (!settings_.quiet && !result.line.empty())
            std::cout << printableLines(result.line) << std::endl;
    }

    static nlohmann::ordered_json withPage(nlohmann::ordered_json row, const Input& input) {
        if (input.page) row["page"] = *input.page + 1;
        return withFileBytes(std::move(row));
    }

    static void complain(const Input& input, const std::string& message) {
        std::cerr << "peximage: " << printable(input.shownName() + ": " + message) << std::endl;
    }

    const Settings& settings_;
    std::mutex mutex_;
    std::vector<std::optional<Told>> outcomes_;
    std::size_t next_ = 0, done_ = 0;
    Totals totals_;
    nlohmann::ordered_json list_ = nlohmann::ordered_json::array();
    Progress progress_;
};

/// The outcome of one input, with what there is to warn of.
Report::Told done(const Settings& settings, const std::function<Outcome(std::size_t)>& work,
                  std::size_t index) {
    incomplete::begin();
    const Input& input = settings.inputs[index];
    Outcome outcome = input.problem.empty() ? work(index) : Failure{input.problem, input.problemCode};
    return {std::move(outcome), incomplete::warnings()};
}

void directDiagnostics(const Settings& settings) {
    if (settings.verbose)
        pex::diagnostics::setSink([](std::string_view line) { std::cerr << printable(line) << '\n'; });
    else
        pex::diagnostics::setSink({});
}

/// Large blocks go back to the system when they are freed. Left to itself the allocator comes to keep them in
/// its heaps, which holes between the pictures' sizes make larger with every picture.
void keepMemoryFlat() {
    constexpr int large = 1 << 20;
    ::mallopt(M_MMAP_THRESHOLD, large);
}

} // namespace

int runBatch(const Settings& settings, const std::function<Outcome(std::size_t)>& work) {
    directDiagnostics(settings);
    keepMemoryFlat();
    const std::size_t count = settings.inputs.size();
    Report report(settings, count);
    std::atomic<std::size_t> next{0};
    const auto workOff = [&] {
        for (std::size_t i = next++; i < count && !interrupted(); i = next++)
            report.add(i, done(settings, work, i));
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
