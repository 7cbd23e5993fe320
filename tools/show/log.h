// A rendered negotiation log, read back: its lines, what it says last of each mechanism, and its records.
#ifndef QXNEGO_TOOLS_SHOW_LOG_H
#define QXNEGO_TOOLS_SHOW_LOG_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tools/show/saved_story.h"

namespace tools {

// What a log says of a mechanism, in its words; empty where it says nothing.
struct LogRecord {
    std::string mechanism;
    std::string state;
    std::string reason;
    std::string status_text;
};

// Whether the text begins as a rendered log does.
bool is_negotiation_log(std::string_view text);

// The name of the record's mechanism; for one that only the peer has, its name if it is well-known, else its OID. Empty
// without one.
std::string mechanism_of(const qxgss_story_record_desc &record);

// The last record of each mechanism in which this side sees it, in the order in which the log first names them. A
// status text comes from the peer and may hold line ends, and whole records: nothing is decided by this.
std::vector<LogRecord> last_records(const SavedStory &story);

// When the peer had settled on a mechanism that then failed here, after which no other gets its turn, a line that says
// so; otherwise empty.
std::string settled_note(const SavedStory &story);

// The log's lines, each safe to print.
std::vector<std::string> lines_of(std::string_view log);

// The log indented, line by line, and the table of its last records.
void print_log(std::ostream &out, std::string_view log);
void print_records(std::ostream &out, const std::vector<LogRecord> &records);

} // namespace tools

#endif
