// Every allocation fails once, and with all later ones: each subject runs with allocation number 0, 1, 2 ... failing
// until a run sees no failure. A call then fails with a status of the tables or is right; its outputs are whole, the
// handles can be asked and deleted, nothing is left, and no block that is given back holds the password.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>

#include "qxat/qxatldapauthorize.h"
#include "qxgss/internal.h"
#include "tests/failing_heap.h"
#include "tests/scenarios.h"

namespace {

using namespace harness;
using failing_heap::Window;

constexpr std::string_view kPassword = "Tr0ub4dor-x3";
int points = 0; // allocations failed, of all subjects

bool is_in_tables(OM_uint32 minor) {
    const bool error = (minor & 0x80000000U) != 0;
    return error && (std::strcmp(qxnegoerrtostr(minor), "?") != 0 || std::strcmp(qxgsserrtostr(minor), "?") != 0 ||
                     minor == scripted::Behaviour().minor || minor == scripted::kBadToken);
}

// A call of the code under test: only what it allocates can fail.
template <typename... Parameters>
OM_uint32 called(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    OM_uint32 major = 0, minor = 0;
    {
        const Window open;
        major = call(&minor, arguments...);
    }
    EXPECT_TRUE(GSS_ERROR(major) == 0 || is_in_tables(minor)) << hex(major) << '/' << hex(minor);
    return major;
}

// A buffer of a call: whole or empty, and empty after a failure.
struct Output : qxgss_buffer_desc {
    Output() : qxgss_buffer_desc{0, nullptr} {}
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    ~Output() { gssp_release_buffer(nullptr, this); }
    void check(OM_uint32 major) const {
        EXPECT_EQ(length == 0, value == nullptr);
        EXPECT_TRUE(GSS_ERROR(major) == 0 || value == nullptr);
    }
};

// ---- Negotiations --------------------------------------------------------------------------------------------------

void log_on(Peer &peer, Side side, const char *logon) {
    if (logon == nullptr)
        return;
    char text[200];
    std::snprintf(text, sizeof text, "%s%s%s", logon, std::strstr(logon, "password=") == nullptr ? " password=" : " ",
                  std::strstr(logon, "password=") == nullptr ? kPassword.data() : "");
    qxgss_buffer_desc buffer{std::strlen(text), text};
    qxgss_name_t name = nullptr, kept = nullptr;
    qxgss_OID_set mechs = nullptr;
    if (GSS_ERROR(called(qxgss_import_name, &buffer, GSS_C_NT_QXAT_MECHDATA_UTF8, &name)) != 0)
        return;
    const OM_uint32 major = called(QXNEGO_acquire_cred, name, 600, pQxnegoMechOidSet,
                                   side == kClient ? GSS_C_INITIATE : GSS_C_ACCEPT, &peer.credential, &mechs, nullptr);
    EXPECT_EQ(GSS_ERROR(major) == 0, peer.credential != nullptr);
    EXPECT_EQ(GSS_ERROR(major) == 0, mechs != nullptr);
    gssp_release_name(nullptr, &name);
    gssp_release_oid_set(nullptr, &mechs);
    const OM_uint32 inquired =
        called(QXNEGO_inquire_cred, peer.credential, side == kClient ? &kept : nullptr, nullptr, nullptr, &mechs);
    EXPECT_TRUE(GSS_ERROR(inquired) == 0 || (kept == nullptr && mechs == nullptr));
    gssp_release_name(nullptr, &kept);
    gssp_release_oid_set(nullptr, &mechs);
}

// One call of a side; false when the negotiation ends with it.
bool step(Peer &peer, Side side, std::string &token, bool &done) {
    Output output;
    gssp_release_name(nullptr, &peer.source);
    qxgss_buffer_desc input{token.size(), token.data()};
    peer.act();
    const OM_uint32 major =
        side == kClient ? called(QXNEGO_init_sec_context, peer.credential, &peer.context, nullptr, nullptr, 0, 0,
                                 nullptr, &input, &peer.mech_type, &output, &peer.flags, &peer.lifetime)
                        : called(QXNEGO_accept_sec_context, &peer.context, peer.credential, &input, nullptr,
                                 &peer.source, &peer.mech_type, &output, &peer.flags, &peer.lifetime, &peer.delegated);
    output.check(major);
    EXPECT_TRUE(major == GSS_S_COMPLETE || (peer.source == nullptr && peer.delegated == nullptr));
    EXPECT_TRUE(GSS_ERROR(major) != 0 || peer.context != nullptr);
    done = major == GSS_S_COMPLETE;
    token = text_of(output);
    return GSS_ERROR(major) == 0;
}

// Inquiries and messages of a context in any state.
void use(Peer &peer) {
    if (peer.context == nullptr)
        return;
    peer.act();
    char text[] = "message";
    qxgss_buffer_desc message{7, text};
    Output wrapped, opened, mic, properties;
    OM_uint32 flags = 0, limit = 0;
    int open = 0;
    wrapped.check(called(QXNEGO_wrap, peer.context, 1, 0, &message, nullptr, &wrapped));
    opened.check(called(QXNEGO_unwrap, peer.context, &wrapped, &opened, nullptr, nullptr));
    mic.check(called(QXNEGO_get_mic, peer.context, 0, &message, &mic));
    called(QXNEGO_verify_mic, peer.context, &message, &mic, nullptr);
    called(QXNEGO_wrap_size_limit, peer.context, 1, 0, 100, &limit);
    called(QXNEGO_inquire_context, peer.context, nullptr, nullptr, nullptr, nullptr, &flags, nullptr, &open);
    for (int i = 0; i < 2; ++i) {
        Output each;
        each.check(called(QXNEGO_inquire_properties_for_user, peer.context, &each));
    }
}

// Of the mechanism chosen.
char letter(const Peer &peer) {
    return static_cast<char>('A' - 1 + static_cast<const char *>(peer.mech_type->elements)[9]);
}

void release(Peer &peer) {
    peer.act();
    if (peer.delegated != nullptr)
        registered(std::string(1, letter(peer))).MechFtnTable.ftn_gssp_release_cred(nullptr, &peer.delegated);
    if (peer.context != nullptr)
        called(QXNEGO_delete_sec_context, &peer.context, nullptr);
    if (peer.credential != nullptr)
        called(QXNEGO_release_cred, &peer.credential);
    EXPECT_TRUE(peer.context == nullptr && peer.credential == nullptr);
}

// Both agree, on a mechanism that policy and authorization do not forbid in the same negotiation without failures.
void expect_right(const Scenario &scenario, const Session &session) {
    EXPECT_EQ(letter(session.client), letter(session.server));
    const std::string usual = scenario.server_entries != nullptr ? scenario.server_entries : "";
    for (const char *forbidden : {"35", "39"})
        EXPECT_EQ(usual.find(letter(session.server) + std::string(forbidden)), std::string::npos);
}

void negotiate(const Scenario &scenario) {
    prepare(scenario);
    for (int letter = 'A'; letter < 'A' + scripted::kMechanisms; ++letter) {
        scripted::Behaviour &server = scripted::script().at(static_cast<char>(letter), kServer);
        server.source = "anna@REALM";
        server.delegates = true;
        server.properties = {"\x09\0\x0C\0\x04\0anna\0\0", 12};
    }
    Session session(scenario.client, scenario.server);
    log_on(session.client, kClient, scenario.logon);
    log_on(session.server, kServer, scenario.server_logon);
    // A side that could not log on does not call: without a credential it would be another user.
    bool go_on = (session.client.credential != nullptr) == (scenario.logon != nullptr) &&
                 (session.server.credential != nullptr) == (scenario.server_logon != nullptr);
    bool done[2] = {false, false};
    std::string token;
    for (int turn = 0; go_on && turn < 8 && !(done[0] && done[1]); ++turn) {
        const Side side = turn % 2 == 0 ? kClient : kServer;
        go_on = step(session.side(side), side, token, done[side]) && (done[side] || !token.empty());
        if (turn == 1)
            use(session.server);
    }
    if (go_on && done[0] && done[1])
        expect_right(scenario, session);
    for (Peer *peer : {&session.client, &session.server}) {
        use(*peer);
        release(*peer);
    }
}

// ---- Everything else -----------------------------------------------------------------------------------------------

// Configures from the file, asks, and shuts down again.
void configure_framework(const std::string &path) {
    Output message;
    const OM_uint32 major = called(qxgss_configure, QXGSS_SERVER, path.c_str(), &message);
    EXPECT_EQ(message.length == 0, message.value == nullptr);
    EXPECT_EQ(GSS_ERROR(major) == 0, pMechInfo != nullptr && MechCount != 0);
    for (OM_uint32 i = 0; i < MechCount; ++i)
        EXPECT_EQ(pMechInfo[i].fUseMech == GSSP_MECH_UNUSED, pMechInfo[i].pszMessage != nullptr);
    qxgss_OID_set mechs = nullptr, names = nullptr;
    EXPECT_TRUE(GSS_ERROR(called(QXNEGO_indicate_mechs, &mechs)) == 0 || mechs == nullptr);
    EXPECT_TRUE(GSS_ERROR(called(QXNEGO_inquire_names_for_mech, nullptr, &names)) == 0 || names == nullptr);
    gssp_release_oid_set(nullptr, &mechs);
    gssp_release_oid_set(nullptr, &names);
    release_module_state();
    qxgss_shutdown(nullptr);
}

void show_statuses() {
    for (const OM_uint32 status : {QXNEGO_E_CALLOC, QXNEGO_E_NO_MECHANISM}) {
        Output text; // its length is set before the memory is asked for, and stays
        const OM_uint32 major = called(QXNEGO_display_status, status, GSS_C_MECH_CODE, pQxnegoMechOid, nullptr, &text);
        EXPECT_EQ(GSS_ERROR(major) == 0, text.value != nullptr);
    }
}

// Text that has to be converted; negotiations log on with UTF-8.
void handle_names() {
    char wide[2 * kPassword.size()]{};
    for (std::size_t i = 0; i < kPassword.size(); ++i)
        wide[2 * i] = kPassword[i];
    qxgss_buffer_desc buffer{sizeof wide, wide};
    qxgss_name_t name = nullptr;
    qxgss_cred_id_t credential = nullptr;
    const OM_uint32 major = called(qxgss_import_name, &buffer, GSS_C_NT_QXAT_MECHDATA_UTF16, &name);
    EXPECT_EQ(GSS_ERROR(major) == 0, name != nullptr);
    const OM_uint32 acquired = called(QXNEGO_acquire_cred, name, 1, nullptr, GSS_C_BOTH, &credential, nullptr, nullptr);
    EXPECT_EQ(GSS_ERROR(acquired) == 0, credential != nullptr);
    gssp_release_name(nullptr, &name);
    called(QXNEGO_inquire_cred, credential, &name, nullptr, nullptr, nullptr);
    if (credential != nullptr)
        called(QXNEGO_release_cred, &credential);
    gssp_release_name(nullptr, &name);
}

void handle_oids() {
    qxgss_OID oid = nullptr;
    qxgss_OID_set set = nullptr, policy = nullptr;
    for (const char *dotted : {"1.3.6.1.4.1.32473.9.9", "2.999.4294967295", "1.3.6.1.4.1.32473.2.1"}) {
        const OM_uint32 major = called(gssp_mechoidstr_to_oid, dotted, &oid);
        EXPECT_EQ(GSS_ERROR(major) == 0, oid != nullptr);
    }
    if (GSS_ERROR(called(gssp_create_empty_oid_set, &set)) == 0 && oid != nullptr)
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t before = set->count;
            const OM_uint32 major = called(gssp_add_oid_set_member, oid, &set);
            EXPECT_EQ(set->count, before + (GSS_ERROR(major) == 0));
        }
    gssp_release_oid_set(nullptr, &set);
    const OM_uint32 major = called(gssp_inquire_mech_policy_for_user, "onlya", &policy);
    EXPECT_EQ(GSS_ERROR(major) == 0, policy != nullptr && policy->count == 1);
    gssp_release_oid_set(nullptr, &policy);
    qxgss::forget_unregistered_oids();
}

