// The bridge's operations as the host's library calls them, over the scripted mechanisms. Every allocation fails once,
// and with all later ones: a call is then right, or says so and hands out nothing, and nothing is left behind. A token
// that someone in between changes, cuts or holds back opens no context on both sides; and what a failure leaves can be
// asked for.
#include <utility>

#include "bridge/gssapi/call.h"
#include "bridge/gssapi/framing.h"
#include "bridge/gssapi/qxnego_gssapi.h"
#include "tests/failing_heap.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace harness;

constexpr std::string_view kPassword = "Tr0ub4dor-x3";
bool failed = false;  // a call of this life has
bool is_whole = true; // this life has had what may be lost without a word: a delegated credential, logs

gss_buffer_desc view_of(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())};
}

// What calls hand out.
struct Given : gss_buffer_desc {
    Given() : gss_buffer_desc{0, nullptr} {}
    Given(const Given &) = delete;
    Given &operator=(const Given &) = delete;
    ~Given() { std::free(value); }
    std::string text() const { return {static_cast<char *>(value), length}; }
};

struct GivenName {
    GivenName() = default;
    GivenName(const GivenName &) = delete;
    GivenName &operator=(const GivenName &) = delete;
    ~GivenName() { bridge_gss_release_name(nullptr, &handle); }
    gss_name_t handle = GSS_C_NO_NAME;
};

// A failure has a text, unless there is no memory for it.
template <typename... Parameters>
OM_uint32 called(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    OM_uint32 minor = 1, more = 0;
    const failing_heap::Window open;
    const OM_uint32 major = call(&minor, arguments...);
    EXPECT_EQ(GSS_ERROR(major) != 0, minor != 0);
    if (GSS_ERROR(major) == 0)
        return major;
    failed = true;
    Given text;
    const OM_uint32 told = bridge_gss_display_status(&minor, minor, GSS_C_MECH_CODE, GSS_C_NO_OID, &more, &text);
    EXPECT_TRUE(GSS_ERROR(told) != 0 ? text.value == nullptr : text.length != 0);
    return major;
}

std::string told(gss_ctx_id_t context, std::string_view which) {
    gss_OID_desc oid{static_cast<OM_uint32>(which.size()), const_cast<char *>(which.data())};
    gss_buffer_set_t set = GSS_C_NO_BUFFER_SET;
    OM_uint32 minor = 0;
    const OM_uint32 major = called(bridge_gss_inquire_sec_context_by_oid, context, &oid, &set);
    EXPECT_EQ(GSS_ERROR(major) == 0, set != GSS_C_NO_BUFFER_SET);
    std::string text;
    if (set != GSS_C_NO_BUFFER_SET)
        text.assign(static_cast<char *>(set->elements[0].value), set->elements[0].length);
    gss_release_buffer_set(&minor, &set);
    return text;
}

std::string told_of_the_last(std::string_view which) {
    gss_OID_desc oid{static_cast<OM_uint32>(which.size()), const_cast<char *>(which.data())};
    Given text;
    EXPECT_EQ(called(bridge_gssspi_mech_invoke, GSS_C_NO_OID, &oid, &text), GSS_S_COMPLETE);
    return text.text();
}

// One side of a context, with what it holds.
struct End {
    explicit End(Side which) : side(which) {}
    End(const End &) = delete;
    End &operator=(const End &) = delete;
    ~End() {
        called(bridge_gss_delete_sec_context, &context, nullptr);
        called(bridge_gss_release_cred, &credential);
        called(bridge_gss_release_cred, &delegated);
    }

