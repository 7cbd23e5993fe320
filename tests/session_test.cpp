// Sessions over the real mechanisms, in a realm of their own: what honest sides get, what someone in between and a
// hostile peer can do, and every call in every state.
#include <set>

#include "testkit/conversation.h"
#include "testkit/real_mechanisms.h"
#include "tests/support.h"

namespace {

using namespace support;
using namespace testkit;

constexpr char kConfirmation = 2, kEnd = 4; // types of messages

// Refusals need not be waited for.
constexpr qxgss_session_options_desc kAtOnce = {QXGSS_SESSION_MAX_MESSAGE, 16, 30'000, 0, 0, nullptr, nullptr};

struct Pair {
    explicit Pair(const std::string &logon, const qxgss_session_options_desc &of_server = kAtOnce) {
        client.initiate(logon, &kAtOnce);
        server.accept(&of_server);
    }
    void open(const Between &between = {}) { converse(client, server, between); }
    bool both_open() const { return client.is_open() && server.is_open(); }
    SessionEnd client, server;
};

// Configured with one mechanism; everything of a test is gone when the framework is.
struct Configured : testing::Test {
    static void configure(const RealMechanism &of, const std::string &policy = "") { configure({&of, 1}, policy); }
    static void configure(std::span<const RealMechanism> offer, const std::string &policy = "") {
        const Folder folder;
        const std::string file = folder.file("qxgss.conf", configuration_of(offer, policy));
        qxgss_buffer_desc message{};
        ASSERT_EQ(qxgss_configure(nullptr, QXGSS_SERVER, file.c_str(), &message), GSS_S_COMPLETE) << taken(message);
        gssp_release_buffer(nullptr, &message);
    }
    void TearDown() override { qxgss_shutdown(nullptr); }
};

class Sessions : public Configured, public testing::WithParamInterface<RealMechanism> {
  protected:
    void SetUp() override { configure(of); }
    const RealMechanism &of = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Each, Sessions, testing::Values(kKerberos, kNtlm, kScram),
                         [](const auto &test) { return test.param.prefix + std::to_string(test.index); });

TEST_P(Sessions, HonestSidesGetWhatTheMechanismHas) {
    Pair pair(of.logon);
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
    EXPECT_EQ(exchange_texts(pair.client, pair.server), of.has_mics);
}

// Places in each message; all of them for QXNEGO_SWEEP=full.
const std::size_t kSteps = std::getenv("QXNEGO_SWEEP") == nullptr ? 12 : SIZE_MAX;
constexpr std::size_t kLogon = 7; // numbers of messages that are the logon's; those of the texts follow

void spoil(std::string &message, std::size_t at, char way) {
    const std::size_t place = std::min(at, message.size() - 1);
    if (way == 'c') // cut
        message.resize(place);
    else if (way == 'x') // changed
        message[place] = static_cast<char>(~message[place]);
    else // doubled
        message.insert(place, message.substr(0, place + 1));
}

// Each message in turn is spoilt at each of its bytes. Whatever comes of it: who is let in is who he is, and with MICs
// neither a session nor a text comes of what was changed.
TEST_P(Sessions, NobodyGainsByChangingAMessage) {
    std::size_t tried = 0;
    for (std::size_t spoilt = 1, size = 1; spoilt <= kLogon + (of.has_mics ? 3 : 0); ++spoilt, size = 1)
        for (std::size_t at = 0; at < size; at += 1 + size / kSteps)
            for (const char way : {'c', 'x', 'd'}) {
                SCOPED_TRACE(std::to_string(spoilt) + " at " + std::to_string(at) + " " + way);
                Pair pair(of.logon);
                bool is_changed = false;
                const auto between = [&](std::size_t number, std::string &message) {
                    if (number != spoilt)
                        return;
                    is_changed = true;
                    size = message.size();
                    spoil(message, at, way);
                };
                pair.open(between);
                EXPECT_TRUE(!pair.server.is_open() || pair.server.user() == of.user);
                if (of.has_mics) {
                    EXPECT_EQ(pair.both_open(), !is_changed);
                    const auto texts = [&](std::size_t number, std::string &text) { between(kLogon + number, text); };
                    const bool came = pair.both_open() && exchange_texts(pair.client, pair.server, texts);
                    // Kerberos leaves the count by which a text was rotated unprotected (RFC 4121 4.2.5).
                    EXPECT_TRUE(came != is_changed || (spoilt > kLogon && (at == 7 || at == 8)));
                }
                size = is_changed ? size : 0;
                tried += is_changed ? 1 : 0;
            }
    EXPECT_GT(tried, 100U);
}

TEST_P(Sessions, AConfirmationWithoutItsMicIsNone) {
    Pair pair(of.logon);
    pair.open([](std::size_t, std::string &message) {
        if (message[0] == kConfirmation) // four octets of length, the MIC, and what else is confirmed
            message.replace(1, 4 + static_cast<unsigned char>(message[4]), 4, '\0');
    });
    EXPECT_EQ(pair.server.is_open(), !of.has_mics);
}

// Whoever alters the offer or the answer makes both sides take another mechanism, or none; they see it at the end.
TEST_F(Configured, AnOfferOrAnswerThatIsAlteredIsRefused) {
    configure(std::span(kAll, 2));
    const std::string kerberos = "\x2a\x86\x48\x86\xf7\x12\x01\x02\x02",
                      ntlm = "\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a";
    for (const std::string &octets : {kerberos, ntlm})
        for (const std::size_t altered : {0, 1, 2}) {
            Pair pair("authcid=alice password=Alice1");
            pair.open([&](std::size_t number, std::string &message) {
                if (const std::size_t at = message.find(octets); number == altered && at != message.npos)
                    message[at + octets.size() - 1] = '\x63';
                else
                    EXPECT_NE(number, altered);
            });
            EXPECT_EQ(pair.both_open(), altered == 0) << octets.size() << " " << altered;
        }
}

TEST_P(Sessions, ReplaysReorderingAndBareEndsAreRefused) {
    const std::pair<const char *, void (*)(Pair &)> cases[] = {
        {"replayed",
         [](Pair &pair) {
             const std::string message = pair.client.wrap("once");
             EXPECT_EQ(pair.server.unwrap(message), "once");
             pair.server.unwrap(message);
         }},
        {"reordered",
         [](Pair &pair) {
             pair.client.wrap("first");
             pair.server.unwrap(pair.client.wrap("second"));
         }},
        {"reflected", [](Pair &pair) { pair.server.unwrap(pair.server.wrap("mine")); }},
        {"bare end",
         [](Pair &pair) {
             pair.server.unwrap({"\4\0", 2});
         }},
    };
    for (const auto &[name, play] : cases) {
        Pair pair(of.logon);
        pair.open();
        if (!of.has_mics) // there are no texts
            continue;
        play(pair);
        EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED) << name;
        EXPECT_EQ(pair.server.unwrap(pair.client.wrap("more")), "") << name;
    }
}

TEST_P(Sessions, AWrongPasswordOpensNothingAndSaysNothing) {
    for (const std::string &logon : {of.logon + "wrong", std::string("authcid='QXTEST\\nobody' password=wrong")}) {
        Pair pair(logon);
        std::string last;
        pair.open([&](std::size_t number, const std::string &message) { last = number % 2 == 0 ? message : last; });
        EXPECT_FALSE(pair.server.is_open() || pair.client.is_open());
        EXPECT_TRUE(last.empty() || last == (std::string{kEnd, 1}));
    }
}

// '+' complete, '>' goes on, 'n' no context, 'd' a defective message, '!' another failure.
char outcome(OM_uint32 major) {
    if (major == GSS_S_NO_CONTEXT || major == GSS_S_DEFECTIVE_TOKEN)
        return major == GSS_S_NO_CONTEXT ? 'n' : 'd';
    return GSS_ERROR(major) != 0 ? '!' : major == GSS_S_COMPLETE ? '+' : '>';
}

// Every call in every state, by both sides: what is out of order fails, and changes nothing.
TEST_F(Configured, EveryCallInEveryState) {
    configure(kKerberos);
    const struct {
        const char *name;
        void (*reach)(Pair &);
        const char *client, *server; // what wrap, unwrap, step and end give
    } states[] = {
        {"new", [](Pair &) {}, "nn>n", "nn!n"},
        {"client begun", [](Pair &pair) { pair.client.step({}); }, "nn!n", "nn!n"},
        {"server established", [](Pair &pair) { pair.server.step(pair.client.step({})); }, "nn!n", "nn!n"},
        {"open", [](Pair &pair) { pair.open(); }, "+dn+", "+dn+"},
        {"ended", [](Pair &pair) { pair.open(), pair.server.unwrap(pair.client.end()); }, "nnnn", "nnnn"},
        {"failed", [](Pair &pair) { pair.client.step({}), pair.client.step("?"), pair.server.step("?"); }, "nnnn",
         "nnnn"},
        {"failed by a text", [](Pair &pair) { pair.open(), pair.client.unwrap("?"), pair.server.unwrap("?"); }, "nnn+",
         "nnn+"}, // which the peer is told
    };
    std::string (*const calls[])(SessionEnd &) = {
        [](SessionEnd &end) { return end.wrap("text"); }, [](SessionEnd &end) { return end.unwrap("text"); },
        [](SessionEnd &end) { return end.step("\4\1"); }, [](SessionEnd &end) { return end.end(); }};
    for (const auto &[name, reach, client, server] : states)
        for (const bool is_client : {true, false}) {
            std::string outcomes;
            for (const auto &call : calls) {
                Pair pair(kKerberos.logon);
                reach(pair);
                SessionEnd &end = is_client ? pair.client : pair.server;
                const auto before = end.facts().State;
                const std::string out = call(end);
                outcomes += outcome(end.major);
                EXPECT_TRUE(GSS_ERROR(end.major) == 0 || out.empty() || out.front() == kEnd);
                EXPECT_TRUE(end.major != GSS_S_NO_CONTEXT || end.facts().State == before);
            }
            EXPECT_EQ(outcomes, is_client ? client : server) << name << (is_client ? ", client" : ", server");
        }
}

TEST_F(Configured, WhatIsNotThereIsRefused) {
    configure(kScram);
    qxgss_session_t session = nullptr;
    qxgss_session_options_desc options = kAtOnce;
    OM_uint32 minor = 0;
    options.MaxRounds = 0;
    EXPECT_EQ(qxgss_session_accept(&minor, nullptr, nullptr), 0x020D0000U);
    EXPECT_EQ(qxgss_session_initiate(&minor, nullptr, nullptr, 0, nullptr, &session), 0x010D0000U);
    EXPECT_EQ(qxgss_session_accept(&minor, &options, &session), GSS_S_FAILURE);
    EXPECT_EQ(qxgss_session_delete(&minor, &session), GSS_S_COMPLETE);
    EXPECT_EQ(qxgss_session_inquire(&minor, nullptr, nullptr), 0x010D0000U);
    EXPECT_EQ(qxgss_session_step(&minor, nullptr, nullptr, nullptr), 0x020D0000U);
    qxgss_shutdown(nullptr);
    EXPECT_EQ(qxgss_session_accept(&minor, nullptr, &session), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE1000074U);
}

// Of a server, each against an honest client of a mechanism without MICs.
TEST_F(Configured, EachOptionCanEndASession) {
    configure(kScram);
    const struct {
        const char *failure;
        void (*set)(qxgss_session_options_desc &);
    } cases[] = {
        {"more than a message", [](auto &options) { options.MaxMessage = 1024; }},
        {"more rounds", [](auto &options) { options.MaxRounds = 1; }},
        {"too long", [](auto &options) { options.LogonTime = 1; }},
        {"no MICs", [](auto &options) { options.RequireConfirmation = 1; }},
    };
    for (const auto &[failure, set] : cases) {
        qxgss_session_options_desc options = kAtOnce;
        set(options);
        Pair pair(kScram.logon, options);
        while (options.LogonTime == 1 && qxgss_session_time_left(pair.server.handle) != 0) {
        }
        pair.open([&](std::size_t number, std::string &message) {
            if (number == 1 && options.MaxMessage == 1024)
                message.resize(1025);
        });
        const qxgss_session_facts_desc facts = pair.server.facts();
        EXPECT_EQ(facts.State, QXGSS_SESSION_FAILED) << failure;
        EXPECT_NE(std::string(facts.pszFailure).find(failure), std::string::npos) << facts.pszFailure;
    }
}

// A forbidden user hears what an unknown one hears, and as late; the name that was proved decides.
TEST_F(Configured, ForbidsWithoutTellingStrangers) {
    configure(kScram, "[policy.users]\nbob = [\"QXNEGO\"]\n");
    constexpr auto kClaimed = QXGSS_SESSION_CLAIMED_REFUSED, kProved = QXGSS_SESSION_PROVED_REFUSED,
                   kNone = QXGSS_SESSION_NONE_REFUSED;
    constexpr auto kPolicy = QXGSS_SESSION_FAILURE_POLICY, kWrong = QXGSS_SESSION_FAILURE_NEGOTIATION;
    const struct {
        const char *logon;
        qxgss_session_refused_et refused;
        qxgss_session_failure_et failure;
        bool is_stranger;
    } cases[] = {
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
        Pair pair(logon, patient);
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
    Pair pair("", patient); // who does not even try has nothing to wait for
    pair.server.step("\1no token");
    EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED);
    EXPECT_LT(qxgss_session_delay(pair.server.handle), 1000U);
}

} // namespace
