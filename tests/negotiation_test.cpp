// Negotiations from end to end: every scenario with its calls, verdicts and logs; the exact tokens; what a context does
// after it is complete or has failed; what passes between the caller and the mechanisms.
#include <gtest/gtest.h>

#include "tests/scenarios.h"

namespace {

using namespace harness;
using scripted::script;

class Negotiation : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        OM_uint32 major = 0;
        EXPECT_EQ(configure(&major, configuration()), "");
        EXPECT_EQ(major, GSS_S_COMPLETE);
    }
    void SetUp() override { scripted::reset(); }
    void TearDown() override { EXPECT_EQ(scripted::live_objects(), 0); }
};

std::string_view bytes_of(qxgss_OID oid) {
    return {static_cast<const char *>(oid->elements), oid->length};
}

// What the caller of a completed side was given, and that messages pass between the two contexts.
void expect_agreement(Session &session) {
    const NegContext_desc &negotiation = session.server.negotiation();
    const NegMechEntry_desc &entry = negotiation.NegMechList.pNegMech[negotiation.SelectedMechListIndex];
    for (const Side side : {kClient, kServer}) {
        const Peer &peer = session.side(side);
        EXPECT_EQ(bytes_of(peer.mech_type), bytes_of(entry.pMechOid));
        EXPECT_EQ(peer.flags, scripted::kFlags);
        EXPECT_EQ(peer.lifetime, scripted::kLifetime);
        EXPECT_EQ(peer.negotiation().SelectedMechInfoIndex, entry.MechIndex);
    }
    char text[] = "message";
    qxgss_buffer_desc message{7, text}, wrapped{}, opened{};
    int confidential = 0;
    qxgss_qop_t qop = 0;
    EXPECT_EQ(QXNEGO_wrap(nullptr, session.client.context, 1, 5, &message, nullptr, &wrapped) & 0xFFFF0000U, 0U);
    EXPECT_EQ(QXNEGO_unwrap(nullptr, session.server.context, &wrapped, &opened, &confidential, &qop) & 0xFFFF0000U, 0U);
    EXPECT_EQ(text_of(opened), "message");
    EXPECT_EQ(qop, 5U);
    gssp_release_buffer(nullptr, &wrapped);
    gssp_release_buffer(nullptr, &opened);
}

class Scenarios : public Negotiation, public testing::WithParamInterface<Scenario> {};

TEST_P(Scenarios, EndAsTheyMust) {
    const Scenario &scenario = GetParam();
    prepare(scenario);
    Session session(scenario.client, scenario.server);
    log_on(scenario, session);
    const std::string calls = session.run();
    EXPECT_EQ(calls, scenario.calls);
    EXPECT_EQ(session.client.entries(), scenario.client_entries);
    EXPECT_EQ(session.client.log(), scenario.client_log);
    ASSERT_EQ(session.server.context != nullptr, scenario.server_entries != nullptr);
    if (scenario.server_entries != nullptr) {
        EXPECT_EQ(session.server.entries(), scenario.server_entries);
        EXPECT_EQ(session.server.log(), scenario.server_log);
    }
    if (calls.find("C done") != std::string::npos && calls.find("S done") != std::string::npos)
        expect_agreement(session);
    for (std::size_t i = 0; i < session.tokens.size(); ++i)
        EXPECT_EQ(session.tokens[i][0], i == 0 ? '\xA0' : '\xA1');
    EXPECT_EQ(session.client.end().major, GSS_S_COMPLETE);
    EXPECT_EQ(session.server.end().major, GSS_S_COMPLETE);
}

INSTANTIATE_TEST_SUITE_P(All, Scenarios, testing::ValuesIn(scenarios().begin(), scenarios().end()),
                         [](const testing::TestParamInfo<Scenario> &scenario) {
                             std::string name;
                             for (const char *c = scenario.param.name; *c != 0; ++c)
                                 name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
                             return name;
                         });

// ---- Tokens, byte for byte -----------------------------------------------------------------------------------------

