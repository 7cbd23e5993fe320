#include "tools/show/log.h"

#include <algorithm>

#include "gssp2qxnego/words.h"
#include "tools/show/oids.h"
#include "tools/show/table.h"

namespace tools {

namespace {

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

std::string text_of(const qxgss_buffer_desc &buffer) {
    return std::string(common::bytes_of(&buffer));
}

} // namespace

bool is_negotiation_log(std::string_view text) {
    return text.starts_with("\nQXNEGO Negotiation Log\n");
}

std::string mechanism_of(const qxgss_story_record_desc &record) {
    return common::present(record.MechOid) ? name_from_hex(common::bytes_of(&record.MechOid)) : text_of(record.Mech);
}

std::vector<LogRecord> last_records(const SavedStory &story) {
    std::vector<LogRecord> last;
    for (const qxgss_story_record_desc &record : story.records()) {
        LogRecord said{mechanism_of(record), std::string(qxnego::state_word(record.State)),
                       std::string(qxnego::reason_word(record.Reason)), text_of(record.StatusText)};
        if (said.mechanism.empty() || record.IsPeerView != 0)
            continue;
        const auto place = std::ranges::find(last, said.mechanism, &LogRecord::mechanism);
        (place == last.end() ? last.emplace_back() : *place) = std::move(said);
    }
    return last;
}

std::string settled_note(const SavedStory &story) {
    const std::vector<qxgss_story_record_desc> records = story.records();
    constexpr OM_uint32 kCompleted = 1;
    if (records.empty() || records.back().NegStateFromPeer != kCompleted || records.back().NegState == kCompleted)
        return "";
    const auto is_settled = [](const qxgss_story_record_desc &record) {
        return record.IsPeerView != 0 && record.State == QXGSS_MECH_STATE_SELECTED;
    };
    const auto settled = std::ranges::find_if(records.rbegin(), records.rend(), is_settled);
    if (settled == records.rend())
        return "";
    const std::vector<LogRecord> last = last_records(story);
    const auto here = std::ranges::find(last, mechanism_of(*settled), &LogRecord::mechanism);
    if (here == last.end() || here->state != qxnego::state_word(QXGSS_MECH_STATE_REJECTED))
        return "";
    return std::string("The ") + (settled->IsInitiator != 0 ? "server" : "client") + " had already settled on " +
           printable(here->mechanism) + ", which failed here.";
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
        table.add({printable(record.mechanism), record.state.empty() ? "-" : record.state, record.reason,
                   printable(record.status_text)});
    table.print(out);
}

} // namespace tools
