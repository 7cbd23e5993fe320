// What became of one connection, as its two sides print it: a line, a table of verdicts, or a line of JSON.
#ifndef QXNEGO_TOOLS_CONNECTION_H
#define QXNEGO_TOOLS_CONNECTION_H

#include <ostream>

#include "tools/failure.h"
#include "tools/report.h"
#include "tools/stream.h"
#include "tools/verdicts.h"

namespace tools {

enum class Confirmation { kNone, kUnconfirmed, kConfirmed, kMismatch }; // kNone: it did not come to that

struct Connection {
    bool is_client = false;
    std::string peer;
    Report report; // of the negotiation
    ExitStatus status = kExitSuccess;
    std::string failure; // one line, the first cause first
    std::string claimed; // the name that the client claimed; the server's side only, as the next two
    std::string refused; // which name the policy refused: "claimed" or "proved"
    std::string delegated;
    Confirmation confirmation = Confirmation::kNone;
    std::vector<View> own, other; // the other side's only when the negotiation was established
    double seconds = 0;           // from the connection until the first message
    std::uint64_t messages = 0;   // echoed
    std::uint64_t bytes = 0;
    double message_seconds = 0;
};

std::vector<Verdict> verdicts_of(const Connection &connection);

void print_line(std::ostream &out, const Connection &connection);
void print_json(std::ostream &out, const Connection &connection); // docs/json.md

// A side's views on their way to the other: four lines each. Reading throws Failure (protocol).
Bytes encode_views(const std::vector<View> &views);
std::vector<View> decode_views(ByteView bytes);

// Views of the log in the report's user properties.
std::vector<View> views_in(const Report &report);

} // namespace tools

#endif
