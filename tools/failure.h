// The command's exit statuses, and the error that ends it with one clear line.
#ifndef QXNEGO_TOOLS_FAILURE_H
#define QXNEGO_TOOLS_FAILURE_H

#include <stdexcept>

namespace tools {

enum ExitStatus {
    kExitSuccess = 0,
    kExitFailure = 1,      // it was done, and the outcome is not what it should be; or it could not be done
    kExitUsage = 2,        // a wrong option or argument, a file that is not what the command reads
    kExitInterrupted = 130 // by a signal
};

// `what` is the line to print, without the command's name.
class Failure : public std::runtime_error {
  public:
    explicit Failure(const std::string &line, ExitStatus status = kExitFailure)
        : std::runtime_error(line), status_(status) {}
    ExitStatus status() const { return status_; }

  private:
    ExitStatus status_;
};

} // namespace tools

#endif