#define OID_OF(last) "800A2B0601040181FD5902" last // [0] mechanism OID 1.3.6.1.4.1.32473.2.x

struct Golden {
    const char *name;
    const char *logon;
    void (*prepare)(scripted::Script &script);
    std::size_t number; // of the token
    std::string token;  // in hexadecimal
};

const Golden kGolden[] = {
    {"INIT: both mechanisms available, each with its token", "authcid=anna", nullptr, 0,
     "A03B"              // [0] NegTokenInit, 59 bytes
     "A030"              //   [0] NegMechList
     "A016" OID_OF("01") //     [0] NegMech A
     "810101"
     "820101"            //       [1] Available [2] reason Available
     "86024131"          //       [6] its token "A1"
     "A016" OID_OF("02") //     [0] NegMech B
     "810101"
     "820101"         //
     "86024231"       //       [6] "B1"
     "810102"         //   [1] NegState Incomplete
     "8204616E6E61"}, //   [2] authentication ID "anna"
    {"RESP: A selected, B rejected by rank", "authcid=anna", nullptr, 1,
     "A144"              // [1] NegTokenResp, 68 bytes
     "A030"              //   [0] NegMechList
     "A016" OID_OF("01") //     [0] NegMech A
     "810102"
     "820106"            //       [1] Selected [2] due to rank
     "86024132"          //       [6] "A2"
     "A016" OID_OF("02") //     [0] NegMech B
     "810103"
     "820106"                   //       [1] Rejected [2] due to rank
     "86024232"                 //       [6] "B2": made before A was selected
     "810101"                   //   [1] NegState Completed
     "820A2B0601040181FD590201" // [2] selected mechanism
     "830101"},                 //   [3] policy applied
    {"INIT: single sign-on, A failed", nullptr,
     [](scripted::Script &s) {
         s.at('A', kClient).failing_call = 1;
         s.at('A', kClient).text = "no";
     },
     0,
     "A050"              // [0] NegTokenInit
     "A048"              //   [0] NegMechList
     "A028" OID_OF("01") //     [0] NegMech A
     "810103"
     "820102"            //       [1] Rejected [2] GSSAPI error
     "8303070000"        //       [3]
     "840500C5000007"    //       [4]
     "85026E6F"          //       [5]
     "8704616E6E61"      //       [7] identity of its credential
     "A01C" OID_OF("02") //     [0] NegMech B
     "810101"
     "820101"
     "86024231"     //
     "8704616E6E61" //
     "810102"       //   [1] NegState Incomplete
     "830101"},     //   [3] single sign-on
    {"INIT: user and profile", "authcid=a user=boss profile=night", nullptr, 0,
     "A045A030A016" OID_OF("01") "81010182010186024131"
                                 "A016" OID_OF("02") "81010182010186024231"
                                                     "810102"
                                                     "820161"           //   [2] "a"
                                                     "8404626F7373"     //   [4] "boss"
                                                     "85056E69676874"}, //   [5] "night"
    {"RESP: incomplete; the client's answer repeats no reasons", "authcid=anna",
     [](scripted::Script &s) {
         s.legs = {4, 4, 1, 1};
     },
     2,
     "A132" // [1] NegTokenResp
     "A02A" //   [0] NegMechList
     "A013" OID_OF("01") "810101"
                         "86024133" //
                         "A013" OID_OF("02") "810101"
                                             "86024233" //
                                             "810102"   //   [1] NegState Incomplete
                                             "830101"}, //   [3] policy applied, as the server said
};

TEST_F(Negotiation, TokensAreExact) {
    for (const Golden &golden : kGolden) {
        SCOPED_TRACE(golden.name);
        scripted::reset();
        script().legs = {2, 2, 1, 1};
        if (golden.prepare != nullptr)
            golden.prepare(script());
        Session session("AB", "AB");
        if (golden.logon != nullptr)
            session.client.log_on(golden.logon);
        session.run();
        ASSERT_GT(session.tokens.size(), golden.number);
        EXPECT_EQ(hex(session.tokens[golden.number]), golden.token);
    }
}

