// Verdicts in the mechanism's own words. Whatever a peer may have written is shown in printable form.
#include "tools/show/verdicts.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "common/owned.h"
#include "gssp2qxnego/words.h"
#include "tools/bytes.h"
#include "tools/show/oids.h"
#include "tools/show/table.h"

namespace tools {

namespace {

const View kUnknown;

const View &find(const std::vector<MechanismView> &views, const std::string &mechanism) {
    const auto found = std::ranges::find(views, mechanism, &MechanismView::mechanism);
    return found == views.end() ? kUnknown : found->view;
}

qxgss_session_view_desc described(const View &view) {
    return {view.state, view.reason, 0, 0, common::view(view.status_text)};
}

Verdict judged(const std::string &mechanism, const View &client, const View &server) {
    qxgss_session_verdict_desc verdict{};
    verdict.Client = described(client);
    verdict.Server = described(server);
    qxgss_session_judge(&verdict);
    return {mechanism,       client,         server,
            verdict.Verdict, verdict.Reason, std::string(common::bytes_of(&verdict.StatusText))};
}

View told(const qxgss_session_view_desc &view) {
    return {view.State, view.Reason, std::string(common::bytes_of(&view.StatusText))};
}

std::string name_of(const qxgss_session_verdict_desc &verdict) {
    const std::string_view oid = common::bytes_of(&verdict.Mech);
    return verdict.MechIndex >= 0 ? pMechInfo[verdict.MechIndex].pszMechName
                                  : mechanism_name({reinterpret_cast<const unsigned char *>(oid.data()), oid.size()});
}

std::string reason_text(OM_uint32 reason) {
    return std::string(qxnego::reason_word(reason));
}

} // namespace

std::vector<Verdict> verdicts_of(qxgss_session_t session) {
    std::vector<Verdict> out;
    qxgss_session_verdict_desc verdict{};
    for (OM_uint32 i = 0; qxgss_session_inquire_verdict(nullptr, session, i, &verdict) == GSS_S_COMPLETE; ++i)
        out.push_back({name_of(verdict), told(verdict.Client), told(verdict.Server), verdict.Verdict, verdict.Reason,
                       std::string(common::bytes_of(&verdict.StatusText))});
    return out;
}

std::vector<Verdict> join(const std::vector<MechanismView> &client, const std::vector<MechanismView> &server) {
    std::vector<Verdict> out;
    for (const MechanismView &row : client)
        out.push_back(judged(row.mechanism, row.view, find(server, row.mechanism)));
    for (const MechanismView &row : server)
        if (find(client, row.mechanism).state == 0)
            out.push_back(judged(row.mechanism, kUnknown, row.view));
    return out;
}

const char *verdict_word(qxgss_session_verdict_et verdict) {
    constexpr const char *kWords[] = {"undecided", "selected", "rejected"};
    return kWords[verdict];
}

std::string state_word(const View &view) {
    return view.state == 0 ? "-" : std::string(qxnego::state_word(view.state));
}

void print_verdicts(std::ostream &out, const std::vector<Verdict> &verdicts) {
    Table table({"mechanism", "on client", "on server", "verdict", "reason", "status text"});
    for (const Verdict &row : verdicts | std::views::take(kMostVerdicts))
        table.add({printable(row.mechanism), state_word(row.client), state_word(row.server), verdict_word(row.verdict),
                   reason_text(row.reason), printable(row.status_text)});
    if (verdicts.size() > kMostVerdicts)
        table.add_line("and " + std::to_string(verdicts.size() - kMostVerdicts) + " more");
    table.print(out);
}

void print_views(std::ostream &out, const std::vector<MechanismView> &views) {
    Table table({"mechanism", "state", "reason", "status text"});
    for (const auto &[mechanism, view] : views)
        table.add({printable(mechanism), state_word(view), reason_text(view.reason), printable(view.status_text)});
    table.print(out);
}

nlohmann::ordered_json to_json(const Verdict &verdict) {
    return {{"mechanism", printable(verdict.mechanism)}, {"client", state_word(verdict.client)},
            {"server", state_word(verdict.server)},      {"verdict", verdict_word(verdict.verdict)},
            {"reason", reason_text(verdict.reason)},     {"status_text", printable(verdict.status_text)}};
}

} // namespace tools
