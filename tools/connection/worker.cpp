// The process leaves through exit, so that whatever checks memory at the end of a program also checks it there.
#include "tools/connection/worker.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/connection/interrupt.h"
#include "tools/failure.h"

namespace tools {

namespace {

constexpr std::size_t kLargestResult = std::size_t{256} * 1024;
constexpr char kLifted = '\0';             // the octet in front of the result that says so
constexpr std::chrono::seconds kToTell{1}; // for a process that its own alarm ends, before it is ended from outside

bool send_all(const Descriptor &to, std::string_view octets) {
    while (!octets.empty()) {
        const ssize_t sent = send(to.get(), octets.data(), octets.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        octets.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
}

[[noreturn]] void run(const std::function<std::string(const Worker::Lift &)> &body, const Descriptor &results,
                      std::chrono::seconds limit, pid_t parent) {
    int status = kExitFailure;
    interrupt_forked_on_signals();
    alarm(static_cast<unsigned>(limit.count()));
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) // it died before that
        std::exit(status);
    try {
        const std::string result = body([&] {
            alarm(0);
            send_all(results, {&kLifted, 1});
        });
        status = send_all(results, result) ? kExitSuccess : kExitFailure;
    } catch (const std::exception &) { // memory, above all: the parent says so
    }
    std::exit(status);
}

std::string describe(int status) {
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return "its process took too long";
    if (WIFSIGNALED(status))
        return std::string("its process was ended by a signal: ") + strsignal(WTERMSIG(status));
    return "its process ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

Worker::Worker(const std::function<std::string(const Lift &)> &body, std::chrono::seconds limit)
    : deadline_(Clock::now() + limit + kToTell) {
    std::pair<Descriptor, Descriptor> ends = socket_pair();
    const pid_t parent = getpid();
    id_ = fork();
    if (id_ < 0)
        throw system_failure("fork");
    if (id_ == 0) {
        ends.first.close();
        run(body, ends.second, limit, parent);
    }
    results_ = std::move(ends.first);
}

Worker::Worker(Worker &&other) noexcept
    : id_(std::exchange(other.id_, -1)), results_(std::move(other.results_)), deadline_(other.deadline_),
      result_(std::move(other.result_)), is_lifted_(other.is_lifted_), has_crashed_(other.has_crashed_) {}

Worker::~Worker() {
    end();
}

// Whoever has closed its end and lives on is not waited for. A process that ends by itself has its status by then.
int Worker::end() noexcept {
    int status = 0;
    if (id_ > 0)
        kill(id_, SIGKILL);
    while (id_ > 0 && waitpid(id_, &status, 0) < 0 && errno == EINTR) {
    }
    id_ = -1;
    return status;
}

bool Worker::crash(const std::string &how) {
    end();
    has_crashed_ = true;
    result_ = how;
    return false;
}

bool Worker::take(std::string_view octets) {
    if (!octets.empty() && octets.front() == kLifted && result_.empty() && !std::exchange(is_lifted_, true)) {
        deadline_ = Clock::time_point::max();
        octets.remove_prefix(1);
    }
    if (octets.size() > kLargestResult - result_.size())
        return crash("its process said too much");
    result_ += octets;
    return true;
}

bool Worker::read_some() noexcept try {
    char chunk[4096];
    const ssize_t got = recv(results_.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (got > 0)
        return take({chunk, static_cast<std::size_t>(got)});
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return Clock::now() < deadline_ || crash("its process took too long");
    const int status = end();
    return status != 0 && crash(describe(status));
} catch (const std::bad_alloc &) {
    end();
    has_crashed_ = true;
    result_.clear();
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