// ---- After the end -------------------------------------------------------------------------------------------------

// A session over A alone whose inner tokens are this many.
struct Single : Session {
    explicit Single(int legs) : Session((script().legs[0] = legs, "A"), "A") { client.log_on("authcid=anna"); }
};

void expect_outcome(const Outcome &outcome, OM_uint32 major, OM_uint32 minor, Output output) {
    EXPECT_EQ(hex(outcome.major) + "/" + hex(outcome.minor), hex(major) + "/" + hex(minor));
    EXPECT_EQ(outcome.output, output);
}

TEST_F(Negotiation, CallsOnACompletedContextEndEarly) {
    Single session(4);
    session.run();
    const std::string entries = session.client.entries();
    expect_outcome(session.client.call(session.tokens[3]), GSS_S_COMPLETE, QXNEGO_E_SUCCESSFUL, Output::kKept);
    expect_outcome(session.server.call(session.tokens[2]), GSS_S_COMPLETE, QXNEGO_E_SUCCESSFUL, Output::kKept);
    EXPECT_EQ(session.client.entries(), entries);
    EXPECT_EQ(session.client.negotiation().TokenNum, 3U);
    EXPECT_EQ(scripted::calls("init_sec_context", 'A'), 3);
    EXPECT_EQ(scripted::calls("accept_sec_context", 'A'), 2);
    expect_agreement(session);
    // A token that cannot be read is refused even then.
    EXPECT_NE(GSS_ERROR(session.server.call("rubbish").major), 0U);
    EXPECT_EQ(session.server.negotiation().NegState, NEG_STATE_COMPLETED);
}

TEST_F(Negotiation, CallsOnARejectedContextEndAfterTheTokenIsRead) {
    std::string resp;
    {
        Single other(4);
        other.run();
        resp = other.tokens[2];
    }
    script().at('A', kServer).failing_call = 1;
    Single session(4);
    EXPECT_EQ(session.run(), "C cont token, S 000D0000/E3000406 kept");
    EXPECT_EQ(session.server.negotiation().NegState, NEG_STATE_REJECT);
    const std::string entries = session.server.entries();
    expect_outcome(session.server.call(resp), GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM, Output::kKept);
    EXPECT_EQ(session.server.entries(), entries);
    EXPECT_EQ(session.server.mech_type, pQxnegoMechOid);
}

TEST_F(Negotiation, TheWrongKindOfTokenChangesNothing) {
    Single session(4);
    session.run();
    Peer client(kClient, "A"), server(kServer, "A");
    client.log_on("authcid=anna");
    client.call("ignored on the first call");
    EXPECT_EQ(std::string_view(scripted::last_call("init_sec_context", 'A')->text.data()), "");
    const std::string log = client.log();
    const Outcome init_as_resp = client.call(session.tokens[0]);
    EXPECT_EQ(init_as_resp.major, GSS_S_FAILURE);
    EXPECT_EQ(init_as_resp.minor >> 24, 0xE1U);
    EXPECT_EQ(client.log(), log);
    const Outcome resp_as_init = server.call(session.tokens[1]);
    EXPECT_EQ(resp_as_init.major, GSS_S_FAILURE);
    EXPECT_EQ(resp_as_init.minor >> 24, 0xE1U);
    EXPECT_EQ(server.entries(), "A11");
    expect_outcome(Peer(kServer, "A").call(""), 0x010D0000U, QXNEGO_E_INVALID_INPUT, Output::kKept);
}