void parse_logons() {
    const std::string longest = "authcid=a user=" + std::string(1024, 'u'); // read on the heap
    for (const auto &[text, flags] :
         {std::pair{"authcid=anna password=Tr0ub4dor-x3 realm=r authzid=z mech=m user=u profile=p userproperties=x",
                    QXAT_FLAG_NONE},
          {"anna user=u password=Tr0ub4dor-x3", QXAT_FLAG_NONE},
          {"anna@@Tr0ub4dor-x3 user=u", QXAT_FLAG_UNESCAPE_PASSWORD},
          {"anna@R@@Tr0ub4dor-x3 profile=p", QXAT_FLAG_UNESCAPE_ALL},
          {"'anna@@Tr0ub4dor-x3' authcid=twice", QXAT_FLAG_UNESCAPE_ALL},
          {"authcid=a password=Tr0ub4dor-x3 user=b user=c", QXAT_FLAG_NONE},
          {longest.c_str(), QXAT_FLAG_NONE}}) {
        char *parts[9]{};
        const OM_uint32 major = called(qxat_parse_logon, text, &parts[0], &parts[1], &parts[2], &parts[3], &parts[4],
                                       &parts[5], &parts[6], &parts[7], &parts[8], flags);
        for (char *part : parts) {
            EXPECT_TRUE(part == nullptr || GSS_ERROR(major) == 0);
            if (part == nullptr)
                continue;
            explicit_bzero(part, std::strlen(part)); // as its owner must
            qxgss_buffer_desc owned{1, part};
            gssp_release_buffer(nullptr, &owned);
        }
    }
}

