#include "Interrupt.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t stopAsked = 0;

void note(int signal) {
    stopAsked = 1;
    std::signal(signal, SIG_DFL);
}

} // namespace

void watchInterrupts() {
    std::signal(SIGINT, note);
    std::signal(SIGTERM, note);
}

bool interrupted() { return stopAsked != 0; }
