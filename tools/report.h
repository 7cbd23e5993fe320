// What one side of a negotiation did and learned, as data that can be sent to another process.
#ifndef QXNEGO_TOOLS_REPORT_H
#define QXNEGO_TOOLS_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/bytes.h"

namespace tools {

// One call of the framework or of the mechanism.
struct Call {
    std::uint64_t time = 0; // nanoseconds of the machine's steady clock: orders the calls of both sides
    std::string name;
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::string text; // of the minor status
    Bytes token;      // that the call produced for the peer, possibly none
};

struct Report {
    std::vector<Call> calls;
    bool established = false;
    std::string failure;   // in one line, when it is not established
    std::string mechanism; // that was selected
    std::string user;      // the authenticated source name; the server's side only
    std::uint32_t flags = 0;
    Bytes properties; // the user-properties buffer, which carries the negotiation log
};

Bytes encode_report(const Report &report);

// Throws Failure for bytes that are no report.
Report decode_report(ByteView bytes);

} // namespace tools

#endif
