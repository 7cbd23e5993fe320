// Everything that a peer sent is printed in printable form.
#include "tools/connection.h"

#include <algorithm>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "tools/codes.h"
#include "tools/user_properties.h"

namespace tools {

namespace {

using Json = nlohmann::ordered_json;

struct StatusName {
    ExitStatus status;
    const char *name;
};

constexpr StatusName kStatusNames[] = {
    {kExitSuccess, "success"},           {kExitUsage, "usage"},       {kExitConfiguration, "configuration"},
    {kExitNetwork, "network"},           {kExitProtocol, "protocol"}, {kExitNegotiation, "negotiation"},
    {kExitConfirmation, "confirmation"}, {kExitPolicy, "policy"},     {kExitProtection, "protection"},
    {kExitInterrupted, "interrupted"},
};

constexpr const char *kConfirmationNames[] = {"none", "unconfirmed", "confirmed", "mismatch"};

// The lines of a view on its way.
constexpr std::string View::*kFields[] = {&View::mechanism, &View::state, &View::reason, &View::status_text};

const char *name_of(ExitStatus status) {
    for (const StatusName &row : kStatusNames)
        if (row.status == status)
            return row.name;
    return "failure";
}

const char *name_of(Confirmation confirmation) {
    return kConfirmationNames[static_cast<std::size_t>(confirmation)];
}

// Establishment calls of this side.
std::size_t rounds_of(const Report &report) {
    return static_cast<std::size_t>(std::count_if(report.calls.begin(), report.calls.end(), [](const Call &call) {
        return call.name == "init_sec_context" || call.name == "accept_sec_context";
    }));
}

std::string milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", seconds * 1000);
    return text;
}

} // namespace

std::vector<Verdict> verdicts_of(const Connection &connection) {
    return connection.is_client ? join(connection.own, connection.other) : join(connection.other, connection.own);
}

void print_line(std::ostream &out, const Connection &connection) {
    const Report &report = connection.report;
    out << connection.peer;
    if (report.established) {
        if (!report.user.empty())
            out << "  user " << printable(report.user);
        out << "  " << printable(report.mechanism) << "  flags " << flag_names(report.flags) << "  "
            << name_of(connection.confirmation);
    }
    out << "  rounds " << rounds_of(report) << "  " << milliseconds(connection.seconds);
    if (!connection.delegated.empty())
        out << "  delegated by " << printable(connection.delegated);
    if (connection.messages != 0)
        out << "  messages " << connection.messages;
    if (!connection.failure.empty())
        out << "  " << name_of(connection.status) << ": " << printable(connection.failure);
    out << std::endl;
}

void print_json(std::ostream &out, const Connection &connection) {
    const Report &report = connection.report;
    Json verdicts = Json::array();
    for (const Verdict &row : verdicts_of(connection))
        verdicts.push_back({{"mechanism", printable(row.mechanism)},
                            {"client", printable(row.client)},
                            {"server", printable(row.server)},
                            {"verdict", row.verdict},
                            {"reason", printable(row.reason)},
                            {"status_text", printable(row.status_text)}});
    const Json line = {{"event", "connection"},
                       {"side", connection.is_client ? "client" : "server"},
                       {"peer", connection.peer},
                       {"status", static_cast<int>(connection.status)},
                       {"class", name_of(connection.status)},
                       {"failure", printable(connection.failure)},
                       {"established", report.established},
                       {"mechanism", printable(report.mechanism)},
                       {"user", printable(report.user)},
                       {"claimed", printable(connection.claimed)},
                       {"refused", connection.refused},
                       {"delegated", printable(connection.delegated)},
                       {"flags", report.flags},
                       {"confirmation", name_of(connection.confirmation)},
                       {"rounds", rounds_of(report)},
                       {"seconds", connection.seconds},
                       {"messages", connection.messages},
                       {"message_bytes", connection.bytes},
                       {"message_seconds", connection.message_seconds},
                       {"verdicts", verdicts}};
    out << line.dump() << std::endl;
}

Bytes encode_views(const std::vector<View> &views) {
    Bytes out;
    for (const View &view : views)
        for (const std::string View::*field : kFields) {
            const std::string line = printable(view.*field) + '\n';
            out.insert(out.end(), line.begin(), line.end());
        }
    return out;
}

std::vector<View> decode_views(ByteView bytes) {
    std::vector<View> views;
    std::string_view text = as_text(bytes);
    while (!text.empty()) {
        View &view = views.emplace_back();
        for (std::string View::*field : kFields) {
            const std::size_t end = text.find('\n');
            if (end == std::string_view::npos)
                throw Failure("the peer's verdicts cannot be read", kExitProtocol);
            view.*field = text.substr(0, end);
            text.remove_prefix(end + 1);
        }
    }
    return views;
}

std::vector<View> views_in(const Report &report) {
    return views_of(read_log(read_properties(report.properties).log));
}

} // namespace tools
