// A process for each connection: whatever a stranger does to it, or a host's library in it, ends with it.
#ifndef QXNEGO_TOOLS_CONNECTION_WORKER_H
#define QXNEGO_TOOLS_CONNECTION_WORKER_H

#include <functional>
#include <string>

#include <sys/types.h>

#include "tools/descriptor.h"

namespace tools {

class Worker {
  public:
    // Runs `body` in a process of its own and keeps what it returns for this one. Throws Failure when there is none to
    // be had. The body closes what of this process it has no use for.
    explicit Worker(const std::function<std::string()> &body);
    Worker(Worker &&other) noexcept;
    Worker &operator=(Worker &&) = delete;
    ~Worker(); // ends the process

    // To wait for with poll.
    int descriptor() const { return results_.get(); }

    // Reads what is there; false once it has ended, and `result` is what the body returned, or says how it ended.
    bool read_some();
    const std::string &result() const { return result_; }
    bool has_crashed() const { return has_crashed_; }

    void signal(int number) const;

    // In another process, which has nothing to do with this one.
    void forget();

  private:
    pid_t id_ = -1;
    Descriptor results_;
    std::string result_;
    bool has_crashed_ = false;
};

} // namespace tools

#endif
