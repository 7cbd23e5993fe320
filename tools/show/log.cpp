// A log is lines of a label and a value; the labels that are not listed here are passed over. A record only begins at a
// line with the next record number, and a status text goes on to the line that follows it in every record.
#include "tools/show/log.h"

#include <algorithm>

#include "tools/show/oids.h"
#include "tools/show/table.h"

namespace tools {

namespace {

constexpr std::string_view kTitle = "\nQXNEGO Negotiation Log\n";
constexpr std::string_view kOidLabel = "   Mechanism OID: ";
constexpr std::string_view kStatusTextLabel = "   GSS MinorStatusText: ";
constexpr std::string_view kAfterStatusText = "   IsCtxEstablished: ";
constexpr std::string_view kPeerView = "QXNEGO_INT_ProcessNegMech: Peer report"; // how the peer sees the mechanism

struct Field {
    std::string_view label;
    std::string LogRecord::*value;
};

constexpr Field kFields[] = {
    {"   Text: ", &LogRecord::text},         {"   Mechanism: ", &LogRecord::mechanism},
    {kOidLabel, &LogRecord::mechanism},      {"   MechState: ", &LogRecord::state},
    {"   MechReason: ", &LogRecord::reason}, {kStatusTextLabel, &LogRecord::status_text},
};

std::string_view trimmed(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

std::string_view take_line(std::string_view &text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

// The name of a mechanism whose OID the log gives in hexadecimal, "2b.06.01"; the text itself when it is no such OID.
std::string name_from_hex(std::string_view text) {
    const std::optional<Bytes> der = from_hex(without(text, "."));
    return der ? mechanism_name(*der) : std::string(text);
}

class Reader {
  public:
    void read_line(std::string_view line) {
        if (line.starts_with("Record " + std::to_string(records_.size()) + ": "))
            records_.emplace_back();
        else if (records_.empty())
            return; // the banner
        else if (!is_in_status_text_ || line.starts_with(kAfterStatusText))
            read_field(line, records_.back());
        else
            records_.back().status_text.append("\n").append(line);
    }
    const std::vector<LogRecord> &records() const { return records_; }

  private:
    void read_field(std::string_view line, LogRecord &record) {
        is_in_status_text_ = false;
        for (const Field &field : kFields) {
            if (!line.starts_with(field.label))
                continue;
            const std::string_view value = trimmed(line.substr(field.label.size()));
            record.*field.value = field.label == kOidLabel ? name_from_hex(value) : std::string(value);
            is_in_status_text_ = field.label == kStatusTextLabel;
        }
    }

    std::vector<LogRecord> records_;
    bool is_in_status_text_ = false;
};

} // namespace

bool is_negotiation_log(std::string_view text) {
    return text.starts_with(kTitle);
}

std::vector<LogRecord> last_records(std::string_view log) {
    Reader reader;
    while (!log.empty())
        reader.read_line(take_line(log));
    std::vector<LogRecord> last;
    for (const LogRecord &record : reader.records()) {
        if (record.mechanism.empty() || record.text.starts_with(kPeerView))
            continue;
        const auto place = std::ranges::find(last, record.mechanism, &LogRecord::mechanism);
        (place == last.end() ? last.emplace_back() : *place) = record;
    }
    return last;
}

std::vector<std::string> lines_of(std::string_view log) {
    std::vector<std::string> lines;
    while (!log.empty())
        lines.push_back(printable(take_line(log)));
    return lines;
}

void print_log(std::ostream &out, std::string_view log) {
    for (const std::string &line : lines_of(log))
        out << (line.empty() ? "" : "  | ") << line << '\n';
}

void print_records(std::ostream &out, const std::vector<LogRecord> &records) {
    Table table({"mechanism", "state", "reason", "status text"});
    for (const LogRecord &record : records)
        table.add({printable(record.mechanism), record.state.empty() ? "-" : printable(record.state),
                   printable(record.reason), printable(record.status_text)});
    table.print(out);
}

} // namespace tools
