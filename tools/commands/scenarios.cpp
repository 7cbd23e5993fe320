// Both sides prefer SCRAM-SHA-256 by its rank; each scenario changes one thing about that.
#include "tools/commands/scenarios.h"

#include <algorithm>
#include <map>

#include "gssp2qxnego/words.h"
#include "tools/commands/verifiers.h" // made from the SCRAM library's sample
#include "tools/files.h"
#include "tools/show/codes.h"

namespace tools {

namespace fs = std::filesystem;

namespace {

// ---- Configuration files: what stands between two @ is the name of a value -----------------------------------------

constexpr char kNegotiator[] = R"(library_path = "@libraries@"

[[mechanism]]
name = "QXNEGO"
oid = "1.3.6.1.4.1.32473.1.1"
library = "libgssp2qxnego.so"
prefix = "QXNEGO"
negotiates = [ @negotiates@ ]
)";

constexpr char kMechanism[] = R"(
[[mechanism]]
name = "@name@"
oid = "@oid@"
library = "libscram.so"
prefix = "@prefix@"
properties = { authentication = true, authorization = @authorization@, single_sign_on = false, rank = @rank@ }
settings = { verifiers_file = "verifiers" }
)";

constexpr char kPolicy[] = R"(
[policy.users]
@user@ = [ "@allowed@" ]
)";

std::string filled(std::string_view text, const std::map<std::string_view, std::string> &values) {
    std::string out;
    for (bool is_name = false;; is_name = !is_name) {
        const std::string_view piece = text.substr(0, text.find('@'));
        out += is_name ? values.at(piece) : std::string(piece);
        if (piece.size() == text.size())
            return out;
        text.remove_prefix(piece.size() + 1);
    }
}

// For a basic string of TOML: any path can stand there.
std::string escaped(const std::string &path) {
    std::string out;
    for (const char c : path)
        out += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    return out;
}

std::string configuration(const std::vector<MechanismSetup> &mechanisms, const fs::path &libraries) {
    std::string negotiates, sections;
    for (const MechanismSetup &mechanism : mechanisms) {
        negotiates += (negotiates.empty() ? "" : ", ") + ("{ oid = \"" + mechanism.oid + "\" }");
        sections += filled(kMechanism, {{"name", mechanism.name},
                                        {"oid", mechanism.oid},
                                        {"prefix", mechanism.prefix},
                                        {"authorization", mechanism.can_authorize ? "true" : "false"},
                                        {"rank", std::to_string(mechanism.rank)}});
    }
    return filled(kNegotiator, {{"libraries", escaped(libraries)}, {"negotiates", negotiates}}) + sections;
}

// ---- The scenarios -------------------------------------------------------------------------------------------------

MechanismSetup without_authorization(MechanismSetup mechanism) {
    mechanism.can_authorize = false;
    return mechanism;
}

// The second mechanism is selected because the first was rejected.
Expectation second_selected(OM_uint32 reason) {
    return {kSecond.name + " is selected",
            kSecond.name,
            {{kFirst.name, QXGSS_SESSION_VERDICT_REJECTED, reason},
             {kSecond.name, QXGSS_SESSION_VERDICT_SELECTED, QXGSS_MECH_REASON_DUE_TO_RANK}}};
}

// The server fails after all that it had was tried.
Expectation none_selected(const char *why, OM_uint32 reason) {
    return {std::string("the server ") + why + " and fails; the client sees the connection closed",
            "",
            {{kFirst.name, QXGSS_SESSION_VERDICT_REJECTED, reason},
             {kSecond.name, QXGSS_SESSION_VERDICT_REJECTED, QXGSS_MECH_REASON_GSSAPI_ERROR}}};
}

