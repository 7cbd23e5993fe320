// The exported calls one by one: their argument checks in the order in which they speak, configuration and its
// messages, credentials, and what is passed through to the selected mechanism.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>

#include "tests/negotiation_harness.h"

namespace {

using namespace harness;
using scripted::script;

std::string letters(const NegMechList_desc &list) {
    std::string out;
    for (OM_uint32 i = 0; i < list.Count; ++i)
        out += pMechInfo[list.pNegMech[i].MechIndex].pszMechName;
    return out;
}

std::string dotted(const qxgss_OID_set set) {
    std::string out;
    for (std::size_t i = 0; i < set->count; ++i)
        out += hex({static_cast<const char *>(set->elements[i].elements), set->elements[i].length}) + " ";
    return out;
}

class EntryPoints : public testing::Test {
  protected:
    void SetUp() override {
        scripted::reset();
        OM_uint32 major = 0;
        EXPECT_EQ(configure(&major, configuration()), "");
        EXPECT_EQ(major, GSS_S_COMPLETE);
    }
    void TearDown() override { EXPECT_EQ(scripted::live_objects(), 0); }
};

// ---- Argument checks -----------------------------------------------------------------------------------------------

// The statuses of a call, which must not need a place for its minor status.
template <typename... Parameters>
std::string checked(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    const std::string got = outcome(call, arguments...);
    EXPECT_EQ(hex(call(nullptr, arguments...)), got.substr(0, 8));
    return got;
}

TEST_F(EntryPoints, ChecksSpeakInOrder) {
    Session session("A", "A");
    session.client.log_on("authcid=anna");
    session.client.call("");
    qxgss_ctx_id_t half = session.client.context; // not complete
    qxgss_cred_id_t cred = nullptr;
    qxgss_ctx_id_t none = nullptr;
    qxgss_buffer_desc out{};
    qxgss_buffer_desc empty{5, nullptr}; // the length is not looked at
    char text[] = "x";
    qxgss_buffer_desc input{1, text};
    OM_uint32 number = 0;
    qxgss_name_element_desc element{GSS_C_NT_HOSTBASED_SERVICE, {1, text}};
    qxgss_name_desc foreign{1, &element, nullptr};
    const auto acquire = [](OM_uint32 *m, qxgss_name_t name, qxgss_cred_usage_t usage, qxgss_cred_id_t *handle) {
        return QXNEGO_acquire_cred(m, name, 0, nullptr, usage, handle, nullptr, nullptr);
    };
    const auto init = [](OM_uint32 *m, qxgss_ctx_id_t *context, qxgss_buffer_t output) {
        return QXNEGO_init_sec_context(m, nullptr, context, nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr, output,
                                       nullptr, nullptr);
    };
    const auto accept = [](OM_uint32 *m, qxgss_ctx_id_t *context, qxgss_buffer_t output) {
        return QXNEGO_accept_sec_context(m, context, nullptr, nullptr, nullptr, nullptr, nullptr, output, nullptr,
                                         nullptr, nullptr);
    };
    const struct {
        int line;
        std::string got;
        const char *expected;
    } rows[] = {
        {__LINE__, checked(QXNEGO_indicate_mechs, nullptr), "02000000/E30003F7"},
        {__LINE__, checked(QXNEGO_inquire_names_for_mech, nullptr, nullptr), "020D0000/E30003F7"},
        {__LINE__, checked(+init, nullptr, nullptr), "02080000/E30003FF"},
        {__LINE__, checked(+init, &none, nullptr), "020D0000/E30003FA"},
        {__LINE__, checked(+accept, nullptr, nullptr), "02080000/E30003FF"},
        {__LINE__, checked(+accept, &none, nullptr), "020D0000/E30003FA"},
        {__LINE__, checked(QXNEGO_delete_sec_context, nullptr, &out), "02080000/E30003FF"},
        {__LINE__, checked(QXNEGO_delete_sec_context, &none, &out), "01080000/E30003FF"},
        {__LINE__,
         checked(QXNEGO_inquire_context, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
         "01080000/E30003F7"},
        {__LINE__, checked(+acquire, &foreign, 3, nullptr), "02070000/E30003FC"},
        {__LINE__, checked(+acquire, &foreign, 3, &cred), "000D0000/E30003F5"},
        {__LINE__, checked(+acquire, nullptr, 3, &cred), "00070000/E30003FD"},
        {__LINE__, checked(+acquire, nullptr, -1, &cred), "00070000/E30003FD"},
        {__LINE__, checked(QXNEGO_release_cred, nullptr), "02070000/E30003FC"},
        {__LINE__, checked(QXNEGO_release_cred, &cred), "01070000/E30003FC"},
        {__LINE__, checked(QXNEGO_inquire_cred, nullptr, nullptr, nullptr, nullptr, nullptr), "00070000/E30003FC"},
        {__LINE__, checked(QXNEGO_wrap, nullptr, 0, 0, nullptr, nullptr, nullptr), "020D0000/E30003FA"},
        {__LINE__, checked(QXNEGO_wrap, nullptr, 0, 0, nullptr, nullptr, &out), "01080000/E30003FF"},
        {__LINE__, checked(QXNEGO_wrap, half, 0, 0, nullptr, nullptr, &out), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_wrap, half, 0, 0, &empty, nullptr, &out), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_wrap, half, 0, 0, &input, nullptr, &out), "000D0000/E3000414"},
        {__LINE__, checked(QXNEGO_unwrap, nullptr, nullptr, nullptr, nullptr, nullptr), "020D0000/E30003FA"},
        {__LINE__, checked(QXNEGO_unwrap, nullptr, nullptr, &out, nullptr, nullptr), "01080000/E30003FF"},
        {__LINE__, checked(QXNEGO_unwrap, half, &empty, &out, nullptr, nullptr), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_unwrap, half, &input, &out, nullptr, nullptr), "000D0000/E3000414"},
        {__LINE__, checked(QXNEGO_get_mic, nullptr, 0, nullptr, nullptr), "020D0000/E30003FA"},
        {__LINE__, checked(QXNEGO_get_mic, nullptr, 0, nullptr, &out), "01080000/E30003FF"},
        {__LINE__, checked(QXNEGO_get_mic, half, 0, nullptr, &out), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_get_mic, half, 0, &input, &out), "000D0000/E3000414"},
        {__LINE__, checked(QXNEGO_verify_mic, nullptr, nullptr, nullptr, nullptr), "01080000/E30003FF"},
        {__LINE__, checked(QXNEGO_verify_mic, half, nullptr, &input, nullptr), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_verify_mic, half, &empty, &input, nullptr), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_verify_mic, half, &input, nullptr, nullptr), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_verify_mic, half, &input, &empty, nullptr), "010D0000/E3000402"},
        {__LINE__, checked(QXNEGO_verify_mic, half, &input, &input, nullptr), "000D0000/E3000414"},
        {__LINE__, checked(QXNEGO_wrap_size_limit, nullptr, 0, 0, 9, nullptr), "01080000/E30003F6"},
        {__LINE__, checked(QXNEGO_wrap_size_limit, half, 0, 0, 9, nullptr), "02000000/E30003F7"},
        {__LINE__, checked(QXNEGO_wrap_size_limit, half, 0, 0, 9, &number), "00080000/E3000401"},
        {__LINE__, checked(QXNEGO_get_client_domain_username, nullptr, nullptr, nullptr), "00000000/230003E8"},
        {__LINE__, checked(QXNEGO_qop_string_to_int, nullptr, nullptr, nullptr), "00100000/E30003F2"},
        {__LINE__, checked(QXNEGO_qop_int_to_string, nullptr, 0, nullptr), "00100000/E30003F2"},
        {__LINE__, checked(QXNEGO_inquire_properties_for_user, nullptr, nullptr), "01080000/E30003F7"},
        {__LINE__, checked(QXNEGO_inquire_properties_for_user, half, nullptr), "020D0000/E30003F7"},
        {__LINE__, checked(QXNEGO_display_status, 0xE3000408U, 2, nullptr, nullptr, nullptr), "010D0000/230003E8"},
        {__LINE__, checked(QXNEGO_display_status, 0xE3000408U, 2, pQxnegoMechOid, nullptr, nullptr),
         "000D0000/E30003FA"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.got, row.expected) << "line " << row.line;
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(cred, nullptr);
}

