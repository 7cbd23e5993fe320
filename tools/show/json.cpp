// Everything that a peer sent is shown in printable form.
#include "tools/show/json.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "tools/show/story.h"

namespace tools {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(View, state, reason, status_text)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Verdict, mechanism, client, server, verdict, reason, status_text)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Call, time, name, major, minor, text, token)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Story, is_client, status, failure, is_established, mechanism, user, flags, verdicts,
                                   calls, properties)

Json to_json(const Verdict &verdict) {
    return {{"mechanism", printable(verdict.mechanism)},
            {"client", state_word(verdict.client)},
            {"server", state_word(verdict.server)},
            {"verdict", verdict_word(verdict.verdict)},
            {"reason", reason_word(verdict)},
            {"status_text", printable(verdict.status_text)}};
}

std::string line_of(const Json &value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

void print_json(std::ostream &out, const Story &story) {
    Json verdicts = Json::array();
    for (std::size_t i = 0; i != std::min(story.verdicts.size(), kMostVerdicts); ++i)
        verdicts.push_back(to_json(story.verdicts[i]));
    Json line = {{"event", "connection"},
                 {"side", story.is_client ? "client" : "server"},
                 {"peer", story.peer},
                 {"status", static_cast<int>(story.status)},
                 {"class", class_of(story.status)},
                 {"failure", printable(story.failure)},
                 {"established", story.is_established},
                 {"mechanism", printable(story.mechanism)},
                 {"user", printable(story.user)},
                 {"claimed", printable(story.claimed)},
                 {"refused", story.refused},
                 {"delegated", printable(story.delegated)},
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

} // namespace tools
