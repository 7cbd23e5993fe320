// Which clients get a place: so many at a time, so many of one address, and the more slowly the more often an address
// has failed to log on.
#ifndef QXNEGO_TOOLS_CONNECTION_ADMISSION_H
#define QXNEGO_TOOLS_CONNECTION_ADMISSION_H

#include <optional>
#include <string>
#include <unordered_map>

#include "tools/connection/sockets.h"

namespace tools {

struct AdmissionLimits {
    unsigned clients = 64;
    unsigned clients_of_address = 16;
    unsigned failures_a_minute = 20; // of an address, before it is slowed
};

class Admission {
  public:
    explicit Admission(const AdmissionLimits &limits) : limits_(limits) {}

    // Whether a client of the address gets a place, and after how long its session may begin. A refused one is counted.
    std::optional<std::chrono::milliseconds> admit(const std::string &address, Clock::time_point now);

    // Its place is free again.
    void leave(const std::string &address, bool has_failed, Clock::time_point now);

    // One that got no place for want of memory, processes or descriptors.
    void count_refused() { ++refused_.by_machine; }

    struct Refused {
        unsigned long by_clients = 0, by_address = 0, by_machine = 0;
        bool any() const { return by_clients + by_address + by_machine != 0; }
    };
    std::size_t size() const { return addresses_.size(); } // addresses that are remembered

    // Counted since they were last told.
    const Refused &refused() const { return refused_; }
    void forget_refused() { refused_ = {}; }

  private:
    // Each failure costs an address a share of a minute; what it has not yet paid slows it.
    struct Address {
        unsigned clients = 0;
        Clock::time_point paid{};
    };
    void forget_idle(Clock::time_point now);

    AdmissionLimits limits_;
    std::unordered_map<std::string, Address> addresses_;
    unsigned clients_ = 0;
    Refused refused_;
};

} // namespace tools

#endif