TEST_F(EntryPoints, OutputsAreResetBeforeTheChecks) {
    char text[] = "x";
    qxgss_buffer_desc out{9, text};
    qxgss_OID type = nullptr;
    qxgss_OID_set mechs = &*pQxnegoMechOidSet;
    qxgss_name_t name = reinterpret_cast<qxgss_name_t>(text);
    OM_uint32 time = 7;
    int state = 7, usage = 7;
    qxgss_qop_t qop = 7;
    QXNEGO_init_sec_context(nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, &type, nullptr,
                            nullptr, nullptr);
    EXPECT_EQ(type, pQxnegoMechOid);
    type = nullptr;
    QXNEGO_accept_sec_context(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &type, nullptr, nullptr, nullptr,
                              nullptr);
    EXPECT_EQ(type, pQxnegoMechOid);
    QXNEGO_acquire_cred(nullptr, nullptr, 5, nullptr, 0, nullptr, &mechs, &time);
    EXPECT_EQ(mechs, nullptr);
    EXPECT_EQ(time, 0U);
    time = 7;
    mechs = pQxnegoMechOidSet;
    QXNEGO_inquire_cred(nullptr, nullptr, &name, &time, &usage, &mechs);
    EXPECT_TRUE(name == nullptr && time == 0 && usage == 0 && mechs == nullptr);
    QXNEGO_wrap(nullptr, nullptr, 0, 0, nullptr, &state, nullptr);
    EXPECT_EQ(state, 0);
    state = 7;
    QXNEGO_unwrap(nullptr, nullptr, nullptr, &out, &state, &qop);
    EXPECT_TRUE(state == 0 && qop == 0 && out.length == 0 && out.value == nullptr);
    qop = 7;
    QXNEGO_verify_mic(nullptr, nullptr, nullptr, nullptr, &qop);
    EXPECT_EQ(qop, 0U);
    out = {9, text};
    QXNEGO_get_mic(nullptr, nullptr, 0, nullptr, &out);
    EXPECT_TRUE(out.length == 0 && out.value == nullptr);
    char *user = text, *domain = text;
    QXNEGO_get_client_domain_username(nullptr, nullptr, &user, &domain);
    EXPECT_TRUE(user == text && domain == text);
}

