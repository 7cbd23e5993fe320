// Every allocation fails once, and with all later ones: each subject runs with allocation number 0, 1, 2 ... failing
// until a run sees no failure. A call then fails with a status of the tables or is right; its outputs are whole, the
// handles can be asked and deleted, nothing is left, and no block that is given back holds the password.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>

#include "common/asn.h"
#include "common/owned.h"
#include "gssp2qxnego/token_format.h"
#include "qxat/qxatldapauthorize.h"
#include "qxgss/internal.h"
#include "tests/failing_heap.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace harness;

constexpr std::string_view kPassword = "Tr0ub4dor-x3";

// Whether the call with these statuses has succeeded. A failure has a status of the tables or of the scripted
// mechanism.
bool went_well(const std::string &statuses) {
    const auto number = [&](std::size_t at) {
        return static_cast<OM_uint32>(std::stoul(statuses.substr(at, 8), {}, 16));
    };
    const bool failed = GSS_ERROR(number(0)) != 0;
    EXPECT_TRUE(!failed || ((number(9) & 0x80000000U) != 0 && is_known(number(9)))) << statuses;
    return !failed;
}

// A call of the code under test: only what it allocates can fail.
template <typename... Parameters>
bool called(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    return went_well(outcome(call, arguments...));
}

// The same of a call that makes something, by its last argument: it is there, or the call has failed.
template <typename Made, typename... Parameters, typename... Arguments>
bool makes(Made *made, OM_uint32 (*call)(OM_uint32 *, Parameters...), Arguments... arguments) {
    const bool well = called(call, arguments..., made);
    EXPECT_EQ(well, *made != Made{});
    return well;
}

// ---- Negotiations --------------------------------------------------------------------------------------------------

// Whether the side has what it must call with: without a credential it would be another user.
bool log_on(Peer &peer, const char *logon) {
    if (logon == nullptr)
        return true;
    const bool has_password = std::strstr(logon, "password=") != nullptr;
    char text[200]; // not on the heap, which is searched for the password
    std::snprintf(text, sizeof text, "%s%s%s", logon,
                  has_password ? "" : " password=", has_password ? "" : kPassword.data());
    common::Name kept;
    common::OidSet mechs;
    const bool well = went_well(peer.log_on(text));
    EXPECT_EQ(well, peer.credential != nullptr);
    const bool inquired = called(QXNEGO_inquire_cred, peer.credential, kept.out(), nullptr, nullptr, mechs.out());
    EXPECT_TRUE(inquired || (kept == nullptr && mechs == nullptr));
    return well;
}

void use_all(Peer &peer) {
    if (peer.context == nullptr)
        return;
    peer.act();
    for (int round = 0; round < 2; ++round) // what is kept for later requests is there in the second
        for (const std::string &said : use(peer.context))
            EXPECT_TRUE(went_well(said.substr(0, 17)) || said.find('[') == std::string::npos) << said;
}

void release(Peer &peer) {
    peer.act();
    if (peer.delegated != nullptr)
        registered(std::string(1, letter_of(*peer.mech_type)))
            .MechFtnTable.ftn_gssp_release_cred(nullptr, &peer.delegated);
    went_well(peer.end());
    EXPECT_TRUE(peer.credential == nullptr || called(QXNEGO_release_cred, &peer.credential));
    EXPECT_TRUE(peer.context == nullptr && peer.credential == nullptr);
}

// Both agree, on a mechanism that policy and authorization do not forbid in the same negotiation without failures.
void expect_right(const Scenario &scenario, const Session &session) {
    const char letter = letter_of(*session.server.mech_type);
    EXPECT_EQ(letter_of(*session.client.mech_type), letter);
    const std::string usual = scenario.server_log != nullptr ? scenario.server_log : "";
    for (const char *forbidden : {"35", "39"})
        EXPECT_EQ(usual.find(letter + std::string(forbidden)), std::string::npos);
}

