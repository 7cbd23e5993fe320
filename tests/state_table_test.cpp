// Every call in every state: contexts of both roles fresh, half-way, complete, failed at each step, and complete and
// then fed again; each call with its outputs given, without them and without inputs. And what calls say without one.
#include <gtest/gtest.h>

#include <optional>

#include "testkit/ber.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace harness;
using scripted::script;

constexpr char kRubbish[] = "rubbish"; // not context-specific

// What a state means to the calls that leave it as it is: their answers, and the outputs that they then give.
enum Class { kNone, kOpen, kComplete, kMoved, kLacking };

const Lines kAnswers[] = {
    {"01080000/E30003FF empty 0", "01080000/E30003FF empty 00", "01080000/E30003FF empty ", "01080000/E30003FF 0",
     "01080000/E30003F6 7", "01080000/E30003F7 00000007 00000007 7 none", "01080000/E30003F7 empty",
     "01080000/E30003F7 none", "01080000/E30003F7 0"},
    {"000D0000/E3000414 empty 0", "000D0000/E3000414 empty 00", "000D0000/E3000414 empty ", "000D0000/E3000414 0",
     "00080000/E3000401 7", "00000000/230003E8 FFFFFFFF 00000030 0 own", "00000000/230003E8 [...]",
     "00000000/230003E8 first", "00000000/230003E8 2"},
    {"00000004/25000001 [4103] 6", "00000004/25000001 [98] 13", "00000004/25000001 [4103C2] ", "00000004/25000001 3",
     "00000000/230003E8 98", "00000000/230003E8 000010E1 00000022 1 its", "00000000/230003E8 [...]",
     "00000000/230003E8 first", "00000000/230003E8 2"},
    {"00080000/C500000B empty 6", "00080000/C500000B empty 10", "00080000/C500000B empty ", "00080000/C500000B 0",
     "00080000/C500000B 7", "00080000/C500000B 00000007 00000007 7 none", "00080000/C500000B empty",
     "00000000/230003E8 first", "00000000/230003E8 2"},
    {"000D0000/E3000414 empty 0", "000D0000/E3000414 empty 00", "000D0000/E3000414 empty ", "000D0000/E3000414 0",
     "000D0000/E3000400 7", "000D0000/E3000400 00000007 00000007 7 none", "000D0000/E3000400 empty",
     "00000000/230003E8 first", "00000000/230003E8 3"},
};

void ask_all(qxgss_ctx_id_t context, Class is) {
    EXPECT_EQ(use(context), kAnswers[is]);
    Lines without_outputs = kAnswers[is]; // they are missed in place of the other statuses, or not at all
    for (std::string &line : without_outputs)
        line.resize(17);
    without_outputs[0] = without_outputs[1] = without_outputs[2] = "020D0000/E30003FA";
    if (is != kNone)
        without_outputs[4] = "02000000/E30003F7",
        without_outputs[6] = without_outputs[7] = without_outputs[8] = "020D0000/E30003F7";
    EXPECT_EQ(use(context, false), without_outputs);
    char text[] = "x";
    qxgss_buffer_desc out{}, input{1, text}, empty{5, nullptr}; // the length is not looked at
    support::expect_all(is == kNone ? "01080000/E30003FF" : "010D0000/E3000402",
                        {outcome(QXNEGO_wrap, context, 0, 0, &empty, nullptr, &out),
                         outcome(QXNEGO_unwrap, context, &empty, &out, nullptr, nullptr),
                         outcome(QXNEGO_get_mic, context, 0, nullptr, &out),
                         outcome(QXNEGO_verify_mic, context, nullptr, &input, nullptr),
                         outcome(QXNEGO_verify_mic, context, &input, &empty, nullptr)});
    EXPECT_EQ(outcome(QXNEGO_get_client_domain_username, context, nullptr, nullptr), kDone);
}

// ---- Without a context, or a place for one -------------------------------------------------------------------------

// The statuses of a call, which must not need a place for its minor status.
template <typename... Parameters>
std::string checked(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    const std::string got = outcome(call, arguments...);
    EXPECT_EQ(hex(call(nullptr, arguments...)), got.substr(0, 8));
    return got;
}

