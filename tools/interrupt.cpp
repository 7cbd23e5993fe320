// The handler only leaves a note; whoever waits next finds it.
#include "tools/interrupt.h"

#include <csignal>

#include "tools/failure.h"

namespace tools {

namespace {

volatile std::sig_atomic_t is_interrupted = 0;

void note_signal(int) {
    is_interrupted = 1;
}

} // namespace

void interrupt_on_signals() {
    struct sigaction action {};
    action.sa_handler = note_signal; // without SA_RESTART
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void throw_if_interrupted() {
    if (is_interrupted != 0)
        throw Failure("interrupted", kExitInterrupted);
}

} // namespace tools
