// Everything that a peer sent is shown in printable form.
#include "tools/show/story.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <nlohmann/json.hpp>

#include "tools/show/codes.h"

namespace tools {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(View, state, reason, status_text, is_adopted)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Verdict, mechanism, client, server, verdict, reason, status_text)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Call, time, name, major, minor, text, token)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Story, is_client, status, failure, is_established, mechanism, user, flags, verdicts,
                                   calls, properties)

namespace {

const char *class_of(ExitStatus status) {
    constexpr const char *kNames[] = {"success",     "failure",      "usage",  "configuration", "network", "protocol",
                                      "negotiation", "confirmation", "policy", "protection",    "peer"};
    return status == kExitInterrupted ? "interrupted" : kNames[status];
}

std::string milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", seconds * 1000);
    return text;
}

// In quotation marks unless it is plain: nothing in a name can look like what stands behind it.
std::string shown(const std::string &name) {
    const auto is_plain = [](unsigned char c) { return std::isalnum(c) != 0 || (c != 0 && std::strchr("@._-/\\", c)); };
    return std::ranges::all_of(name, is_plain) ? name : common::quoted(name);
}

void print_line(std::ostream &out, const Story &story) {
    if (!story.is_client)
        out << time_text() << "  ";
    out << story.peer;
    if (story.is_established && !story.user.empty())
        out << "  user " << shown(story.user);
    if (story.is_established)
        out << "  " << shortened(story.mechanism) << "  flags " << flag_names(story.flags) << "  "
            << story.confirmation;
    out << "  rounds " << story.rounds << "  " << milliseconds(story.seconds);
    if (!story.delegated.empty())
        out << "  delegated by " << shown(story.delegated);
    if (story.messages != 0)
        out << "  messages " << story.messages;
    if (!story.failure.empty())
        out << "  " << class_of(story.status) << ": " << printable(story.failure, common::kMostOfLine);
    out << '\n';
}

} // namespace

Json to_json(const Verdict &verdict) {
    return {{"mechanism", shortened(verdict.mechanism)},
            {"client", state_word(verdict.client)},
            {"server", server_word(verdict.server)},
            {"verdict", verdict_word(verdict.verdict)},
            {"reason", reason_word(verdict)},
            {"status_text", shortened(verdict.status_text)}};
}

std::string time_text() {
    using namespace std::chrono;
    const auto now = time_point_cast<std::chrono::milliseconds>(system_clock::now());
    const std::time_t seconds = system_clock::to_time_t(floor<std::chrono::seconds>(now));
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%FT%T", &parts);
    const std::string fraction = std::to_string(1000 + now.time_since_epoch().count() % 1000).substr(1);
    return std::string(text) + '.' + fraction + 'Z';
}

std::string line_of(const Json &value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

void print_json(std::ostream &out, const Story &story) {
    Json verdicts = Json::array();
    for (std::size_t i = 0; i != std::min(story.verdicts.size(), kMostVerdicts); ++i)
        verdicts.push_back(to_json(story.verdicts[i]));
    Json line = {{"event", "connection"},
                 {"time", time_text()},
                 {"side", story.is_client ? "client" : "server"},
                 {"peer", story.peer},
                 {"status", static_cast<int>(story.status)},
                 {"class", class_of(story.status)},
                 {"failure", printable(story.failure, common::kMostOfLine)},
                 {"established", story.is_established},
                 {"mechanism", shortened(story.mechanism)},
                 {"user", shortened(story.user)},
                 {"claimed", shortened(story.claimed)},
                 {"refused", story.refused},
                 {"delegated", shortened(story.delegated)},
                 {"flags", story.flags},
                 {"confirmation", story.confirmation},
                 {"rounds", story.rounds},
                 {"seconds", story.seconds},
                 {"messages", story.messages},
                 {"message_bytes", story.bytes},
                 {"message_seconds", story.message_seconds},
                 {"verdicts", verdicts}};
    if (story.verdicts.size() > kMostVerdicts)
        line["verdicts_left_out"] = story.verdicts.size() - kMostVerdicts;
    out << line_of(line);
}

std::string page_of(const Story &story) {
    PageFacts facts{"Negotiation with " + story.peer};
    const auto add = [&](const char *name, const std::string &value) {
        if (!value.empty())
            facts.lines.emplace_back(name, value);
    };
    add("Ended", time_text());
    add("Outcome", class_of(story.status));
    add("Why", story.failure);
    add("Mechanism", story.mechanism);
    add("User", story.user);
    add("Claimed", story.claimed);
    add("Policy refused", story.refused);
    add("Confirmation", story.confirmation);
    add("Duration", milliseconds(story.seconds));
    for (const Call &call : story.calls)
        if (call.name == (story.is_client ? "init_sec_context" : "accept_sec_context"))
            facts.tokens.push_back(call.token.size());
    const std::optional<SavedLog> log = SavedLog::read(story.properties);
    return page_of(log ? &*log : nullptr, facts);
}

Bytes encode(const Story &story) {
    return nlohmann::json::to_cbor(nlohmann::json(story));
}

Story decode_story(ByteView bytes) {
    try {
        return nlohmann::json::from_cbor(bytes.begin(), bytes.end()).get<Story>();
    } catch (const nlohmann::json::exception &) {
        throw Failure("a process ended without a report");
    }
}

void print(std::ostream &out, const Story &story, const ConnectionOptions &options) {
    if (options.json)
        return print_json(out, story);
    print_line(out, story);
    if (options.why && !story.verdicts.empty())
        print_verdicts(out, story.verdicts);
}

} // namespace tools
