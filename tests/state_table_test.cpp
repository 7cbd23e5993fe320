// Every call in every state: contexts of both roles fresh, half-way, complete, failed at each step, and complete and
// then fed again; each call with its outputs given and null.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "tests/scenarios.h"

namespace {

using namespace harness;
using scripted::script;

constexpr char kRubbish[] = "rubbish"; // not context-specific

// ---- Calls ---------------------------------------------------------------------------------------------------------

// What a state means to the calls that leave it as it is.
enum Class { kNone, kOpen, kComplete };

using Ask = std::string (*)(qxgss_ctx_id_t context, bool given);

char text[] = "\x01", mic[] = {'A', 3, '\xC2'}; // a message, and its protection by mechanism A
qxgss_buffer_desc message{1, text}, protection{3, mic}, lacking{5, nullptr};

// The statuses of a call with an output buffer, and what became of it.
template <typename Call> std::string with_buffer(bool given, Call call) {
    qxgss_buffer_desc output{9, text};
    std::string out = call(given ? &output : nullptr);
    if (given)
        out += output.value == nullptr && output.length == 0 ? " empty" : output.value == text ? " kept" : " filled";
    if (output.value != text)
        gssp_release_buffer(nullptr, &output);
    return out;
}

std::string wrap(qxgss_ctx_id_t context, bool given) {
    int confidential = 7;
    std::string out = with_buffer(given, [&](qxgss_buffer_t output) {
        return outcome(QXNEGO_wrap, context, 1, 3, &message, given ? &confidential : nullptr, output);
    });
    return given ? out + " " + std::to_string(confidential) : out;
}
std::string wrap_nothing(qxgss_ctx_id_t context, bool /*given*/) {
    return with_buffer(
        true, [&](qxgss_buffer_t output) { return outcome(QXNEGO_wrap, context, 1, 3, &lacking, nullptr, output); });
}
std::string unwrap(qxgss_ctx_id_t context, bool given) {
    int confidential = 7;
    qxgss_qop_t qop = 7;
    std::string out = with_buffer(given, [&](qxgss_buffer_t output) {
        return outcome(QXNEGO_unwrap, context, &protection, output, given ? &confidential : nullptr,
                       given ? &qop : nullptr);
    });
    return given ? out + " " + std::to_string(confidential) + std::to_string(qop) : out;
}
std::string get_mic(qxgss_ctx_id_t context, bool given) {
    return with_buffer(given,
                       [&](qxgss_buffer_t output) { return outcome(QXNEGO_get_mic, context, 3, &message, output); });
}
std::string verify_mic(qxgss_ctx_id_t context, bool given) {
    qxgss_qop_t qop = 7;
    const std::string out = outcome(QXNEGO_verify_mic, context, &message, &protection, given ? &qop : nullptr);
    return given ? out + " " + std::to_string(qop) : out;
}
std::string wrap_size_limit(qxgss_ctx_id_t context, bool given) {
    OM_uint32 limit = 7;
    const std::string out = outcome(QXNEGO_wrap_size_limit, context, 1, 3, 100, given ? &limit : nullptr);
    return given ? out + " " + std::to_string(limit) : out;
}
std::string inquire_context(qxgss_ctx_id_t context, bool given) {
    OM_uint32 lifetime = 7, flags = 7;
    int open = 7;
    const std::string out = outcome(QXNEGO_inquire_context, context, nullptr, nullptr, given ? &lifetime : nullptr,
                                    nullptr, given ? &flags : nullptr, nullptr, given ? &open : nullptr);
    return given ? out + " " + hex(lifetime) + " " + hex(flags) + " " + std::to_string(open) : out;
}
std::string inquire_properties(qxgss_ctx_id_t context, bool given) {
    return with_buffer(
        given, [&](qxgss_buffer_t output) { return outcome(QXNEGO_inquire_properties_for_user, context, output); });
}
std::string user_name(qxgss_ctx_id_t context, bool given) {
    char *user = text, *domain = text;
    const std::string out =
        outcome(QXNEGO_get_client_domain_username, context, given ? &user : nullptr, given ? &domain : nullptr);
    EXPECT_TRUE(user == text && domain == text);
    return out;
}
// The establishment calls, here only without a place for their token.
std::string init(qxgss_ctx_id_t context, bool given) {
    return outcome(QXNEGO_init_sec_context, nullptr, given ? &context : nullptr, nullptr, nullptr, 0, 0, nullptr,
                   nullptr, nullptr, nullptr, nullptr, nullptr);
}
std::string accept(qxgss_ctx_id_t context, bool given) {
    return outcome(QXNEGO_accept_sec_context, given ? &context : nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                   nullptr, nullptr, nullptr, nullptr);
}

const struct {
    const char *name;
    Ask ask;
    const char *given[3]; // without a context, not complete, complete
    const char *null[3];
} kCalls[] = {
    {"wrap",
     wrap,
     {"01080000/E30003FF empty 0", "000D0000/E3000414 empty 0", "00000000/25000001 filled 1"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA"}},
    {"wrap without a message",
     wrap_nothing,
     {"01080000/E30003FF empty", "010D0000/E3000402 empty", "010D0000/E3000402 empty"},
     {"01080000/E30003FF empty", "010D0000/E3000402 empty", "010D0000/E3000402 empty"}},
    {"unwrap",
     unwrap,
     {"01080000/E30003FF empty 00", "000D0000/E3000414 empty 00", "00000000/25000001 filled 13"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA"}},
    {"get_mic",
     get_mic,
     {"01080000/E30003FF empty", "000D0000/E3000414 empty", "00000000/25000001 filled"},
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA"}},
    {"verify_mic",
     verify_mic,
     {"01080000/E30003FF 0", "000D0000/E3000414 0", "00000000/25000001 3"},
     {"01080000/E30003FF", "000D0000/E3000414", "00000000/25000001"}},
    {"wrap_size_limit",
     wrap_size_limit,
     {"01080000/E30003F6 7", "00080000/E3000401 7", "00000000/230003E8 98"},
     {"01080000/E30003F6", "02000000/E30003F7", "02000000/E30003F7"}},
    {"inquire_context",
     inquire_context,
     {"01080000/E30003F7 00000007 00000007 7", "00000000/230003E8 FFFFFFFF 00000030 0",
      "00000000/230003E8 000010E1 00000022 1"},
     {"01080000/E30003F7", "00000000/230003E8", "00000000/230003E8"}},
    {"inquire_properties_for_user",
     inquire_properties,
     {"01080000/E30003F7 empty", "00000000/230003E8 filled", "00000000/230003E8 filled"},
     {"01080000/E30003F7", "020D0000/E30003F7", "020D0000/E30003F7"}},
    {"get_client_domain_username",
     user_name,
     {"00000000/230003E8", "00000000/230003E8", "00000000/230003E8"},
     {"00000000/230003E8", "00000000/230003E8", "00000000/230003E8"}},
    {"init without an output token",
     init,
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA"},
     {"02080000/E30003FF", "02080000/E30003FF", "02080000/E30003FF"}},
    {"accept without an output token",
     accept,
     {"020D0000/E30003FA", "020D0000/E30003FA", "020D0000/E30003FA"},
     {"02080000/E30003FF", "02080000/E30003FF", "02080000/E30003FF"}},
};

// ---- States --------------------------------------------------------------------------------------------------------

// A negotiation over A and B, of four tokens each; a state is reached by feeding it.
struct Negotiation : Session {
    explicit Negotiation(const char *logon = "authcid=anna")
        : Session((script().legs[0] = script().legs[1] = 4, "AB"), "AB") {
        client.log_on(logon);
    }
};

// The statuses of an establishment call.
std::string fed(Peer &peer, std::string_view token) {
    const Outcome outcome = peer.call(token);
    EXPECT_TRUE(GSS_ERROR(outcome.major) == 0 || outcome.output == Output::kKept);
    return hex(outcome.major) + "/" + hex(outcome.minor);
}

// The context given, with rubbish, to the establishment call of the other role.
std::string fed_to_other_role(Peer &peer, Side side) {
    char bytes[] = "rubbish";
    qxgss_buffer_desc input{7, bytes}, output{};
    if (side == kServer)
        return outcome(QXNEGO_init_sec_context, nullptr, &peer.context, nullptr, nullptr, 0, 0, nullptr, &input,
                       nullptr, &output, nullptr, nullptr);
    return outcome(QXNEGO_accept_sec_context, &peer.context, nullptr, &input, nullptr, nullptr, nullptr, &output,
                   nullptr, nullptr, nullptr);
}

// The tokens of a negotiation in which nothing fails; number 1 and 2 are the first answers of the server and the
// client.
std::vector<std::string> good_tokens() {
    Negotiation session;
    session.run();
    return session.tokens;
}

const char *const kReject = "000D0000/E3000406";
const char *const kDone = "00000000/230003E8";
const char *const kGoesOn = "00000001/230003E9";

const struct {
    const char *name;
    Side side;
    const char *logon;
    int calls;                                 // that go well, of both sides together
    void (*prepare)(scripted::Script &script); // may be null
    std::function<std::string(const std::vector<std::string> &)>
        last;         // the token that the side is fed then; may be null
    const char *made; // what that gave, or the last call that went well
    Class is;
    const char *answered; // what the peer's next answer in a good negotiation gives
} kStates[] = {
    {"client begun", kClient, "authcid=anna", 1, nullptr, nullptr, kGoesOn, kOpen, kGoesOn},
    {"server begun", kServer, "authcid=anna", 2, nullptr, nullptr, kGoesOn, kOpen, kDone},
    {"client half-way", kClient, "authcid=anna", 3, nullptr, nullptr, kGoesOn, kOpen, kReject},
    {"client complete", kClient, "authcid=anna", 5, nullptr, nullptr, kDone, kComplete, kDone},
    {"server complete", kServer, "authcid=anna", 4, nullptr, nullptr, kDone, kComplete, kDone},
    {"client without credentials", kClient, "authcid=anna", 1,
     [](scripted::Script &s) { s.at('A', kClient).acquire_fails = s.at('B', kClient).acquire_fails = true; }, nullptr,
     kReject, kOpen, kReject},
    {"client without an identity", kClient, "authcid=anna authcid=bert", 1, nullptr, nullptr, "000D0000/E3000427",
     kOpen, kReject},
    {"client without a mechanism", kClient, "authcid=anna", 1,
     [](scripted::Script &s) { s.at('A', kClient).failing_call = s.at('B', kClient).failing_call = 1; }, nullptr,
     kReject, kOpen, kReject},
    {"client that could not read", kClient, "authcid=anna", 1, nullptr, [](auto &) { return kRubbish; },
     "000D0000/E10000F8", kOpen, kGoesOn},
    {"client given nothing", kClient, "authcid=anna", 1, nullptr, [](auto &) { return ""; }, "010D0000/E30003F6", kOpen,
     kGoesOn},
    {"client given a selection that is not established", kClient, "authcid=anna", 1, nullptr,
     [](auto &tokens) { return tokens[3]; }, "000D0000/E30003F3", kOpen, kReject},
    {"server that could not read", kServer, "authcid=anna", 0, nullptr, [](auto &) { return kRubbish; },
     "000D0000/E10000F8", kOpen, kReject},
    {"server given nothing", kServer, "authcid=anna", 0, nullptr, [](auto &) { return ""; }, "010D0000/E30003F6", kOpen,
     kReject},
    {"server whose policy allows none", kServer, "authcid=onlyc", 2, nullptr, nullptr, kReject, kOpen, kReject},
    {"server without a mechanism", kServer, "authcid=anna", 2,
     [](scripted::Script &s) { s.at('A', kServer).failing_call = s.at('B', kServer).failing_call = 1; }, nullptr,
     kReject, kOpen, kReject},
    {"client complete, then fed rubbish", kClient, "authcid=anna", 5, nullptr, [](auto &) { return kRubbish; },
     "000D0000/E10000F8", kComplete, kDone},
    {"server complete, then fed rubbish", kServer, "authcid=anna", 4, nullptr, [](auto &) { return kRubbish; },
     "000D0000/E10000F8", kComplete, kDone},
    {"client complete, then fed its last token", kClient, "authcid=anna", 5, nullptr,
     [](auto &tokens) { return tokens[3]; }, kDone, kComplete, kDone},
    {"client complete, then told of another selection", kClient, "authcid=anna", 5, nullptr,
     [](auto &tokens) {
         std::string other = tokens[3];
         other[other.find("\x82\x0A\x2B") + 11] = 2; // the last octet of B's OID
         return other;
     },
     "000D0000/E3000411", kComplete, kDone},
};

class StateTable : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        OM_uint32 major = 0;
        ASSERT_EQ(configure(&major, configuration()), "");
    }
    void SetUp() override { scripted::reset(); }
    void TearDown() override { EXPECT_EQ(scripted::live_objects(), 0); }
};

void ask_all(qxgss_ctx_id_t context, Class is) {
    for (const auto &call : kCalls) {
        EXPECT_EQ(call.ask(context, true), call.given[is]) << call.name;
        EXPECT_EQ(call.ask(context, false), call.null[is]) << call.name << " with null outputs";
    }
}

TEST_F(StateTable, WithoutAContext) {
    qxgss_ctx_id_t none = nullptr;
    ask_all(none, kNone);
    EXPECT_EQ(outcome(QXNEGO_delete_sec_context, &none, nullptr), "01080000/E30003FF");
    EXPECT_EQ(outcome(QXNEGO_delete_sec_context, nullptr, nullptr), "02080000/E30003FF");
}

TEST_F(StateTable, EveryCallInEveryState) {
    const std::vector<std::string> good = good_tokens();
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
            made = hex(outcome.major) + "/" + hex(outcome.minor);
            token = outcome.token;
        }
        if (state.last != nullptr)
            made = fed(peer, state.last(good));
        EXPECT_EQ(made, state.made);
        ASSERT_NE(peer.context, nullptr);
        peer.act();
        ask_all(peer.context, state.is);
        EXPECT_EQ(fed(peer, kRubbish), "000D0000/E10000F8");
        EXPECT_EQ(fed_to_other_role(peer, state.side), "000D0000/E10000F8");
        EXPECT_EQ(fed(peer, ""), "010D0000/E30003F6");
        ask_all(peer.context, state.is);
        EXPECT_EQ(fed(peer, good[state.side == kClient ? 1 : 2]), state.answered);
        qxgss_buffer_desc output{1, text};
        EXPECT_EQ(outcome(QXNEGO_delete_sec_context, &peer.context, &output), kDone);
        EXPECT_TRUE(peer.context == nullptr && output.length == 0 && output.value == nullptr);
    }
}

} // namespace