    std::string step(std::string_view token) {
        scripted::script().acting = side;
        gss_buffer_desc input = view_of(token);
        Given output;
        GivenName target, source;
        gss_buffer_desc service = view_of("host@server");
        if (side == kClient &&
            GSS_ERROR(called(bridge_gss_import_name, &service, GSS_C_NT_HOSTBASED_SERVICE, &target.handle)) != 0)
            return "";
        major = side == kClient ? called(bridge_gss_init_sec_context, credential, &context, target.handle, nullptr,
                                         GSS_C_INTEG_FLAG | GSS_C_DELEG_FLAG, 0U, nullptr, &input, nullptr, &output,
                                         &flags, nullptr)
                                : called(bridge_gss_accept_sec_context, &context, credential, &input, nullptr,
                                         &source.handle, nullptr, &output, &flags, nullptr, &delegated);
        EXPECT_TRUE(major == GSS_S_COMPLETE || (source.handle == nullptr && delegated == nullptr && flags == 0));
        return output.text();
    }
    bool is_open() const { return context != GSS_C_NO_CONTEXT && major == GSS_S_COMPLETE; }

    const Side side;
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
    gss_cred_id_t credential = GSS_C_NO_CREDENTIAL, delegated = GSS_C_NO_CREDENTIAL;
    OM_uint32 major = GSS_S_CONTINUE_NEEDED, flags = 0;
};

struct Pair {
    // `between` is given the token's number, from 0, and the token; an empty one is not carried.
    template <typename Between> void run(const Between &between) {
        std::string token = client.step("");
        for (std::size_t number = 0; number != 20 && !token.empty(); ++number) {
            between(number, token);
            End &reader = number % 2 == 0 ? server : client;
            if (!token.empty())
                token = reader.step(token);
        }
    }
    void run() {
        run([](std::size_t, std::string &) {});
    }
    bool is_open() const { return client.is_open() && server.is_open(); }

    End client{kClient}, server{kServer};
};

void forget_last_failure() {
    std::exchange(bridge::last_failure(), {}); // an assignment would leave it its memory
}

class Bridge : public NegotiationTest {
  protected:
    // One mechanism, with so many legs; QXNEGO has the setting.
    static void configure(int legs, const std::string &setting = "if-possible") {
        std::string text = configuration({{'A', true, true, true, 10}});
        text.insert(text.find("[[mechanism]]", 1), "settings = { confirmation = \"" + setting + "\" }\n");
        OM_uint32 major = 0;
        ASSERT_EQ(harness::configure(&major, text), "");
        scripted::script().legs.fill(legs);
        scripted::script().at('A', kServer).source = "anna@REALM";
        scripted::script().at('A', kServer).delegates = true;
    }
    void TearDown() override {
        forget_last_failure();
        NegotiationTest::TearDown();
    }
};

// ---- The hostile peer ----------------------------------------------------------------------------------------------

TEST_F(Bridge, WhatSomeoneInBetweenChangesOpensNoContextOnBothSides) {
    for (int legs = 1; legs != 4; ++legs) {
        configure(legs);
        std::vector<std::string> tokens;
        const auto again = [&](const auto &between) {
            const scripted::Script script = scripted::script();
            scripted::reset();
            scripted::script() = script;
            Pair pair;
            pair.run(between);
            return pair.is_open();
        };
        ASSERT_TRUE(again([&](std::size_t, std::string &token) { tokens.push_back(token); }));
        ASSERT_GE(tokens.size(), 4U);
        for (std::size_t which = 0; which != tokens.size(); ++which) {
            const auto open_with = [&](const std::string &other) {
                return again([&](std::size_t number, std::string &token) {
                    if (number == which)
                        token = other;
                });
            };
            for (std::size_t at = 0; at != tokens[which].size(); ++at) {
                std::string changed = tokens[which];
                changed[at] = static_cast<char>(changed[at] ^ 1);
                // The scripted MIC's second octet is its quality of protection, which it does not sign.
                EXPECT_TRUE(!open_with(changed) || (changed.starts_with('\x82') && at == 3)) << which << ' ' << at;
                EXPECT_FALSE(open_with(tokens[which].substr(0, at))) << which << ' ' << at;
            }
            for (const std::string &other : tokens)
                EXPECT_TRUE(other == tokens[which] || !open_with(other)) << which;
        }
    }
}