// ---- Configuration -------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, OidSetsAreWhatConfigurationMade) {
    qxgss_OID_set set = nullptr;
    EXPECT_EQ(outcome(QXNEGO_indicate_mechs, &set), "00000000/230003E8");
    EXPECT_EQ(dotted(set), "2B0601040181FD590101 ");
    gssp_release_oid_set(nullptr, &set);
    EXPECT_EQ(outcome(QXNEGO_inquire_names_for_mech, nullptr, &set), "00000000/230003E8");
    ASSERT_EQ(set->count, 5U);
    const qxgss_OID types[] = {GSS_C_NT_QXAT_MECHDATA, GSS_C_NT_QXAT_MECHDATA_UTF8, GSS_C_NT_QXAT_MECHDATA_UTF16,
                               GSS_C_NT_QXAT_MECHDATA_UTF32, GSS_C_NT_HOSTBASED_SERVICE};
    for (std::size_t i = 0; i < 5; ++i) {
        OM_sint32 different = 1;
        gssp_compare_oids(nullptr, types[i], &set->elements[i], &different);
        EXPECT_EQ(different, 0) << i;
    }
    gssp_release_oid_set(nullptr, &set);
}

TEST_F(EntryPoints, TheListIsInOrderOfPreference) {
    const struct {
        std::vector<Mechanism> mechanisms;
        const char *expected;
    } rows[] = {
        {kStandard, "ABCD"},
        {{{'A', false, false, false, 1}, {'B', false, false, false, 1}, {'C', true, false, false, 5}}, "CBA"},
        {{{'A', true, false, false, 30}, {'B', true, false, false, 10}, {'C', false, false, false, 1}}, "BAC"},
        {{{'A', true, false, false, 3}, {'B', true, false, false, -3}, {'C', true, false, false, 0}}, "BCA"},
        {{{'B', true, false, false, 7}, {'A', true, false, false, 7}, {'D', false, true, true, 0}}, "BAD"},
    };
    for (const auto &row : rows) {
        OM_uint32 major = 0;
        ASSERT_EQ(configure(&major, configuration(row.mechanisms)), "");
        EXPECT_EQ(letters(QxnegoMechList), row.expected);
    }
    const NegMechEntry_desc &last = QxnegoMechList.pNegMech[2];
    EXPECT_EQ(last.AuthenticationSupported, 0U);
    EXPECT_EQ(last.AuthorizationSupported, 1U);
    EXPECT_EQ(last.SingleSignOn, 1);
    EXPECT_EQ(last.MechanismRank, 0);
}

