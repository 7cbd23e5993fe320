// The bridge's operations as the host's library calls them, over the scripted mechanisms. Every allocation fails once,
// and with all later ones: a call is then right, or says so and hands out nothing, and nothing is left behind; what a
// failure leaves can be asked for. What someone in between can do is the fuzz target's.
#include <utility>

#include "bridge/gssapi/call.h"
#include "bridge/gssapi/framing.h"
#include "bridge/gssapi/qxnego_gssapi.h"
#include "testkit/conversation.h"
#include "tests/failing_heap.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace harness;
using testkit::Between;

constexpr std::string_view kPassword = "Tr0ub4dor-x3";
bool failed = false;  // a call of this life has
bool is_whole = true; // this life has had what may be lost without a word: a delegated credential, logs

gss_buffer_desc view_of(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())};
}

// What a call hands out.
struct Given {
    Given() = default;
    Given(const Given &) = delete;
    Given &operator=(const Given &) = delete;
    ~Given() {
        std::free(text.value);
        bridge_gss_release_name(nullptr, &name);
    }
    gss_buffer_desc text{};
    gss_name_t name = GSS_C_NO_NAME;
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
    Given why;
    const OM_uint32 shown = bridge_gss_display_status(&minor, minor, GSS_C_MECH_CODE, GSS_C_NO_OID, &more, &why.text);
    EXPECT_TRUE(GSS_ERROR(shown) != 0 ? why.text.value == nullptr : why.text.length != 0);
    return major;
}

// Of that context, or of the last one that has gone with its failure.
std::string told(gss_ctx_id_t context, std::string_view which) {
    gss_OID_desc oid{static_cast<OM_uint32>(which.size()), const_cast<char *>(which.data())};
    gss_buffer_set_t set = GSS_C_NO_BUFFER_SET;
    Given of_the_last;
    OM_uint32 minor = 0;
    const bool well =
        GSS_ERROR(context == nullptr ? called(bridge_gssspi_mech_invoke, GSS_C_NO_OID, &oid, &of_the_last.text)
                                     : called(bridge_gss_inquire_sec_context_by_oid, context, &oid, &set)) == 0;
    EXPECT_EQ(well, context == nullptr || set != GSS_C_NO_BUFFER_SET);
    const std::string text(bridge::bytes_of(set == GSS_C_NO_BUFFER_SET ? &of_the_last.text : &set->elements[0]));
    gss_release_buffer_set(&minor, &set);
    return text;
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
        gss_buffer_desc input = view_of(token), service = view_of("host@server");
        Given target, given;
        const bool is_first = context == GSS_C_NO_CONTEXT;
        called(bridge_gss_import_name, &service, GSS_C_NT_HOSTBASED_SERVICE, &target.name);
        major = side == kClient ? called(bridge_gss_init_sec_context, credential, &context, target.name, nullptr,
                                         GSS_C_INTEG_FLAG | GSS_C_DELEG_FLAG, 0U, nullptr, &input, nullptr, &given.text,
                                         &flags, nullptr)
                                : called(bridge_gss_accept_sec_context, &context, credential, &input, nullptr,
                                         &given.name, nullptr, &given.text, &flags, nullptr, &delegated);
        EXPECT_TRUE(GSS_ERROR(major) == 0 || !is_first || context == GSS_C_NO_CONTEXT);
        EXPECT_TRUE(major == GSS_S_COMPLETE || (given.name == nullptr && delegated == nullptr && flags == 0));
        return std::string(bridge::bytes_of(&given.text));
    }
    bool is_open() const { return context != GSS_C_NO_CONTEXT && major == GSS_S_COMPLETE; }

    const Side side;
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
    gss_cred_id_t credential = GSS_C_NO_CREDENTIAL, delegated = GSS_C_NO_CREDENTIAL;
    OM_uint32 major = GSS_S_CONTINUE_NEEDED, flags = 0;
};

struct Pair {
    void run(const Between &between = {}) { testkit::converse(client, server, between); }
    bool is_open() const { return client.is_open() && server.is_open(); }

    End client{kClient}, server{kServer};
};

class Bridge : public NegotiationTest {
  protected:
    // One mechanism, with so many legs; QXNEGO has the setting.
    void configure(int legs, const std::string &setting = "if-possible") {
        std::string text = configuration({{'A', true, true, true, 10}});
        text.insert(text.find("[[mechanism]]", 1), "settings = { confirmation = \"" + setting + "\" }\n");
        OM_uint32 major = 0;
        ASSERT_EQ(harness::configure(&major, text), "");
        script_.legs.fill(legs);
        script_.at('A', kServer).source = "anna@REALM";
        script_.at('A', kServer).delegates = true;
        scripted::script() = script_;
    }
    void TearDown() override { forget(); }
    // What the last contexts may leave behind; an assignment would leave the last failure its memory.
    void forget() {
        EXPECT_EQ(scripted::live_objects(), 0);
        std::exchange(bridge::last_failure(), {});
        scripted::reset();
        scripted::script() = script_;
    }

    scripted::Script script_;
};

// ---- The hostile peer ----------------------------------------------------------------------------------------------

TEST_F(Bridge, APeerThatDoesNotOfferIsRefusedUnlessTheConfigurationLetsItBe) {
    const auto take_offers = [](std::size_t number, std::string &token) {
        std::string bare(number == 1 ? bridge::unframed(token) : token);
        if (number <= 2 && bridge::take_offer(bare))
            token = number == 1 ? bridge::framed(bare) : bare;
    };
    for (const std::string setting : {"if-offered", "if-possible", "required"}) {
        configure(1, setting);
        Pair pair;
        pair.run(take_offers);
        EXPECT_EQ(pair.is_open(), setting == "if-offered") << setting;
        EXPECT_PRED_FORMAT2(testing::IsSubstring,
                            pair.is_open() ? "\"confirmation\":\"unconfirmed\""
                                           : "the peer does not offer to confirm the negotiation",
                            told(pair.server.context, QXNEGO_GSS_STORY));
    }
}