void write_records() {
    char text[] = "text", more[] = "more";
    qxs_name_t none[] = {nullptr}, two[] = {text, more, nullptr};
    qxs_authorizations_t user{};
    user.ta_authorizeas = QXS_AUTHZ_USER;
    user.ta_service = user.ta_ldapurl = user.ta_databasename = text;
    user.ta_roles = two;
    user.ta_profile = user.ta_user = none;
    Output records, mechanism;
    unsigned char authenticated = 1;
    qxgss_OID_desc oid = oid_of('A');
    records.check(called(qxat_fill_authorizations, &records, "anna", "dom", &user, nullptr, nullptr, 1));
    mechanism.check(called(qxat_fill_mechinfo, &records, &mechanism, &authenticated, &oid));
}

// Elements that end at every place around the end of the encoder's first block.
void write_elements() {
    const std::string text(512, 'x');
    for (std::size_t length = 490; length <= text.size(); ++length) {
        const Window open;
        const qxgss_buffer_desc string{length, const_cast<char *>(text.data())};
        const OM_uint32 number = 0x12345678;
        gsspasn_encoding_t encoder = nullptr;
        OM_uint32 status = gsspasn_open_encode_handle(&encoder);
        const bool opened = status == GSSPASN_E_SUCCESS;
        if (opened)
            status = gsspasn_start_encode_sequence(encoder, 0);
        if (status == GSSPASN_E_SUCCESS)
            status = gsspasn_put_encode_item(encoder, 1, GSSPASN_OCTET_STRING, &string);
        if (status == GSSPASN_E_SUCCESS)
            status = gsspasn_put_encode_item(encoder, 2, GSSPASN_INTEGER, &number);
        if (status == GSSPASN_E_SUCCESS)
            status = gsspasn_stop_encode_sequence(encoder, 0);
        EXPECT_TRUE(status == GSSPASN_E_SUCCESS || status == GSSPASN_E_NO_MEMORY) << length;
        Output token;
        const OM_uint32 closed = gsspasn_close_encode_handle(&encoder, status == GSSPASN_E_SUCCESS ? &token : nullptr);
        EXPECT_EQ(closed, opened ? GSSPASN_E_SUCCESS : GSSPASN_E_NO_HANDLE);
        EXPECT_EQ(token.length, status == GSSPASN_E_SUCCESS ? length + 14 : 0);
    }
}