TEST_F(EntryPoints, OnlyWhatQualifiesIsInTheList) {
    std::string text = configuration();
    text.erase(text.find(", rank = 20"), std::strlen(", rank = 20")); // B has none
    MechInfo_t *self = nullptr;
    char own[] = "1.3.6.1.4.1.32473.1.1", stranger[] = "1.2.3", malformed[] = "1.x", name[] = "PROXY";
    const struct {
        int line;
        std::function<void()> alter;
        const char *expected;
    } rows[] = {
        {__LINE__, [] {}, "ACD"},
        {__LINE__, [&] { self->pNegMechInfo[0].pNegotiatedMech = own; }, "CD"},
        {__LINE__, [&] { self->pNegMechInfo[0].pNegotiatedMech = stranger; }, "CD"},
        {__LINE__, [&] { self->pNegMechInfo[0].pNegotiatedMech = malformed; }, "CD"},
        {__LINE__, [&] { self->pNegMechInfo[0].pNegotiatedMech = nullptr; }, "CD"},
        {__LINE__, [&] { self->pNegMechInfo[0].fEnabled = 0; }, "CD"},
        {__LINE__, [&] { registered("A").fUseMech = 0; }, "CD"},
        {__LINE__, [&] { registered("A").pszMechName = name; }, "CD"},
    };
    for (const auto &row : rows) {
        OM_uint32 major = 0;
        ASSERT_EQ(configure(&major, text), "");
        self = &registered("QXNEGO");
        row.alter();
        NegMechList_desc list{};
        EXPECT_EQ(QXNEGO_INT_InitNegMechList(nullptr, &list), GSS_S_COMPLETE);
        EXPECT_EQ(letters(list), row.expected) << "line " << row.line;
        std::free(list.pNegMech);
    }
    EXPECT_EQ(outcome(QXNEGO_INT_InitNegMechList, nullptr), "020D0000/E3000407");
}