// The offer to confirm is the last element of each side's first token, three octets behind which nothing comes.
void take_offers(std::size_t number, std::string &token) {
    if (number > 1)
        return;
    token.resize(token.size() - 3);
    const auto shorten = [&](std::size_t at) { // lengths of two octets do not become shorter here
        const auto first = static_cast<unsigned char>(token[at + 1]);
        char &last = token[at + 1 + (first < 0x80 ? 0 : first & 0x7F)];
        last = static_cast<char>(last - 3);
    };
    shorten(0);
    if (number == 0)
        shorten(token.find("\x2b\x06\x01\x04\x01\x81\xfd\x59\x01\x01") + 10);
}

TEST_F(Bridge, APeerThatDoesNotOfferIsRefusedUnlessTheConfigurationLetsItBe) {
    for (const std::string setting : {"if-offered", "if-possible", "required"}) {
        configure(1, setting);
        Pair pair;
        pair.run(take_offers);
        EXPECT_EQ(pair.is_open(), setting == "if-offered") << setting;
        const std::string story = pair.server.context == nullptr ? told_of_the_last(QXNEGO_GSS_STORY)
                                                                 : told(pair.server.context, QXNEGO_GSS_STORY);
        EXPECT_NE(story.find(pair.is_open() ? "\"confirmation\":\"unconfirmed\""
                                            : "the peer does not offer to confirm the negotiation"),
                  std::string::npos)
            << story;
    }
}

TEST_F(Bridge, TheOfferIsPassedOverByAPeerThatDoesNotKnowIt) {
    configure(1);
    scripted::script().at('A', kServer).delegates = false;
    Session session("A", "A");
    const std::string first = session.client.call("").token, offering = bridge::with_offer(first);
    EXPECT_EQ(offering.size(), first.size() + 3);
    const Outcome answer = session.server.call(offering);
    EXPECT_EQ(answer.statuses(), kDone);
    EXPECT_EQ(session.client.call(bridge::with_offer(answer.token)).statuses(), kDone);
}

TEST_F(Bridge, WhatIsNoTokenIsRefusedWithAStoryAndLeavesNoContext) {
    configure(1);
    const std::string huge(QXGSS_SESSION_MAX_MESSAGE + 1, '\x60');
    for (const std::string &token :
         {std::string(), std::string("x"), std::string("\x60\x80\0\0", 4), std::string("\x83\x01\x01"),
          std::string("\x82\x01x"), huge, std::string("\x60\x0b\x06\x09\x2a\x86\x48\x86\xf7\x12\x01\x02\x02")}) {
        End server(kServer);
        server.step(token);
        EXPECT_NE(GSS_ERROR(server.major), 0U);
        EXPECT_EQ(server.context, GSS_C_NO_CONTEXT);
        EXPECT_NE(told_of_the_last(QXNEGO_GSS_STORY).find("\"side\":\"server\""), std::string::npos);
    }
}

TEST_F(Bridge, AFailedContextDoesNothingMoreAndTellsWhy) {
    configure(3);
    scripted::script().at('A', kServer).failing_call = 2;
    scripted::script().at('A', kServer).text = "the first cause";
    Pair pair;
    pair.run();
    ASSERT_NE(pair.server.context, GSS_C_NO_CONTEXT);
    EXPECT_EQ(pair.server.step("x"), "");
    EXPECT_EQ(pair.server.major, GSS_S_NO_CONTEXT);
    EXPECT_NE(told(pair.server.context, QXNEGO_GSS_STORY).find("\"failure\":\"A: \\\"the first cause\\\""),
              std::string::npos);
    EXPECT_NE(told(pair.server.context, QXNEGO_GSS_LOG).find("the first cause"), std::string::npos);
    gss_buffer_desc text = view_of("text");
    Given message;
    EXPECT_EQ(called(bridge_gss_wrap, pair.server.context, 0, 0U, &text, nullptr, &message), GSS_S_NO_CONTEXT);
}

// ---- No memory -----------------------------------------------------------------------------------------------------

