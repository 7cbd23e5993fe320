// Sessions over the real mechanisms, in a realm of their own: what the fuzz target's rules do not say, every call in
// every state, and the policy before strangers, whom no answer tells anything, nor its time, whatever the token.
#include <map>

#include "testkit/conversation.h"
#include "tests/failing_heap.h"
#include "tests/peer.h"
#include "tests/scripted_mechanism.h"

namespace {

using namespace std::string_literals;
using namespace support;
using namespace testkit;

// Refusals need not be waited for.
constexpr qxgss_session_options_desc kAtOnce = {
    sizeof kAtOnce, QXGSS_SESSION_MAX_MESSAGE, 16, 30'000, 0, 0, QXGSS_SESSION_UNPROTECTED, nullptr, nullptr, nullptr};

struct Ends {
    explicit Ends(const std::string &logon, const qxgss_session_options_desc &of_server = kAtOnce,
                  const qxgss_session_options_desc &of_client = kAtOnce) {
        client.initiate(logon, &of_client);
        server.accept(&of_server);
    }
    void open(const testkit::Between &between = {}) { converse(client, server, between); }
    bool both_open() const { return client.is_open() && server.is_open(); }
    std::string failure() const { return server.facts().pszFailure; } // of the server
    SessionEnd client, server;
};

// Everything of a test is gone when the framework is.
struct Configured : testing::Test {
    static void configure(const RealMechanism &of) { configured(configuration_of({&of, 1})); }
    void TearDown() override { qxgss_shutdown(nullptr); }
};

constexpr char kConfirmation = 2, kEnd = 4; // types of messages

// A mechanism that protects nothing by itself, in the program itself, and what its accept operation says instead.
const RealMechanism kScripted{"A", "1.3.6.1.4.1.32473.2.1", "MECH_A", "", kScram.logon, kScram.user, "", true};
decltype(qxgss_ftn_table_desc::ftn_gssp_accept_sec_context) truth;
void (*lie)(qxgss_name_t &, qxgss_OID &);

void configure_scripted() {
    Configured::configure(kScripted);
    scripted::reset();
    scripted::script().at('A', scripted::kServer).source = "alice";
    scripted::script().at('A', scripted::kServer).delegates = true;
}

class Sessions : public Configured, public testing::WithParamInterface<RealMechanism> {
  protected:
    void SetUp() override { configure(of); }
    const RealMechanism &of = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Each, Sessions, testing::Values(kKerberos, kNtlm, kScram),
                         [](const auto &test) { return test.param.prefix + std::to_string(test.index); });

TEST_P(Sessions, HonestSidesGetWhatTheMechanismHas) {
    Ends pair(of.logon);
    pair.open();
    for (SessionEnd *end : {&pair.client, &pair.server}) {
        const qxgss_session_facts_desc facts = end->facts();
        ASSERT_EQ(facts.State, QXGSS_SESSION_OPEN) << facts.pszFailure;
        EXPECT_EQ(facts.pszMech, of.name);
        EXPECT_EQ(facts.IsProtecting != 0, of.has_mics);
        EXPECT_EQ(facts.Confirmation, of.has_mics ? QXGSS_SESSION_CONFIRMED : QXGSS_SESSION_UNCONFIRMED);
        ASSERT_EQ(facts.VerdictCount, 1U);
        qxgss_session_verdict_desc verdict{};
        EXPECT_EQ(qxgss_session_inquire_verdict(nullptr, end->handle, 0, &verdict), GSS_S_COMPLETE);
        EXPECT_EQ(verdict.Verdict, QXGSS_SESSION_VERDICT_SELECTED);
        qxgss_buffer_desc properties{};
        EXPECT_EQ(qxgss_session_properties(nullptr, end->handle, &properties), GSS_S_COMPLETE);
        EXPECT_NE(taken(properties).find("QXNEGO Negotiation Log"), std::string::npos);
    }
    EXPECT_EQ(pair.server.user(), of.user);
    EXPECT_EQ(pair.server.unwrap(pair.client.wrap("question")), of.has_mics ? "question" : "");
    EXPECT_EQ(pair.client.unwrap(pair.server.wrap("answer")), of.has_mics ? "answer" : "");
}

TEST_P(Sessions, AConfirmationWithoutItsMicIsNone) {
    Ends pair(of.logon);
    pair.open([](std::size_t, std::string &message) {
        if (message[0] == kConfirmation) // four octets of length, the MIC, and what else is confirmed
            message.replace(1, 4 + static_cast<unsigned char>(message[4]), 4, '\0');
    });
    EXPECT_EQ(pair.server.is_open(), !of.has_mics);
}

// Whoever alters the offer or the answer makes both sides take another mechanism, or none; they see it at the end.
TEST_F(Configured, AnOfferOrAnswerThatIsAlteredIsRefused) {
    configured(configuration_of(std::span(kAll, 2)));
    for (const std::string &octets : {bytes_of(*registered(kKerberos.name).pMechOid), kNtlmOctets})
        for (const std::size_t altered : {0, 1, 2}) {
            Ends pair("authcid=alice password=Alice1");
            pair.open([&](std::size_t number, std::string &message) {
                if (const std::size_t at = message.find(octets); number == altered && at != message.npos)
                    message[at + octets.size() - 1] = '\x63';
                else
                    EXPECT_NE(number, altered);
            });
            EXPECT_EQ(pair.both_open(), altered == 0) << octets.size() << " " << altered;
        }
}

// By the mechanism, or by the session where the mechanism notices nothing.
TEST_F(Configured, ReplaysReorderingAndBareEndsAreRefused) {
    void (*const plays[])(Ends &) = {
        [](Ends &pair) {
            const std::string message = pair.client.wrap("once");
            EXPECT_EQ(pair.server.unwrap(message), "once");
            pair.server.unwrap(message);
        },
        [](Ends &pair) { pair.client.wrap("first"), pair.server.unwrap(pair.client.wrap("second")); },
        [](Ends &pair) { pair.server.unwrap("\4\0"s); },
        [](Ends &pair) { pair.server.unwrap(pair.server.wrap("mine")); }, // the direction is the mechanism's
    };
    for (const RealMechanism *of : {&kKerberos, &kNtlm, &kScripted}) {
        of == &kScripted ? configure_scripted() : configure(*of);
        for (const auto &play : std::span(plays, of == &kScripted ? 3 : 4)) {
            SCOPED_TRACE(of->name + " " + std::to_string(&play - plays));
            Ends pair(of->logon);
            pair.open();
            EXPECT_TRUE(pair.both_open());
            play(pair);
            EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED);
            EXPECT_EQ(pair.server.unwrap(pair.client.wrap("more")), "");
        }
        qxgss_shutdown(nullptr);
    }
}

// What a stranger says of an end is never the server's own verdict; a client hears who says it.
TEST_F(Configured, TheReasonOfAnEndIsItsSenders) {
    configure(kScram);
    for (char reason = 1; reason != 6; ++reason) {
        Ends pair(kScram.logon);
        pair.client.step({});
        for (SessionEnd *end : {&pair.client, &pair.server})
            end->step(std::string{kEnd, reason});
        EXPECT_EQ(pair.server.facts().Failure, QXGSS_SESSION_FAILURE_PEER);
        EXPECT_EQ(pair.failure().find("the client ended it"), 0U);
        EXPECT_NE(std::string(pair.client.facts().pszFailure).find("the server "), std::string::npos);
        EXPECT_NE(pair.client.facts().Failure, QXGSS_SESSION_FAILURE_PEER);
    }
}

// Each allocation of a step fails in turn; the step then fails, and the session with it.
TEST_F(Configured, LackOfMemoryEndsASession) {
    configure(kScram);
    for (const int before : {1, 2, 3, 4})
        failing_heap::sweep(false, [&] {
            Ends pair(kScram.logon);
            std::string message = pair.client.step({});
            for (int i = 1; i != before; ++i)
                message = (i % 2 == 1 ? pair.server : pair.client).step(message);
            SessionEnd &reader = before % 2 == 1 ? pair.server : pair.client;
            const qxgss_buffer_desc input = common::view(message);
            common::Buffer output;
            failing_heap::open_window(true);
            const OM_uint32 major = qxgss_session_step(nullptr, reader.handle, &input, output.out());
            failing_heap::open_window(false);
            EXPECT_TRUE(GSS_ERROR(major) == 0 || reader.facts().State == QXGSS_SESSION_FAILED);
        });
}

// Sessions are open to those who are at the ends of the same channel; but SCRAM goes without channel binding.
TEST_P(Sessions, BelongToTheirChannel) {
    const std::string channels[] = {"tls-exporter:1", "tls-exporter:2"};
    qxgss_channel_bindings_desc bindings[2]{};
    qxgss_session_options_desc options[2] = {kAtOnce, kAtOnce};
    for (const std::size_t i : {0, 1}) {
        bindings[i].application_data = view(channels[i]);
        options[i].Protection = QXGSS_SESSION_PROTECTED_BY_CHANNEL;
        options[i].pBindings = &bindings[i];
    }
    for (const auto &of_server : options) {
        Ends pair(of.logon, of_server, options[0]);
        pair.open();
        EXPECT_EQ(pair.server.is_open(), &of_server == options || !of.has_mics) << pair.failure();
    }
}

// Every call in every state, by both sides: what is out of order fails, and changes nothing.
TEST_F(Configured, EveryCallInEveryState) {
    configure(kKerberos);
    const std::map<OM_uint32, char> letters{std::pair{GSS_S_COMPLETE, '+'}, std::pair{GSS_S_CONTINUE_NEEDED, '>'},
                                            std::pair{GSS_S_NO_CONTEXT, 'n'}, std::pair{GSS_S_DEFECTIVE_TOKEN, 'd'},
                                            std::pair{GSS_S_FAILURE, '!'}};
    // What wrap, unwrap, step and end give to the client and the server
    const std::tuple<void (*)(Ends &), const char *, const char *> states[] = {
        {[](Ends &) {}, "nn>n", "nn!n"},
        {[](Ends &pair) { pair.client.step({}); }, "nn!n", "nn!n"},
        {[](Ends &pair) { pair.open(); }, "+dn+", "+dn+"},
        {[](Ends &pair) { pair.open(), pair.server.unwrap(pair.client.end()); }, "nnnn", "nnnn"},
        {[](Ends &pair) { pair.client.step({}), pair.client.step("?"), pair.server.step("?"); }, "nnnn", "nnnn"},
        // Failed by a text, which the peer is told
        {[](Ends &pair) { pair.open(), pair.client.unwrap("?"), pair.server.unwrap("?"); }, "nnn+", "nnn+"},
    };
    std::string (*const calls[])(SessionEnd &) = {
        [](SessionEnd &end) { return end.wrap("text"); }, [](SessionEnd &end) { return end.unwrap("text"); },
        [](SessionEnd &end) { return end.step("\4\1"); }, [](SessionEnd &end) { return end.end(); }};
    for (const auto &[reach, client, server] : states)
        for (const bool is_client : {true, false}) {
            std::string outcomes;
            for (const auto &call : calls) {
                Ends pair(kKerberos.logon);
                reach(pair);
                SessionEnd &end = is_client ? pair.client : pair.server;
                const auto before = end.facts().State;
                const std::string out = call(end);
                outcomes += letters.at(end.major);
                EXPECT_TRUE(GSS_ERROR(end.major) == 0 || out.empty() || out.front() == kEnd);
                EXPECT_TRUE(end.major != GSS_S_NO_CONTEXT || end.facts().State == before);
            }
            EXPECT_EQ(outcomes, is_client ? client : server) << (is_client ? "client of " : "server of ") << client;
        }
}

TEST_F(Configured, WhatIsNotThereIsRefused) {
    configure(kScram);
    qxgss_session_t session = nullptr;
    void (*const wrong[])(qxgss_session_options_desc &) = {
        [](auto &wrong_one) { wrong_one.MaxRounds = 0; }, [](auto &wrong_one) { --wrong_one.Size; },
        [](auto &wrong_one) { ++wrong_one.Size; }, [](auto &wrong_one) { wrong_one.LogonTime = GSS_C_INDEFINITE; },
        [](auto &wrong_one) { wrong_one.Protection = QXGSS_SESSION_PROTECTED_BY_CHANNEL; }};
    for (const auto &make_wrong : wrong) {
        qxgss_session_options_desc options = kAtOnce;
        make_wrong(options);
        EXPECT_EQ(outcome(qxgss_session_accept, &options, &session), "000D0000/E10000CD") << &make_wrong - wrong;
    }
    expect_all("020D0000/E10000CD", {outcome(qxgss_session_accept, nullptr, nullptr),
                                     outcome(qxgss_session_step, nullptr, nullptr, nullptr)});
    expect_all("010D0000/E10000CD", {outcome(qxgss_session_initiate, nullptr, nullptr, 0, nullptr, &session),
                                     outcome(qxgss_session_inquire, nullptr, nullptr)});
    qxgss_shutdown(nullptr);
    EXPECT_EQ(outcome(qxgss_session_accept, nullptr, &session), "000D0000/E1000074");
}

// A server whose mechanism keeps no rule refuses it, and leaves nothing behind.
TEST_F(Configured, AMechanismThatKeepsNoRule) {
    const std::pair<const char *, void (*)(qxgss_name_t &, qxgss_OID &)> cases[] = {
        {"", [](qxgss_name_t &, qxgss_OID &) {}},
        {"not the one that was selected", [](qxgss_name_t &, qxgss_OID &type) { type = GSS_C_NT_QXAT_MECHDATA; }},
        {"has proved no name", [](qxgss_name_t &name, qxgss_OID &) { name->pElements[0].Name.length = 0; }},
    };
    for (const auto &[failure, of_mechanism] : cases) {
        configure_scripted();
        auto &accept = registered("A").MechFtnTable.ftn_gssp_accept_sec_context;
        truth = std::exchange(accept, [](auto... given) {
            const OM_uint32 major = truth(given...);
            const std::tuple all(given...);
            lie(*std::get<5>(all), *std::get<6>(all));
            return major;
        });
        lie = of_mechanism;
        {
            Ends pair(kScripted.logon);
            pair.open();
            EXPECT_EQ(pair.server.is_open(), *failure == 0) << failure;
            EXPECT_NE(pair.failure().find(failure), std::string::npos) << pair.failure();
        }
        qxgss_shutdown(nullptr);
        EXPECT_EQ(scripted::live_objects(), 0) << failure;
    }
}

// Of a server, each against an honest client of a mechanism without MICs.
TEST_F(Configured, EachOptionCanEndASession) {
    configure(kScram);
    const std::pair<const char *, void (*)(qxgss_session_options_desc &)> cases[] = {
        {"more than a message", [](auto &options) { options.MaxMessage = 1024; }},
        {"more rounds", [](auto &options) { options.MaxRounds = 1; }},
        {"too long", [](auto &options) { options.LogonTime = 1; }},
        {"no MICs", [](auto &options) { options.RequireConfirmation = 1; }},
        {"protects no messages", [](auto &options) { options.Protection = QXGSS_SESSION_PROTECTED_BY_MECHANISM; }},
    };
    for (const auto &[failure, set] : cases) {
        qxgss_session_options_desc options = kAtOnce;
        set(options);
        Ends pair(kScram.logon, options);
        while (options.LogonTime == 1 && qxgss_session_time_left(pair.server.handle) != 0) {
        }
        pair.open([&](std::size_t number, std::string &message) {
            if (number == 1 && options.MaxMessage == 1024)
                message.resize(1025);
        });
        EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED) << failure;
        EXPECT_NE(pair.failure().find(failure), std::string::npos) << pair.failure();
    }
}

