// The exported calls one by one: their argument checks in the order in which they speak, configuration and its
// messages, credentials, and what is passed through to the selected mechanism.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>

#include "tests/negotiation_harness.h"
#include "tests/support.h"

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

// Beside those that every state of a context has in common.
TEST_F(EntryPoints, ChecksSpeakInOrder) {
    Session session("A", "A");
    session.client.log_on("authcid=anna");
    session.client.call("");
    qxgss_ctx_id_t half = session.client.context, none = nullptr;
    qxgss_cred_id_t cred = nullptr;
    char text[] = "x";
    qxgss_buffer_desc out{}, input{1, text}, empty{5, nullptr}; // the length is not looked at
    qxgss_name_element_desc element{GSS_C_NT_HOSTBASED_SERVICE, {1, text}};
    qxgss_name_desc foreign{1, &element, nullptr};
    const auto acquire = [](OM_uint32 *m, qxgss_name_t name, qxgss_cred_usage_t usage, qxgss_cred_id_t *handle) {
        qxgss_OID_set mechs = pQxnegoMechOidSet;
        OM_uint32 time = 7;
        const OM_uint32 major = QXNEGO_acquire_cred(m, name, 5, nullptr, usage, handle, &mechs, &time);
        EXPECT_TRUE(mechs == nullptr && time == 0); // as after every failure
        return major;
    };
    support::expect_all("02000000/E30003F7", {checked(QXNEGO_indicate_mechs, nullptr)});
    support::expect_all("020D0000/E30003F7", {checked(QXNEGO_inquire_names_for_mech, nullptr, nullptr)});
    support::expect_all("02080000/E30003FF", {checked(QXNEGO_delete_sec_context, nullptr, &out)});
    support::expect_all("01080000/E30003FF", {checked(QXNEGO_delete_sec_context, &none, &out)});
    support::expect_all("02070000/E30003FC",
                        {checked(+acquire, &foreign, 3, nullptr), checked(QXNEGO_release_cred, nullptr)});
    support::expect_all("000D0000/E30003F5", {checked(+acquire, &foreign, 3, &cred)});
    support::expect_all("00070000/E30003FD",
                        {checked(+acquire, nullptr, 3, &cred), checked(+acquire, nullptr, -1, &cred)});
    support::expect_all("01070000/E30003FC", {checked(QXNEGO_release_cred, &cred)});
    support::expect_all("00070000/E30003FC",
                        {checked(QXNEGO_inquire_cred, nullptr, nullptr, nullptr, nullptr, nullptr)});
    support::expect_all("010D0000/E3000402", {checked(QXNEGO_wrap, half, 0, 0, nullptr, nullptr, &out),
                                              checked(QXNEGO_unwrap, half, &empty, &out, nullptr, nullptr),
                                              checked(QXNEGO_get_mic, half, 0, nullptr, &out),
                                              checked(QXNEGO_verify_mic, half, nullptr, &input, nullptr),
                                              checked(QXNEGO_verify_mic, half, &empty, &input, nullptr),
                                              checked(QXNEGO_verify_mic, half, &input, nullptr, nullptr),
                                              checked(QXNEGO_verify_mic, half, &input, &empty, nullptr)});
    support::expect_all("00100000/E30003F2", {checked(QXNEGO_qop_string_to_int, nullptr, nullptr, nullptr),
                                              checked(QXNEGO_qop_int_to_string, nullptr, 0, nullptr)});
    support::expect_all("010D0000/230003E8",
                        {checked(QXNEGO_display_status, 0xE3000408U, 2, nullptr, nullptr, nullptr)});
    support::expect_all("000D0000/E30003FA",
                        {checked(QXNEGO_display_status, 0xE3000408U, 2, pQxnegoMechOid, nullptr, nullptr)});
    EXPECT_EQ(cred, nullptr);

    qxgss_OID types[] = {nullptr, nullptr};
    QXNEGO_init_sec_context(nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr, &types[0], nullptr,
                            nullptr, nullptr);
    QXNEGO_accept_sec_context(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &types[1], nullptr, nullptr,
                              nullptr, nullptr);
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
    EXPECT_EQ(outcome(QXNEGO_indicate_mechs, &set), "00000000/230003E8");
    EXPECT_EQ(dotted(set), "2B0601040181FD590101 ");
    gssp_release_oid_set(nullptr, &set);
    EXPECT_EQ(outcome(QXNEGO_inquire_names_for_mech, nullptr, &set), "00000000/230003E8");
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
    const auto rest = [&](const std::function<void()> &alter) {
        OM_uint32 major = 0;
        EXPECT_EQ(configure(&major, text), "");
        self = &registered("QXNEGO");
        alter();
        NegMechList_desc list{};
        EXPECT_EQ(QXNEGO_INT_InitNegMechList(nullptr, &list), GSS_S_COMPLETE);
        const std::string out = letters(list);
        std::free(list.pNegMech);
        return out;
    };
    EXPECT_EQ(rest([] {}), "ACD");
    for (char *oid : {own, stranger, malformed, static_cast<char *>(nullptr)})
        EXPECT_EQ(rest([&] { self->pNegMechInfo[0].pNegotiatedMech = oid; }), "CD") << (oid == nullptr ? "" : oid);
    EXPECT_EQ(rest([&] { self->pNegMechInfo[0].fEnabled = 0; }), "CD");
    EXPECT_EQ(rest([&] { registered("A").fUseMech = 0; }), "CD");
    EXPECT_EQ(rest([&] { registered("A").pszMechName = name; }), "CD");
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
            release_module_state();
            alter();
            qxgss_buffer_desc message{given.size(), given.empty() ? nullptr : std::malloc(given.size())};
            given.copy(static_cast<char *>(message.value), given.size());
            EXPECT_EQ(outcome(QXNEGO_configure, QXGSS_CLIENT, nullptr, &message), "000D0000/A100012B");
            EXPECT_EQ(text_of(message), given + "QXNEGO_configure" + piece + " Mechanism Disabled");
            gssp_release_buffer(nullptr, &message);
            release_module_state();
            EXPECT_EQ(QXNEGO_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr), GSS_S_FAILURE);
            self = before;
            GSS_C_NT_QXAT_MECHDATA = plain;
        }
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

