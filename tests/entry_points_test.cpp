// The exported calls one by one: their argument checks in the order in which they speak, configuration and its
// messages, and credentials.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>

#include "tests/negotiation_harness.h"

namespace {

bool secure_release_fails = false; // ours never does, but a mechanism may run under another framework

} // namespace

#pragma GCC visibility push(default)
extern "C" {
OM_uint32 __real_gssp_release_secure_buffer(OM_uint32 *pMinorStatus, qxgss_buffer_t pBuffer);
OM_uint32 __wrap_gssp_release_secure_buffer(OM_uint32 *pMinorStatus, qxgss_buffer_t pBuffer) {
    const OM_uint32 major = __real_gssp_release_secure_buffer(pMinorStatus, pBuffer);
    if (!secure_release_fails)
        return major;
    if (pMinorStatus != nullptr)
        *pMinorStatus = GSSP_E_INVALID_ARGUMENT;
    return GSS_S_UNAVAILABLE;
}
}
#pragma GCC visibility pop

namespace {

using namespace harness;

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

using EntryPoints = NegotiationTest;

// The statuses of a call, which must not need a place for its minor status.
template <typename... Parameters>
std::string checked(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    const std::string got = outcome(call, arguments...);
    EXPECT_EQ(hex(call(nullptr, arguments...)), got.substr(0, 8));
    return got;
}

// Beside those that every state of a context has in common.
TEST_F(EntryPoints, ChecksSpeakInOrder) {
    Session session("A", "A", "authcid=anna");
    session.client.call("");
    qxgss_ctx_id_t half = session.client.context, none = nullptr;
    qxgss_cred_id_t cred = nullptr;
    char text[] = "x";
    qxgss_buffer_desc out{}, input{1, text}, empty{5, nullptr}; // the length is not looked at
    qxgss_name_element_desc element{GSS_C_NT_HOSTBASED_SERVICE, {1, text}};
    qxgss_name_desc foreign{1, &element, nullptr}, empty_name{}, no_elements{1, nullptr, nullptr};
    qxgss_OID types[] = {nullptr, nullptr};
    const auto acquire = [](OM_uint32 *m, qxgss_name_t name, qxgss_cred_usage_t usage, qxgss_cred_id_t *handle) {
        qxgss_OID_set mechs = pQxnegoMechOidSet;
        OM_uint32 time = 7;
        const OM_uint32 major = QXNEGO_acquire_cred(m, name, 5, nullptr, usage, handle, &mechs, &time);
        EXPECT_TRUE(mechs == nullptr && time == 0); // as after every failure
        return major;
    };
    const auto init = [](OM_uint32 *m, qxgss_ctx_id_t *context, qxgss_OID *type) {
        return QXNEGO_init_sec_context(m, nullptr, context, nullptr, nullptr, 0, 0, nullptr, nullptr, type, nullptr,
                                       nullptr, nullptr);
    };
    const auto accept = [](OM_uint32 *m, qxgss_ctx_id_t *context, qxgss_OID *type) {
        return QXNEGO_accept_sec_context(m, context, nullptr, nullptr, nullptr, nullptr, type, nullptr, nullptr,
                                         nullptr, nullptr);
    };
    const std::pair<const char *, std::string> rows[] = {
        {"02000000/E30003F7", checked(QXNEGO_indicate_mechs, nullptr)},
        {"020D0000/E30003F7", checked(QXNEGO_inquire_names_for_mech, nullptr, nullptr)},
        {"020D0000/E30003F7", checked(QXNEGO_inquire_candidate, 0, nullptr)},
        {"02080000/E30003FF", checked(+init, nullptr, &types[0])},
        {"020D0000/E30003FA", checked(+init, &none, nullptr)},
        {"02080000/E30003FF", checked(+accept, nullptr, &types[1])},
        {"020D0000/E30003FA", checked(+accept, &half, nullptr)},
        {"02080000/E30003FF", checked(QXNEGO_delete_sec_context, nullptr, &out)},
        {"01080000/E30003FF", checked(QXNEGO_delete_sec_context, &none, &out)},
        {"02070000/E30003FC", checked(+acquire, &foreign, 3, nullptr)},
        {"000D0000/E30003F5", checked(+acquire, &foreign, 3, &cred)},
        {"000D0000/E30003F5", checked(+acquire, &empty_name, 1, &cred)},
        {"000D0000/E30003F5", checked(+acquire, &no_elements, 1, &cred)},
        {"00070000/E30003FD", checked(+acquire, nullptr, 3, &cred)},
        {"00070000/E30003FD", checked(+acquire, nullptr, -1, &cred)},
        {"02070000/E30003FC", checked(QXNEGO_release_cred, nullptr)},
        {"01070000/E30003FC", checked(QXNEGO_release_cred, &cred)},
        {"00070000/E30003FC", checked(QXNEGO_inquire_cred, nullptr, nullptr, nullptr, nullptr, nullptr)},
        {"01080000/E30003FF", checked(QXNEGO_wrap, none, 0, 0, nullptr, nullptr, &out)},
        {"010D0000/E3000402", checked(QXNEGO_wrap, half, 0, 0, &empty, nullptr, &out)},
        {"010D0000/E3000402", checked(QXNEGO_unwrap, half, &empty, &out, nullptr, nullptr)},
        {"010D0000/E3000402", checked(QXNEGO_get_mic, half, 0, nullptr, &out)},
        {"010D0000/E3000402", checked(QXNEGO_verify_mic, half, nullptr, &input, nullptr)},
        {"010D0000/E3000402", checked(QXNEGO_verify_mic, half, &input, &empty, nullptr)},
        {"00000000/230003E8", checked(QXNEGO_get_client_domain_username, half, nullptr, nullptr)},
        {"00100000/E30003F2", checked(QXNEGO_qop_string_to_int, nullptr, nullptr, nullptr)},
        {"00100000/E30003F2", checked(QXNEGO_qop_int_to_string, nullptr, 0, nullptr)},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(rows[i].second, rows[i].first) << "number " << i;
    EXPECT_EQ(cred, nullptr);
    EXPECT_TRUE(types[0] == pQxnegoMechOid && types[1] == pQxnegoMechOid);
    qxgss_OID_set mechs = pQxnegoMechOidSet;
    qxgss_name_t name = &foreign;
    OM_uint32 time = 7;
    int usage = 7;
    QXNEGO_inquire_cred(nullptr, nullptr, &name, &time, &usage, &mechs);
    EXPECT_TRUE(name == nullptr && time == 0 && usage == 0 && mechs == nullptr);
}

// ---- Configuration -------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, OidSetsAreWhatConfigurationMade) {
    qxgss_OID_set set = nullptr;
    EXPECT_EQ(outcome(QXNEGO_indicate_mechs, &set), kDone);
    EXPECT_EQ(dotted(set), "2B0601040181FD590101 ");
    gssp_release_oid_set(nullptr, &set);
    EXPECT_EQ(outcome(QXNEGO_inquire_names_for_mech, nullptr, &set), kDone);
    qxgss_OID_desc types[] = {*GSS_C_NT_QXAT_MECHDATA, *GSS_C_NT_QXAT_MECHDATA_UTF8, *GSS_C_NT_QXAT_MECHDATA_UTF16,
                              *GSS_C_NT_QXAT_MECHDATA_UTF32, *GSS_C_NT_HOSTBASED_SERVICE};
    qxgss_OID_set_desc expected{std::size(types), types};
    EXPECT_EQ(dotted(set), dotted(&expected));
    gssp_release_oid_set(nullptr, &set);
    char other[] = "OTHER";
    char *const name = std::exchange(pMechInfo[0].pszMechName, other);
    EXPECT_EQ(outcome(QXNEGO_indicate_mechs, &set), "000D0000/E100007B");
    EXPECT_EQ(set, nullptr);
    pMechInfo[0].pszMechName = name;
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
    EXPECT_TRUE(last.AuthenticationSupported == 0 && last.AuthorizationSupported == 1 && last.SingleSignOn == 1);
}

TEST_F(EntryPoints, OnlyWhatQualifiesIsInTheList) {
    std::string text;
    MechInfo_t *self = nullptr;
    char own[] = "1.3.6.1.4.1.32473.1.1", stranger[] = "1.2.3", malformed[] = "1.x", name[] = "PROXY";
    const auto rest = [&](const std::function<void()> &alter) {
        OM_uint32 major = 0;
        EXPECT_EQ(configure(&major, text), "");
        self = &registered("QXNEGO");
        alter();
        NegMechList_desc list{};
        EXPECT_EQ(QXNEGO_INT_InitNegMechList(nullptr, &list), GSS_S_COMPLETE);
        const std::string out = letters(list);
        for (OM_uint32 i = 0; i < list.Count; ++i)
            EXPECT_EQ(list.pNegMech[i].IsFirstOfOid, out.find(out[i]) == i) << out << i;
        std::free(list.pNegMech);
        return out;
    };
    const auto why = [](const MechInfo_t &mechanism) {
        const char *reason = "";
        EXPECT_EQ(QXNEGO_inquire_candidate(nullptr, static_cast<OM_sint32>(&mechanism - pMechInfo), &reason),
                  GSS_S_COMPLETE);
        return std::string(reason == nullptr ? "" : reason);
    };
    for (const std::string property :
         {"authentication = true,", "authorization = false,", "single_sign_on = true,", "rank = 20"}) {
        text = configuration();
        const std::size_t at = text.find(property, text.find("name = \"B\""));
        property == "rank = 20" ? text.erase(at - 2, property.size() + 2) : text.erase(at, property.size());
        EXPECT_EQ(rest([] {}), "ACD") << property;
        EXPECT_EQ(why(registered("A")), "");
        EXPECT_EQ(why(registered("B")), "its property " + property.substr(0, property.find(' ')) + " is not set");
    }
    for (char *oid : {own, stranger, malformed, static_cast<char *>(nullptr)}) {
        EXPECT_EQ(rest([&] { self->pNegMechInfo[0].pNegotiatedMech = oid; }), "CD") << (oid == nullptr ? "" : oid);
        EXPECT_EQ(why(registered("A")), "it is not listed in QXNEGO's negotiates");
        EXPECT_EQ(why(*self), "QXNEGO does not negotiate itself");
    }
    EXPECT_EQ(rest([&] { self->pNegMechInfo[2].pNegotiatedMech = self->pNegMechInfo[0].pNegotiatedMech; }), "AAD");
    EXPECT_EQ(rest([&] { self->pNegMechInfo[0].fEnabled = 0; }), "CD");
    EXPECT_EQ(why(registered("A")), "it is disabled in QXNEGO's negotiates");
    EXPECT_EQ(rest([&] { registered("A").fUseMech = 0; }), "CD");
    EXPECT_EQ(why(registered("A")), "it is not loaded");
    EXPECT_EQ(rest([&] { registered("A").pszMechName = name; }), "CD");
    EXPECT_EQ(why(registered(name)), "PROXY is never negotiated");
    EXPECT_EQ(outcome(QXNEGO_INT_InitNegMechList, nullptr), "020D0000/E3000407");
}

TEST_F(EntryPoints, ConfigurationFailuresLeaveAMessage) {
    qxgss_OID const plain = GSS_C_NT_QXAT_MECHDATA;
    MechInfo_t &self = pMechInfo[0];
    const MechInfo_t before = self;
    qxgss_OID_desc nothing{0, nullptr};
    char other[] = "OTHER";
    const std::pair<std::function<void()>, const char *> rows[] = {
        {[&] { self.pszMechName = other; },
         ":  Error when calling gssp_mechstr_to_oid(Could not obtain mechanism oid as requested)"},
        {[&] { self.pMechOid = &nothing; },
         ": Error when calling functiom gssp_oid_to_mechindex(An argument was not valid.)"},
        {[&] { GSS_C_NT_QXAT_MECHDATA = nullptr; },
         ": Error when calling gssp_add_oid_set_member(An argument was not valid.)"},
        {[&] { self.NegotiatedMechCount = 0; },
         ": Error when calling QXNEGO_INT_InitNegMechList(The QXNEGO security mechanism could not find "
         "any mechanisms available for negotiation.)"},
    };
    for (const auto &[alter, piece] : rows)
        for (const std::string given : {"0123456789", ""}) {
            alter();
            qxgss_buffer_desc message{given.size(), given.empty() ? nullptr : std::malloc(given.size())};
            given.copy(static_cast<char *>(message.value), given.size());
            EXPECT_EQ(outcome(QXNEGO_configure, QXGSS_CLIENT, nullptr, &message), "000D0000/A100012B");
            EXPECT_EQ(text_of(message), given + "QXNEGO_configure" + piece + " Mechanism Disabled");
            gssp_release_buffer(nullptr, &message);
            EXPECT_EQ(QXNEGO_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr), GSS_S_FAILURE);
            self = before;
            GSS_C_NT_QXAT_MECHDATA = plain;
        }
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, CredentialsRememberTheRequestInUtf8) {
    const auto widened = [](std::size_t size) {
        std::string out;
        for (const char c : std::string("authcid=anna"))
            out += c + std::string(size - 1, '\0');
        return out;
    };
    const struct {
        qxgss_OID type;
        std::string bytes;
        const char *failure = "";
        bool release_fails = false;
    } rows[] = {
        {GSS_C_NT_QXAT_MECHDATA, widened(1)},
        {GSS_C_NT_QXAT_MECHDATA_UTF8, widened(1)},
        {GSS_C_NT_QXAT_MECHDATA_UTF8, widened(1), "", true}, // nothing is converted, so nothing replaced
        {GSS_C_NT_QXAT_MECHDATA_UTF16, widened(2)},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, widened(2), "000D0000/E10000CD", true},
        {GSS_C_NT_QXAT_MECHDATA_UTF32, widened(4)},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, "", "", true},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, {'\0', '\xD8', 'a'}, "000D0000/E10000C2"}, // half a character
    };
    for (const auto &[type, bytes, failure, release_fails] : rows) {
        qxgss_name_t name = support::imported(bytes, type), copy = nullptr;
        qxgss_cred_id_t credential = nullptr;
        qxgss_OID_set actual = nullptr, desired = nullptr;
        OM_uint32 time = 0, remembered = 0;
        qxgss_cred_usage_t usage = -1;
        secure_release_fails = release_fails;
        const std::string got = outcome(QXNEGO_acquire_cred, name, 99, pQxnegoSupportedAllNameTypes, GSS_C_BOTH,
                                        &credential, &actual, &time);
        secure_release_fails = false;
        EXPECT_EQ(support::taken(name), bytes);
        if (*failure != '\0') {
            EXPECT_EQ(got, failure);
            EXPECT_TRUE(credential == nullptr && actual == nullptr);
            continue;
        }
        EXPECT_EQ(got, kDone);
        EXPECT_EQ(outcome(QXNEGO_inquire_cred, credential, &copy, &remembered, &usage, &desired), kDone);
        EXPECT_EQ(support::taken(copy), bytes.empty() ? "" : "authcid=anna");
        EXPECT_EQ(dotted(actual), dotted(pQxnegoMechOidSet));
        EXPECT_EQ(dotted(desired), dotted(pQxnegoSupportedAllNameTypes));
        EXPECT_TRUE(time == 99 && remembered == 99 && usage == GSS_C_BOTH);
        EXPECT_EQ(outcome(QXNEGO_release_cred, &credential), kDone);
        EXPECT_EQ(credential, nullptr);
        for (qxgss_OID_set *each : {&actual, &desired})
            gssp_release_oid_set(nullptr, each);
    }
}

} // namespace
