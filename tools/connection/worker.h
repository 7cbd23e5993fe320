// A process for each connection: whatever a stranger does to it, or a host's library in it, ends with it.
#ifndef QXNEGO_TOOLS_CONNECTION_WORKER_H
#define QXNEGO_TOOLS_CONNECTION_WORKER_H

#include <functional>
#include <string>

#include <sys/types.h>

#include "tools/connection/sockets.h"

namespace tools {

class Worker {
  public:
    // Lifts the process's time limit; to be called in it.
    using Lift = std::function<void()>;

    // Runs `body` in a process of its own and keeps what it returns for this one: text of at most 256 KiB that begins
    // with another octet than NUL. Unless its limit is lifted it ends when that has come; it dies with this process.
    // Throws Failure when there is none to be had. The body closes what of this process it has no use for.
    explicit Worker(const std::function<std::string(const Lift &)> &body, std::chrono::seconds limit);
    Worker(Worker &&other) noexcept;
    Worker &operator=(Worker &&) = delete;
    ~Worker(); // ends the process

    // To wait for with poll, and until when.
    int descriptor() const { return results_.get(); }
    Clock::time_point deadline() const { return deadline_; }

    // Reads what is there; false once it has ended, and `result` is what the body returned, or says how it ended. At
    // its deadline it is ended. For want of memory it has crashed with an empty result.
    bool read_some() noexcept;
    const std::string &result() const { return result_; }
    std::string take_result() { return std::move(result_); }
    bool has_crashed() const { return has_crashed_; }
    bool is_lifted() const { return is_lifted_; }

    void signal(int number) const;

    // In another process, which has nothing to do with this one.
    void forget();

  private:
    bool take(std::string_view octets);
    bool crash(const std::string &how);
    int end() noexcept;

    pid_t id_ = -1;
    Descriptor results_;
    Clock::time_point deadline_;
    std::string result_;
    bool is_lifted_ = false;
    bool has_crashed_ = false;
};

} // namespace tools

#endif
