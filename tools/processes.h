// A side of a negotiation as a process of its own, which hands its report to the process that started it.
#ifndef QXNEGO_TOOLS_PROCESSES_H
#define QXNEGO_TOOLS_PROCESSES_H

#include <functional>

#include <sys/types.h>

#include "tools/channel.h"
#include "tools/report.h"

namespace tools {

class Process {
  public:
    // Starts it: the body fills the report; an exception it lets out becomes the report's failure. It may take
    // kTimeLimit seconds. Throws Failure.
    explicit Process(const std::function<void(Report &)> &body);
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    ~Process(); // a process that still runs is ended

    // Waits for its report and its end. A process that ended in any other way than with its report and status 0
    // throws Failure, as receive_frame does.
    Report finish();

    static constexpr unsigned kTimeLimit = 60;

  private:
    pid_t id_ = -1;
    Descriptor reports_;
};

} // namespace tools

#endif
