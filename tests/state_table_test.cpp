// Every call in every state: contexts of both roles fresh, half-way, complete, failed at each step, and complete and
// then fed again; each call with its outputs given and null.
#include <gtest/gtest.h>

#include "tests/negotiation_harness.h"

namespace {

using namespace harness;
using scripted::script;

constexpr char kRubbish[] = "rubbish"; // not context-specific

// What a state means to the calls that leave it as it is.
enum Class { kNone, kOpen, kComplete, kMoved };

const struct {
    Lines given, null;
} kAnswers[] = {
    {{"01080000/E30003FF empty 0", "01080000/E30003FF empty 00", "01080000/E30003FF empty ", "01080000/E30003FF 0",
      "01080000/E30003F6 7", "01080000/E30003F7 00000007 00000007 7 none", "01080000/E30003F7 empty",
      "01080000/E30003F7 none"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA", "01080000/E30003FF", "01080000/E30003F6",
      "01080000/E30003F7", "01080000/E30003F7", "01080000/E30003F7"}},
    {{"000D0000/E3000414 empty 0", "000D0000/E3000414 empty 00", "000D0000/E3000414 empty ", "000D0000/E3000414 0",
      "00080000/E3000401 7", "00000000/230003E8 FFFFFFFF 00000030 0 own", "00000000/230003E8 [...]",
      "00000000/230003E8 first"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA", "000D0000/E3000414", "02000000/E30003F7", kDone,
      "020D0000/E30003F7", "020D0000/E30003F7"}},
    {{"00000000/25000001 [4103] 6", "00000000/25000001 [98] 13", "00000000/25000001 [4103C2] ", "00000000/25000001 3",
      "00000000/230003E8 98", "00000000/230003E8 000010E1 00000022 1 its", "00000000/230003E8 [...]",
      "00000000/230003E8 first"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA", "00000000/25000001", "02000000/E30003F7", kDone,
      "020D0000/E30003F7", "020D0000/E30003F7"}},
    {{"00080000/C500000B empty 6", "00080000/C500000B empty 10", "00080000/C500000B empty ", "00080000/C500000B 0",
      "00080000/C500000B 7", "00080000/C500000B 00000007 00000007 7 none", "00080000/C500000B empty",
      "00000000/230003E8 first"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA", "00080000/C500000B", "02000000/E30003F7",
      "00080000/C500000B", "020D0000/E30003F7", "020D0000/E30003F7"}},
};

void ask_all(qxgss_ctx_id_t context, Class is) {
    EXPECT_EQ(use(context), kAnswers[is].given);
    EXPECT_EQ(use(context, false), kAnswers[is].null);
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

// ---- States --------------------------------------------------------------------------------------------------------

// A negotiation over A and B, of four tokens each; a state is reached by feeding it.
struct Negotiation : Session {
    explicit Negotiation(const char *logon = "authcid=anna")
        : Session((script().legs[0] = script().legs[1] = 4, "AB"), "AB", logon) {}
};

// The statuses of an establishment call of that role, which keeps its output token when it fails.
std::string fed(Peer &peer, std::string_view token, Side role) {
    const Outcome outcome = peer.call(token, role);
    EXPECT_TRUE(GSS_ERROR(outcome.major) == 0 || outcome.output == Output::kKept);
    return outcome.statuses();
}

using Tokens = std::vector<std::string>; // of a negotiation in which nothing fails
using Script = scripted::Script;

std::string another_selection(const Tokens &tokens) {
    std::string other = tokens[3];
    other[other.find("\x82\x0A\x2B") + 11] = 2; // the last octet of B's OID
    return other;
}
std::string claiming_completion(const Tokens &tokens) {
    std::string claiming = tokens[0];
    claiming[claiming.rfind("\x81\x01\x02") + 2] = NEG_STATE_COMPLETED;
    return claiming;
}
constexpr auto selection = [](const Tokens &tokens) { return tokens[3]; };
constexpr auto rubbish = [](const Tokens &) { return std::string(kRubbish); };
constexpr auto nothing = [](const Tokens &) { return std::string(); };

template <Side side>
constexpr auto without_credentials =
    [](Script &s) { s.at('A', side).acquire_fails = s.at('B', side).acquire_fails = true; };
template <Side side>
constexpr auto without_mechanism = [](Script &s) { s.at('A', side).failing_call = s.at('B', side).failing_call = 1; };
constexpr auto without_context_of_b = [](Script &s) { s.at('B', kClient).failing_call = 1; };

const char *const kUnreadable = "000D0000/E10000F8", *const kMissing = "010D0000/E30003F6";
const char *const kNotEarned = "000D0000/E3000411";

struct State {
    const char *name;
    Side side;
    int calls;            // that go well, of both sides together
    const char *made;     // what the last call of this side gave
    const char *answered; // what the peer's next answer in a good negotiation gives
    Class is = kOpen;
    std::string (*last)(const Tokens &) = nullptr; // a token that the side is fed after the calls
    void (*prepare)(Script &script) = nullptr;
    const char *logon = "authcid=anna";
};
// clang-format off
const State kStates[] = {
    {"client begun", kClient, 1, kGoesOn, kGoesOn},
    {"server begun", kServer, 2, kGoesOn, kDone},
    {"client half-way", kClient, 3, kGoesOn, kReject},
    {"client complete", kClient, 5, kDone, kDone, kComplete},
    {"server complete", kServer, 4, kDone, kDone, kComplete},
    {"client without credentials", kClient, 1, kReject, kReject, kOpen, nullptr, without_credentials<kClient>},
    {"client without an identity", kClient, 1, "000D0000/E3000427", kReject, kOpen, nullptr, nullptr, "authcid=a authcid=b"},
    {"client without a mechanism", kClient, 1, kReject, kReject, kOpen, nullptr, without_mechanism<kClient>},
    {"client that could not read", kClient, 1, kUnreadable, kGoesOn, kOpen, rubbish},
    {"client given nothing", kClient, 1, kMissing, kGoesOn, kOpen, nothing},
    {"client given a selection that is not established", kClient, 1, "000D0000/E30003F3", kReject, kOpen, selection},
    {"server that could not read", kServer, 0, kUnreadable, kReject, kOpen, rubbish},
    {"server given nothing", kServer, 0, kMissing, kReject, kOpen, nothing},
    {"server given a claim of completion", kServer, 0, "000D0000/E30003F3", kDone, kOpen, claiming_completion},
    {"server whose policy allows none", kServer, 2, kReject, kReject, kOpen, nullptr, nullptr, "authcid=onlyc"},
    {"server without a mechanism", kServer, 2, kReject, kReject, kOpen, nullptr, without_mechanism<kServer>},
    {"client complete, then fed rubbish", kClient, 5, kUnreadable, kDone, kComplete, rubbish},
    {"server complete, then fed rubbish", kServer, 4, kUnreadable, kDone, kComplete, rubbish},
    {"client complete, then fed its last token", kClient, 5, kDone, kDone, kComplete, selection},
    {"client complete, then told of another selection", kClient, 5, kNotEarned, kNotEarned, kMoved, another_selection},
    {"client complete, then told of one that failed", kClient, 5, kNotEarned, kNotEarned, kMoved, another_selection, without_context_of_b},
};
// clang-format on

using StateTable = NegotiationTest;

TEST_F(StateTable, WithoutAContext) {
    ask_all(nullptr, kNone);
}

TEST_F(StateTable, EveryCallInEveryState) {
    Tokens good;
    {
        Negotiation session;
        session.run();
        good = session.tokens;
    }
    for (const auto &state : kStates) {
        SCOPED_TRACE(state.name);
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
        if (state.last != nullptr)
            made = fed(peer, state.last(good), state.side);
        EXPECT_EQ(made, state.made);
        EXPECT_TRUE(state.last != another_selection || (peer.flags == 0 && peer.lifetime == 0));
        ASSERT_NE(peer.context, nullptr);
        peer.act();
        ask_all(peer.context, state.is);
        int local = 7;
        QXNEGO_inquire_context(nullptr, peer.context, nullptr, nullptr, nullptr, nullptr, nullptr, &local, nullptr);
        EXPECT_EQ(local, state.is == kMoved ? 7 : state.side == kClient ? 1 : 0);
        for (const Side role : {kClient, kServer})
            EXPECT_EQ(fed(peer, kRubbish, role), kUnreadable);
        EXPECT_EQ(fed(peer, "", state.side), kMissing);
        ask_all(peer.context, state.is);
        EXPECT_EQ(fed(peer, good[state.side == kClient ? 1 : 2], state.side), state.answered);
        qxgss_buffer_desc output{1, &token};
        EXPECT_EQ(outcome(QXNEGO_delete_sec_context, &peer.context, &output), kDone);
        EXPECT_TRUE(peer.context == nullptr && output.length == 0 && output.value == nullptr);
    }
}

TEST_F(StateTable, TheMechanismAnswersForACompleteContext) {
    Session session("A", "A", "authcid=anna");
    session.run();
    session.client.act();
    const qxgss_ctx_id_t context = session.client.context;
    const auto of_the_mechanism = [context] {
        Lines lines = use(context);
        lines.resize(6); // the others are QXNEGO's own
        return lines;
    };
    script().at('A', kClient).supplementary = GSS_S_OLD_TOKEN;
    EXPECT_EQ(of_the_mechanism(),
              (Lines{"00000004/25000001 [4103] 6", "00000004/25000001 [98] 13", "00000004/25000001 [4103C2] ",
                     "00000004/25000001 3", "00000000/230003E8 98", "00000000/230003E8 000010E1 00000022 1 its"}));
    EXPECT_EQ(scripted::last_call("wrap_size_limit", 'A')->flags, 0x103U);
    EXPECT_EQ(scripted::last_call("inquire_context", 'A')->wanted, 7U);
    script().at('A', kClient).messages_fail = true;
    EXPECT_EQ(of_the_mechanism(),
              (Lines{"00070000/C5000007 empty 6", "00070000/C5000007 empty 10", "00070000/C5000007 empty ",
                     "00070000/C5000007 0", "00070000/C5000007 7", "00070000/C5000007 00000007 00000007 7 none"}));
    registered("A").MechFtnTable = {};
    EXPECT_EQ(of_the_mechanism(),
              (Lines{"00100000/E1000067 empty 0", "00100000/E1000067 empty 00", "00100000/E1000067 empty ",
                     "00100000/E1000067 0", "000D0000/E30003F2 7", "000D0000/E30003F2 00000007 00000007 7 none"}));
    NegContext_desc &negotiation = session.client.negotiation();
    const NegContext_desc good = negotiation;
    for (const auto &[info, list] : {std::pair{-1, 0}, {static_cast<int>(MechCount), 0}, {1, -1}, {1, 1}}) {
        negotiation.SelectedMechInfoIndex = info;
        negotiation.SelectedMechListIndex = list;
        EXPECT_EQ(of_the_mechanism(),
                  (Lines{"000D0000/E3000414 empty 0", "000D0000/E3000414 empty 00", "000D0000/E3000414 empty ",
                         "000D0000/E3000414 0", "000D0000/E3000400 7", "000D0000/E3000400 00000007 00000007 7 none"}));
    }
    negotiation = good;
}

} // namespace
