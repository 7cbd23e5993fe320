// TCP sockets: addresses as people write them, listening, connecting, and waiting with a deadline that a signal ends.
#ifndef QXNEGO_TOOLS_CONNECTION_SOCKETS_H
#define QXNEGO_TOOLS_CONNECTION_SOCKETS_H

#include <chrono>
#include <string>
#include <vector>

#include "tools/descriptor.h"

namespace tools {

using Clock = std::chrono::steady_clock;

struct Address {
    std::string host; // name, IPv4 or IPv6 address; empty: every address of this host
    std::string port;
};

// "HOST:PORT", "[IPv6]:PORT" or ":PORT". Throws Failure (usage).
Address parse_address(const std::string &text);

// Sockets that listen at every address of the name, IPv4 and IPv6; port 0 takes one free port for all of them. Throws
// Failure: usage for a name that is none of this host's, network for a port that is taken.
std::vector<Descriptor> listen_at(const Address &address);

// A connection to the first address that answers. Throws Failure (network) with the first address's reason.
Descriptor connect_to(const Address &address, Clock::time_point deadline);

// Two connected stream sockets, closed in programs that are started. Throws Failure.
std::pair<Descriptor, Descriptor> socket_pair();

// "127.0.0.1:80" or "[::1]:80", of this end or of the other.
std::string local_address(const Descriptor &socket);
std::string peer_address(const Descriptor &socket);

// Whose the other end is, as far as limits go: an IPv4 address, or the network of an IPv6 one (64 bits).
std::string peer_network(const Descriptor &socket);

inline double seconds_since(Clock::time_point moment) {
    return std::chrono::duration<double>(Clock::now() - moment).count();
}

// What poll waits at most: 0 for a moment that has come.
int milliseconds_until(Clock::time_point moment);

// Waits until the socket is ready for the events of poll; false when the deadline has come. Throws Failure
// (interrupted) when a signal ends the command.
bool wait_for(const Descriptor &socket, short events, Clock::time_point deadline);

// Waits until the moment has come; throws likewise.
void wait_until(Clock::time_point moment);

} // namespace tools

#endif
