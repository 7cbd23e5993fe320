// Sessions over the real mechanisms, in a realm of their own: what honest sides get, what someone in between and a
// hostile peer can do, and every call in every state.
#include <map>
#include <optional>

#include "testkit/conversation.h"
#include "testkit/real_mechanisms.h"
#include "tests/support.h"

namespace {

using namespace support;
using namespace testkit;

enum class Message : char { kToken = 1, kConfirmation, kText, kEnd };

using Case = RealMechanism;
const Case kCases[] = {kKerberos, kNtlm, kScram};

void configure(const Case &of, const std::string &policy = "") {
    static const Folder folder;
    qxgss_shutdown(nullptr);
    const std::string file = folder.file("qxgss.conf", configuration_of({&of, 1}, policy));
    qxgss_buffer_desc message{};
    ASSERT_EQ(qxgss_configure(nullptr, QXGSS_SERVER, file.c_str(), &message), GSS_S_COMPLETE) << text_of(message);
    gssp_release_buffer(nullptr, &message);
}

// Refusals need not be waited for.
constexpr qxgss_session_options_desc kAtOnce = {QXGSS_SESSION_MAX_MESSAGE, 16, 30'000, 0, 0, nullptr, nullptr};

struct Pair {
    explicit Pair(const std::string &logon) {
        client.initiate(logon, &kAtOnce);
        server.accept(&kAtOnce);
    }
    SessionEnd client, server;
};

class Sessions : public testing::TestWithParam<Case> {
  protected:
    void SetUp() override { configure(GetParam()); }
    void TearDown() override { qxgss_shutdown(nullptr); }
    const Case &of = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Each, Sessions, testing::ValuesIn(kCases),
                         [](const auto &test) { return test.param.prefix + std::to_string(test.index); });

TEST_P(Sessions, HonestSidesGetWhatTheMechanismHas) {
    Pair pair(of.logon);
    converse(pair.client, pair.server);
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
const std::size_t kSteps = std::getenv("QXNEGO_SWEEP") == nullptr ? 20 : SIZE_MAX;

// Each message in turn is changed at each of its bytes, cut there, withheld, doubled with the one before, or retyped.
// Whatever comes of it: who is let in is who he is, and a side that says "confirmed" has seen what the other has.
TEST_P(Sessions, NobodyGainsByChangingAMessage) {
    std::size_t opened = 0, tried = 0;
    for (std::size_t spoilt = 1; spoilt != 8; ++spoilt) {
        std::size_t size = 1;
        for (std::size_t at = 0; at < size; at += 1 + size / kSteps)
            for (const int way : {0, 1, 2}) {
                Pair pair(of.logon);
                bool is_changed = false;
                converse(pair.client, pair.server, [&](std::size_t number, std::string &message) {
                    if (number != spoilt)
                        return;
                    size = message.size();
                    const std::size_t place = std::min(at, size - 1);
                    is_changed = true;
                    if (way == 0)
                        message.resize(place);
                    else if (way == 1)
                        message[place] = static_cast<char>(~message[place]);
                    else
                        message.insert(place, message.substr(0, place + 1));
                });
                if (!is_changed)
                    size = 0;
                tried += is_changed ? 1 : 0;
                const bool both = pair.client.is_open() && pair.server.is_open();
                opened += both && is_changed ? 1 : 0;
                EXPECT_TRUE(!pair.server.is_open() || pair.server.user() == of.user);
                EXPECT_TRUE(!(both && is_changed && of.has_mics)) << spoilt << ' ' << at << ' ' << way;
            }
    }
    EXPECT_GT(tried, 150U);
    EXPECT_TRUE(of.has_mics || opened > 0); // what SCRAM cannot protect
}

TEST_P(Sessions, NobodyGainsByChangingAText) {
    if (!of.has_mics)
        GTEST_SKIP() << "it protects no texts";
    for (std::size_t spoilt = 1; spoilt <= 3; ++spoilt) {
        std::size_t size = 1;
        for (std::size_t at = 0; at < size; at += 5)
            for (const bool is_cut : {true, false}) {
                Pair pair(of.logon);
                converse(pair.client, pair.server);
                EXPECT_FALSE(exchange_texts(pair.client, pair.server,
                                            [&](std::size_t number, std::string &message) {
                                                if (number != spoilt)
                                                    return;
                                                size = message.size();
                                                const std::size_t place = std::min(at, size - 1);
                                                is_cut ? message.resize(place) : static_cast<void>(message[place] ^= 1);
                                            }))
                    << spoilt << ' ' << at;
            }
    }
}

TEST_P(Sessions, ReplaysReorderingAndBareEndsAreRefused) {
    if (!of.has_mics)
        GTEST_SKIP() << "it protects no texts";
    const std::string bare_end = {static_cast<char>(Message::kEnd), 0};
    const std::vector<std::pair<const char *, std::function<void(Pair &)>>> rows = {
        {"replayed",
         [](Pair &pair) {
             const std::string message = pair.client.wrap("once");
             EXPECT_EQ(pair.server.unwrap(message), "once");
             pair.server.unwrap(message);
         }},
        {"reordered",
         [](Pair &pair) {
             const std::string first = pair.client.wrap("first");
             pair.server.unwrap(pair.client.wrap("second"));
         }},
        {"reflected", [](Pair &pair) { pair.server.unwrap(pair.server.wrap("mine")); }},
        {"bare end", [&](Pair &pair) { pair.server.unwrap(bare_end); }},
    };
    for (const auto &[name, play] : rows) {
        Pair pair(of.logon);
        converse(pair.client, pair.server);
        play(pair);
        EXPECT_EQ(pair.server.facts().State, QXGSS_SESSION_FAILED) << name;
        EXPECT_EQ(pair.server.unwrap(pair.client.wrap("more")), "") << name;
    }
}

TEST_P(Sessions, AWrongPasswordOpensNothingAndSaysNothing) {
    const std::string right = of.logon.substr(0, of.logon.rfind('=') + 1);
    std::string said;
    for (const std::string &logon : {right + "wrong", std::string("authcid='QXTEST\\nobody' password=wrong")}) {
        SessionEnd client, server;
        client.initiate(logon, &kAtOnce);
        server.accept(&kAtOnce);
        std::string last;
        converse(client, server,
                 [&](std::size_t number, const std::string &message) { last = number % 2 == 0 ? message : last; });
        EXPECT_FALSE(server.is_open() || client.is_open());
        EXPECT_TRUE(last.empty() || last == (std::string{static_cast<char>(Message::kEnd), 1}));
    }
}

// Every call in every state: what is out of order fails, and changes nothing.
TEST(Order, EveryCallInEveryState) {
    configure(kKerberos);
    const std::map<std::string, std::function<void(Pair &)>> states = {
        {"new", [](Pair &) {}},
        {"client begun", [](Pair &pair) { pair.client.step({}); }},
        {"server established", [](Pair &pair) { pair.server.step(pair.client.step({})); }},
        {"open", [](Pair &pair) { converse(pair.client, pair.server); }},
        {"ended",
         [](Pair &pair) {
             converse(pair.client, pair.server);
             pair.server.unwrap(pair.client.end());
         }},
        {"failed", [](Pair &pair) {
             pair.client.step({});
             pair.client.step("?");
             pair.server.step("?");
         }}};
    for (const auto &[name, reach] : states) {
        const bool is_open = name == "open", is_over = name == "ended" || name == "failed";
        for (const bool is_client : {true, false}) {
            const auto fresh = [&](auto call) {
                Pair pair(kKerberos.logon);
                reach(pair);
                SessionEnd &end = is_client ? pair.client : pair.server;
                const auto before = end.facts().State;
                const std::string out = call(end);
                EXPECT_TRUE(GSS_ERROR(end.major) == 0 || out.empty() || out.front() == char(Message::kEnd));
                EXPECT_TRUE(end.major != GSS_S_NO_CONTEXT || end.facts().State == before) << name;
                return end.major;
            };
            EXPECT_EQ(fresh([](SessionEnd &end) { return end.wrap("text"); }) == GSS_S_COMPLETE, is_open) << name;
            EXPECT_EQ(fresh([](SessionEnd &end) { return end.unwrap("text"); }),
                      is_open ? GSS_S_DEFECTIVE_TOKEN : GSS_S_NO_CONTEXT)
                << name;
            const OM_uint32 stepped = fresh([](SessionEnd &end) { return end.step("\4\1"); });
            EXPECT_EQ(stepped == GSS_S_NO_CONTEXT, is_open || is_over) << name;
            EXPECT_NE(stepped, GSS_S_COMPLETE) << name;
            EXPECT_EQ(fresh([](SessionEnd &end) { return end.end(); }) == GSS_S_COMPLETE, is_open) << name;
        }
    }
    qxgss_shutdown(nullptr);
}

TEST(Order, WhatIsNotThereIsRefused) {
    configure(kScram);
    qxgss_session_t session = nullptr;
    qxgss_session_options_desc options = kAtOnce;
    OM_uint32 minor = 0;
    EXPECT_EQ(qxgss_session_accept(&minor, nullptr, nullptr), 0x020D0000U);
    EXPECT_EQ(qxgss_session_initiate(&minor, nullptr, nullptr, 0, nullptr, &session), 0x010D0000U);
    EXPECT_EQ(session, nullptr);
    options.MaxRounds = 0;
    EXPECT_EQ(qxgss_session_accept(&minor, &options, &session), GSS_S_FAILURE);
    EXPECT_EQ(qxgss_session_delete(&minor, &session), GSS_S_COMPLETE);
    EXPECT_EQ(qxgss_session_inquire(&minor, nullptr, nullptr), 0x010D0000U);
    EXPECT_EQ(qxgss_session_step(&minor, nullptr, nullptr, nullptr), 0x020D0000U);
    qxgss_shutdown(nullptr);
    EXPECT_EQ(qxgss_session_accept(&minor, nullptr, &session), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE1000074U);
}

TEST(Bounds, SizeRoundsAndTime) {
    configure(kScram);
    for (const auto &[name, change] :
         std::vector<std::pair<std::string, std::function<void(qxgss_session_options_desc &)>>>{
             {"more than a message", [](auto &options) { options.MaxMessage = 1024; }},
             {"more rounds", [](auto &options) { options.MaxRounds = 1; }},
             {"too long", [](auto &options) { options.LogonTime = 1; }}}) {
        qxgss_session_options_desc options = kAtOnce;
        change(options);
        SessionEnd client, server;
        client.initiate(kScram.logon, &kAtOnce);
        server.accept(&options);
        if (name == "too long")
            while (qxgss_session_time_left(server.handle) != 0) {
            }
        converse(client, server, [&](std::size_t number, std::string &message) {
            if (number == 1 && name == "more than a message")
                message.resize(1025);
        });
        EXPECT_EQ(server.facts().State, QXGSS_SESSION_FAILED) << name;
        EXPECT_NE(std::string(server.facts().pszFailure).find(name), std::string::npos) << server.facts().pszFailure;
    }
    qxgss_shutdown(nullptr);
}

// A forbidden user hears what an unknown one hears, whatever is offered beside.
TEST(Policy, ForbiddenAndUnknownUsersCannotBeToldApart) {
    configure(kScram, "[policy.users]\nbob = [\"QXNEGO\"]\n");
    std::vector<std::string> heard;
    for (const char *user : {"bob", "eve", "alice"}) {
        SessionEnd client, server;
        client.initiate(std::string("authcid=") + user + " password=x", &kAtOnce);
        server.accept(&kAtOnce);
        std::string shape;
        converse(client, server, [&](std::size_t number, const std::string &message) {
            if (number % 2 == 0)
                shape += ' ' + std::to_string(int{message[0]}) + ':' + std::to_string(message.size());
        });
        heard.push_back(shape);
        EXPECT_EQ(server.facts().Refused,
                  user == std::string("bob") ? QXGSS_SESSION_CLAIMED_REFUSED : QXGSS_SESSION_NONE_REFUSED);
        EXPECT_EQ(server.facts().Failure,
                  user == std::string("bob") ? QXGSS_SESSION_FAILURE_POLICY : QXGSS_SESSION_FAILURE_NEGOTIATION);
    }
    EXPECT_EQ(heard, std::vector<std::string>(3, heard.front()));
    qxgss_shutdown(nullptr);
}

} // namespace
