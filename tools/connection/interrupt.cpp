// The handler only leaves a note; whoever waits next finds it.
#include "tools/connection/interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

#include "tools/failure.h"

namespace tools {

namespace {

// Read by every thread that waits. Without a lock it may be written by a signal handler.
std::atomic<bool> is_interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);
int descriptor = -1;

void note_signal(int) {
    const int before = errno;
    is_interrupted = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(descriptor, &one, sizeof one);
    errno = before; // of the call that the signal came in
}

void catch_signals(int flags) {
    descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_handler = note_signal;
    action.sa_flags = flags; // without SA_RESTART
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

} // namespace

void interrupt_on_signals() {
    catch_signals(static_cast<int>(SA_RESETHAND));
}

void interrupt_forked_on_signals() {
    close(descriptor); // the parent's
    catch_signals(0);
}

void throw_if_interrupted() {
    if (is_interrupted)
        throw Failure("interrupted", kExitInterrupted);
}

int interrupt_descriptor() {
    return descriptor;
}

} // namespace tools
