// qxnego demo: a client and a server as two processes that negotiate over a socket pair, in several scenarios. Each has
// a configuration file of its own in a private folder; what they did and learned comes back over pipes.
#include <algorithm>
#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>
#include <poll.h>

#include "qxgss/qxgss.h"
#include "tools/commands/commands.h"
#include "tools/commands/scenarios.h"
#include "tools/connection/conversation.h"
#include "tools/connection/interrupt.h"
#include "tools/connection/worker.h"
#include "tools/files.h"
#include "tools/show/codes.h"
#include "tools/show/log.h"
#include "tools/show/story.h"
#include "tools/show/table.h"
#include "tools/show/user_properties.h"
#include "tools/token/tree.h"

namespace tools {

namespace fs = std::filesystem;

namespace {

// One side, with what it holds once its story is told.
struct Side {
    const char *name;
    Story story;
    std::optional<SavedLog> saved; // in the user properties
};

struct Outcome {
    Side client;
    Side server;
    std::vector<Verdict> verdicts;
    std::vector<std::string> differences;
};

// ---- Running -------------------------------------------------------------------------------------------------------

// What a side does in its process, and tells of it.
template <typename Run>
std::string side(OM_uint32 role, const fs::path &configuration, Descriptor end, const Run &run) {
    Story story;
    try {
        const Registry registry(role, configuration);
        registry.require_qxnego();
        Conversation conversation(Stream(std::move(end), QXGSS_SESSION_MAX_MESSAGE), std::chrono::seconds(1), true);
        try {
            run(conversation);
            conversation.tell(story, nullptr);
        } catch (const Failure &failure) {
            conversation.tell(story, &failure);
        }
    } catch (const Failure &failure) {
        story.failure = failure.what();
    }
    return std::string(as_text(encode(story)));
}

Side told(const char *name, Worker &worker) {
    pollfd place{worker.descriptor(), POLLIN, 0};
    do
        throw_if_interrupted();
    while (poll(&place, 1, -1) < 0 || worker.read_some());
    if (worker.has_crashed())
        throw Failure(worker.result());
    Side side{name, decode_story(as_bytes(worker.result())), {}};
    side.saved = SavedLog::read(side.story.properties);
    return side;
}

constexpr std::chrono::seconds kLongest{60}; // that a side takes

Outcome run(const Scenario &scenario, const fs::path &libraries) {
    const TemporaryFolder folder;
    write_configurations(scenario, folder.path(), libraries);
    auto [client_end, server_end] = socket_pair();
    const auto be_client = [&, &mine = client_end, &other = server_end](const Worker::Lift &) {
        other.close();
        return side(QXGSS_CLIENT, folder.path() / "client.conf", std::move(mine), [&](Conversation &conversation) {
            conversation.log_on(scenario.logon(), "demo@localhost", GSS_C_MUTUAL_FLAG, QXGSS_SESSION_DEFAULTS);
        });
    };
    const auto be_server = [&, &mine = server_end, &other = client_end](const Worker::Lift &) {
        other.close();
        return side(QXGSS_SERVER, folder.path() / "server.conf", std::move(mine),
                    [](Conversation &conversation) { conversation.admit(QXGSS_SESSION_DEFAULTS); });
    };
    Worker client(be_client, kLongest), server(be_server, kLongest);
    client_end.close();
    server_end.close();
    Outcome out{told("client", client), told("server", server), {}, {}};
    out.verdicts = join(out.client.story.verdicts, out.server.story.verdicts);
    out.differences = differences(scenario.expected, out.client.story, out.server.story, out.verdicts);
    return out;
}

// ---- Showing -------------------------------------------------------------------------------------------------------

struct TimedCall {
    const char *side;
    const Call *call;
};

std::vector<TimedCall> in_order(const Outcome &outcome) {
    std::vector<TimedCall> calls;
    for (const Side *side : {&outcome.client, &outcome.server})
        for (const Call &call : side->story.calls)
            calls.push_back({side->name, &call});
    std::stable_sort(calls.begin(), calls.end(),
                     [](const TimedCall &a, const TimedCall &b) { return a.call->time < b.call->time; });
    return calls;
}

std::string names_of(const std::vector<MechanismSetup> &mechanisms) {
    std::string out;
    for (const MechanismSetup &mechanism : mechanisms)
        out += (out.empty() ? "" : ", ") + mechanism.name + (mechanism.can_authorize ? "" : " (cannot authorize)");
    return out;
}

void show_setting(const Scenario &scenario) {
    const std::size_t page = page_width(std::cout);
    const std::string line = "== " + scenario.name + ": " + scenario.title + ' ';
    std::cout << line << std::string(page - std::min(line.size(), page), '=') << "\n\n"
              << "  client has  " << names_of(scenario.client) << '\n'
              << "  server has  " << names_of(scenario.server) << '\n'
              << "  logon       " << scenario.public_logon() << '\n';
    if (!scenario.allowed.empty())
        std::cout << "  policy      " << scenario.user() << " may use " << scenario.allowed << '\n';
    std::cout << "  expected    " << scenario.expected.sentence << "\n\n"
              << std::flush; // or the two processes would print it again
}

// A text that is too long for its column stands below the call.
void add_call(Table &table, const std::string &side, const Call &call) {
    constexpr std::size_t kColumn = 28, kBelow = 88;
    const bool fits = call.text.size() <= kColumn;
    table.add({side, call.name, major_name(call.major), code_text(call.minor), fits ? printable(call.text) : ""});
    std::istringstream lines(fits ? "" : call.text);
    for (std::string line; std::getline(lines, line);)
        for (const std::string &piece : wrap(printable(line), kBelow))
            table.add_line("        " + piece);
    if (call.token.empty())
        return;
    const std::string form = read_token(call.token).form;
    table.add_line("        -> " + (form.empty() ? "malformed" : form) + " token, " +
                   std::to_string(call.token.size()) + " bytes");
}

void show_calls(const Outcome &outcome) {
    Table table({"side", "call", "major status", "minor", "text"});
    for (const auto &[side, call] : in_order(outcome))
        add_call(table, side, *call);
    table.print(std::cout);
    std::cout << '\n';
}

std::string end_of(const Story &story) {
    if (!story.is_established)
        return "failed: " + printable(story.failure);
    const std::string user = story.user.empty() ? "" : ", user " + printable(story.user);
    return "established with " + printable(story.mechanism) + user + ", flags " + flag_names(story.flags);
}

void show_ends(const Outcome &outcome) {
    Table table({"side", "how it ended"});
    for (const Side *side : {&outcome.client, &outcome.server})
        table.add({side->name, end_of(side->story)});
    table.print(std::cout);
}

void show_server(const SavedLog &saved) {
    if (!saved.text().empty()) {
        std::cout << "\nThe server's negotiation log:\n";
        print_log(std::cout, saved.text());
    }
    std::cout << "\nThe server's user properties:\n\n";
    print_properties(std::cout, saved);
}

void show(const Scenario &scenario, const Outcome &outcome, bool full) {
    if (full)
        show_calls(outcome);
    show_ends(outcome);
    if (full && outcome.server.saved)
        show_server(*outcome.server.saved);
    if (!outcome.verdicts.empty()) {
        std::cout << "\nThe mechanisms:\n\n";
        print_verdicts(std::cout, outcome.verdicts);
    }
    std::cout << '\n' << scenario.name << ": " << (outcome.differences.empty() ? "as expected" : "NOT AS EXPECTED");
    for (const std::string &line : outcome.differences)
        std::cout << "\n  " << line;
    std::cout << "\n\n";
}

// ---- As data -------------------------------------------------------------------------------------------------------

Json json_of(const Story &story) {
    return {{"established", story.is_established},
            {"mechanism", shortened(story.mechanism)},
            {"user", shortened(story.user)},
            {"flags", story.flags},
            {"failure", printable(story.failure, common::kMostOfLine)}};
}

Json json_of(const Scenario &scenario, const Outcome &outcome) {
    Json verdicts = Json::array();
    for (const Verdict &verdict : outcome.verdicts)
        verdicts.push_back(to_json(verdict));
    return {{"scenario", scenario.name},
            {"title", scenario.title},
            {"as_expected", outcome.differences.empty()},
            {"differences", outcome.differences},
            {"client_end", json_of(outcome.client.story)},
            {"server_end", json_of(outcome.server.story)},
            {"verdicts", verdicts}};
}

// ---- Saving --------------------------------------------------------------------------------------------------------

void save(const Scenario &scenario, const Outcome &outcome, const DemoOptions &options) {
    const fs::path folder = fs::path(options.save) / scenario.name;
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw Failure(folder.string() + ": " + error.message());
    int number = 0;
    for (const auto &[side, call] : in_order(outcome))
        if (!call->token.empty())
            write_file(folder / ("token-" + std::to_string(++number) + '-' + side), as_text(call->token));
    for (const Side *side : {&outcome.client, &outcome.server}) {
        write_file(folder / (std::string(side->name) + ".properties"), as_text(side->story.properties));
        write_file(folder / (std::string(side->name) + ".log"), side->saved ? side->saved->text() : "");
    }
    if (!options.json)
        std::cout << "Saved in " << folder.string() << "\n\n";
}

// ---- The command ---------------------------------------------------------------------------------------------------

void list_scenarios() {
    Table table({"scenario", "what happens"});
    for (const Scenario &scenario : scenarios())
        table.add({scenario.name, scenario.title});
    table.print(std::cout);
}

void show_end(const Table &summary, const DemoOptions &options) {
    if (options.scenario.empty())
        summary.print(std::cout);
    if (options.full)
        return;
    std::cout << (options.scenario.empty() ? "\n" : "") << "Next: demo "
              << (options.scenario.empty() ? "policy" : options.scenario)
              << " --full shows every call, token and log; docs/reading-a-log.md explains the reasons\n";
}

} // namespace

std::vector<std::string> scenario_names() {
    std::vector<std::string> names;
    for (const Scenario &scenario : scenarios())
        names.push_back(scenario.name);
    return names;
}

void run_demo(const DemoOptions &options) {
    if (options.list)
        return list_scenarios();
    const fs::path libraries = library_folder(options.library_path);
    Table summary({"scenario", "selected", "outcome"});
    Json all = Json::array();
    bool all_well = true;
    for (const Scenario &scenario : scenarios()) {
        if (!options.scenario.empty() && options.scenario != scenario.name)
            continue;
        if (!options.json)
            show_setting(scenario);
        const Outcome outcome = run(scenario, libraries);
        if (options.json)
            all.push_back(json_of(scenario, outcome));
        else
            show(scenario, outcome, options.full);
        if (!options.save.empty())
            save(scenario, outcome, options);
        const std::string &selected = outcome.server.story.mechanism;
        all_well = all_well && outcome.differences.empty();
        summary.add({scenario.name, selected.empty() ? "-" : selected,
                     outcome.differences.empty() ? "as expected" : "NOT AS EXPECTED"});
    }
    if (options.json)
        std::cout << Json{{"scenarios", all}}.dump(2) << '\n';
    else
        show_end(summary, options);
    if (!all_well)
        throw Failure("a scenario did not end as it should");
}

} // namespace tools
