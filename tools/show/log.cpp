#include "tools/show/log.h"

#include <algorithm>
#include <map>
#include <new>

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

template <typename Description, typename Inquire>
std::vector<Description> all(OM_uint32 count, qxgss_log_t log, Inquire inquire) {
    std::vector<Description> out(count);
    for (OM_uint32 i = 0; i != count; ++i)
        if (inquire(nullptr, log, i, &out[i]) != GSS_S_COMPLETE)
            throw std::bad_alloc();
    return out;
}

std::string word_or_dash(std::string_view word) {
    return word.empty() ? "-" : std::string(word);
}

} // namespace

SavedLog::SavedLog(qxgss_log_t log) : log_(log) {
    qxgss_log_inquire(nullptr, log, &facts_);
    records_ = all<LogRecord>(facts_.RecordCount, log, qxgss_log_inquire_record);
    properties_ = all<Property>(facts_.PropertyCount, log, qxgss_log_inquire_property);
}

std::optional<SavedLog> SavedLog::read(ByteView bytes) {
    const qxgss_buffer_desc data = common::view(as_text(bytes));
    qxgss_log_t log = nullptr;
    const OM_uint32 major = qxgss_log_open(nullptr, &data, &log);
    if (major == GSS_S_DEFECTIVE_TOKEN)
        return std::nullopt;
    if (major != GSS_S_COMPLETE)
        throw std::bad_alloc();
    return SavedLog(log);
}

std::string mechanism_of(const LogRecord &record) {
    if (record.MechOid.length != 0)
        return mechanism_name(as_bytes(common::bytes_of(&record.MechOid)));
    return std::string(common::bytes_of(&record.MechName));
}

std::string state_word(const LogRecord &record) {
    return word_or_dash(qxnego::state_word(record.MechState));
}

std::string reason_word(const LogRecord &record) {
    return word_or_dash(qxnego::reason_word(record.MechReason));
}

std::vector<const LogRecord *> last_records(const SavedLog &log) {
    std::map<std::string, std::size_t> places;
    std::vector<const LogRecord *> last;
    for (const LogRecord &record : log.records()) {
        const std::string mechanism = record.IsPeerView != 0 ? "" : mechanism_of(record);
        if (mechanism.empty())
            continue;
        const auto [place, is_new] = places.emplace(mechanism, last.size());
        if (is_new)
            last.push_back(nullptr);
        last[place->second] = &record;
    }
    return last;
}

std::string settled_note(const SavedLog &log) {
    const std::vector<LogRecord> &records = log.records();
    constexpr OM_uint32 kCompleted = 1;
    if (records.empty() || records.back().NegStateFromPeer != kCompleted || records.back().NegState == kCompleted)
        return "";
    const auto is_settled = [](const LogRecord &record) {
        return record.IsPeerView != 0 && record.MechState == QXGSS_MECH_STATE_SELECTED;
    };
    const auto settled = std::ranges::find_if(records.rbegin(), records.rend(), is_settled);
    if (settled == records.rend())
        return "";
    const std::string mechanism = mechanism_of(*settled);
    const auto has_failed = [&](const LogRecord *record) {
        return mechanism_of(*record) == mechanism && record->MechState == QXGSS_MECH_STATE_REJECTED;
    };
    if (std::ranges::none_of(last_records(log), has_failed))
        return "";
    return std::string("The ") + (settled->IsInitiator != 0 ? "server" : "client") + " had already settled on " +
           printable(mechanism) + ", which failed here.";
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

void print_last_records(std::ostream &out, const SavedLog &log) {
    Table table({"mechanism", "state", "reason", "status text"});
    for (const LogRecord *record : last_records(log))
        table.add({mechanism_of(*record), state_word(*record), reason_word(*record),
                   std::string(common::bytes_of(&record->StatusText))});
    table.print(out);
}

} // namespace tools