TEST_F(EntryPoints, ConfigurationFailuresLeaveAMessage) {
    qxgss_OID const plain = GSS_C_NT_QXAT_MECHDATA;
    MechInfo_t &self = pMechInfo[0];
    const MechInfo_t before = self;
    qxgss_OID_desc nothing{0, nullptr};
    char other[] = "OTHER";
    const struct {
        int line;
        std::function<void()> alter;
        const char *message;
    } rows[] = {
        {__LINE__, [&] { self.pszMechName = other; },
         "QXNEGO_configure:  Error when calling gssp_mechstr_to_oid(Could not obtain mechanism oid as requested) "
         "Mechanism Disabled"},
        {__LINE__, [&] { self.pMechOid = &nothing; },
         "QXNEGO_configure: Error when calling functiom gssp_oid_to_mechindex(An argument was not valid.) "
         "Mechanism Disabled"},
        {__LINE__, [&] { GSS_C_NT_QXAT_MECHDATA = nullptr; },
         "QXNEGO_configure: Error when calling gssp_add_oid_set_member(An argument was not valid.) Mechanism Disabled"},
        {__LINE__, [&] { self.NegotiatedMechCount = 0; },
         "QXNEGO_configure: Error when calling QXNEGO_INT_InitNegMechList(The QXNEGO security mechanism could not find "
         "any mechanisms available for negotiation.) Mechanism Disabled"},
    };
    for (const auto &row : rows) {
        release_module_state();
        row.alter();
        qxgss_buffer_desc message{10, std::malloc(10)};
        std::memcpy(message.value, "0123456789", 10);
        EXPECT_EQ(outcome(QXNEGO_configure, QXGSS_CLIENT, nullptr, &message), "000D0000/A100012B");
        EXPECT_EQ(text_of(message), "0123456789" + std::string(row.message)) << "line " << row.line;
        gssp_release_buffer(nullptr, &message);
        release_module_state();
        EXPECT_EQ(QXNEGO_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr), GSS_S_FAILURE);
        self = before;
        GSS_C_NT_QXAT_MECHDATA = plain;
    }
    release_module_state();
    qxgss_buffer_desc message{0, nullptr};
    self.NegotiatedMechCount = 0;
    QXNEGO_configure(nullptr, QXGSS_CLIENT, nullptr, &message);
    EXPECT_EQ(text_of(message), rows[3].message);
    gssp_release_buffer(nullptr, &message);
    self = before;
}

TEST_F(EntryPoints, AFailedIndicationLeavesNoSet) {
    char other[] = "OTHER";
    char *const name = std::exchange(pMechInfo[0].pszMechName, other);
    qxgss_OID_set set = nullptr;
    EXPECT_EQ(outcome(QXNEGO_indicate_mechs, &set), "000D0000/E100007B");
    EXPECT_EQ(set, nullptr);
    pMechInfo[0].pszMechName = name;
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, CredentialsRememberTheRequestInUtf8) {
    const struct {
        qxgss_OID type;
        std::string text;
    } rows[] = {
        {GSS_C_NT_QXAT_MECHDATA, "authcid=anna"},
        {GSS_C_NT_QXAT_MECHDATA_UTF8, "authcid=anna"},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, std::string("a\0u\0t\0h\0c\0i\0d\0=\0a\0n\0n\0a\0", 24)},
        {GSS_C_NT_QXAT_MECHDATA_UTF32,
         [] {
             std::string text;
             for (const char c : std::string("authcid=anna"))
                 text += {c, 0, 0, 0};
             return text;
         }()},
    };
    for (const auto &row : rows) {
        qxgss_buffer_desc text{row.text.size(), const_cast<char *>(row.text.data())};
        qxgss_name_t name = nullptr, copy = nullptr;
        qxgss_import_name(nullptr, &text, row.type, &name);
        qxgss_cred_id_t credential = nullptr;
        qxgss_OID_set actual = nullptr, desired = nullptr;
        OM_uint32 time = 0;
        qxgss_cred_usage_t usage = -1;
        EXPECT_EQ(outcome(QXNEGO_acquire_cred, name, 99, pQxnegoSupportedAllNameTypes, GSS_C_BOTH, &credential, &actual,
                          &time),
                  "00000000/230003E8");
        EXPECT_EQ(dotted(actual), dotted(pQxnegoMechOidSet));
        EXPECT_EQ(time, 99U);
        EXPECT_EQ(text_of(name->pElements[0].Name), row.text);
        time = 0;
        EXPECT_EQ(outcome(QXNEGO_inquire_cred, credential, &copy, &time, &usage, &desired), "00000000/230003E8");
        EXPECT_EQ(text_of(copy->pElements[0].Name), "authcid=anna");
        EXPECT_EQ(time, 99U);
        EXPECT_EQ(usage, GSS_C_BOTH);
        EXPECT_EQ(dotted(desired), dotted(pQxnegoSupportedAllNameTypes));
        EXPECT_EQ(outcome(QXNEGO_release_cred, &credential), "00000000/230003E8");
        EXPECT_EQ(credential, nullptr);
        for (qxgss_name_t *each : {&name, &copy})
            gssp_release_name(nullptr, each);
        for (qxgss_OID_set *each : {&actual, &desired})
            gssp_release_oid_set(nullptr, each);
    }
}

