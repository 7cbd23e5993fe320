// The command's exit statuses, and the error that ends it with one clear line.
#ifndef QXNEGO_TOOLS_FAILURE_H
#define QXNEGO_TOOLS_FAILURE_H

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace tools {

enum ExitStatus {
    kExitSuccess = 0,
    kExitFailure = 1, // it was done, and the outcome is not what it should be; or it could not be done
    kExitUsage = 2,   // a wrong option or argument, a file that is not what the command reads
    kExitConfiguration = 3,
    kExitNetwork = 4,      // no connection, or the peer has gone or is silent
    kExitProtocol = 5,     // the peer speaks something else, or goes beyond a limit
    kExitNegotiation = 6,  // no mechanism is agreed on, or it does not authenticate the user
    kExitConfirmation = 7, // the peers did not see the same tokens, or cannot confirm that they did
    kExitPolicy = 8,       // the user is authenticated, and may not log on with the mechanism
    kExitProtection = 9,   // a message is not protected as it should be
    kExitPeer = 10,        // only in the lines of a server: the client ended it
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

// With the system's reason for what has just failed.
inline Failure system_failure(const std::string &what, ExitStatus status = kExitFailure, int reason = errno) {
    return Failure(what + ": " + std::strerror(reason), status);
}

} // namespace tools

#endif
