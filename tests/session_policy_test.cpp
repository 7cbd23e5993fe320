// The policy before strangers: what a session tells nobody by its answers or their time, whatever the token.
#include <set>

#include "testkit/ber.h"
#include "tests/session_pair.h"

namespace {

using namespace session_pair;

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
    {"decoy user before single sign-on",
     offer_of("", kState + tlv(0x84, "zzz") + tlv(0x83, {"\0", 1}) + tlv(0x84, "bob"))},
    {"two single sign-on names", offer_of(kSsoBob + kSsoDecoy, kSso)},
    {"NUL in the name", offer_of("", kState + tlv(0x82, {"bob\0x", 5}))},
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
    elsewhere.server.step('\1' +
                          tlv(0xA0, tlv(0xA0, tlv(0xA0, tlv(0x80, "\x2b\6\1") + tlv(0x81, "\1"))) + kState + kBob));
    EXPECT_EQ(elsewhere.server.facts().Failure, kWrong);
    EXPECT_EQ(elsewhere.server.facts().Refused, kNone);
    Pair pair("", patient); // who does not even try has nothing to wait for
    pair.server.step("\1no token");
    EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED);
    EXPECT_LT(qxgss_session_delay(pair.server.handle), 1000U);
}

} // namespace