// ---- The policy -----------------------------------------------------------------------------------------------------

// A client's first token that offers SCRAM-SHA-256 for bob, with items around the one for its own name.
std::string offer_of(const std::string &in_mechanism, const std::string &items, const std::string &in_repeated = "",
                     const std::string &before = "") {
    const auto scram = [](const std::string &more) {
        return tlv(0xA0,
                   tlv(0x80, "\x2b\6\1\5\5\x12") + tlv(0x81, "\1") + tlv(0x86, "n,,n=bob,r=0123456789abcdef") + more);
    };
    return tlv(0xA0, tlv(0xA0, before + scram(in_mechanism) + (in_repeated.empty() ? "" : scram(in_repeated))) + items);
}

// Repeated and misplaced names, of which only some are read.
const std::string kState = tlv(0x81, "\2"), kBob = tlv(0x82, "bob"), kSso = kState + tlv(0x83, "\1"),
                  kSsoBob = tlv(0x87, "bob"), kSsoDecoy = tlv(0x87, "zzz"),
                  kRefused = tlv(0xA0, tlv(0x80, "\x2b\6\1\5\5\x0e") + tlv(0x81, "\3") + tlv(0x82, "\5") + kSsoDecoy);
const std::pair<const char *, std::string> kOddTokens[] = {
    {"authentication ID", offer_of("", kState + kBob)},
    {"decoy before the state", offer_of("", tlv(0x82, "zzz") + kState + kBob)},
    {"constructed decoy", offer_of("", '\xA2' + ('\0' + kState) + kBob)},
    {"decoy before the sign-on", offer_of("", kState + tlv(0x84, "zzz") + tlv(0x83, {"\0", 1}) + tlv(0x84, "bob"))},
    {"two single sign-on names", offer_of(kSsoBob + kSsoDecoy, kSso)},
    {"NUL in the name", offer_of("", kState + tlv(0x82, {"bob\0x", 5}))},
    {"a mechanism that the client calls refused by the policy, with a decoy", offer_of(kSsoBob, kSso, "", kRefused)},
    {"a mechanism twice, each with another name", offer_of(kSsoDecoy, kSso, kSsoBob)},
};