TEST_F(Negotiation, AnInitialTokenThatClaimsCompletionIsReadAndFails) {
    Single session(2);
    std::string token = session.client.call("").token;
    const std::size_t state = token.rfind("\x81\x01\x02");
    token[state + 2] = NEG_STATE_COMPLETED;
    expect_outcome(session.server.call(token), GSS_S_FAILURE, QXNEGO_E_INTERNAL, Output::kKept);
    EXPECT_EQ(session.server.log(), "[0] have:A11 peer:A11 init-state cred-none [0p] policy-empty acc-est:A11");
    for (const auto &[value, minor] : {std::pair{0, QXNEGO_E_BAD_NEG_STATE},
                                       {3, QXNEGO_E_BAD_NEG_STATE},
                                       {4, QXNEGO_E_NEG_STATE_UNSUPPORTED},
                                       {5, QXNEGO_E_BAD_NEG_STATE}}) {
        token[state + 2] = static_cast<char>(value);
        expect_outcome(Peer(kServer, "A").call(token), GSS_S_FAILURE, minor, Output::kKept);
    }
}

// ---- Between the caller and the mechanisms -------------------------------------------------------------------------

TEST_F(Negotiation, ResultsReachTheCaller) {
    script().at('A', kServer).source = "anna@REALM";
    script().at('A', kServer).delegates = true;
    Single session(3);
    Peer &server = session.server;
    const Outcome first = server.call(session.client.call("").token);
    EXPECT_EQ(session.client.mech_type, pQxnegoMechOid);
    EXPECT_EQ(server.mech_type, pQxnegoMechOid);
    EXPECT_EQ(server.source, nullptr);
    EXPECT_EQ(server.delegated, nullptr);
    EXPECT_EQ(server.flags, 0U);
    server.call(session.client.call(first.token).token);
    ASSERT_NE(server.source, nullptr);
    EXPECT_EQ(text_of(server.source->pElements[0].Name), "anna@REALM");
    const NegMechEntry_desc &entry = server.negotiation().NegMechList.pNegMech[0];
    EXPECT_NE(server.source, entry.pSrcName);
    ASSERT_NE(server.delegated, nullptr);
    EXPECT_EQ(entry.pDelegatedCredHandle, nullptr);
    qxgss_cred_id_t mine = server.delegated;
    EXPECT_EQ(
        QXNEGO_INT_SetReturns(nullptr, &server.negotiation(), nullptr, nullptr, nullptr, nullptr, &server.delegated),
        GSS_S_COMPLETE);
    EXPECT_EQ(server.delegated, nullptr);
    server.end();
    EXPECT_EQ(scripted::calls("release_name", 'A'), 1);
    registered("A").MechFtnTable.ftn_gssp_release_cred(nullptr, &mine);
}

TEST_F(Negotiation, MechanismsAreAskedOnlyForWhatTheCallerWants) {
    for (const bool ask : {true, false}) {
        Single session(1);
        session.client.ask = session.server.ask = ask;
        session.run();
        EXPECT_EQ(scripted::last_call("init_sec_context", 'A')->wanted, ask ? 3U : 0U);
        EXPECT_EQ(scripted::last_call("accept_sec_context", 'A')->wanted, ask ? 5U : 0U);
    }
}

TEST_F(Negotiation, ArgumentsReachTheMechanisms) {
    Single session(2);
    session.server.log_on("authcid=service");
    qxgss_name_desc target{};
    session.client.target = &target;
    session.run();
    const NegMechEntry_desc &entry = session.client.negotiation().NegMechList.pNegMech[0];
    const scripted::Call &init = *scripted::last_call("init_sec_context", 'A');
    EXPECT_EQ(init.name, &target);
    EXPECT_EQ(init.flags, GSS_C_MUTUAL_FLAG);
    EXPECT_EQ(init.time, 300U);
    EXPECT_EQ(init.mech_type, entry.pMechOid);
    EXPECT_EQ(init.credential, entry.pMechCredential);
    EXPECT_STREQ(init.text.data(), "A2");
    EXPECT_STREQ(scripted::last_call("accept_sec_context", 'A')->text.data(), "A1");
    EXPECT_NE(scripted::last_call("accept_sec_context", 'A')->credential, nullptr);
    const scripted::Call &acquire = *scripted::last_call("acquire_cred", 'A');
    EXPECT_STREQ(acquire.text.data(), "authcid=service");
    EXPECT_EQ(acquire.flags, OM_uint32{GSS_C_ACCEPT});
    EXPECT_EQ(acquire.time, 600U);
    EXPECT_EQ(acquire.wanted, 0U);
}

