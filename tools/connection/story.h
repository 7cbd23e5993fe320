// What one side of a conversation did and learned, as data that can be shown or sent to another process.
#ifndef QXNEGO_TOOLS_CONNECTION_STORY_H
#define QXNEGO_TOOLS_CONNECTION_STORY_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/bytes.h"
#include "tools/failure.h"
#include "tools/show/verdicts.h"

namespace tools {

// One call of the mechanism.
struct Call {
    std::uint64_t time = 0; // nanoseconds of the machine's steady clock: orders the calls of both sides
    std::string name;
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::string text; // of the minor status
    Bytes token;      // that the call produced for the peer, possibly none
};

struct Story {
    bool is_client = false;
    std::string peer;
    ExitStatus status = kExitSuccess;
    std::string failure; // one line, the first cause first; safe to print
    bool is_established = false;
    std::string mechanism; // that was selected
    std::string user;      // that the mechanism proved; the server's side only, as the next three
    std::string claimed;   // that the client claimed
    std::string refused;   // which name the policy refused: "claimed" or "proved"
    std::string delegated; // whose credential the client delegated
    std::uint32_t flags = 0;
    std::string confirmation = "none";
    std::uint32_t rounds = 0;
    bool is_attempt = false;
    std::vector<Verdict> verdicts;
    double seconds = 0; // from the connection until the first message, or until the failure
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    double message_seconds = 0;

    std::vector<Call> calls; // when they are asked for
    Bytes properties;        // likewise: the user properties, with the rendered log in them
};

} // namespace tools

#endif