// A forbidden user hears what an unknown one hears, and as late; the name that was proved decides.
TEST_F(Configured, ForbidsWithoutTellingStrangers) {
    configured(configuration_of(std::span(kAll).subspan(2), "[policy.users]\nbob = [\"QXNEGO\"]\n"));
    constexpr auto kClaimed = QXGSS_SESSION_CLAIMED_REFUSED, kProved = QXGSS_SESSION_PROVED_REFUSED,
                   kNone = QXGSS_SESSION_NONE_REFUSED;
    constexpr auto kPolicy = QXGSS_SESSION_FAILURE_POLICY, kWrong = QXGSS_SESSION_FAILURE_NEGOTIATION;
    const std::tuple<const char *, qxgss_session_refused_et, qxgss_session_failure_et, bool> cases[] = {
        {"authcid=bob password=x", kClaimed, kPolicy, true},
        {"authcid=eve password=x", kNone, kWrong, true},
        {"authcid=alice password=x", kNone, kWrong, true},
        {"authcid=bob password=builder", kClaimed, kPolicy, false},
        {"authcid=bob password=builder user=alice", kProved, kPolicy, false},
        {"authcid=alice password=wonderland user=bob", kClaimed, kPolicy, false},
        {"authcid=alice password=wonderland user=eve", kNone, QXGSS_SESSION_NO_FAILURE, false},
    };
    qxgss_session_options_desc patient = kAtOnce;
    patient.RefusalTime = 60'000;
    std::set<std::string> heard;
    for (const auto &[logon, refused, failure, is_stranger] : cases) {
        SCOPED_TRACE(logon);
        Ends pair(logon, patient);
        std::string shape;
        pair.open([&](std::size_t number, const std::string &message) {
            if (number % 2 == 0)
                shape += ' ' + std::to_string(int{message[0]}) + ':' + std::to_string(message.size());
        });
        EXPECT_EQ(pair.server.facts().Refused, refused);
        EXPECT_EQ(pair.server.facts().Failure, failure) << pair.server.facts().pszFailure;
        EXPECT_EQ(qxgss_session_delay(pair.server.handle) > 30'000, is_stranger);
        if (is_stranger)
            heard.insert(shape);
    }
    EXPECT_EQ(heard.size(), 1U);
    for (const auto &[shape, of_bob] : kOddTokens) {
        std::set<std::size_t> lengths;
        for (const std::string name : {"bob", "eve"}) {
            SCOPED_TRACE(shape + (" " + name));
            std::string token = '\1' + of_bob;
            for (std::size_t at = 0; (at = token.find("bob", at)) != token.npos;)
                token.replace(at, 3, name), at += 3;
            SessionEnd server;
            server.accept(&patient);
            const std::string answer = server.step(token);
            EXPECT_EQ(answer.substr(0, 1), "\1");
            EXPECT_EQ(server.facts().Refused, name == "bob" ? kClaimed : kNone);
            qxgss_session_verdict_desc verdict{}; // the story is that of the claim
            qxgss_session_inquire_verdict(nullptr, server.handle, 0, &verdict);
            EXPECT_EQ(verdict.Server.Reason == QXGSS_MECH_REASON_DUE_TO_POLICY, name == "bob");
            lengths.insert(answer.size());
        }
        EXPECT_EQ(lengths.size(), 1U) << shape;
    }
    Ends elsewhere("", patient); // where nothing is offered that could be had, the policy forbids nothing
    elsewhere.server.step('\1' +
                          tlv(0xA0, tlv(0xA0, tlv(0xA0, tlv(0x80, "\x2b\6\1") + tlv(0x81, "\1"))) + kState + kBob));
    EXPECT_EQ(elsewhere.server.facts().Failure, kWrong);
    EXPECT_EQ(elsewhere.server.facts().Refused, kNone);
    Ends pair("", patient); // who does not even try has nothing to wait for
    pair.server.step("\1no token");
    EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED);
    EXPECT_LT(qxgss_session_delay(pair.server.handle), 1000U);
}

} // namespace
