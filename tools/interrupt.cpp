// The handler only leaves a note; whoever waits next finds it.
#include "tools/interrupt.h"

#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

#include "tools/failure.h"

namespace tools {

namespace {

volatile std::sig_atomic_t is_interrupted = 0;
int descriptor = -1;

void note_signal(int) {
    is_interrupted = 1;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(descriptor, &one, sizeof one);
}

} // namespace

void interrupt_on_signals() {
    descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = note_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // and without SA_RESTART
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void throw_if_interrupted() {
    if (is_interrupted != 0)
        throw Failure("interrupted", kExitInterrupted);
}

int interrupt_descriptor() {
    return descriptor;
}

} // namespace tools