void live_with_names() {
    gss_buffer_desc text = view_of("anna");
    GivenName name, copy, again;
    Given exported, shown;
    int equal = 0;
    called(bridge_gss_import_name, &text, GSS_C_NT_USER_NAME, &name.handle);
    if (name.handle == nullptr)
        return;
    called(bridge_gss_duplicate_name, name.handle, &copy.handle);
    called(bridge_gss_export_name, name.handle, &exported);
    called(bridge_gss_import_name, &exported, GSS_C_NT_EXPORT_NAME, &again.handle);
    called(bridge_gss_display_name, name.handle, &shown, nullptr);
    if (again.handle != nullptr)
        called(bridge_gss_compare_name, name.handle, again.handle, &equal);
    EXPECT_TRUE(failed || (equal == 1 && shown.text() == "anna"));
}

void acquire(End &end) {
    scripted::script().acting = end.side;
    gss_buffer_desc text = view_of("anna"), password = view_of(kPassword);
    GivenName name, found;
    called(bridge_gss_import_name, &text, GSS_C_NT_USER_NAME, &name.handle);
    if (end.side == kClient && name.handle != nullptr)
        called(bridge_gssspi_acquire_cred_with_password, name.handle, &password, 0U, nullptr, GSS_C_INITIATE,
               &end.credential, nullptr, nullptr);
    if (end.side == kServer)
        called(bridge_gss_acquire_cred, nullptr, 0U, nullptr, GSS_C_ACCEPT, &end.credential, nullptr, nullptr);
    if (end.credential != nullptr)
        called(bridge_gss_inquire_cred, end.credential, &found.handle, nullptr, nullptr, nullptr);
}

void ask(End &end) {
    if (end.context == nullptr)
        return;
    GivenName source, target;
    int is_open = 0;
    called(bridge_gss_inquire_context, end.context, &source.handle, &target.handle, nullptr, nullptr, nullptr, nullptr,
           &is_open);
    EXPECT_TRUE(failed || is_open == 1);
    is_whole = is_whole && !told(end.context, QXNEGO_GSS_LOG).empty();
    const std::string story = told(end.context, QXNEGO_GSS_STORY);
    EXPECT_TRUE(failed || (told(end.context, QXNEGO_GSS_SELECTED) == "A" &&
                           story.find("\"confirmation\":\"confirmed\"") != std::string::npos));
}

void exchange(const End &from, const End &to) {
    if (!from.is_open() || !to.is_open())
        return;
    gss_buffer_desc text = view_of("message");
    Given wrapped, opened, mic;
    called(bridge_gss_wrap, from.context, 1, 0U, &text, nullptr, &wrapped);
    called(bridge_gss_unwrap, to.context, &wrapped, &opened, nullptr, nullptr);
    called(bridge_gss_get_mic, from.context, 0U, &text, &mic);
    called(bridge_gss_verify_mic, to.context, &text, &mic, nullptr);
    EXPECT_TRUE(failed || opened.text() == "message");
}

void live() {
    failed = false;
    live_with_names();
    Pair pair;
    acquire(pair.client);
    acquire(pair.server);
    if (pair.client.credential != nullptr && pair.server.credential != nullptr)
        pair.run();
    EXPECT_TRUE(failed || pair.is_open());
    is_whole = pair.server.delegated != nullptr;
    ask(pair.client);
    ask(pair.server);
    exchange(pair.client, pair.server);
}

TEST_F(Bridge, EveryAllocationMayFail) {
    configure(2);
    const scripted::Script script = scripted::script();
    live(); // what is made once
    EXPECT_TRUE(!failed && is_whole);
    failing_heap::watch_for(kPassword);
    for (const bool all_later : {false, true}) {
        int points = 0;
        for (bool happened = true; happened && !HasFailure(); points += happened) {
            SCOPED_TRACE("allocation " + std::to_string(points) + (all_later ? " and all later" : ""));
            scripted::reset();
            scripted::script() = script;
            forget_last_failure();
            const long before = failing_heap::live_blocks();
            {
                const failing_heap::InWindows failing(points, all_later);
                live();
                happened = failing.happened();
            }
            forget_last_failure();
            EXPECT_EQ(scripted::live_objects(), 0);
            EXPECT_EQ(failing_heap::live_blocks(), before);
            EXPECT_EQ(failing_heap::secrets_given_back(), 0);
        }
        std::printf("%d allocations failed\n", points);
    }
    failing_heap::watch_for("");
}

} // namespace
