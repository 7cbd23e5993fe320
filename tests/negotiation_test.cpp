// Negotiations from end to end: every scenario with its calls and logs, alone and in many threads (to be run under the
// thread sanitizer, too: preset "thread"), the exact tokens, and what passes between the caller and the mechanisms.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/negotiation_harness.h"

namespace {

using namespace harness;
using scripted::script;

using Negotiation = NegotiationTest;

// What the caller of a completed side was given.
void expect_agreement(const Peer &peer, const NegMechEntry_desc &entry) {
    EXPECT_EQ(support::bytes_of(*peer.mech_type), support::bytes_of(*entry.pMechOid));
    EXPECT_TRUE(peer.flags == scripted::kFlags && peer.lifetime == scripted::kLifetime);
    EXPECT_EQ(peer.negotiation().SelectedMechInfoIndex, entry.MechIndex);
    qxgss_negotiated_mech_desc each;
    OM_uint32 number = 0, selected = 0;
    for (; outcome(QXNEGO_inquire_negotiated_mech, peer.context, number, &each) == kDone; ++number)
        selected += each.IsSelected != 0 && each.MechIndex == entry.MechIndex;
    EXPECT_TRUE(selected == 1 && number == peer.negotiation().NegMechList.Count);
    EXPECT_EQ(outcome(QXNEGO_inquire_negotiated_mech, peer.context, number, &each), "00100000/E3000414");
    EXPECT_EQ(each.pMechOid, nullptr);
}

// The log begins with the mechanisms that are available.
void expect_story(const Peer &peer, const std::string &mechanisms, const std::string &log) {
    std::string available;
    for (const char letter : mechanisms)
        available += (available.empty() ? "[0] have:" : ",") + std::string(1, letter) + "11";
    EXPECT_EQ(peer.log(), available + " " + log);
}

TEST_F(Negotiation, ScenariosEndAsTheyMust) {
    for (const Scenario &scenario : scenarios()) {
        SCOPED_TRACE(scenario.name);
        prepare(scenario);
        Session session(scenario.client, scenario.server);
        log_on(scenario, session);
        const std::string calls = session.run();
        EXPECT_EQ(calls, scenario.calls);
        expect_story(session.client, scenario.client, scenario.client_log);
        ASSERT_EQ(session.server.context != nullptr, scenario.server_log != nullptr);
        if (scenario.server_log != nullptr)
            expect_story(session.server, scenario.server, scenario.server_log);
        if (calls.find("C done") != std::string::npos && calls.find("S done") != std::string::npos) {
            const NegContext_desc &negotiation = session.server.negotiation();
            for (const Peer *peer : {&session.client, &session.server})
                expect_agreement(*peer, negotiation.NegMechList.pNegMech[negotiation.SelectedMechListIndex]);
        }
        for (std::size_t i = 0; i < session.tokens.size(); ++i)
            EXPECT_EQ(session.tokens[i][0], i == 0 ? '\xA0' : '\xA1');
        for (Peer *peer : {&session.client, &session.server})
            EXPECT_EQ(peer->end(), kDone);
        EXPECT_EQ(scripted::live_objects(), 0);
    }
}

// ---- In many threads ------------------------------------------------------------------------------------------------

// What a thread sees of a scenario; its mechanisms behave as it says, and both sides have all of them, as no thread may
// change the registry.
std::string run(const Scenario &scenario) {
    prepare(scenario);
    std::string seen;
    {
        Session session;
        log_on(scenario, session);
        seen = session.run();
        for (const std::string &token : session.tokens)
            seen += " " + hex(token);
        for (Peer *peer : {&session.client, &session.server})
            if (peer->context != nullptr) {
                peer->act();
                for (const std::string &said : use(peer->context))
                    seen += " " + said;
                seen += " " + peer->end();
            }
    }
    qxgss_OID oid = nullptr;
    gssp_mechoidstr_to_oid(nullptr, "1.3.6.1.4.1.32473.9.9", &oid);
    return seen + std::to_string(scripted::live_objects());
}

TEST_F(Negotiation, EachThreadSeesWhatASingleOneSees) {
    std::vector<std::string> expected;
    for (const Scenario &scenario : scenarios())
        expected.push_back(run(scenario));
    EXPECT_EQ(expected[0].substr(0, 40), "C cont token, S done token, C done empty");
    std::atomic<int> differences = 0;
    {
        std::vector<std::jthread> threads;
        for (std::size_t number = 0; number < 8; ++number)
            threads.emplace_back([&, number] {
                for (std::size_t i = 0; i < 20 * scenarios().size(); ++i) { // each thread begins elsewhere
                    const std::size_t at = (i + number * 5) % scenarios().size();
                    differences += run(scenarios()[at]) != expected[at] ? 1 : 0;
                }
                scripted::reset();
            });
    }
    EXPECT_EQ(differences, 0);
}

// ---- Tokens, byte for byte -----------------------------------------------------------------------------------------

#define OID_OF(last) "800A2B0601040181FD5902" last // [0] mechanism OID 1.3.6.1.4.1.32473.2.x

// What a client logs on with, how its mechanisms behave, and a token's number and octets in hexadecimal.
// clang-format off
const std::tuple<const char *, const char *, void (*)(scripted::Script &), std::size_t, std::string> kGolden[] = {
    {"INIT: both mechanisms available, each with its token", "authcid=anna", nullptr, 0,
     "A03B"                                    // [0] NegTokenInit, 59 bytes
     "A030"                                    //   [0] NegMechList
     "A016" OID_OF("01") "810101" "820101"     //     [0] NegMech A: [1] Available [2] reason Available
     "86024131"                                //       [6] its token "A1"
     "A016" OID_OF("02") "810101" "820101"     //     [0] NegMech B
     "86024231"                                //       [6] "B1"
     "810102"                                  //   [1] NegState Incomplete
     "8204616E6E61"},                          //   [2] authentication ID "anna"
    {"RESP: A selected, B rejected by rank", "authcid=anna", nullptr, 1,
     "A144"                                    // [1] NegTokenResp, 68 bytes
     "A030"                                    //   [0] NegMechList
     "A016" OID_OF("01") "810102" "820106"     //     [0] NegMech A: [1] Selected [2] due to rank
     "86024132"                                //       [6] "A2"
     "A016" OID_OF("02") "810103" "820106"     //     [0] NegMech B: [1] Rejected [2] due to rank
     "86024232"                                //       [6] "B2": made before A was selected
     "810101"                                  //   [1] NegState Completed
     "820A2B0601040181FD590201"                //   [2] selected mechanism
     "830101"},                                //   [3] policy applied
    {"INIT: single sign-on for a user and a profile, A failed", "user=boss profile=night",
     [](scripted::Script &s) {
         s.at('A', kClient).failing_call = 1;
         s.at('A', kClient).text = "no";
     },
     0,
     "A05D"                                    // [0] NegTokenInit
     "A048"                                    //   [0] NegMechList
     "A028" OID_OF("01") "810103" "820102"     //     [0] NegMech A: [1] Rejected [2] GSSAPI error
     "8303070000" "840500C5000007" "85026E6F"  //       [3] major and [4] minor status, [5] its text
     "8704616E6E61"                            //       [7] identity of its credential
     "A01C" OID_OF("02") "810101" "820101"     //     [0] NegMech B
     "86024231" "8704616E6E61"                 //       [6] "B1" [7] identity
     "810102"                                  //   [1] NegState Incomplete
     "830101"                                  //   [3] single sign-on
     "8404626F7373" "85056E69676874"},         //   [4] user "boss" [5] profile "night"
};
// clang-format on

TEST_F(Negotiation, TokensAreExact) {
    for (const auto &[what, logon, prepare, number, token] : kGolden) {
        scripted::reset();
        script().legs = {2, 2, 1, 1};
        if (prepare != nullptr)
            prepare(script());
        Session session("AB", "AB", logon);
        session.run();
        ASSERT_GT(session.tokens.size(), number);
        EXPECT_EQ(hex(session.tokens[number]), token) << what;
    }
}

// ---- Between the caller and the mechanisms -------------------------------------------------------------------------

TEST_F(Negotiation, ArgumentsReachTheMechanisms) {
    script().legs[0] = 2;
    const scripted::Call &init = scripted::last_call("init_sec_context", 'A');
    const scripted::Call &accept = scripted::last_call("accept_sec_context", 'A');
    const scripted::Call &acquire = scripted::last_call("acquire_cred", 'A');
    {
        Session session("A", "A", "authcid=anna");
        session.server.log_on("authcid=service");
        qxgss_name_desc target{};
        qxgss_channel_bindings_desc bindings{};
        session.client.target = &target;
        session.client.bindings = session.server.bindings = &bindings;
        session.server.ask = false; // the mechanisms are asked for what the caller wants
        session.run();
        const NegMechEntry_desc &entry = session.client.negotiation().NegMechList.pNegMech[0];
        EXPECT_TRUE(init.name == &target && init.flags == GSS_C_MUTUAL_FLAG && init.time == 300 && init.wanted == 3);
        EXPECT_TRUE(init.bindings == &bindings && accept.bindings == &bindings);
        EXPECT_TRUE(init.mech_type == entry.pMechOid && init.credential == entry.pMechCredential);
        EXPECT_STREQ(init.text.data(), "A2");
        EXPECT_STREQ(accept.text.data(), "A1");
        EXPECT_TRUE(accept.credential != nullptr && accept.wanted == 0);
        EXPECT_STREQ(acquire.text.data(), "authcid=service");
        EXPECT_TRUE(acquire.flags == GSS_C_ACCEPT && acquire.time == 600 && acquire.wanted == 0);
    }
    Session session("A", "A"); // without a credential the client acquires its default, and the server none
    session.client.ask = false;
    session.run();
    EXPECT_TRUE(acquire.name == nullptr && acquire.flags == GSS_C_INITIATE && acquire.time == GSS_C_INDEFINITE);
    EXPECT_TRUE(init.wanted == 0 && accept.credential == nullptr && accept.wanted == 5);
}

// Without the operations that release them, and when the deletion leaves its handle.
TEST_F(Negotiation, ObjectsThatCannotBeReleasedAreLeftAlone) {
    scripted::Behaviour &how = script().at('A', kClient);
    how.failing_call = 1;
    how.alter = [](qxgss_ftn_table_desc &table) {
        table.ftn_gssp_release_cred = nullptr;
        table.ftn_gssp_release_name = nullptr;
        table.ftn_gssp_delete_sec_context = nullptr;
    };
    for (const bool is_left : {true, false}) {
        Session session("A", "A"); // single sign-on: a name is released, too
        EXPECT_EQ(session.run(), "C 000D0000/E3000406 kept");
        EXPECT_EQ(session.client.negotiation().NegMechList.pNegMech[0].pMechContext != nullptr, is_left);
        EXPECT_EQ(session.client.end(), kDone);
        EXPECT_EQ(scripted::live_objects(), is_left ? 2 : 3);
        how.alter = [](qxgss_ftn_table_desc &table) {
            table.ftn_gssp_delete_sec_context = [](OM_uint32 *, qxgss_ctx_id_t *, qxgss_buffer_t) { return 0U; };
        };
    }
    scripted::reset();
}

} // namespace
