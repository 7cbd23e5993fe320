// How messages travel over a stream socket: four octets of length, most significant first, then as many octets as the
// length says. Every wait has a deadline, every message a limit, and memory is taken as its octets come.
#ifndef QXNEGO_TOOLS_CONNECTION_STREAM_H
#define QXNEGO_TOOLS_CONNECTION_STREAM_H

#include <optional>
#include <string>

#include "tools/connection/sockets.h"

namespace tools {

class Stream {
  public:
    Stream(Descriptor socket, std::size_t largest) : socket_(std::move(socket)), largest_(largest) {}

    // False when the peer has gone. Throws Failure (network) when the deadline has come.
    bool send(std::string_view message, Clock::time_point deadline);

    // The next message; nothing when the stream has ended between two. Throws Failure: protocol for one that is too
    // large; network for a silent peer and for a message that is cut off.
    std::optional<std::string> receive(Clock::time_point deadline);

  private:
    std::size_t receive_some(char *to, std::size_t length, Clock::time_point deadline);
    void receive_all(std::string &to, std::size_t length, Clock::time_point deadline);

    Descriptor socket_;
    std::size_t largest_;
};

} // namespace tools

#endif
