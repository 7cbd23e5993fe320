#include "tools/connection/stream.h"

#include <algorithm>

#include <poll.h>
#include <sys/socket.h>

#include "tools/failure.h"

namespace tools {

namespace {

constexpr std::size_t kHead = 4;
constexpr std::size_t kChunk = std::size_t{16} * 1024;

} // namespace

bool Stream::send(std::string_view message, Clock::time_point deadline) {
    const std::size_t length = message.size();
    std::string frame = {static_cast<char>(length >> 24), static_cast<char>(length >> 16),
                         static_cast<char>(length >> 8), static_cast<char>(length)};
    frame += message;
    for (std::string_view rest = frame; !rest.empty();) {
        if (!wait_for(socket_, POLLOUT, deadline))
            throw Failure("the peer does not read", kExitNetwork);
        const ssize_t sent = ::send(socket_.get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
}

// The octets that were there, at least one; 0 at the end of the stream.
std::size_t Stream::receive_some(char *to, std::size_t length, Clock::time_point deadline) {
    while (true) {
        if (!wait_for(socket_, POLLIN, deadline))
            throw Failure("the peer is silent", kExitNetwork);
        const ssize_t got = recv(socket_.get(), to, length, MSG_DONTWAIT);
        if (got >= 0)
            return static_cast<std::size_t>(got);
        if (errno == ECONNRESET)
            return 0;
        if (errno != EAGAIN && errno != EINTR)
            throw system_failure("receiving", kExitNetwork);
    }
}

// Appends as many octets; the text grows as they come.
void Stream::receive_all(std::string &to, std::size_t length, Clock::time_point deadline) {
    char chunk[kChunk];
    while (length != 0) {
        const std::size_t got = receive_some(chunk, std::min(length, sizeof chunk), deadline);
        if (got == 0)
            throw Failure("the connection ended inside a message", kExitNetwork);
        to.append(chunk, got);
        length -= got;
    }
}

std::optional<std::string> Stream::receive(Clock::time_point deadline) {
    std::string head(1, '\0'), message;
    if (receive_some(head.data(), 1, deadline) == 0)
        return std::nullopt;
    receive_all(head, kHead - 1, deadline);
    std::size_t length = 0;
    for (const char octet : head)
        length = length << 8 | static_cast<unsigned char>(octet);
    if (length > largest_)
        throw Failure("the peer announced a message of " + std::to_string(length) + " bytes; the limit is " +
                          std::to_string(largest_),
                      kExitProtocol);
    receive_all(message, length, deadline);
    return message;
}

} // namespace tools