// More records than the log has room for at first.
void fill_log() {
    NegContext_desc context{};
    called(QXNEGO_INT_InitNegLog, &context);
    for (int i = 0; i < 130; ++i)
        called(QXNEGO_INT_NegLogEntry, "text", nullptr, &context);
    Output rendered;
    rendered.check(called(QXNEGO_INT_GetNegLog, &context, 0U, &rendered));
    called(QXNEGO_INT_ReleaseNegLog, &context);
}

// So many unknown mechanisms that they are found by their order.
void meet_many_mechanisms() {
    Peer server(kServer, "A");
    server.act();
    QxnegoSecCtx_int_t made = nullptr;
    QXNEGO_INT_InitializeContext(nullptr, 0, &made);
    server.context = made;
    for (unsigned char i = 0; i < 40; ++i) {
        NegMechEntry_desc peer{};
        unsigned char *bytes = static_cast<unsigned char *>(std::malloc(1));
        *bytes = i;
        peer.MechOidFromPeer = {1, bytes};
        peer.pMechOid = &peer.MechOidFromPeer;
        const OM_uint32 before = made->NegCtx.NegMechList.Count;
        const OM_uint32 major = called(QXNEGO_INT_ProcessNegMech, &peer, &made->NegCtx);
        EXPECT_EQ(made->NegCtx.NegMechList.Count, before + (GSS_ERROR(major) == 0));
        std::free(peer.MechOidFromPeer.elements);
    }
}