std::vector<Scenario> make_scenarios() {
    return {
        {.name = "both",
         .title = "both sides have both mechanisms",
         .expected = {kFirst.name + ", the first by rank, is selected",
                      kFirst.name,
                      {{kFirst.name, QXGSS_SESSION_VERDICT_SELECTED, QXGSS_MECH_REASON_DUE_TO_RANK},
                       {kSecond.name, QXGSS_SESSION_VERDICT_REJECTED, QXGSS_MECH_REASON_DUE_TO_RANK}}}},
        {.name = "policy",
         .title = "the server's policy allows the user only the second mechanism",
         .allowed = kSecond.name,
         .expected = second_selected(QXGSS_MECH_REASON_DUE_TO_POLICY)},
        {.name = "server-lacks",
         .title = "the server has never heard of the first mechanism that the client offers",
         .server = {kSecond},
         .expected = second_selected(QXGSS_MECH_REASON_NOT_AVAIL_AT_SERVER)},
        {.name = "client-lacks",
         .title = "the client has never heard of the first mechanism that the server has",
         .client = {kSecond},
         .expected = second_selected(QXGSS_MECH_REASON_NOT_AVAIL_AT_CLIENT)},
        {.name = "authorization",
         .title = "a user name is requested, and only the second mechanism can authorize",
         .request = " user=alice",
         .server = {without_authorization(kFirst), kSecond},
         .expected = second_selected(QXGSS_MECH_REASON_AUTHORIZATION_REQUIRED)},
        {.name = "wrong-password",
         .title = "the password is wrong",
         .password = "looking-glass",
         .expected = none_selected("rejects both mechanisms", QXGSS_MECH_REASON_GSSAPI_ERROR)},
        {.name = "nothing-in-common",
         .title = "each side has one mechanism, and they differ",
         .client = {kFirst},
         .server = {kSecond}, // which it tries without a token of the client, and SCRAM does not accept that
         .expected = none_selected("has no mechanism left", QXGSS_MECH_REASON_NOT_AVAIL_AT_SERVER)},
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

std::string described(qxgss_session_verdict_et verdict, OM_uint32 reason) {
    return std::string(verdict_word(verdict)) + ", " + std::string(qxnego::reason_word(reason));
}

std::string verdict_on(const std::vector<Verdict> &verdicts, const std::string &mechanism) {
    for (const Verdict &row : verdicts)
        if (row.mechanism == mechanism)
            return described(row.verdict, row.reason);
    return "missing";
}

} // namespace

std::string Scenario::logon() const {
    return std::string("authcid=") + user() + " password=" + password + request;
}

std::string Scenario::public_logon() const {
    return std::string("authcid=") + user() + " password=********" + request;
}

const std::vector<Scenario> &scenarios() {
    static const std::vector<Scenario> list = make_scenarios();
    return list;
}

void write_configurations(const Scenario &scenario, const fs::path &folder, const fs::path &libraries) {
    const std::string policy =
        scenario.allowed.empty() ? "" : filled(kPolicy, {{"user", scenario.user()}, {"allowed", scenario.allowed}});
    write_file(folder / "verifiers", kVerifiers);
    write_file(folder / "client.conf", configuration(scenario.client, libraries));
    write_file(folder / "server.conf", configuration(scenario.server, libraries) + policy);
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
    expect(out, "authenticated user", server.user, has_selection ? "alice" : "");
    expect(out, "client's last status", last_status(client),
           code_text(has_selection ? QXNEGO_E_SUCCESSFUL : QXNEGO_E_CONTINUE_NEEDED));
    expect(out, "server's last status", last_status(server),
           code_text(has_selection ? QXNEGO_E_SUCCESSFUL : QXNEGO_E_NO_MECHANISM));
    for (const ExpectedVerdict &row : expected.verdicts)
        expect(out, row.mechanism, verdict_on(verdicts, row.mechanism), described(row.verdict, row.reason));
    expect(out, "number of mechanisms", std::to_string(verdicts.size()), std::to_string(expected.verdicts.size()));
    return out;
}

} // namespace tools
