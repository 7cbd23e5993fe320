// A saved negotiation log, or user properties with one in them: read, in words, and printed.
#ifndef QXNEGO_TOOLS_SHOW_LOG_H
#define QXNEGO_TOOLS_SHOW_LOG_H

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "common/bytes.h"
#include "session/qxgss_log.h"
#include "tools/bytes.h"

namespace tools {

using LogRecord = qxgss_log_record_desc;
using Property = qxgss_log_property_desc;

// What the reader of qxgss_log.h gives; whatever a peer wrote into it is in it as it came, and a peer can have written
// whole records.
class SavedLog {
  public:
    // Nothing when the bytes are neither a log nor user properties. Throws std::bad_alloc.
    static std::optional<SavedLog> read(ByteView bytes);

    std::string_view text() const { return common::bytes_of(&facts_.Text); }
    const qxgss_log_facts_desc &facts() const { return facts_; }
    const std::vector<LogRecord> &records() const { return records_; }
    const std::vector<Property> &properties() const { return properties_; }

  private:
    struct Delete {
        void operator()(qxgss_log_t log) const { qxgss_log_delete(nullptr, &log); }
    };
    explicit SavedLog(qxgss_log_t log);

    std::unique_ptr<qxgss_log_struct, Delete> log_;
    qxgss_log_facts_desc facts_{};
    std::vector<LogRecord> records_;
    std::vector<Property> properties_;
};

// The mechanism that a record is of: its name, or of one that only the peer has its well-known name or else its OID;
// empty when the record concerns none. Any bytes.
std::string mechanism_of(const LogRecord &record);

// In the log's words; "-" for what it does not say.
std::string state_word(const LogRecord &record);
std::string reason_word(const LogRecord &record);

// The last record of each mechanism in which this side sees it, in the order in which the log first names them.
std::vector<const LogRecord *> last_records(const SavedLog &log);

// When the peer had settled on a mechanism that then failed here, after which no other gets its turn, a line that says
// so; otherwise empty.
std::string settled_note(const SavedLog &log);

// The log's lines, each safe to print.
std::vector<std::string> lines_of(std::string_view log);

// The log indented, line by line, and the table of its last records.
void print_log(std::ostream &out, std::string_view log);
void print_last_records(std::ostream &out, const SavedLog &log);

} // namespace tools

#endif