OM_uint32 acquire(OM_uint32 *minor, qxgss_name_t name, qxgss_cred_usage_t usage, qxgss_cred_id_t *handle) {
    qxgss_OID_set mechs = pQxnegoMechOidSet;
    OM_uint32 time = 7;
    const OM_uint32 major = QXNEGO_acquire_cred(minor, name, 5, nullptr, usage, handle, &mechs, &time);
    EXPECT_TRUE(mechs == nullptr && time == 0); // as after every failure
    return major;
}

using StateTable = NegotiationTest;

TEST_F(StateTable, WithoutAContext) {
    ask_all(nullptr, kNone);
    qxgss_ctx_id_t none = nullptr;
    qxgss_cred_id_t cred = nullptr;
    char text[] = "x";
    qxgss_buffer_desc out{}, input{1, text};
    qxgss_name_element_desc element{GSS_C_NT_HOSTBASED_SERVICE, {1, text}};
    qxgss_name_desc foreign{1, &element, nullptr}, empty_name{}, no_elements{1, nullptr, nullptr};
    qxgss_OID types[] = {nullptr, nullptr};
    // clang-format off
    const std::pair<const char *, std::string> rows[] = {
        {"02000000/E30003F7", checked(QXNEGO_indicate_mechs, nullptr)},
        {"020D0000/E30003F7", checked(QXNEGO_inquire_names_for_mech, nullptr, nullptr)},
        {"020D0000/E30003F7", checked(QXNEGO_inquire_candidate, 0, nullptr)},
        {"02080000/E30003FF", checked(QXNEGO_init_sec_context, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, &types[0], &out, nullptr, nullptr)},
        {"02080000/E30003FF", checked(QXNEGO_accept_sec_context, nullptr, nullptr, nullptr, nullptr, nullptr, &types[1], &out, nullptr, nullptr, nullptr)},
        {"020D0000/E30003FA", checked(QXNEGO_init_sec_context, nullptr, &none, nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)},
        {"020D0000/E30003FA", checked(QXNEGO_accept_sec_context, &none, nullptr, &input, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)},
        {"02080000/E30003FF", checked(QXNEGO_delete_sec_context, nullptr, &out)},
        {"01080000/E30003FF", checked(QXNEGO_delete_sec_context, &none, &out)},
        {"02070000/E30003FC", checked(acquire, &foreign, 3, nullptr)},
        {"000D0000/E30003F5", checked(acquire, &foreign, 3, &cred)},
        {"000D0000/E30003F5", checked(acquire, &empty_name, 1, &cred)},
        {"000D0000/E30003F5", checked(acquire, &no_elements, 1, &cred)},
        {"00070000/E30003FD", checked(acquire, nullptr, 3, &cred)},
        {"00070000/E30003FD", checked(acquire, nullptr, -1, &cred)},
        {"02070000/E30003FC", checked(QXNEGO_release_cred, nullptr)},
        {"01070000/E30003FC", checked(QXNEGO_release_cred, &cred)},
        {"00070000/E30003FC", checked(QXNEGO_inquire_cred, nullptr, nullptr, nullptr, nullptr, nullptr)},
        {"00100000/E30003F2", checked(QXNEGO_qop_string_to_int, nullptr, nullptr, nullptr)},
        {"00100000/E30003F2", checked(QXNEGO_qop_int_to_string, nullptr, 0, nullptr)},
    };
    // clang-format on
    for (std::size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(rows[i].second, rows[i].first) << "number " << i;
    EXPECT_TRUE(none == nullptr && cred == nullptr && types[0] == pQxnegoMechOid && types[1] == pQxnegoMechOid);
    qxgss_OID_set mechs = pQxnegoMechOidSet;
    qxgss_name_t name = &foreign;
    OM_uint32 time = 7;
    int usage = 7;
    QXNEGO_inquire_cred(nullptr, nullptr, &name, &time, &usage, &mechs);
    EXPECT_TRUE(name == nullptr && time == 0 && usage == 0 && mechs == nullptr);
}

// ---- States --------------------------------------------------------------------------------------------------------

// A negotiation over A and B, of four tokens each; a state is reached by feeding it.
struct Negotiation : Session {
    explicit Negotiation(const char *logon = "authcid=anna")
        : Session((script().legs = {4, 4, 1, 1}, "AB"), "AB", logon) {
        for (const Side each : {kClient, kServer}) // what the selected mechanism adds to its success is passed on
            script().at('A', each).supplementary = GSS_S_OLD_TOKEN;
    }
};

// The statuses of an establishment call of that role, which keeps its output token when it fails.
std::string fed(Peer &peer, std::string_view token, Side role) {
    const Outcome outcome = peer.call(token, role);
    EXPECT_TRUE(GSS_ERROR(outcome.major) == 0 || outcome.output == Output::kKept);
    return outcome.statuses();
}

using Tokens = std::vector<std::string>; // of a negotiation in which nothing fails
using Script = scripted::Script;

template <Side side> void without_credentials(Script &s) {
    s.at('A', side).acquire_fails = s.at('B', side).acquire_fails = true;
}
template <Side side> void without_mechanism(Script &s) {
    s.at('A', side).failing_call = s.at('B', side).failing_call = 1;
}
void without_context_of_b(Script &s) {
    s.at('B', kClient).failing_call = 1;
}

const char *const kUnreadable = "000D0000/E10000F8", *const kMissing = "010D0000/E30003F6";
const char *const kNotEarned = "000D0000/E3000411", *const kInternal = "000D0000/E30003F3";

struct State {
    const char *name;
    Side side;
    int calls;            // that go well, of both sides together
    const char *made;     // what the last call of this side gave
    const char *answered; // what the peer's next answer in a good negotiation gives
    const char *told;     // of the negotiation: both sides' states, policy applied, offered, number selected
    Class is = kOpen;
    std::optional<std::string> last = {}; // a token that the side is fed after the calls
    void (*prepare)(Script &script) = nullptr;
    const char *logon = "authcid=anna";
};

std::vector<State> states(const Tokens &good) {
    const std::string selection = good[3];
    std::string claim = good[0], another = selection;
    claim[claim.rfind("\x81\x01\x02") + 2] = NEG_STATE_COMPLETED;
    another[another.find("\x82\x0A\x2B") + 11] = 2; // the last octet of B's OID
    const std::string d = support::bytes_of(oid_of('D')), completed = testkit::tlv(0x81, "\x01");
    const std::string lacked = testkit::tlv( // D's entry, which is available, and D as the selection
        0xA1,
        testkit::tlv(0xA0, testkit::tlv(0xA0, testkit::tlv(0x80, d) + completed)) + completed + testkit::tlv(0x82, d));
    // clang-format off
    return {
        {"client begun", kClient, 1, kGoesOn, kGoesOn, "2200 -1"},
        {"server begun", kServer, 2, kGoesOn, kDone, "2211 -1"},
        {"client half-way", kClient, 3, kGoesOn, kReject, "2211 -1"},
        {"client complete", kClient, 5, kDone, kDone, "1111 0", kComplete},
        {"server complete", kServer, 4, kDone, kDone, "1211 0", kComplete},
        {"client without credentials", kClient, 1, kReject, kReject, "3200 -1", kOpen, {}, without_credentials<kClient>},
        {"client without an identity", kClient, 1, "000D0000/E3000427", kReject, "2200 -1", kOpen, {}, nullptr, "authcid=a authcid=b"},
        {"client without a mechanism", kClient, 1, kReject, kReject, "3200 -1", kOpen, {}, without_mechanism<kClient>},
        {"client given a selection that is not established", kClient, 1, kInternal, kReject, "2111 0", kOpen, selection},
        {"server given a claim of completion", kServer, 0, kInternal, kDone, "2111 -1", kOpen, claim},
        {"server whose policy allows none", kServer, 2, kReject, kReject, "2211 -1", kOpen, {}, nullptr, "authcid=onlyc"},
        {"server without a mechanism", kServer, 2, kReject, kReject, "3211 -1", kOpen, {}, without_mechanism<kServer>},
        {"client complete, then told of another selection", kClient, 5, kNotEarned, kNotEarned, "1111 1", kMoved, another},
        {"client complete, then told of one that failed", kClient, 5, kNotEarned, kNotEarned, "1111 1", kMoved, another, without_context_of_b},
        {"client complete, then told of one that it lacks", kClient, 5, kNotEarned, kNotEarned, "1111 2", kLacking, lacked},
    };
    // clang-format on
}

void expect_answers(const State &state, const Tokens &good) {
    scripted::reset();
    if (state.prepare != nullptr)
        state.prepare(script());
    Negotiation session(state.logon);
    Peer &peer = session.side(state.side);
    std::string made, token;
    for (int i = 0; i < state.calls; ++i) {
        const Outcome outcome = session.side(i % 2 == 0 ? kClient : kServer).call(token);
        made = outcome.statuses();
        token = outcome.token;
    }
    if (state.last)
        made = fed(peer, *state.last, state.side);
    EXPECT_EQ(made, state.made);
    qxgss_negotiation_desc told{};
    QXNEGO_inquire_negotiation(nullptr, peer.context, &told);
    char all[32];
    std::snprintf(all, sizeof all, "%u%u%u%d %d", told.NegState, told.NegStateFromPeer, told.IsPolicyApplied,
                  told.IsOffered, told.SelectedNumber);
    EXPECT_STREQ(all, state.told);
    EXPECT_TRUE(state.is < kMoved || (peer.flags == 0 && peer.lifetime == 0));
    ASSERT_NE(peer.context, nullptr);
    peer.act();
    ask_all(peer.context, state.is);
    int local = 7;
    QXNEGO_inquire_context(nullptr, peer.context, nullptr, nullptr, nullptr, nullptr, nullptr, &local, nullptr);
    EXPECT_EQ(local, state.is >= kMoved ? 7 : state.side == kClient ? 1 : 0);
    for (const Side role : {kClient, kServer})
        EXPECT_EQ(fed(peer, kRubbish, role), kUnreadable);
    EXPECT_EQ(fed(peer, "", state.side), kMissing);
    ask_all(peer.context, state.is);
    EXPECT_EQ(fed(peer, good[state.side == kClient ? 1 : 2], state.side), state.answered);
    qxgss_buffer_desc output{1, &token};
    EXPECT_EQ(outcome(QXNEGO_delete_sec_context, &peer.context, &output), kDone);
    EXPECT_TRUE(peer.context == nullptr && output.length == 0 && output.value == nullptr);
}

TEST_F(StateTable, EveryCallInEveryState) {
    Tokens good;
    {
        Negotiation session;
        session.run();
        good = session.tokens;
    }
    for (const State &state : states(good)) {
        SCOPED_TRACE(state.name);
        expect_answers(state, good);
    }
}

TEST_F(StateTable, TheMechanismAnswersForACompleteContext) {
    Session session("A", "A", "authcid=anna");
    session.run();
    session.client.act();
    const auto of_the_mechanism = [&] {
        Lines lines = use(session.client.context);
        lines.resize(6); // the others are QXNEGO's own
        return lines;
    };
    of_the_mechanism();
    EXPECT_EQ(scripted::last_call("wrap_size_limit", 'A').flags, 0x103U);
    EXPECT_EQ(scripted::last_call("inquire_context", 'A').wanted, 7U);
    script().at('A', kClient).messages_fail = true;
    EXPECT_EQ(of_the_mechanism(),
              (Lines{"00070000/C5000007 empty 6", "00070000/C5000007 empty 10", "00070000/C5000007 empty ",
                     "00070000/C5000007 0", "00070000/C5000007 7", "00070000/C5000007 00000007 00000007 7 none"}));
    registered("A").MechFtnTable = {};
    EXPECT_EQ(of_the_mechanism(),
              (Lines{"00100000/E1000067 empty 0", "00100000/E1000067 empty 00", "00100000/E1000067 empty ",
                     "00100000/E1000067 0", "000D0000/E30003F2 7", "000D0000/E30003F2 00000007 00000007 7 none"}));
}

} // namespace
