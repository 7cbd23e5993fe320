// The negotiations, by what they show: number of tokens, mechanisms that fail, mechanisms that only one side has,
// policy and authorization, single sign-on, credentials.
#include "tests/negotiation_harness.h"

namespace harness {
namespace {

using scripted::Principal;
using scripted::Script;
using Table = qxgss_ftn_table_desc;

constexpr const char *kAnna = "authcid=anna password=secret";
constexpr const char *kThreeCalls = "C cont token, S done token, C done empty";
constexpr const char *kFourCalls = "C cont token, S cont token, C done token, S done empty";
constexpr const char *kFiveCalls = "C cont token, S cont token, C cont token, S done token, C done empty";

template <int legs> void legs_of_a(Script &s) {
    s.legs[0] = legs;
}

template <Side side, int call = 1, int legs = 1> void a_fails(Script &s) {
    s.legs[0] = legs;
    s.at('A', side).failing_call = call;
}

// clang-format off
constexpr Scenario kScenarios[] = {
    // ---- Number of inner tokens: with an odd number the client is complete first and still has a token to send.
    {"one token", "AB", "AB", kAnna, nullptr, kThreeCalls,
     "cred:A11,B11 init-est:A11+,B11+ [1] peer:A26+=,B36+= peer-state [1p] policy-told complete:A26+",
     "peer:A11,B11 cred-none [0p] policy-empty acc-est:A11+,B11+ select:A26+,B36+"},
    {"three tokens; supplementary bits are no failure", "A", "A", kAnna,
     [](Script &s) { s.legs[0] = 3; s.at('A', kClient).supplementary = GSS_S_DUPLICATE_TOKEN;
           s.at('A', kServer).supplementary = GSS_S_GAP_TOKEN; }, kFourCalls,
     "cred:A11 init-cont:A11 [1] peer:A11 [1p] policy-told init-est:A11+ select:A26+",
     "peer:A11 cred-none [0p] policy-empty acc-cont:A11 [1p] peer:A26= peer-state acc-est:A26+ complete:A26+"},
    {"five tokens", "A", "A", kAnna, legs_of_a<5>,
     "C cont token, S cont token, C cont token, S cont token, C done token, S done empty",
     "cred:A11 init-cont:A11 [1] peer:A11 [1p] policy-told init-cont:A11 [2p] peer:A11 init-est:A11+ select:A26+",
     "peer:A11 cred-none [0p] policy-empty acc-cont:A11 [1p] peer:A11 acc-cont:A11 [2p] peer:A26= peer-state "
     "acc-est:A26+ complete:A26+"},
    {"a later one that is established waits for the first", "AB", "AB", kAnna, legs_of_a<3>, kFourCalls,
     "cred:A11,B11 init-cont:A11 init-est:B11+ [1] peer:A11,B11+ [1p] policy-told init-est:A11+ select:A26+,B36+",
     "peer:A11,B11 cred-none [0p] policy-empty acc-cont:A11 acc-est:B11+ [1p] peer:A26=,B36+= peer-state acc-est:A26+ "
     "complete:A26+"},
    // ---- Mechanisms that fail
    {"the first fails at the server, with a token", "AB", "AB", kAnna,
     [](Script &s) { s.at('A', kServer).failing_call = 1; s.at('A', kServer).error_token = true; }, kThreeCalls,
     "cred:A11,B11 init-est:A11+,B11+ [1] peer:A32+!=,B26+= peer-state [1p] policy-told complete:B26+",
     "peer:A11,B11 cred-none [0p] policy-empty acc-fail:A32! acc-est:B11+ select:B26+"},
    {"the first fails on the client's second call", "AB", "AB", kAnna, a_fails<kClient, 2, 4>, kFourCalls,
     "cred:A11,B11 init-cont:A11 init-est:B11+ [1] peer:A11,B11+ [1p] policy-told init-fail:A32! select:B26+",
     "peer:A11,B11 cred-none [0p] policy-empty acc-cont:A11 acc-est:B11+ [1p] peer:A32!=,B26+= peer-state "
     "complete:B26+"},
    {"the selected one fails at the client", "A", "A", kAnna, a_fails<kClient, 2, 2>,
     "C cont token, S done token, C 000D0000/E30003F3 kept",
     "cred:A11 init-cont:A11 [1] peer:A26= peer-state [1p] policy-told init-fail:A32!",
     "peer:A11 cred-none [0p] policy-empty acc-est:A11+ select:A26+"},
    {"all fail at the server", "AB", "AB", kAnna,
     [](Script &s) { s.at('A', kServer).failing_call = 1; s.at('B', kServer).failing_call = 1;
           s.at('B', kServer).text = "B's own"; }, "C cont token, S 000D0000/E3000406 kept",
     "cred:A11,B11 init-est:A11+,B11+",
     "peer:A11,B11 cred-none [0p] policy-empty acc-fail:A32!,B32(00070000/C5000007 B's own) end"},
    {"a mechanism that fails and cannot be deleted ends the call", "AB", "AB", kAnna,
     [](Script &s) { s.at('A', kClient).failing_call = 1; s.at('A', kClient).delete_fails = true; },
     "C 00070000/C5000007 kept", "cred:A11,B11"},
    {"one without an init operation, one without a text", "ABC", "ABC", kAnna,
     [](Script &s) { s.at('A', kClient).alter = [](Table &t) { t.ftn_gssp_init_sec_context = nullptr; };
           s.at('B', kClient).failing_call = 1; s.at('B', kClient).text = nullptr; }, kThreeCalls,
     "cred:A11,B11,C11 init-fail:A32(00100000/E1000067 !),B32(00070000/C5000007 -) init-est:C11+ [1] peer:C26+= "
     "peer-state [1p] policy-told complete:C26+",
     "peer:A32(00100000/E1000067 !)=,B32(00070000/C5000007 -)=,C11 cred-none [0p] policy-empty acc-est:C11+ "
     "select:C26+"},
    {"no accept, delete and display operation", "AB", "AB", kAnna,
     [](Script &s) { s.at('A', kServer).alter = [](Table &t) { t.ftn_gssp_accept_sec_context = nullptr;
           t.ftn_gssp_delete_sec_context = nullptr; t.ftn_gssp_display_status = nullptr; }; }, kThreeCalls,
     "cred:A11,B11 init-est:A11+,B11+ [1] peer:A32+(00100000/E1000067 -)=,B26+= peer-state [1p] policy-told "
     "complete:B26+",
     "peer:A11,B11 cred-none [0p] policy-empty acc-fail:A32(00100000/E1000067 -) acc-est:B11+ select:B26+"},
    // ---- Mechanisms that only one side has
    {"each side has one that the other lacks", "AC", "BC", kAnna, [](Script &s) { s.legs[2] = 4; },
     kFiveCalls,
     "cred:A11,C11 init-est:A11+ init-cont:C11 [1] unknown:B32(00090000/C5000009 !) refuse:B33 peer:C11,A34+= [1p] "
     "policy-told init-cont:C11 [2p] peer:C26= peer-state init-est:C26+ complete:C26+",
     "unknown:A11 refuse:A34 peer:C11 cred-none [0p] policy-empty acc-fail:B32(00090000/C5000009 !) acc-cont:C11 [1p] "
     "peer:C11,B33 acc-est:C11+ select:C26+"},
    // ---- Policy and authorization. A mechanism that the policy rejects carries the status of the test for it.
    {"policy of the requested user, which only some can authorize", "ABC", "ABC", "authcid=onlyb user=onlyc", nullptr,
     kThreeCalls,
     "cred:A11,B11,C11 init-est:A11+,B11+,C11+ [1] peer:A35+=,B35+=,C26+= peer-state [1p] policy-told complete:C26+",
     "peer:A11,B11,C11 cred-none policy-no:A35(00000000/21000064),B35(00000000/21000064) [0p] policy-set acc-est:C11+ "
     "select:C26+"},
    {"a requested user needs authorization", "BC", "BC", "authcid=anna user=boss", nullptr, kThreeCalls,
     "cred:B11,C11 init-est:B11+,C11+ [1] peer:B39+=,C26+= peer-state [1p] policy-told complete:C26+",
     "peer:B11,C11 cred-none [0p] policy-empty authz:B39 acc-est:C11+ select:C26+"},
    {"a requested profile too, except of what does not authenticate", "BD", "BD", "authcid=anna profile=night",
     [](Script &s) { s.legs[3] = 3; }, kFourCalls,
     "cred:B11,D11 init-est:B11+ init-cont:D11 [1] peer:B39+=,D11 [1p] policy-told init-est:D11+ select:D26+",
     "peer:B11,D11 cred-none [0p] policy-empty authz:B39 acc-cont:D11 [1p] peer:D26= peer-state acc-est:D26+ "
     "complete:D26+"},
    // ---- Single sign-on
    {"the first identity decides the policy", "AB", "AB", nullptr,
     [](Script &s) { s.at('A', kClient).principal_text = "onlyb@REALM"; s.at('B', kClient).principal_text = "onlyc"; },
     kThreeCalls, "cred:A11,B11 init-est:A11+,B11+ [1] peer:A35+=,B26+= peer-state [1p] policy-told complete:B26+",
     "peer:A11,B11 cred-none policy-no:A35(00000000/21000064) [0p] policy-set acc-est:B11+ select:B26+"},
    {"the identity of a rejected one does not", "AB", "AB", nullptr,
     [](Script &s) { s.at('A', kClient).principal_text = "onlyc"; s.at('A', kClient).failing_call = 1;
           s.at('B', kClient).principal_text = "onlyb"; }, kThreeCalls,
     "cred:A11,B11 init-fail:A32! init-est:B11+ [1] peer:B26+= peer-state [1p] policy-told complete:B26+",
     "peer:A32!=,B11 cred-none [0p] policy-set acc-est:B11+ select:B26+"},
    {"none has an identity", "ABD", "ABD", nullptr,
     [](Script &s) { s.at('A', kClient).principal = Principal::kNoName; s.at('D', kClient).principal = Principal::kFailure;
           s.at('B', kClient).alter = [](Table &t) { t.ftn_gssp_inquire_cred = nullptr; }; },
     "C 000D0000/E3000406 kept", "cred:A11,B11,D11 sso-id:A38,B38,D38 end"},
    {"two principals in one name are none, nor is a name without elements", "ABD", "ABD", nullptr,
     [](Script &s) { s.at('A', kClient).principal_text = "anna,bert";
           s.at('D', kClient).principal = Principal::kNoElements; }, kThreeCalls,
     "cred:A11,B11,D11 sso-id:A38,D38 init-est:B11+ [1] peer:B26+= peer-state [1p] policy-told complete:B26+",
     "peer:A38=,B11,D38= cred-none [0p] policy-empty acc-est:B11+ select:B26+"},
    {"a logon string with a user alone goes on with single sign-on", "AC", "AC", "user=boss", nullptr, kThreeCalls,
     "cred:A11,C11 sso-no:C37 init-est:A11+ [1] peer:A26+= peer-state [1p] policy-told complete:A26+",
     "peer:A11,C37= cred-none [0p] policy-empty acc-est:A11+ select:A26+"},
    // ---- Credentials
    {"no credential of the first at the client, no acquire operation of the second", "AB", "AB", kAnna,
     [](Script &s) { s.at('A', kClient).acquire_fails = true;
           s.at('B', kClient).alter = [](Table &t) { t.ftn_gssp_acquire_cred = nullptr; }; }, kThreeCalls,
     "cred-fail:A32! cred-skip:B11 init-est:B11+ [1] peer:B26+= peer-state [1p] policy-told complete:B26+",
     "peer:A32!=,B11 cred-none [0p] policy-empty acc-est:B11+ select:B26+"},
    {"no credential of the first at the server, nor a text", "ABC", "AB", kAnna,
     [](Script &s) { s.at('A', kServer).acquire_fails = true;
           s.at('A', kServer).alter = [](Table &t) { t.ftn_gssp_display_status = nullptr; }; }, kThreeCalls,
     "cred:A11,B11,C11 init-est:A11+,B11+,C11+ [1] peer:A32+(00070000/C5000007 -)=,B26+=,C34+= peer-state [1p] "
     "policy-told complete:B26+",
     "peer:A11,B11 unknown:C11 refuse:C34 cred-fail:A32(00070000/C5000007 -) cred:B11 [0p] policy-empty acc-est:B11+ "
     "select:B26+", "authcid=service"},
};
// clang-format on

} // namespace

std::span<const Scenario> scenarios() {
    return kScenarios;
}

void prepare(const Scenario &scenario) {
    scripted::reset();
    if (scenario.prepare != nullptr)
        scenario.prepare(scripted::script());
}

void log_on(const Scenario &scenario, Session &session) {
    if (scenario.logon != nullptr)
        session.client.log_on(scenario.logon);
    if (scenario.server_logon != nullptr)
        session.server.log_on(scenario.server_logon);
}

} // namespace harness
