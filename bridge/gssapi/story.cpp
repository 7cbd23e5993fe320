// What became of a negotiation, for people and for programs. Texts of others are made printable.
#include <algorithm>
#include <span>

#include <nlohmann/json.hpp>

#include "bridge/gssapi/context.h"
#include "common/text.h"
#include "gssp2qxnego/words.h"
#include "qxgss/qxgss_records.h"

namespace bridge {

namespace {

// JSON, put together as text: where memory is lacking, an object or array of the library loses some, or ends the
// process when it goes.
std::string json(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string object(std::initializer_list<std::pair<const char *, std::string>> members) {
    std::string out;
    for (const auto &[name, value] : members)
        out += (out.empty() ? "{\"" : ",\"") + std::string(name) + "\":" + value;
    return out + "}";
}

void add_to_array(std::string &array, const std::string &value) {
    array += (array.empty() ? "[" : ",") + value;
}
std::string whole_array(const std::string &array) {
    return (array.empty() ? "[" : array) + "]";
}

// By the values of their enumerations.
constexpr std::string_view kClasses[] = {
    "", "resources", "usage", "time", "protocol", "negotiation", "confirmation", "policy", "protection", "peer"};
constexpr std::string_view kConfirmations[] = {"none", "unconfirmed", "confirmed", "mismatch"};
constexpr std::string_view kRefused[] = {"", "claimed", "proved"};

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

std::string verdict_of(const session::MechanismView &mechanism) {
    const session::View &view = mechanism.view;
    return object({{"mechanism", json(common::printable(name_of(mechanism)))},
                   {"oid", json(hexadecimal(mechanism.oid))},
                   {"state", json(qxnego::state_word(view.state))},
                   {"reason", json(qxnego::reason_word(view.reason))},
                   {"status_text", json(common::printable(view.status_text))}});
}

std::string verdicts_of(const session::Views &views) {
    constexpr std::size_t kMost = 100;
    std::string verdicts;
    for (const session::MechanismView &mechanism : std::span(views).first(std::min(views.size(), kMost)))
        add_to_array(verdicts, verdict_of(mechanism));
    return whole_array(verdicts);
}

std::string lines_of(std::string_view text) {
    std::string lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        add_to_array(lines, json(common::printable(line)));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return whole_array(lines);
}

std::string text_of(const qxgss_buffer_desc &text) {
    return json(common::printable(common::bytes_of(&text)));
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
    return object({{"side", json(is_client() ? "client" : "server")},
                   {"class", json(kClasses[failure_])},
                   {"failure", json(common::printable(failure_line_))},
                   {"established", facts.IsEstablished != 0 ? "true" : "false"},
                   {"mechanism", json(common::printable(facts.pszMech))},
                   {"user", text_of(facts.User)},
                   {"claimed", text_of(facts.Claimed)},
                   {"refused", json(kRefused[facts.Refused])},
                   {"flags", std::to_string(flags_)},
                   {"confirmation", json(kConfirmations[confirmation_])},
                   {"rounds", std::to_string(facts.Rounds)},
                   {"verdicts", verdicts_of(negotiation_.views())},
                   {"notices", lines_of(notices())}});
}

} // namespace bridge
