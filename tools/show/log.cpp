#include "tools/show/log.h"

#include <algorithm>
#include <map>
#include <new>
#include <set>

#include "gssp2qxnego/words.h"
#include "tools/show/oids.h"
#include "tools/show/remedies.h"
#include "tools/show/table.h"

namespace tools {

namespace {

constexpr OM_uint32 kCompleted = 1; // of qxgss_log_record_desc's negotiation states

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

// Mechanisms whose other end finishes first settle the negotiation before this side has judged them.
std::set<std::string> settled_by_peer(const SavedLog &log) {
    std::set<std::string> selected;
    bool is_done = false;
    for (const LogRecord &record : log.records()) {
        is_done = is_done || record.NegStateFromPeer == kCompleted;
        if (record.IsPeerView != 0 && record.MechState == QXGSS_MECH_STATE_SELECTED)
            selected.insert(mechanism_of(record));
    }
    return is_done ? selected : std::set<std::string>();
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

std::vector<std::string> advice_of(const SavedLog &log) {
    constexpr std::size_t kMost = 100;
    const std::set<std::string> settled = settled_by_peer(log);
    std::vector<std::string> out;
    for (const LogRecord *last : last_records(log)) {
        const std::string mechanism = mechanism_of(*last), name = shortened(mechanism);
        if (last->MechState != QXGSS_MECH_STATE_REJECTED || last->MechReason != QXGSS_MECH_REASON_GSSAPI_ERROR ||
            out.size() > kMost)
            continue;
        if (settled.contains(mechanism))
            out.push_back(std::string("The ") + (last->IsInitiator != 0 ? "server" : "client") +
                          " had already settled on " + name + ", which failed here. Rank such a mechanism last.");
        const Remedy *remedy = remedy_of_minor(mechanism, last->MinorStatus);
        if (remedy == nullptr && (last->MajorStatus & 0x00FF0000U) != GSS_S_FAILURE) // which says nothing by itself
            remedy = remedy_of_major(last->MajorStatus);
        if (remedy != nullptr)
            out.push_back(name + ": " + remedy->meaning + " Usually: " + remedy->cause + ' ' + remedy->remedy);
    }
    return out;
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
    for (const std::string &sentence : advice_of(log))
        for (const std::string &line : wrap(sentence, page_width(out) - 2))
            out << "  " << line << '\n';
}

} // namespace tools
