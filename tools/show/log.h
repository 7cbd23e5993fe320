// The rendered negotiation log, read back into records.
#ifndef QXNEGO_TOOLS_SHOW_LOG_H
#define QXNEGO_TOOLS_SHOW_LOG_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tools/show/verdicts.h"

namespace tools {

// The fields that say something about a mechanism; empty where a record has none.
struct LogRecord {
    std::string text;
    std::string mechanism; // name; for one that only the peer has, its name if it is well-known, else its OID
    std::string state;
    std::string reason;
    std::string status_text;

    // Whether the record shows the mechanism as the peer sees it, not as this side does.
    bool is_peer_view() const;
};

// Whether the text begins as a rendered log does.
bool is_negotiation_log(std::string_view text);

// The records in order. A status text comes from the peer and may hold line ends, so a record only begins at a line
// with the next record number, and the status text goes on to the line that follows it in every record.
std::vector<LogRecord> read_log(std::string_view text);

// One view a mechanism, in the order in which the log first names them: its last state at this side, as far as the text
// tells. A peer's status text can hold whole records, so nothing is decided by this.
std::vector<MechanismView> views_of(const std::vector<LogRecord> &log);

// The log line by line, indented, each line safe to print.
void print_log(std::ostream &out, std::string_view text);

} // namespace tools

#endif