void negotiate(const Scenario &scenario) {
    prepare(scenario);
    for (const char letter : {'A', 'B', 'C', 'D'}) {
        scripted::Behaviour &server = scripted::script().at(letter, kServer);
        server.source = "anna@REALM";
        server.delegates = true;
        server.properties = {"\x09\0\x0C\0\x04\0anna\0\0", 12};
    }
    Session session(scenario.client, scenario.server);
    const bool client_may = log_on(session.client, scenario.logon);
    const bool may = log_on(session.server, scenario.server_logon) && client_may;
    const std::string calls = may ? session.run() : "";
    const bool failed = calls.find('/') != calls.npos && !went_well(calls.substr(calls.find('/') - 8, 17));
    EXPECT_FALSE(failed && calls.ends_with("token"));
    const bool accepted = calls.find("S done") != calls.npos;
    EXPECT_TRUE(accepted ? text_of(session.server.source) == "anna@REALM"
                         : session.server.source == nullptr && session.server.delegated == nullptr)
        << calls;
    if (accepted && calls.find("C done") != calls.npos)
        expect_right(scenario, session);
    for (Peer *peer : {&session.client, &session.server}) {
        use_all(*peer);
        release(*peer);
    }
}

// ---- Everything else -----------------------------------------------------------------------------------------------

// Configures from the file, asks, and shuts down again.
void configure_framework(const std::string &path) {
    common::Buffer message;
    const bool well = called(qxgss_configure, QXGSS_SERVER, path.c_str(), message.out());
    EXPECT_EQ(message.empty(), message.out()->value == nullptr);
    EXPECT_EQ(well, pMechInfo != nullptr && MechCount != 0);
    for (OM_uint32 i = 0; i < MechCount; ++i)
        EXPECT_EQ(pMechInfo[i].fUseMech == GSSP_MECH_UNUSED, pMechInfo[i].pszMessage != nullptr);
    common::OidSet mechs, names;
    makes(mechs.out(), QXNEGO_indicate_mechs);
    EXPECT_TRUE(called(QXNEGO_inquire_names_for_mech, nullptr, names.out()) || names == nullptr);
    release_module_state();
    qxgss_shutdown(nullptr);
}

void handle_oids() {
    qxgss_OID oid = nullptr;
    common::OidSet set, policy;
    for (const char *dotted : {"1.3.6.1.4.1.32473.9.9", "2.999.4294967295", "1.3.6.1.4.1.32473.2.1"})
        makes(&oid, gssp_mechoidstr_to_oid, dotted);
    if (makes(set.out(), gssp_create_empty_oid_set) && oid != nullptr)
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t before = set->count;
            const bool added = called(gssp_add_oid_set_member, oid, set.out());
            EXPECT_EQ(set->count, before + added);
        }
    EXPECT_TRUE(!makes(policy.out(), gssp_inquire_mech_policy_for_user, "onlya") || policy->count == 1);
    qxgss::forget_unregistered_oids();
}

