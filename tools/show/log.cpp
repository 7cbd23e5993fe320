// A log is lines of a label and a value; the labels that are not listed here are passed over.
#include "tools/show/log.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "gssp2qxnego/words.h"
#include "tools/show/oids.h"

namespace tools {

namespace {

constexpr std::string_view kTitle = "\nQXNEGO Negotiation Log\n";
constexpr std::string_view kOidLabel = "   Mechanism OID: ";
constexpr std::string_view kStatusTextLabel = "   GSS MinorStatusText: ";
constexpr std::string_view kAfterStatusText = "   IsCtxEstablished: ";

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
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

std::string_view take_line(std::string_view &text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

// The name of a mechanism whose OID the log gives in hexadecimal, "2b.06.01"; the text itself when it is no such OID.
std::string name_from_hex(std::string_view text) {
    Bytes der;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        unsigned char byte = 0;
        const char *end = text.data() + std::min(at + 2, text.size());
        const auto [stop, error] = std::from_chars(text.data() + at, end, byte, 16);
        if (error != std::errc() || stop != end)
            return std::string(text);
        der.push_back(byte);
    }
    return mechanism_name(der);
}

// The value that a word stands for; 0 for one that is none.
template <std::size_t N> OM_uint32 value_of(const std::array<std::string_view, N> &words, const std::string &word) {
    const auto found = std::ranges::find(words, word);
    return found == words.end() ? 0 : static_cast<OM_uint32>(found - words.begin());
}

class Reader {
  public:
    void read_line(std::string_view line) {
        if (line.starts_with(next_record()))
            records_.emplace_back();
        else if (records_.empty())
            return; // the banner
        else if (!is_in_status_text_ || line.starts_with(kAfterStatusText))
            read_field(line, records_.back());
        else
            records_.back().status_text.append("\n").append(line);
    }
    std::vector<LogRecord> take() { return std::move(records_); }

  private:
    std::string next_record() const { return "Record " + std::to_string(records_.size()) + ": "; }

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

bool LogRecord::is_peer_view() const {
    return text.starts_with("QXNEGO_INT_ProcessNegMech: Peer report");
}

bool is_negotiation_log(std::string_view text) {
    return text.starts_with(kTitle);
}

std::vector<LogRecord> read_log(std::string_view text) {
    Reader reader;
    while (!text.empty())
        reader.read_line(take_line(text));
    return reader.take();
}

std::vector<MechanismView> views_of(const std::vector<LogRecord> &log) {
    std::vector<MechanismView> views;
    for (const LogRecord &record : log) {
        if (record.mechanism.empty() || record.is_peer_view())
            continue;
        auto place = std::ranges::find(views, record.mechanism, &MechanismView::mechanism);
        if (place == views.end())
            place = views.emplace(views.end());
        *place = {record.mechanism,
                  {value_of(qxnego::kMechStateWords, record.state), value_of(qxnego::kMechReasonWords, record.reason),
                   record.status_text}};
    }
    return views;
}

void print_log(std::ostream &out, std::string_view text) {
    while (!text.empty()) {
        const std::string line = printable(take_line(text));
        out << (line.empty() ? "" : "  | ") << line << '\n';
    }
}

} // namespace tools
