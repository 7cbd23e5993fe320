// The process leaves through exit, so that whatever checks memory at the end of a program also checks it there.
#include "tools/connection/worker.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/connection/interrupt.h"
#include "tools/connection/sockets.h"
#include "tools/failure.h"

namespace tools {

namespace {

constexpr std::size_t kLargestResult = std::size_t{1} << 20;

[[noreturn]] void run(const std::function<std::string()> &body, const Descriptor &results) {
    int status = kExitFailure;
    interrupt_on_signals(); // this process's own
    try {
        const std::string result = body();
        std::string_view rest = result;
        ssize_t sent = 0;
        while (!rest.empty() && sent >= 0) {
            sent = send(results.get(), rest.data(), rest.size(), MSG_NOSIGNAL);
            rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
        }
        status = rest.empty() ? kExitSuccess : kExitFailure;
    } catch (const std::exception &) { // memory, above all: the parent says so
    }
    std::exit(status);
}

std::string describe(int status) {
    if (WIFSIGNALED(status))
        return std::string("its process was ended by a signal: ") + strsignal(WTERMSIG(status));
    return "its process ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

Worker::Worker(const std::function<std::string()> &body) {
    std::pair<Descriptor, Descriptor> ends = socket_pair();
    id_ = fork();
    if (id_ < 0)
        throw system_failure("fork");
    if (id_ == 0) {
        ends.first.close();
        run(body, ends.second);
    }
    results_ = std::move(ends.first);
}

Worker::Worker(Worker &&other) noexcept
    : id_(std::exchange(other.id_, -1)), results_(std::move(other.results_)), result_(std::move(other.result_)),
      has_crashed_(other.has_crashed_) {}

Worker::~Worker() {
    if (id_ < 0)
        return;
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
}

bool Worker::read_some() {
    char chunk[4096];
    const ssize_t got = recv(results_.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return true;
    if (got > 0) {
        result_.append(chunk, std::min(static_cast<std::size_t>(got), kLargestResult - result_.size()));
        return true;
    }
    int status = 0;
    while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
    }
    id_ = -1;
    has_crashed_ = status != 0;
    if (has_crashed_)
        result_ = describe(status);
    return false;
}

void Worker::forget() {
    id_ = -1;
    results_.close();
}

void Worker::signal(int number) const {
    if (id_ > 0)
        kill(id_, number);
}

} // namespace tools