// ---- The sweep -----------------------------------------------------------------------------------------------------

void sweep(const std::string &subject, const std::function<void()> &run) {
    for (const bool all_later : {false, true}) {
        bool happened = true;
        for (int n = 0; happened && !testing::Test::HasFailure(); ++n) {
            const long before = failing_heap::live_blocks();
            {
                const failing_heap::InWindows failing(n, all_later);
                run();
                happened = failing.happened();
            }
            EXPECT_EQ(failing_heap::live_blocks(), before);
            EXPECT_EQ(scripted::live_objects(), 0);
            EXPECT_EQ(failing_heap::secrets_given_back(), 0);
            points += happened;
            if (testing::Test::HasFailure())
                ADD_FAILURE() << subject << ": allocation " << n << (all_later ? " and all later" : "") << " failed";
        }
        scripted::reset();
    }
}

class AllocationSweep : public testing::Test {
  protected:
    void SetUp() override {
        OM_uint32 major = 0;
        scripted::reset();
        ASSERT_EQ(configure(&major, configuration()), "");
        failing_heap::watch_for(kPassword);
    }
    void TearDown() override { std::printf("%d allocations failed\n", points); }
};

TEST_F(AllocationSweep, Negotiations) {
    for (const Scenario &scenario : scenarios())
        sweep(scenario.name, [&] { negotiate(scenario); });
}

TEST_F(AllocationSweep, Configuration) {
    qxgss_shutdown(nullptr);
    release_module_state();
    for (const char *more :
         {"default = [\"A\"]\n[policy.users.\"a long account\"]\nmechanisms = \"none\"\nnames = [\"D\\\\a long "
          "name\"]\n",
          "default = [\"nobody\"]\n", "default = []\n[[mechanism]]\nname = \"X\"\noid = \"1.2.3\"\nprefix = \"NONE\"\n",
          "= wrong"}) {
        const std::string path = testing::TempDir() + "allocation_sweep.toml";
        std::ofstream(path) << configuration({kStandard[0], kStandard[1]}) << "[policy]\n" << more;
        sweep(more, [&] { configure_framework(path); });
        std::remove(path.c_str());
    }
}

TEST_F(AllocationSweep, EverythingElse) {
    sweep("names", handle_names);
    sweep("OIDs", handle_oids);
    sweep("statuses", show_statuses);
    sweep("logons", parse_logons);
    sweep("records", write_records);
    sweep("elements", write_elements);
    sweep("log", fill_log);
    sweep("many mechanisms", meet_many_mechanisms);
}

} // namespace
