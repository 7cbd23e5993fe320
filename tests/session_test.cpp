// Sessions over the real mechanisms, in a realm of their own: what honest sides get, what someone in between and a
// hostile peer can do, and every call in every state.
#include <set>

#include "testkit/conversation.h"
#include "testkit/real_mechanisms.h"
#include "tests/failing_heap.h"
#include "tests/support.h"

namespace {

using namespace support;
using namespace testkit;

constexpr char kConfirmation = 2, kEnd = 4; // types of messages

// Refusals need not be waited for.
constexpr qxgss_session_options_desc kAtOnce = {
    sizeof kAtOnce, QXGSS_SESSION_MAX_MESSAGE, 16, 30'000, 0, 0, QXGSS_SESSION_UNPROTECTED, nullptr, nullptr, nullptr};

// ---- A mechanism that keeps no rule, in the program itself ---------------------------------------------------------

struct Hostile {
    bool has_other_type = false, has_no_element = false;
    OM_uint32 flags = 0;
    int delegated = 0; // credentials that nobody has released
};
Hostile hostile;
constexpr char kHostileOid[] = "1.3.6.1.4.1.32473.9.1";

OM_uint32 done(OM_uint32 *pMinorStatus) {
    return *pMinorStatus = GSSP_E_SUCCESS, GSS_S_COMPLETE;
}
OM_uint32 made(void **ppHandle, OM_uint32 *pMinorStatus) {
    *ppHandle = *ppHandle == nullptr ? std::malloc(1) : *ppHandle;
    return done(pMinorStatus);
}
OM_uint32 gone(void **ppHandle, OM_uint32 *pMinorStatus) {
    std::free(std::exchange(*ppHandle, nullptr));
    return done(pMinorStatus);
}

} // namespace

extern "C" {
QXGSS_API OM_uint32 HOSTILE_acquire_cred(OM_uint32 *pMinorStatus, qxgss_name_t, OM_uint32, qxgss_OID_set,
                                         qxgss_cred_usage_t, qxgss_cred_id_t *ppCred, qxgss_OID_set *, OM_uint32 *) {
    return ++hostile.delegated, made(ppCred, pMinorStatus);
}
QXGSS_API OM_uint32 HOSTILE_release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCred) {
    return --hostile.delegated, gone(ppCred, pMinorStatus);
}
QXGSS_API OM_uint32 HOSTILE_init_sec_context(OM_uint32 *pMinorStatus, qxgss_cred_id_t, qxgss_ctx_id_t *ppContext,
                                             qxgss_name_t, qxgss_OID pMech, OM_uint32, OM_uint32,
                                             qxgss_channel_bindings_t, qxgss_buffer_t, qxgss_OID *ppMech,
                                             qxgss_buffer_t pOutput, OM_uint32 *pFlags, OM_uint32 *) {
    *ppMech = pMech, *pFlags = hostile.flags, *pOutput = {2, std::memcpy(std::malloc(2), "hi", 2)};
    return made(ppContext, pMinorStatus);
}
QXGSS_API OM_uint32 HOSTILE_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContext, qxgss_cred_id_t,
                                               qxgss_buffer_t, qxgss_channel_bindings_t, qxgss_name_t *ppName,
                                               qxgss_OID *ppMech, qxgss_buffer_t, OM_uint32 *pFlags, OM_uint32 *,
                                               qxgss_cred_id_t *ppDelegated) {
    static qxgss_OID_desc other{1, const_cast<char *>("*")};
    *ppName = hostile.has_no_element ? static_cast<qxgss_name_t>(std::calloc(1, sizeof **ppName)) : imported("alice");
    *ppMech = hostile.has_other_type ? &other : registered("HOSTILE").pMechOid;
    *pFlags = hostile.flags;
    ++hostile.delegated;
    return made(ppDelegated, pMinorStatus), made(ppContext, pMinorStatus);
}
// Changes nothing, and notices nothing.
QXGSS_API OM_uint32 HOSTILE_wrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t, int, qxgss_qop_t, qxgss_buffer_t pText, int *,
                                 qxgss_buffer_t pMessage) {
    return gssp_duplicate_buffer(nullptr, pText, pMessage), done(pMinorStatus);
}
QXGSS_API OM_uint32 HOSTILE_unwrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t, qxgss_buffer_t pMessage,
                                   qxgss_buffer_t pText, int *, qxgss_qop_t *) {
    return gssp_duplicate_buffer(nullptr, pMessage, pText), done(pMinorStatus);
}
QXGSS_API OM_uint32 HOSTILE_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContext, qxgss_buffer_t) {
    return gone(ppContext, pMinorStatus);
}
}

