// Frames over stream sockets. A broken stream is an ordinary answer, a peer that closes never kills this process.
#include "tools/channel.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

#include "tools/failure.h"
#include "tools/interrupt.h"

namespace tools {

namespace {

bool send_all(int number, ByteView bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(number, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
}

// False at the end of the stream.
bool receive_all(int number, std::span<unsigned char> bytes) {
    while (!bytes.empty()) {
        throw_if_interrupted();
        const ssize_t got = recv(number, bytes.data(), bytes.size(), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno != ECONNRESET)
            throw Failure(std::string("receiving: ") + std::strerror(errno));
        if (got <= 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(got));
    }
    return true;
}

} // namespace

void Descriptor::close() noexcept {
    if (number_ >= 0)
        ::close(number_);
    number_ = -1;
}

std::pair<Descriptor, Descriptor> socket_pair() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw Failure(std::string("socketpair: ") + std::strerror(errno));
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool send_frame(const Descriptor &stream, ByteView frame) {
    const auto length = static_cast<std::uint32_t>(frame.size());
    const std::array<unsigned char, 4> head = {
        static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
        static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length)};
    return send_all(stream.get(), head) && send_all(stream.get(), frame);
}

std::optional<Bytes> receive_frame(const Descriptor &stream) {
    std::array<unsigned char, 4> head{};
    if (!receive_all(stream.get(), head))
        return std::nullopt;
    const std::uint32_t length = (std::uint32_t{head[0]} << 24) | (std::uint32_t{head[1]} << 16) |
                                 (std::uint32_t{head[2]} << 8) | std::uint32_t{head[3]};
    if (length > kLargestFrame)
        throw Failure("the peer sent a frame of " + std::to_string(length) + " bytes; the limit is " +
                      std::to_string(kLargestFrame));
    Bytes frame(length);
    if (!receive_all(stream.get(), frame))
        return std::nullopt;
    return frame;
}

} // namespace tools
