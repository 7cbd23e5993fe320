// Sockets are non-blocking throughout: all waiting is done in one place.
#include "tools/connection/sockets.h"

#include <algorithm>
#include <memory>

#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "tools/connection/interrupt.h"
#include "tools/failure.h"

namespace tools {

namespace {

constexpr int kBacklog = 128;

struct FreeAddresses {
    void operator()(addrinfo *list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

std::string written(const Address &address) {
    const bool is_v6 = address.host.find(':') != std::string::npos;
    return (is_v6 ? '[' + address.host + ']' : address.host) + ':' + address.port;
}

Addresses resolve(const Address &address, int flags, ExitStatus status) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo *list = nullptr;
    const char *host = address.host.empty() ? nullptr : address.host.c_str();
    const int error = getaddrinfo(host, address.port.c_str(), &hints, &list);
    if (error != 0)
        throw Failure(written(address) + ": " + (error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error)),
                      status);
    return Addresses(list);
}

Descriptor make_socket(const addrinfo &address) {
    return Descriptor(
        socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address.ai_protocol));
}

void set_option(const Descriptor &socket, int level, int option) {
    const int on = 1;
    setsockopt(socket.get(), level, option, &on, sizeof on);
}

std::string address_text(const sockaddr_storage &address, socklen_t length) {
    char host[NI_MAXHOST], port[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return "?";
    return written({host, port});
}

std::string address_of(const Descriptor &socket, decltype(&getsockname) ask) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    return ask(socket.get(), reinterpret_cast<sockaddr *>(&address), &length) == 0 ? address_text(address, length)
                                                                                   : "?";
}

// A descriptor, or none with the reason in errno.
Descriptor listening_socket(const addrinfo &address) {
    Descriptor made = make_socket(address);
    if (made.get() < 0)
        return made;
    set_option(made, SOL_SOCKET, SO_REUSEADDR);
    if (address.ai_family == AF_INET6)
        set_option(made, IPPROTO_IPV6, IPV6_V6ONLY); // IPv4 has a socket of its own
    if (bind(made.get(), address.ai_addr, address.ai_addrlen) != 0 || listen(made.get(), kBacklog) != 0)
        return Descriptor();
    return made;
}

// The error number of a connection attempt, 0 when it stands.
int try_address(const Descriptor &made, const addrinfo &address, Clock::time_point deadline) {
    if (made.get() < 0)
        return errno;
    if (connect(made.get(), address.ai_addr, address.ai_addrlen) == 0)
        return 0;
    if (errno != EINPROGRESS)
        return errno;
    if (!wait_for(made, POLLOUT, deadline))
        return ETIMEDOUT;
    int error = 0;
    socklen_t length = sizeof error;
    return getsockopt(made.get(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

// Gives the address the socket's port.
void copy_port(const Descriptor &socket, addrinfo &address) {
    sockaddr_storage own{};
    socklen_t length = sizeof own;
    getsockname(socket.get(), reinterpret_cast<sockaddr *>(&own), &length);
    const in_port_t port = own.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6 &>(own).sin6_port
                                                     : reinterpret_cast<sockaddr_in &>(own).sin_port;
    if (address.ai_family == AF_INET6)
        reinterpret_cast<sockaddr_in6 *>(address.ai_addr)->sin6_port = port;
    else
        reinterpret_cast<sockaddr_in *>(address.ai_addr)->sin_port = port;
}

} // namespace

Address parse_address(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    Address address{text.substr(0, colon), colon == std::string::npos ? "" : text.substr(colon + 1)};
    const bool bracketed = address.host.size() > 1 && address.host.front() == '[' && address.host.back() == ']';
    if (bracketed)
        address.host = address.host.substr(1, address.host.size() - 2);
    const bool is_number = !address.port.empty() && address.port.size() < 6 &&
                           address.port.find_first_not_of("0123456789") == std::string::npos;
    if (!is_number || std::stoi(address.port) > 65535 || (!bracketed && address.host.find(':') != std::string::npos))
        throw Failure('"' + text + "\": should be HOST:PORT or [IPv6]:PORT", kExitUsage);
    return address;
}

std::vector<Descriptor> listen_at(const Address &address) {
    std::vector<Descriptor> sockets;
    const Addresses list = resolve(address, AI_PASSIVE, kExitUsage);
    int reason = 0;
    for (addrinfo *next = list.get(); next != nullptr; next = next->ai_next) {
        if (address.port == "0" && !sockets.empty())
            copy_port(sockets.front(), *next);
        Descriptor made = listening_socket(*next);
        reason = made.get() < 0 ? errno : reason;
        if (made.get() >= 0)
            sockets.push_back(std::move(made));
        else if (reason != EAFNOSUPPORT && reason != EADDRNOTAVAIL) // names also have addresses that the host lacks
            break;
    }
    if (sockets.empty() || reason == EADDRINUSE || reason == EACCES)
        throw system_failure("listening at " + written(address), kExitNetwork, reason);
    return sockets;
}

Descriptor connect_to(const Address &address, Clock::time_point deadline) {
    const Addresses list = resolve(address, 0, kExitNetwork);
    int first_error = 0;
    for (const addrinfo *next = list.get(); next != nullptr; next = next->ai_next) {
        Descriptor made = make_socket(*next);
        const int error = try_address(made, *next, deadline);
        if (error == 0) {
            set_option(made, IPPROTO_TCP, TCP_NODELAY);
            return made;
        }
        first_error = first_error == 0 ? error : first_error;
    }
    throw system_failure(written(address), kExitNetwork, first_error);
}

std::pair<Descriptor, Descriptor> socket_pair() {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw system_failure("socketpair");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::string peer_network(const Descriptor &socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(socket.get(), reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return {};
    if (address.ss_family == AF_INET)
        return {reinterpret_cast<const char *>(&reinterpret_cast<const sockaddr_in &>(address).sin_addr),
                sizeof(in_addr)};
    constexpr std::size_t kNetwork = 8; // octets
    return {reinterpret_cast<const char *>(&reinterpret_cast<const sockaddr_in6 &>(address).sin6_addr), kNetwork};
}

std::string local_address(const Descriptor &socket) {
    return address_of(socket, getsockname);
}

std::string peer_address(const Descriptor &socket) {
    return address_of(socket, getpeername);
}

int milliseconds_until(Clock::time_point moment) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

bool wait_for(const Descriptor &socket, short events, Clock::time_point deadline) {
    while (true) {
        pollfd places[] = {{socket.get(), events, 0}, {interrupt_descriptor(), POLLIN, 0}};
        const int ready = poll(places, 2, milliseconds_until(deadline));
        throw_if_interrupted();
        if (ready < 0 && errno != EINTR)
            throw system_failure("poll", kExitNetwork);
        if (ready > 0 && places[0].revents != 0)
            return true;
        if (Clock::now() >= deadline)
            return false;
    }
}

void wait_until(Clock::time_point moment) {
    wait_for(Descriptor(), 0, moment); // a negative descriptor is never ready
}

} // namespace tools