TEST_F(EntryPoints, ABadTextLeavesNoCredential) {
    char half[] = {'\x00', '\xD8', 'a'}; // half a pair, and half a character
    qxgss_buffer_desc text{3, half};
    qxgss_name_t name = nullptr;
    qxgss_import_name(nullptr, &text, GSS_C_NT_QXAT_MECHDATA_UTF16, &name);
    qxgss_cred_id_t credential = nullptr;
    qxgss_OID_set actual = nullptr;
    OM_uint32 minor = 0;
    EXPECT_EQ(QXNEGO_acquire_cred(&minor, name, 0, nullptr, 0, &credential, &actual, nullptr), GSS_S_FAILURE);
    EXPECT_TRUE(minor == 0xE10000C1U || minor == 0xE10000C2U) << hex(minor);
    EXPECT_EQ(credential, nullptr);
    EXPECT_EQ(actual, nullptr);
    gssp_release_name(nullptr, &name);
}

// ---- What is passed through ----------------------------------------------------------------------------------------

struct Complete : Session {
    Complete() : Session("A", "A") {
        client.log_on("authcid=anna");
        run();
        client.act();
    }
    NegContext_desc &negotiation() { return client.negotiation(); }
};

// Each per-message call with one byte more than nothing, as "status output".
std::vector<std::string> messages(qxgss_ctx_id_t context) {
    char text[] = "\x01";
    char mic[] = {'A', 3, '\xC2'};
    qxgss_buffer_desc input{0, text}, wrapped{2, mic}, token{3, mic}, one{1, text};
    qxgss_buffer_desc out[3]{};
    OM_uint32 limit = 0;
    int state = 5, opened = 5;
    qxgss_qop_t qop = 0;
    std::vector<std::string> seen{outcome(QXNEGO_wrap, context, 6, 3, &input, &state, &out[0]),
                                  outcome(QXNEGO_unwrap, context, &wrapped, &out[1], &opened, &qop),
                                  outcome(QXNEGO_get_mic, context, 3, &one, &out[2]),
                                  outcome(QXNEGO_verify_mic, context, &one, &token, nullptr),
                                  outcome(QXNEGO_wrap_size_limit, context, 1, 3, 100, &limit)};
    seen[0] += " " + hex(text_of(out[0])) + " " + std::to_string(state);
    seen[1] += " " + std::to_string(opened) + std::to_string(qop);
    seen[2] += " " + hex(text_of(out[2]));
    seen[4] += " " + std::to_string(limit);
    for (qxgss_buffer_desc &each : out)
        gssp_release_buffer(nullptr, &each);
    return seen;
}

using Lines = std::vector<std::string>;

