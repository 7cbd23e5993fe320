// Processes by fork: the child inherits its task, sends one frame with its report, and leaves through exit, so that
// whatever checks memory at the end of a program also checks it here.
#include "tools/processes.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <sys/wait.h>
#include <unistd.h>

#include "tools/failure.h"
#include "tools/interrupt.h"

namespace tools {

namespace {

[[noreturn]] void run(const std::function<void(Report &)> &body, const Descriptor &reports) {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    alarm(Process::kTimeLimit);
    Report report;
    try {
        body(report);
    } catch (const std::exception &error) {
        report.established = false;
        report.failure = error.what();
    }
    const bool sent = send_frame(reports, encode_report(report));
    std::exit(sent ? kExitSuccess : kExitFailure);
}

std::string describe(int status) {
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return "a process did not end in time";
    if (WIFSIGNALED(status))
        return std::string("a process was ended by a signal: ") + strsignal(WTERMSIG(status));
    return "a process ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

Process::Process(const std::function<void(Report &)> &body) {
    auto [here, there] = socket_pair();
    std::cout.flush(); // or both processes would write it
    id_ = fork();
    if (id_ < 0)
        throw Failure(std::string("fork: ") + std::strerror(errno));
    if (id_ == 0) {
        here.close();
        run(body, there);
    }
    reports_ = std::move(here);
}

Process::~Process() {
    if (id_ < 0)
        return;
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
}

Report Process::finish() {
    const std::optional<Bytes> report = receive_frame(reports_);
    int status = 0;
    while (waitpid(id_, &status, 0) < 0)
        throw_if_interrupted();
    id_ = -1;
    if (status != 0)
        throw Failure(describe(status));
    return decode_report(report.value_or(Bytes()));
}

} // namespace tools
