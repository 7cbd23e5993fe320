// Both sides prefer SCRAM-SHA-256 by its rank; each scenario changes one thing about that.
#include "tools/commands/scenarios.h"

#include <algorithm>

#include "gssp2qxnego/words.h"
#include "tools/show/codes.h"
#include "tools/commands/verifiers.h" // made from the SCRAM library's sample

namespace tools {

namespace {

constexpr char kUser[] = "alice";
constexpr char kPassword[] = "wonderland";

constexpr std::uint32_t kSuccessful = 0x230003E8;
constexpr std::uint32_t kContinueNeeded = 0x230003E9;
constexpr std::uint32_t kNoMechanism = 0xE3000406;

const MechanismSetup kFirst = {"SCRAM-SHA-256", "1.3.6.1.5.5.18", "libscram.so", "SCRAM_SHA_256", 10, true, {}};
const MechanismSetup kSecond = {"SCRAM-SHA-1", "1.3.6.1.5.5.14", "libscram.so", "SCRAM_SHA_1", 20, true, {}};

MechanismSetup without_authorization(MechanismSetup mechanism) {
    mechanism.can_authorize = false;
    return mechanism;
}

// The second mechanism is selected because the first was rejected.
Expectation second_selected(const std::string &reason) {
    return {kSecond.name + " is selected",
            kSecond.name,
            kSuccessful,
            kSuccessful,
            {{kFirst.name, "rejected", reason}, {kSecond.name, "selected", "Due to Rank"}}};
}

std::vector<Scenario> make_scenarios() {
    return {
        {"both",
         "both sides have both mechanisms",
         kPassword,
         "",
         {kFirst, kSecond},
         {kFirst, kSecond},
         {},
         {kFirst.name + ", the first by rank, is selected",
          kFirst.name,
          kSuccessful,
          kSuccessful,
          {{kFirst.name, "selected", "Due to Rank"}, {kSecond.name, "rejected", "Due to Rank"}}}},
        {"policy",
         "the server's policy allows the user only the second mechanism",
         kPassword,
         "",
         {kFirst, kSecond},
         {kFirst, kSecond},
         {{kUser, {kSecond.name}}},
         second_selected("Due to Policy")},
        {"server-lacks",
         "the server has never heard of the first mechanism that the client offers",
         kPassword,
         "",
         {kFirst, kSecond},
         {kSecond},
         {},
         second_selected("Not Available at Server")},
        {"client-lacks",
         "the client has never heard of the first mechanism that the server has",
         kPassword,
         "",
         {kSecond},
         {kFirst, kSecond},
         {},
         second_selected("Not Available at Client")},
        {"authorization",
         "a user name is requested, and only the second mechanism can authorize",
         kPassword,
         std::string(" user=") + kUser,
         {kFirst, kSecond},
         {without_authorization(kFirst), kSecond},
         {},
         second_selected("Authorization Required")},
        {"wrong-password",
         "the password is wrong",
         "looking-glass",
         "",
         {kFirst, kSecond},
         {kFirst, kSecond},
         {},
         {"the server rejects both mechanisms and fails; the client sees the connection closed",
          "",
          kContinueNeeded,
          kNoMechanism,
          {{kFirst.name, "rejected", "GSSAPI Error"}, {kSecond.name, "rejected", "GSSAPI Error"}}}},
        {"nothing-in-common",
         "each side has one mechanism, and they differ",
         kPassword,
         "",
         {kFirst},
         {kSecond},
         {},
         {"the server has no mechanism left and fails; the client sees the connection closed",
          "",
          kContinueNeeded,
          kNoMechanism,
          // The server tries its mechanism without a token of the client, which SCRAM does not accept.
          {{kFirst.name, "rejected", "Not Available at Server"}, {kSecond.name, "rejected", "GSSAPI Error"}}}},
    };
}

void expect(std::vector<std::string> &out, const std::string &what, const std::string &actual,
            const std::string &expected) {
    if (actual != expected)
        out.push_back(what + " is \"" + printable(actual) + "\" and should be \"" + expected + '"');
}

// Minor status of the last establishment call.
std::string last_status(const Story &story) {
    const auto is_establishment = [](const Call &call) {
        return call.name == "init_sec_context" || call.name == "accept_sec_context";
    };
    const auto call = std::find_if(story.calls.rbegin(), story.calls.rend(), is_establishment);
    return call == story.calls.rend() ? "no call" : code_text(call->minor);
}

std::string described(const std::string &verdict, std::string_view reason) {
    return verdict + ", " + std::string(reason);
}

std::string verdict_on(const std::vector<Verdict> &verdicts, const std::string &mechanism) {
    for (const Verdict &row : verdicts)
        if (row.mechanism == mechanism)
            return described(verdict_word(row.verdict), qxnego::reason_word(row.reason));
    return "missing";
}

} // namespace

std::string Scenario::logon() const {
    return std::string("authcid=") + kUser + " password=" + password + request;
}

std::string Scenario::public_logon() const {
    return std::string("authcid=") + kUser + " password=********" + request;
}

const std::vector<Scenario> &scenarios() {
    static const std::vector<Scenario> list = make_scenarios();
    return list;
}

std::string verifiers_text() {
    return kVerifiers;
}

std::vector<std::string> differences(const Expectation &expected, const Story &client, const Story &server,
                                     const std::vector<Verdict> &verdicts) {
    std::vector<std::string> out;
    const bool has_selection = !expected.selected.empty();
    for (const auto &[side, story] : {std::pair("client", &client), std::pair("server", &server)}) {
        expect(out, std::string(side) + "'s outcome", story->is_established ? "established" : "failed",
               has_selection ? "established" : "failed");
        expect(out, std::string(side) + "'s mechanism", story->mechanism, expected.selected);
    }
    expect(out, "authenticated user", server.user, has_selection ? kUser : "");
    expect(out, "client's last status", last_status(client), code_text(expected.client_status));
    expect(out, "server's last status", last_status(server), code_text(expected.server_status));
    for (const ExpectedVerdict &row : expected.verdicts)
        expect(out, row.mechanism, verdict_on(verdicts, row.mechanism), described(row.verdict, row.reason));
    expect(out, "number of mechanisms", std::to_string(verdicts.size()), std::to_string(expected.verdicts.size()));
    return out;
}

} // namespace tools
