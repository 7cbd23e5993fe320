// Frames over a TCP connection.
#include "tools/stream.h"

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>

namespace tools {

namespace {

struct End {
    EndReason reason;
    ExitStatus status;
    const char *text;
};

constexpr End kEnds[] = {
    {EndReason::kRefused, kExitNegotiation, "the server refuses the logon"},
    {EndReason::kForbidden, kExitPolicy, "the server's policy does not let this user log on with this mechanism"},
    {EndReason::kNotTheSameTokens, kExitConfirmation,
     "the peer saw other tokens: someone in between has changed the negotiation"},
    {EndReason::kConfirmationRequired, kExitConfirmation,
     "the peer requires a confirmation, and the mechanism has no MICs"},
    {EndReason::kProtectionFailed, kExitProtection, "the peer could not verify a message"},
};

[[noreturn]] void throw_end(const Bytes &contents) {
    for (const End &end : kEnds)
        if (contents.size() == 1 && contents[0] == static_cast<unsigned char>(end.reason))
            throw Failure(end.text, end.status);
    throw Failure("the peer ended the connection for a reason that is not known here", kExitProtocol);
}

} // namespace

Stream::Stream(Descriptor socket, const Limits &limits) : socket_(std::move(socket)), limits_(limits) {}

bool Stream::send(FrameType type, ByteView contents) {
    const auto length = static_cast<std::uint32_t>(contents.size());
    Bytes frame = {static_cast<unsigned char>(length >> 24), static_cast<unsigned char>(length >> 16),
                   static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length),
                   static_cast<unsigned char>(type)};
    frame.insert(frame.end(), contents.begin(), contents.end());
    for (ByteView rest = frame; !rest.empty();) {
        if (!wait_for(socket_, POLLOUT, deadline_))
            throw Failure("the peer does not read", kExitNetwork);
        const ssize_t sent = ::send(socket_.get(), rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        rest = rest.subspan(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    }
    return true;
}

void Stream::send_end(EndReason reason) noexcept {
    try {
        const auto octet = static_cast<unsigned char>(reason);
        send(FrameType::kEnd, ByteView(&octet, 1));
    } catch (const std::exception &) {
    }
}

// False when the stream ended before the first byte.
bool Stream::receive_all(std::span<unsigned char> bytes) {
    const std::size_t wanted = bytes.size();
    while (!bytes.empty()) {
        if (!wait_for(socket_, POLLIN, deadline_))
            throw Failure("the peer is silent", kExitNetwork);
        const ssize_t got = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EINTR))
            continue;
        if (got < 0)
            throw Failure(std::string("receiving: ") + std::strerror(errno), kExitNetwork);
        if (got == 0 && bytes.size() == wanted)
            return false;
        if (got == 0)
            throw Failure("the connection ended inside a frame", kExitNetwork);
        bytes = bytes.subspan(static_cast<std::size_t>(got));
    }
    return true;
}

std::optional<Bytes> Stream::receive(FrameType type) {
    unsigned char head[5];
    if (!receive_all(head))
        return std::nullopt;
    const std::uint32_t length = (std::uint32_t{head[0]} << 24) | (std::uint32_t{head[1]} << 16) |
                                 (std::uint32_t{head[2]} << 8) | std::uint32_t{head[3]};
    if (head[4] < static_cast<unsigned char>(FrameType::kToken) ||
        head[4] > static_cast<unsigned char>(FrameType::kEnd))
        throw Failure("the peer speaks something else (a frame of type " + std::to_string(head[4]) + ")",
                      kExitProtocol);
    if (length > limits_.frame)
        throw Failure("the peer sent a frame of " + std::to_string(length) + " bytes; the limit is " +
                          std::to_string(limits_.frame),
                      kExitProtocol);
    Bytes contents(length);
    if (length != 0 && !receive_all(contents))
        throw Failure("the connection ended inside a frame", kExitNetwork);
    received_ = Clock::now();
    const auto actual = static_cast<FrameType>(head[4]);
    if (actual == FrameType::kEnd && contents == Bytes{static_cast<unsigned char>(EndReason::kDone)})
        return std::nullopt;
    if (actual == FrameType::kEnd)
        throw_end(contents);
    if (actual != type)
        throw Failure("the peer sent a frame of type " + std::to_string(head[4]) + " out of order", kExitProtocol);
    return contents;
}

} // namespace tools