TEST_F(Negotiation, WithoutACredentialTheClientAcquiresItsDefault) {
    Session session("A", "A");
    session.run();
    const scripted::Call &acquire = *scripted::last_call("acquire_cred", 'A');
    EXPECT_EQ(acquire.name, nullptr);
    EXPECT_EQ(acquire.time, GSS_C_INDEFINITE);
    EXPECT_EQ(acquire.flags, OM_uint32{GSS_C_INITIATE});
    EXPECT_EQ(scripted::calls("acquire_cred", 'A'), 1);
    EXPECT_EQ(scripted::last_call("accept_sec_context", 'A')->credential, nullptr);
}

TEST_F(Negotiation, TextsOfOnePassShareTheMessageContext) {
    script().at('A', kServer).failing_call = script().at('B', kServer).failing_call = 1;
    Session session("AB", "AB");
    session.client.log_on("authcid=anna");
    session.run();
    EXPECT_EQ(scripted::last_call("display_status", 'A')->flags, 0U);
    const scripted::Call &second = *scripted::last_call("display_status", 'B');
    EXPECT_EQ(second.flags, 1U);
    EXPECT_EQ(second.time, 0xC5000007U);
    EXPECT_EQ(second.wanted, OM_uint32{GSS_C_MECH_CODE});
}

TEST_F(Negotiation, TheEndReleasesEverythingAndReportsTheLastFailure) {
    script().at('A', kClient).release_cred_fails = true;
    script().at('A', kClient).minor = 0xC5000011U;
    script().at('B', kClient).delete_fails = true;
    script().at('B', kClient).major = GSS_S_UNAVAILABLE;
    Session session("ABC", "AB");
    session.client.log_on("authcid=anna");
    session.run();
    const Outcome outcome = session.client.end();
    EXPECT_EQ(outcome.major, GSS_S_UNAVAILABLE);
    EXPECT_EQ(outcome.minor, 0xC5000007U);
    EXPECT_EQ(session.client.context, nullptr);
    EXPECT_EQ(scripted::calls("delete_sec_context", 'C'), 1);
}

TEST_F(Negotiation, WithoutReleaseOperationsObjectsAreLeftAlone) {
    script().at('A', kClient).failing_call = 1;
    script().at('A', kClient).alter = [](qxgss_ftn_table_desc &table) {
        table.ftn_gssp_release_cred = nullptr;
        table.ftn_gssp_delete_sec_context = nullptr;
        table.ftn_gssp_release_name = nullptr;
    };
    Session session("A", "A");
    EXPECT_EQ(session.run(), "C 000D0000/E3000406 kept");
    EXPECT_NE(session.client.negotiation().NegMechList.pNegMech[0].pMechContext, nullptr);
    EXPECT_EQ(session.client.end().major, GSS_S_COMPLETE);
    EXPECT_EQ(scripted::live_objects(), 2);
    scripted::reset();
}

TEST_F(Negotiation, AHandleThatADeletionLeavesIsForgotten) {
    static auto remove = registered("A").MechFtnTable.ftn_gssp_delete_sec_context;
    script().at('A', kClient).failing_call = 1;
    script().at('A', kClient).alter = [](qxgss_ftn_table_desc &table) {
        table.ftn_gssp_delete_sec_context = [](OM_uint32 *minor, qxgss_ctx_id_t *handle, qxgss_buffer_t output) {
            qxgss_ctx_id_t copy = *handle;
            return remove(minor, &copy, output);
        };
    };
    Session session("A", "A");
    EXPECT_EQ(session.run(), "C 000D0000/E3000406 kept");
    EXPECT_EQ(session.client.negotiation().NegMechList.pNegMech[0].pMechContext, nullptr);
}

} // namespace
