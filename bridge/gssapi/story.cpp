// What became of a negotiation, for people and for programs. Texts of others are made printable.
#include <algorithm>
#include <ranges>

#include <nlohmann/json.hpp>

#include "bridge/gssapi/context.h"
#include "common/text.h"
#include "gssp2qxnego/words.h"
#include "qxgss/qxgss_records.h"

namespace bridge {

namespace {

using Json = nlohmann::ordered_json;

// By the values of their enumerations.
constexpr const char *kClasses[] = {"",       "resources",  "usage", "time", "protocol", "negotiation", "confirmation",
                                    "policy", "protection", "peer"};
constexpr const char *kConfirmations[] = {"none", "unconfirmed", "confirmed", "mismatch"};
constexpr const char *kRefused[] = {"", "claimed", "proved"};

// The log's record in the user properties.
std::string_view log_in(std::string_view properties) {
    const auto *const bytes = reinterpret_cast<const unsigned char *>(properties.data());
    qxat_data_header_t header{};
    for (std::size_t at = 0; qxgss_record_at(bytes, properties.size(), at, &header) != 0; at += header.qxgss_Length) {
        std::size_t length = 0;
        const unsigned char *const data = qxgss_record_data(bytes + at, &header, &length);
        if (header.qxgss_DataId == QXGSS_DATA_ID_QXNEGOLOG && data != nullptr)
            return {reinterpret_cast<const char *>(data), length};
    }
    return {};
}

std::string name_of(const session::MechanismView &mechanism) {
    return mechanism.index >= 0 ? pMechInfo[mechanism.index].pszMechName : "";
}

std::string hexadecimal(std::string_view octets) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const char octet : octets)
        out.append({kDigits[static_cast<unsigned char>(octet) >> 4], kDigits[octet & 15]});
    return out;
}

Json verdict_of(const session::MechanismView &mechanism) {
    const session::View &view = mechanism.view;
    return {{"mechanism", common::printable(name_of(mechanism))},
            {"oid", hexadecimal(mechanism.oid)},
            {"state", qxnego::state_word(view.state)},
            {"reason", qxnego::reason_word(view.reason)},
            {"status_text", common::printable(view.status_text)}};
}

Json verdicts_of(const session::Views &views) {
    constexpr std::size_t kMost = 100;
    Json verdicts = Json::array();
    for (const session::MechanismView &mechanism : views | std::views::take(kMost))
        verdicts.push_back(verdict_of(mechanism));
    return verdicts;
}

Json lines_of(std::string_view text) {
    Json lines = Json::array();
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        lines.push_back(common::printable(line));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return lines;
}

std::string text_of(const qxgss_buffer_desc &text) {
    return common::printable(common::bytes_of(&text));
}

} // namespace

std::string Context::log() {
    return std::string(log_in(negotiation_.properties()));
}

std::string Context::selected() const {
    qxgss_session_facts_desc facts{};
    negotiation_.describe(facts);
    return facts.pszMech;
}

std::string Context::story() {
    qxgss_session_facts_desc facts{};
    negotiation_.describe(facts);
    const Json story = {{"side", is_client() ? "client" : "server"},
                        {"class", kClasses[failure_]},
                        {"failure", common::printable(failure_line_)},
                        {"established", facts.IsEstablished != 0},
                        {"mechanism", common::printable(facts.pszMech)},
                        {"user", text_of(facts.User)},
                        {"claimed", text_of(facts.Claimed)},
                        {"refused", kRefused[facts.Refused]},
                        {"flags", flags_},
                        {"confirmation", kConfirmations[confirmation_]},
                        {"rounds", facts.Rounds},
                        {"verdicts", verdicts_of(negotiation_.views())},
                        {"notices", lines_of(notices())}};
    return story.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace bridge