std::string widened(const std::string &text, std::size_t size) {
    std::string out;
    for (const char c : text)
        out += c + std::string(size - 1, '\0');
    return out;
}

TEST_F(EntryPoints, CredentialsRememberTheRequestInUtf8) {
    const std::pair<qxgss_OID, std::string> rows[] = {
        {GSS_C_NT_QXAT_MECHDATA, "authcid=anna"},
        {GSS_C_NT_QXAT_MECHDATA_UTF8, "authcid=anna"},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, widened("authcid=anna", 2)},
        {GSS_C_NT_QXAT_MECHDATA_UTF32, widened("authcid=anna", 4)},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, std::string("\0\xD8"
                                                   "a",
                                                   3)}, // half a pair, and half a character
    };
    for (const auto &[type, bytes] : rows) {
        const bool good = bytes.size() > 3;
        qxgss_buffer_desc text{bytes.size(), const_cast<char *>(bytes.data())};
        qxgss_name_t name = nullptr, copy = nullptr;
        qxgss_import_name(nullptr, &text, type, &name);
        qxgss_cred_id_t credential = nullptr;
        qxgss_OID_set actual = nullptr, desired = nullptr;
        OM_uint32 time = 0;
        qxgss_cred_usage_t usage = -1;
        const std::string got = outcome(QXNEGO_acquire_cred, name, 99, pQxnegoSupportedAllNameTypes, GSS_C_BOTH,
                                        &credential, &actual, &time);
        EXPECT_EQ(text_of(name->pElements[0].Name), bytes);
        EXPECT_EQ(got.substr(0, 16), good ? "00000000/230003E" : "000D0000/E10000C");
        EXPECT_TRUE(good || (credential == nullptr && actual == nullptr));
        if (good) {
            EXPECT_EQ(dotted(actual), dotted(pQxnegoMechOidSet));
            EXPECT_EQ(std::exchange(time, 0), 99U);
            EXPECT_EQ(outcome(QXNEGO_inquire_cred, credential, &copy, &time, &usage, &desired), "00000000/230003E8");
            EXPECT_EQ(text_of(copy->pElements[0].Name), "authcid=anna");
            EXPECT_TRUE(time == 99 && usage == GSS_C_BOTH);
            EXPECT_EQ(dotted(desired), dotted(pQxnegoSupportedAllNameTypes));
            EXPECT_EQ(outcome(QXNEGO_release_cred, &credential), "00000000/230003E8");
            EXPECT_EQ(credential, nullptr);
        }
        for (qxgss_name_t *each : {&name, &copy})
            gssp_release_name(nullptr, each);
        for (qxgss_OID_set *each : {&actual, &desired})
            gssp_release_oid_set(nullptr, each);
    }
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
        OM_uint32 lifetime = 7, flags = 7;
        qxgss_OID type = nullptr;
        int local = 7, open = 7;
        const std::string got =
            outcome(QXNEGO_inquire_context, context, &source, &target, &lifetime, &type, &flags, &local, &open);
        return got + " " + std::to_string(local) + std::to_string(open) + (type == pQxnegoMechOid ? " own" : "");
    };
    Session session("A", "A");
    session.client.log_on("authcid=anna");
    session.client.call("");
    EXPECT_EQ(inquire(session.client.context), "00000000/230003E8 10 own");
    EXPECT_NE(session.server.call("rubbish").major, GSS_S_COMPLETE);
    EXPECT_EQ(inquire(session.server.context), "00000000/230003E8 00 own");
    Complete complete;
    script().at('A', kClient).supplementary = GSS_S_OLD_TOKEN;
    EXPECT_EQ(inquire(complete.client.context), "00000000/230003E8 11");
    EXPECT_EQ(scripted::last_call("inquire_context", 'A')->wanted, 7U);
    script().at('A', kClient).messages_fail = true;
    EXPECT_EQ(inquire(complete.client.context).substr(0, 17), "00070000/C5000007");
    registered("A").MechFtnTable.ftn_gssp_inquire_context = nullptr;
    EXPECT_EQ(inquire(complete.client.context).substr(0, 17), "000D0000/E30003F2");
}

} // namespace
