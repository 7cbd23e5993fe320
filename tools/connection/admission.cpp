#include "tools/connection/admission.h"

#include <algorithm>

namespace tools {

namespace {

constexpr std::chrono::minutes kFree{1}; // of failures that cost nothing
constexpr std::chrono::milliseconds kLongest{10'000};
constexpr std::size_t kMostIdle = 4096; // addresses that are remembered for their failures

} // namespace

std::optional<std::chrono::milliseconds> Admission::admit(const std::string &address, Clock::time_point now) {
    if (clients_ >= limits_.clients) {
        ++refused_.by_clients;
        return std::nullopt;
    }
    if (addresses_.size() >= kMostIdle + limits_.clients)
        forget_idle(now);
    Address &known = addresses_[address];
    if (known.clients >= limits_.clients_of_address) {
        ++refused_.by_address;
        return std::nullopt;
    }
    ++known.clients;
    ++clients_;
    const auto owed = std::chrono::duration_cast<std::chrono::milliseconds>(known.paid - now - kFree);
    return std::clamp(owed, std::chrono::milliseconds(0), kLongest);
}

void Admission::leave(const std::string &address, bool has_failed, Clock::time_point now) {
    Address &known = addresses_.at(address);
    --known.clients;
    --clients_;
    if (has_failed)
        known.paid = std::min(std::max(known.paid, now) + std::chrono::milliseconds(60'000) / limits_.failures_a_minute,
                              now + kFree + kLongest); // the longest is also how long it takes to be forgiven
    if (known.clients == 0 && known.paid <= now)
        addresses_.erase(address);
}

// Those that owe least go first; a stranger with many addresses cannot make this side remember them all.
void Admission::forget_idle(Clock::time_point now) {
    std::erase_if(addresses_,
                  [&](const auto &row) { return row.second.clients == 0 && row.second.paid <= now + kFree; });
    if (addresses_.size() >= kMostIdle + limits_.clients)
        std::erase_if(addresses_, [](const auto &row) { return row.second.clients == 0; });
}

} // namespace tools
