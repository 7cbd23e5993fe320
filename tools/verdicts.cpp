// Views of one side, and verdicts of both.
#include "tools/verdicts.h"

#include <algorithm>

#include "tools/bytes.h"
#include "tools/table.h"

namespace tools {

namespace {

constexpr char kSelected[] = "Selected";
constexpr char kRejected[] = "Rejected";

const View *find(const std::vector<View> &views, const std::string &mechanism) {
    const auto found =
        std::find_if(views.begin(), views.end(), [&](const View &view) { return view.mechanism == mechanism; });
    return found == views.end() ? nullptr : &*found;
}

std::string state_of(const View *view) {
    return view == nullptr ? "-" : view->state;
}

std::string verdict_of(const View *client, const View *server) {
    if (state_of(client) == kRejected || state_of(server) == kRejected)
        return "rejected";
    return state_of(client) == kSelected && state_of(server) == kSelected ? "selected" : "undecided";
}

bool is_rejected(const View *view) {
    return state_of(view) == kRejected;
}

// Whether the reason is that a side does not have the mechanism: whatever else happened to it follows from that.
bool is_lacking(const View *view) {
    return is_rejected(view) && view->reason.starts_with("Not Available at ");
}

const View *decisive(const View *client, const View *server) {
    if (is_lacking(client) != is_lacking(server))
        return is_lacking(client) ? client : server;
    if (server == nullptr || (is_rejected(client) && !is_rejected(server)))
        return client;
    return server;
}

Verdict verdict_on(const std::string &mechanism, const View *client, const View *server) {
    const View *view = decisive(client, server);
    const View *other = view == client ? server : client;
    const bool has_text = !view->status_text.empty() || other == nullptr;
    return {mechanism,        state_of(client),
            state_of(server), verdict_of(client, server),
            view->reason,     has_text ? view->status_text : other->status_text};
}

} // namespace

std::vector<View> views_of(const std::vector<LogRecord> &log) {
    std::vector<View> views;
    for (const LogRecord &record : log) {
        if (record.mechanism.empty() || record.is_peer_view())
            continue;
        auto place = std::find_if(views.begin(), views.end(),
                                  [&](const View &view) { return view.mechanism == record.mechanism; });
        if (place == views.end())
            place = views.emplace(views.end());
        *place = {record.mechanism, record.state, record.reason, record.status_text};
    }
    return views;
}

std::vector<Verdict> join(const std::vector<View> &client, const std::vector<View> &server) {
    std::vector<Verdict> out;
    out.reserve(client.size() + server.size());
    for (const View &view : client)
        out.push_back(verdict_on(view.mechanism, &view, find(server, view.mechanism)));
    for (const View &view : server)
        if (find(client, view.mechanism) == nullptr)
            out.push_back(verdict_on(view.mechanism, nullptr, &view));
    return out;
}

void print_verdicts(std::ostream &out, const std::vector<Verdict> &verdicts) {
    Table table({"mechanism", "on client", "on server", "verdict", "reason", "status text"});
    for (const Verdict &row : verdicts)
        table.add({printable(row.mechanism), printable(row.client), printable(row.server), row.verdict,
                   printable(row.reason), printable(row.status_text)});
    table.print(out);
}

void print_views(std::ostream &out, const std::vector<View> &views) {
    Table table({"mechanism", "state", "reason", "status text"});
    for (const View &view : views)
        table.add(
            {printable(view.mechanism), printable(view.state), printable(view.reason), printable(view.status_text)});
    table.print(out);
}

} // namespace tools
