#include "Interrupt.h"

#include "peximage/platform/foundation/AtomicFile.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <ctime>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<int> signalSeen{0};
sigset_t watched;

/// Another thread may be drawing or waiting for a server, and nobody can interrupt it there.
[[noreturn]] void endNow(int signal) {
    pex::AtomicFile::endAllSaves();
    constexpr char words[] = "peximage: interrupted\n";
    (void)!::write(STDERR_FILENO, words, std::strlen(words));
    ::_exit(128 + signal);
}

void watch() {
    int signal = 0;
    if (::sigwait(&watched, &signal) != 0) return;
    signalSeen = signal;
    constexpr timespec patience{.tv_sec = 0, .tv_nsec = 800'000'000};
    ::sigtimedwait(&watched, nullptr, &patience);
    endNow(signal);
}

/// What the starter asked to be ignored, as nohup does, stays ignored.
bool isIgnored(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

void watchInterrupts() {
    ::sigemptyset(&watched);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!isIgnored(signal)) ::sigaddset(&watched, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    try {
        std::thread(watch).detach();
    } catch (const std::system_error&) { // no thread to be had: a signal ends the program as usual
        unwatchInterrupts();
    }
}

void unwatchInterrupts() { ::pthread_sigmask(SIG_UNBLOCK, &watched, nullptr); }

bool interrupted() { return signalSeen != 0; }

int interruptedStatus() { return 128 + signalSeen; }