TEST_F(Bridge, TheOfferIsAnElementThatOthersPassOver) {
    configure(1);
    scripted::script().at('A', kServer).delegates = false;
    Session session("A", "A");
    const Outcome answer = session.server.call(bridge::with_offer(session.client.call("").token));
    EXPECT_EQ(answer.statuses(), kDone);
    EXPECT_EQ(session.client.call(bridge::with_offer(answer.token)).statuses(), kDone);
    std::string within("\xa0\x05\x82\x03\x9e\x01\x01"); // another element's contents
    EXPECT_FALSE(bridge::take_offer(within));
}

TEST_F(Bridge, AFailedContextDoesNothingMoreAndTellsWhy) {
    configure(3);
    scripted::script().at('A', kServer).failing_call = 2;
    scripted::script().at('A', kServer).text = "the first cause";
    Pair pair;
    pair.run();
    const gss_ctx_id_t context = pair.server.context;
    ASSERT_NE(context, GSS_C_NO_CONTEXT);
    EXPECT_EQ(pair.server.step("x"), "");
    EXPECT_EQ(pair.server.major, GSS_S_NO_CONTEXT);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "\"failure\":\"A: \\\"the first cause\\\"",
                        told(context, QXNEGO_GSS_STORY));
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "the first cause", told(context, QXNEGO_GSS_LOG));
    Given text, message;
    EXPECT_EQ(called(bridge_gss_wrap, context, 0, 0U, &text.text, nullptr, &message.text), GSS_S_NO_CONTEXT);
}

// ---- No memory -----------------------------------------------------------------------------------------------------

void live_with_names() {
    gss_buffer_desc text = view_of("anna");
    Given name, copy, again, exported, shown;
    int equal = 0;
    called(bridge_gss_import_name, &text, GSS_C_NT_USER_NAME, &name.name);
    called(bridge_gss_duplicate_name, name.name, &copy.name);
    called(bridge_gss_export_name, name.name, &exported.text);
    called(bridge_gss_import_name, &exported.text, GSS_C_NT_EXPORT_NAME, &again.name);
    called(bridge_gss_display_name, name.name, &shown.text, nullptr);
    called(bridge_gss_compare_name, copy.name, again.name, &equal);
    EXPECT_TRUE(failed || (equal == 1 && bridge::bytes_of(&shown.text) == "anna"));
}

// Whether the end has a credential: without one it would be another user.
bool acquire(End &end) {
    scripted::script().acting = end.side;
    gss_buffer_desc text = view_of("anna"), password = view_of(kPassword);
    Given name, found;
    called(bridge_gss_import_name, &text, GSS_C_NT_USER_NAME, &name.name);
    end.side == kClient
        ? called(bridge_gssspi_acquire_cred_with_password, name.name, &password, 0U, nullptr, GSS_C_INITIATE,
                 &end.credential, nullptr, nullptr)
        : called(bridge_gss_acquire_cred, nullptr, 0U, nullptr, GSS_C_ACCEPT, &end.credential, nullptr, nullptr);
    called(bridge_gss_inquire_cred, end.credential, &found.name, nullptr, nullptr, nullptr);
    return end.credential != nullptr;
}

void ask(const End &end) {
    Given source, target;
    int is_open = 0;
    called(bridge_gss_inquire_context, end.context, &source.name, &target.name, nullptr, nullptr, nullptr, nullptr,
           &is_open);
    EXPECT_TRUE(is_open == 0 || end.is_open());
    is_whole = is_whole && !told(end.context, QXNEGO_GSS_LOG).empty();
    const std::string story = told(end.context, QXNEGO_GSS_STORY);
    EXPECT_TRUE(failed || (is_open == 1 && told(end.context, QXNEGO_GSS_SELECTED) == "A" &&
                           story.find("\"confirmation\":\"confirmed\"") != std::string::npos));
}

void exchange(const End &from, const End &to) {
    gss_buffer_desc text = view_of("message");
    Given wrapped, opened, mic;
    called(bridge_gss_wrap, from.context, 1, 0U, &text, nullptr, &wrapped.text);
    called(bridge_gss_unwrap, to.context, &wrapped.text, &opened.text, nullptr, nullptr);
    called(bridge_gss_get_mic, from.context, 0U, &text, &mic.text);
    called(bridge_gss_verify_mic, to.context, &text, &mic.text, nullptr);
    EXPECT_TRUE(failed || bridge::bytes_of(&opened.text) == "message");
}

void live() {
    failed = false;
    live_with_names();
    Pair pair;
    if (acquire(pair.client) && acquire(pair.server))
        pair.run();
    EXPECT_TRUE(failed || pair.is_open());
    is_whole = pair.server.delegated != nullptr;
    ask(pair.client);
    ask(pair.server);
    exchange(pair.client, pair.server);
}

TEST_F(Bridge, EveryAllocationMayFail) {
    configure(2);
    live(); // what is made once
    EXPECT_TRUE(!failed && is_whole);
    forget();
    failing_heap::watch_for(kPassword);
    for (const bool all_later : {false, true})
        failing_heap::sweep(all_later, [&] {
            live();
            forget();
        });
    failing_heap::watch_for("");
}

} // namespace