namespace {

const RealMechanism kHostile{"HOSTILE", kHostileOid, "HOSTILE", "", "authcid=alice password=x", "alice", "", false};

struct Pair {
    explicit Pair(const std::string &logon, const qxgss_session_options_desc &of_server = kAtOnce) {
        client.initiate(logon, &kAtOnce);
        server.accept(&of_server);
    }
    void open(const Between &between = {}) { converse(client, server, between); }
    bool both_open() const { return client.is_open() && server.is_open(); }
    std::string failure() const { return server.facts().pszFailure; } // of the server
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

// By the mechanism, or by the session where the mechanism notices nothing.
TEST_F(Configured, ReplaysReorderingAndBareEndsAreRefused) {
    void (*const plays[])(Pair &) = {
        [](Pair &pair) {
            const std::string message = pair.client.wrap("once");
            EXPECT_EQ(pair.server.unwrap(message), "once");
            pair.server.unwrap(message);
        },
        [](Pair &pair) { pair.client.wrap("first"), pair.server.unwrap(pair.client.wrap("second")); },
        [](Pair &pair) { pair.server.unwrap(pair.server.wrap("mine")); },
        [](Pair &pair) {
            pair.server.unwrap({"\4\0", 2});
        },
    };
    hostile = {.flags = GSS_C_INTEG_FLAG};
    for (const RealMechanism *of : {&kKerberos, &kNtlm, &kHostile}) {
        configure(*of);
        for (const auto &play : plays) {
            SCOPED_TRACE(of->name + " " + std::to_string(&play - plays));
            if (of == &kHostile && &play == &plays[2])
                continue; // the direction is the mechanism's
            Pair pair(of->logon);
            pair.open();
            EXPECT_TRUE(pair.both_open());
            play(pair);
            EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED);
            EXPECT_EQ(pair.server.unwrap(pair.client.wrap("more")), "");
        }
        qxgss_shutdown(nullptr);
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

// What a stranger says of an end is never the server's own verdict; a client hears who says it.
TEST_F(Configured, TheReasonOfAnEndIsItsSenders) {
    configure(kScram);
    for (char reason = 1; reason != 6; ++reason) {
        Pair pair(kScram.logon);
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
    for (const std::string injected : {"", "\4\1"})
        for (const int before : {1, 2, 3, 4}) {
            bool has_failed = true;
            for (int nth = 0; has_failed && !HasFailure(); ++nth) {
                SCOPED_TRACE(std::to_string(before) + injected + ", allocation " + std::to_string(nth));
                Pair pair(kScram.logon);
                std::string message = pair.client.step({});
                for (int i = 1; i != before; ++i)
                    message = (i % 2 == 1 ? pair.server : pair.client).step(message);
                SessionEnd &reader = before % 2 == 1 ? pair.server : pair.client;
                const qxgss_buffer_desc input = common::view(injected.empty() ? message : injected);
                common::Buffer output;
                OM_uint32 major = 0;
                const failing_heap::InWindows failing(nth, false);
                {
                    const failing_heap::Window open;
                    major = qxgss_session_step(nullptr, reader.handle, &input, output.out());
                }
                has_failed = failing.happened();
                EXPECT_TRUE(GSS_ERROR(major) == 0 || reader.facts().State == QXGSS_SESSION_FAILED);
            }
        }
}

// '+' complete, '>' goes on, 'n' no context, 'd' a defective message, '!' another failure.
char outcome(OM_uint32 major) {
    if (major == GSS_S_NO_CONTEXT || major == GSS_S_DEFECTIVE_TOKEN)
        return major == GSS_S_NO_CONTEXT ? 'n' : 'd';
    return GSS_ERROR(major) != 0 ? '!' : major == GSS_S_COMPLETE ? '+' : '>';
}

// Sessions are open to those who are at the ends of the same channel.
TEST_F(Configured, ASessionBelongsToItsChannel) {
    configure(kKerberos);
    const std::string channels[] = {"tls-exporter:1", "tls-exporter:2"};
    for (const std::string &of_server : channels) {
        qxgss_channel_bindings_desc bindings[2]{};
        bindings[0].application_data = view(channels[0]);
        bindings[1].application_data = view(of_server);
        qxgss_session_options_desc options[2] = {kAtOnce, kAtOnce};
        for (const std::size_t side : {0, 1}) {
            options[side].Protection = QXGSS_SESSION_PROTECTED_BY_CHANNEL;
            options[side].pBindings = &bindings[side];
        }
        SessionEnd client, server;
        client.initiate(kKerberos.logon, &options[0]);
        server.accept(&options[1]);
        converse(client, server);
        EXPECT_EQ(server.is_open(), of_server == channels[0]) << server.facts().pszFailure;
    }
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
    OM_uint32 minor = 0;
    void (*const wrong[])(qxgss_session_options_desc &) = {
        [](auto &wrong_one) { wrong_one.MaxRounds = 0; }, [](auto &wrong_one) { --wrong_one.Size; },
        [](auto &wrong_one) { ++wrong_one.Size; }, [](auto &wrong_one) { wrong_one.LogonTime = GSS_C_INDEFINITE; },
        [](auto &wrong_one) { wrong_one.Protection = QXGSS_SESSION_PROTECTED_BY_CHANNEL; }};
    EXPECT_EQ(qxgss_session_accept(&minor, nullptr, nullptr), 0x020D0000U);
    EXPECT_EQ(qxgss_session_initiate(&minor, nullptr, nullptr, 0, nullptr, &session), 0x010D0000U);
    for (const auto &make_wrong : wrong) {
        qxgss_session_options_desc options = kAtOnce;
        make_wrong(options);
        EXPECT_EQ(qxgss_session_accept(&minor, &options, &session), GSS_S_FAILURE);
        EXPECT_EQ(minor, 0xE10000CDU);
    }
    EXPECT_EQ(qxgss_session_inquire(&minor, nullptr, nullptr), 0x010D0000U);
    EXPECT_EQ(qxgss_session_step(&minor, nullptr, nullptr, nullptr), 0x020D0000U);
    qxgss_shutdown(nullptr);
    EXPECT_EQ(qxgss_session_accept(&minor, nullptr, &session), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE1000074U);
}

// A server whose mechanism keeps no rule refuses it, and leaves nothing behind.
TEST_F(Configured, AMechanismThatKeepsNoRule) {
    const std::pair<const char *, Hostile> cases[] = {
        {"", {}},
        {"not the one that was selected", {.has_other_type = true}},
        {"has proved no name", {.has_no_element = true}},
    };
    for (const auto &[failure, mechanism] : cases) {
        configure(kHostile);
        hostile = mechanism;
        {
            Pair pair(kHostile.logon);
            pair.open();
            EXPECT_EQ(pair.server.is_open(), *failure == 0) << failure;
            EXPECT_NE(pair.failure().find(failure), std::string::npos) << pair.failure();
        }
        qxgss_shutdown(nullptr);
        EXPECT_EQ(hostile.delegated, 0) << failure;
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
        Pair pair(kScram.logon, options);
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

std::string element(int tag, const std::string &contents) {
    return char(0x80 + tag) + (char(contents.size()) + contents);
}
std::string list(const std::string &contents) {
    return char(0xA0) + (char(contents.size()) + contents);
}
// A client's first token that offers SCRAM-SHA-256 for bob, with items around the one for its own name.
std::string offer_of(const std::string &in_mechanism, const std::string &items, const std::string &in_repeated = "",
                     const std::string &before = "") {
    const auto scram = [](const std::string &more) {
        return list(element(0, "\x2b\6\1\5\5\x12") + element(1, "\1") + element(6, "n,,n=bob,r=0123456789abcdef") +
                    more);
    };
    return list(list(before + scram(in_mechanism) + (in_repeated.empty() ? "" : scram(in_repeated))) + items);
}

// Repeated and misplaced names, of which only some are read.
const std::string kState = element(1, "\2"), kBob = element(2, "bob"), kSso = kState + element(3, "\1"),
                  kSsoBob = element(7, "bob"), kSsoDecoy = element(7, "zzz"),
                  kRefused = list(element(0, "\x2b\6\1\5\5\x0e") + element(1, "\3") + element(2, "\5") + kSsoDecoy);
const std::pair<const char *, std::string> kOddTokens[] = {
    {"authentication ID", offer_of("", kState + kBob)},
    {"decoy before the state", offer_of("", element(2, "zzz") + kState + kBob)},
    {"constructed decoy", offer_of("", '\xA2' + ('\0' + kState) + kBob)},
    {"decoy user before single sign-on",
     offer_of("", kState + element(4, "zzz") + element(3, {"\0", 1}) + element(4, "bob"))},
    {"two single sign-on names", offer_of(kSsoBob + kSsoDecoy, kSso)},
    {"NUL in the name", offer_of("", kState + element(2, {"bob\0x", 5}))},
    {"a mechanism that the client calls refused by the policy, with a decoy", offer_of(kSsoBob, kSso, "", kRefused)},
    {"a mechanism twice, each with another name", offer_of(kSsoDecoy, kSso, kSsoBob)},
};

// A forbidden user hears what an unknown one hears, and as late; the name that was proved decides.
TEST_F(Configured, ForbidsWithoutTellingStrangers) {
    const RealMechanism both[] = {kScram, kScram1};
    configure(both, "[policy.users]\nbob = [\"QXNEGO\"]\n");
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
    std::set<std::pair<std::string, std::size_t>> heard_of_odd;
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
    for (const auto &[shape, of_bob] : kOddTokens)
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
            EXPECT_TRUE(heard_of_odd.insert({shape, answer.size()}).second || name == "eve");
        }
    EXPECT_EQ(heard_of_odd.size(), std::size(kOddTokens));
    Pair elsewhere("", patient); // where nothing is offered that could be had, the policy forbids nothing
    elsewhere.server.step('\1' + list(list(list(element(0, "\x2b\6\1") + element(1, "\1"))) + kState + kBob));
    EXPECT_EQ(elsewhere.server.facts().Failure, kWrong);
    EXPECT_EQ(elsewhere.server.facts().Refused, kNone);
    Pair pair("", patient); // who does not even try has nothing to wait for
    pair.server.step("\1no token");
    EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED);
    EXPECT_LT(qxgss_session_delay(pair.server.handle), 1000U);
}

} // namespace