TEST_F(EntryPoints, MessagesPassUnchanged) {
    Complete session;
    script().at('A', kClient).supplementary = GSS_S_OLD_TOKEN;
    EXPECT_EQ(messages(session.client.context),
              (Lines{"00000004/25000001 4103 6", "00000004/25000001 13", "00000004/25000001 4103C2",
                     "00000004/25000001", "00000000/230003E8 98"}));
    EXPECT_EQ(scripted::last_call("wrap_size_limit", 'A')->flags, 0x103U);
    script().at('A', kClient).messages_fail = true;
    EXPECT_EQ(messages(session.client.context),
              (Lines{"00070000/C5000007  6", "00070000/C5000007 10", "00070000/C5000007 ", "00070000/C5000007",
                     "00070000/C5000007 0"}));
    registered("A").MechFtnTable = {};
    EXPECT_EQ(messages(session.client.context),
              (Lines{"00100000/E1000067  0", "00100000/E1000067 00", "00100000/E1000067 ", "00100000/E1000067",
                     "000D0000/E30003F2 0"}));
}

TEST_F(EntryPoints, ASelectionOutOfRangeIsNoMechanism) {
    Complete session;
    const NegContext_desc good = session.negotiation();
    for (const auto &[info, list] : {std::pair{-1, 0}, {static_cast<int>(MechCount), 0}, {1, -1}, {1, 1}}) {
        session.negotiation().SelectedMechInfoIndex = info;
        session.negotiation().SelectedMechListIndex = list;
        EXPECT_EQ(messages(session.client.context),
                  (Lines{"000D0000/E3000414  0", "000D0000/E3000414 00", "000D0000/E3000414 ", "000D0000/E3000414",
                         "000D0000/E3000400 0"}));
        EXPECT_EQ(outcome(QXNEGO_inquire_context, session.client.context, nullptr, nullptr, nullptr, nullptr, nullptr,
                          nullptr, nullptr),
                  "000D0000/E3000400");
    }
    session.negotiation() = good;
}

TEST_F(EntryPoints, AContextTellsAboutItself) {
    const auto inquire = [](qxgss_ctx_id_t context) {
        qxgss_name_t source = nullptr, target = nullptr;
        OM_uint32 minor = 0, lifetime = 7, flags = 7;
        qxgss_OID type = nullptr;
        int local = 7, open = 7;
        const OM_uint32 major =
            QXNEGO_inquire_context(&minor, context, &source, &target, &lifetime, &type, &flags, &local, &open);
        return hex(major) + "/" + hex(minor) + " " + hex(lifetime) + " " + hex(flags) + " " + std::to_string(local) +
               std::to_string(open) + (type == pQxnegoMechOid ? " own" : "");
    };
    Session session("A", "A");
    session.client.log_on("authcid=anna");
    const std::string token = session.client.call("").token;
    EXPECT_EQ(inquire(session.client.context), "00000000/230003E8 FFFFFFFF 00000030 10 own");
    EXPECT_NE(session.server.call("rubbish").major, GSS_S_COMPLETE);
    EXPECT_EQ(inquire(session.server.context), "00000000/230003E8 FFFFFFFF 00000030 00 own");
    session.server.end();
    session.client.call(session.server.call(token).token);
    script().at('A', kClient).supplementary = GSS_S_OLD_TOKEN;
    EXPECT_EQ(inquire(session.client.context), "00000000/230003E8 000010E1 00000022 11");
    EXPECT_EQ(scripted::last_call("inquire_context", 'A')->wanted, 7U);
    script().at('A', kClient).messages_fail = true;
    EXPECT_EQ(inquire(session.client.context).substr(0, 17), "00070000/C5000007");
    registered("A").MechFtnTable.ftn_gssp_inquire_context = nullptr;
    EXPECT_EQ(inquire(session.client.context).substr(0, 17), "000D0000/E30003F2");
    qxgss_buffer_desc token_out{3, &session};
    session.client.act();
    EXPECT_EQ(QXNEGO_delete_sec_context(nullptr, &session.client.context, &token_out), GSS_S_COMPLETE);
    EXPECT_TRUE(token_out.length == 0 && token_out.value == nullptr);
}

} // namespace