void parse_logons() {
    const std::string longest = "authcid=a user=" + std::string(1024, 'u'); // read on the heap
    for (const char *text :
         {"authcid=anna password=Tr0ub4dor-x3 realm=r authzid=z mech=m user=u profile=p userproperties=x",
          "anna user=u password=Tr0ub4dor-x3", "anna@R@@Tr0ub4dor-x3 profile=p", "'anna@@Tr0ub4dor-x3' authcid=twice",
          "authcid=a password=Tr0ub4dor-x3 user=b user=c", longest.c_str()}) {
        char *parts[9]{};
        const bool well = called(qxat_parse_logon, text, &parts[0], &parts[1], &parts[2], &parts[3], &parts[4],
                                 &parts[5], &parts[6], &parts[7], &parts[8], QXAT_FLAG_UNESCAPE_ALL);
        for (char *part : parts) {
            EXPECT_TRUE(part == nullptr || well);
            qxgss_buffer_desc owned{part == nullptr ? 0 : std::strlen(part), part};
            gssp_release_secure_buffer(nullptr, &owned);
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
    common::Buffer records, mechanism;
    unsigned char authenticated = 1;
    qxgss_OID_desc oid = oid_of('A');
    EXPECT_TRUE(called(qxat_fill_authorizations, records.out(), "anna", "dom", &user, nullptr, nullptr, 1) ||
                records.empty());
    EXPECT_TRUE(called(qxat_fill_mechinfo, records.out(), mechanism.out(), &authenticated, &oid) || mechanism.empty());
}

// More than the encoder's first block.
void write_elements() {
    const std::string text(600, 'x');
    const qxgss_buffer_desc string = support::view(text);
    common::Buffer out;
    const failing_heap::Window open;
    common::Encoding encoder;
    encoder.start(qxnego::token::kInit);
    encoder.put(qxnego::token::init::kUserName, &string);
    encoder.stop(qxnego::token::kInit);
    const OM_uint32 status = encoder.close_into(out);
    EXPECT_TRUE(status == GSSPASN_E_NO_MEMORY || (status == GSSPASN_E_SUCCESS && out.bytes().size() == 608));
}

// More records than the log has room for at first.
void fill_log() {
    NegContext_desc context{};
    called(QXNEGO_INT_InitNegLog, &context);
    for (int i = 0; i < 130; ++i)
        called(QXNEGO_INT_NegLogEntry, "text", nullptr, &context);
    common::Buffer rendered;
    EXPECT_TRUE(called(QXNEGO_INT_GetNegLog, &context, 0U, rendered.out()) || rendered.empty());
    called(QXNEGO_INT_ReleaseNegLog, &context);
}

// So many unknown mechanisms that they are found by their order.
void meet_many_mechanisms() {
    Peer server(kServer, "A");
    server.act();
    QxnegoSecCtx_int_t made = nullptr;
    QXNEGO_INT_InitializeContext(nullptr, 0, &made);
    server.context = made;
    for (char i = 0; i < 40; ++i) {
        NegMechEntry_desc peer{};
        peer.MechOidFromPeer = {1, strndup(&i, 1)};
        peer.pMechOid = &peer.MechOidFromPeer;
        const OM_uint32 before = made->NegCtx.NegMechList.Count;
        const bool well = called(QXNEGO_INT_ProcessNegMech, &peer, &made->NegCtx);
        EXPECT_EQ(made->NegCtx.NegMechList.Count, before + well);
        std::free(peer.MechOidFromPeer.elements);
    }
}

// ---- The sweep -----------------------------------------------------------------------------------------------------

void sweep(const char *subject, const std::function<void()> &run) {
    SCOPED_TRACE(subject);
    for (const bool all_later : {false, true})
        failing_heap::sweep(all_later, run); // the scripted mechanisms' objects are blocks, too
    scripted::reset();
}

class AllocationSweep : public testing::Test {
  protected:
    void SetUp() override {
        OM_uint32 major = 0;
        scripted::reset();
        ASSERT_EQ(configure(&major, configuration()), "");
        failing_heap::watch_for(kPassword);
        support::around_call = failing_heap::open_window;
    }
};

TEST_F(AllocationSweep, Negotiations) {
    for (const Scenario &scenario : scenarios())
        sweep(scenario.name, [&] { negotiate(scenario); });
}

TEST_F(AllocationSweep, Configuration) {
    qxgss_shutdown(nullptr);
    release_module_state();
    const support::Folder folder;
    for (const char *more :
         {"default = [\"A\"]\n[policy.users.\"a long account\"]\nmechanisms = \"none\"\nnames = [\"D\\\\a long "
          "name\"]\n",
          "default = [\"nobody\"]\n", "default = []\n[[mechanism]]\nname = \"X\"\noid = \"1.2.3\"\nprefix = \"NONE\"\n",
          "= wrong"}) {
        const std::string path =
            folder.file("sweep.toml", configuration({kStandard[0], kStandard[1]}) + "[policy]\n" + more);
        sweep(more, [&] { configure_framework(path); });
    }
}

TEST_F(AllocationSweep, EverythingElse) {
    const std::pair<const char *, void (*)()> subjects[] = {
        {"OIDs", handle_oids},        {"logons", parse_logons}, {"records", write_records},
        {"elements", write_elements}, {"log", fill_log},        {"many mechanisms", meet_many_mechanisms}};
    for (const auto &[subject, run] : subjects)
        sweep(subject, run);
}

} // namespace
