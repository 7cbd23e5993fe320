// Verdicts in the mechanism's own words. Whatever a peer may have written is shown in printable form.
#include "tools/show/verdicts.h"

#include <algorithm>
#include <span>

#include "common/owned.h"
#include "gssp2qxnego/words.h"
#include "tools/bytes.h"
#include "tools/registry.h"
#include "tools/show/table.h"

namespace tools {

namespace {

const Verdict kUnknown;

const Verdict &find(const std::vector<Verdict> &verdicts, const std::string &mechanism) {
    const auto found = std::ranges::find(verdicts, mechanism, &Verdict::mechanism);
    return found == verdicts.end() ? kUnknown : *found;
}

qxgss_session_view_desc described(const View &view) {
    return {view.state, view.reason, 0, 0, common::view(view.status_text), view.is_adopted ? 1 : 0};
}

View told(const qxgss_session_view_desc &view) {
    return {view.State, view.Reason, std::string(common::bytes_of(&view.StatusText)), view.IsAdopted != 0};
}

Verdict told(const std::string &mechanism, const qxgss_session_verdict_desc &verdict) {
    return {mechanism,       told(verdict.Client), told(verdict.Server),
            verdict.Verdict, verdict.Reason,       std::string(common::bytes_of(&verdict.StatusText))};
}

Verdict judged(const std::string &mechanism, const View &client, const View &server) {
    qxgss_session_verdict_desc verdict{};
    verdict.Client = described(client);
    verdict.Server = described(server);
    qxgss_session_judge(&verdict);
    return told(mechanism, verdict);
}

} // namespace

std::vector<Verdict> verdicts_of(qxgss_session_t session) {
    std::vector<Verdict> out;
    qxgss_session_verdict_desc verdict{};
    for (OM_uint32 i = 0; qxgss_session_inquire_verdict(nullptr, session, i, &verdict) == GSS_S_COMPLETE; ++i)
        out.push_back(told(name_of(verdict.Mech), verdict));
    return out;
}

std::vector<Verdict> join(const std::vector<Verdict> &client, const std::vector<Verdict> &server) {
    std::vector<Verdict> out;
    for (const Verdict &row : client)
        if (row.client.state != 0)
            out.push_back(judged(row.mechanism, row.client, find(server, row.mechanism).server));
    for (const Verdict &row : server)
        if (row.server.state != 0 && find(client, row.mechanism).client.state == 0)
            out.push_back(judged(row.mechanism, {}, row.server));
    return out;
}

const char *verdict_word(qxgss_session_verdict_et verdict) {
    constexpr const char *kWords[] = {"undecided", "selected", "rejected"};
    return kWords[verdict];
}

std::string state_word(const View &view) {
    return view.state == 0 ? "-" : std::string(qxnego::state_word(view.state));
}

std::string server_word(const View &view) {
    return view.is_adopted && view.state == QXGSS_MECH_STATE_REJECTED ? "as client" : state_word(view);
}

std::string reason_word(const Verdict &verdict) {
    return std::string(qxnego::reason_word(verdict.reason));
}

void print_verdicts(std::ostream &out, const std::vector<Verdict> &verdicts, const char *last_column,
                    std::string Verdict::*last) {
    Table table({"mechanism", "on client", "on server", "verdict", "reason", last_column});
    for (const Verdict &row : std::span(verdicts).first(std::min(verdicts.size(), kMostVerdicts)))
        table.add({shortened(row.mechanism), state_word(row.client), server_word(row.server), verdict_word(row.verdict),
                   reason_word(row), shortened(row.*last)});
    if (verdicts.size() > kMostVerdicts)
        table.add_line("and " + std::to_string(verdicts.size() - kMostVerdicts) + " more");
    table.print(out);
}

} // namespace tools
