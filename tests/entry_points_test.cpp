// Calls without a context: configuration, what it lists and why not, its messages; credentials.
#include <gtest/gtest.h>

#include <utility>

#include "tests/negotiation_harness.h"

namespace {

using namespace harness;

std::string dotted(const qxgss_OID_set set) {
    std::string out;
    for (std::size_t i = 0; i < set->count; ++i)
        out += hex({static_cast<const char *>(set->elements[i].elements), set->elements[i].length}) + " ";
    return out;
}

using EntryPoints = NegotiationTest;

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

TEST_F(EntryPoints, WhatQualifiesIsListedInOrderAndTheOthersAreToldWhy) {
    const auto listed = [](const std::string &text, const auto &alter) {
        OM_uint32 major = 0;
        EXPECT_EQ(configure(&major, text), "");
        alter();
        NegMechList_desc list{};
        EXPECT_EQ(QXNEGO_INT_InitNegMechList(nullptr, &list), GSS_S_COMPLETE);
        std::string out;
        for (OM_uint32 i = 0; i < list.Count; ++i) {
            out += pMechInfo[list.pNegMech[i].MechIndex].pszMechName;
            EXPECT_EQ(list.pNegMech[i].IsFirstOfOid, out.find(out[i]) == i) << out;
        }
        std::free(list.pNegMech);
        return out;
    };
    const auto why = [](const char *name) {
        const char *reason = "";
        const auto index = static_cast<OM_sint32>(&registered(name) - pMechInfo);
        EXPECT_EQ(QXNEGO_inquire_candidate(nullptr, index, &reason), GSS_S_COMPLETE);
        return std::string(reason == nullptr ? "" : reason);
    };
    const std::pair<std::vector<Mechanism>, const char *> orders[] = {
        {{{'A', false, false, false, 1}, {'B', false, false, false, 1}, {'C', true, false, false, 5}}, "CBA"},
        {{{'A', true, false, false, 3}, {'B', true, false, false, -3}, {'C', false, false, false, 1}}, "BAC"},
        {{{'B', true, false, false, 7}, {'A', true, false, false, 7}, {'D', false, true, true, 0}}, "BAD"},
    };
    for (const auto &[mechanisms, in_order] : orders)
        EXPECT_EQ(listed(configuration(mechanisms), [] {}), in_order);
    const NegMechEntry_desc &last = QxnegoMechList.pNegMech[2];
    EXPECT_TRUE(last.AuthenticationSupported == 0 && last.AuthorizationSupported == 1 && last.SingleSignOn == 1);
    for (const std::string property :
         {", rank = 20", "authentication = true,", "authorization = false,", "single_sign_on = true,"}) {
        std::string text = configuration();
        text.erase(text.find(property, text.find("name = \"B\"")), property.size());
        EXPECT_EQ(listed(text, [] {}), "ACD") << property;
        const std::size_t word = property.find_first_not_of(", ");
        EXPECT_EQ(why("B"), "its property " + property.substr(word, property.find(' ', word) - word) + " is not set");
        EXPECT_EQ(why("A") + why("C"), "");
    }
    static char own[] = "1.3.6.1.4.1.32473.1.1", stranger[] = "1.2.3", proxy[] = "PROXY";
    static const auto first = []() -> auto & {
        return registered("QXNEGO").pNegMechInfo[0];
    };
    const std::tuple<void (*)(), const char *, const char *, const char *> rows[] = {
        {[] { first().pNegotiatedMech = own; }, "BCD", "QXNEGO", "QXNEGO does not negotiate itself"},
        {[] { first().pNegotiatedMech = stranger; }, "BCD", "A", "it is not listed in QXNEGO's negotiates"},
        {[] { (&first())[2].pNegotiatedMech = first().pNegotiatedMech; }, "AABD", "C",
         "it is not listed in QXNEGO's negotiates"},
        {[] { first().fEnabled = 0; }, "BCD", "A", "it is disabled in QXNEGO's negotiates"},
        {[] { registered("A").fUseMech = 0; }, "BCD", "A", "it is not loaded"},
        {[] { registered("A").pszMechName = proxy; }, "BCD", proxy, "PROXY is never negotiated"},
    };
    for (const auto &[alter, in_order, whose, reason] : rows) {
        EXPECT_EQ(listed(configuration(), alter), in_order) << reason;
        EXPECT_EQ(why(whose), reason);
    }
    EXPECT_EQ(outcome(QXNEGO_INT_InitNegMechList, nullptr), "020D0000/E3000407");
}

TEST_F(EntryPoints, ConfigurationFailuresLeaveAMessage) {
    static qxgss_OID const plain = GSS_C_NT_QXAT_MECHDATA;
    static qxgss_OID_desc nothing{0, nullptr};
    static char other[] = "OTHER";
    const MechInfo_t before = pMechInfo[0];
    const std::pair<void (*)(), const char *> rows[] = {
        {[] { pMechInfo[0].pszMechName = other; },
         ":  Error when calling gssp_mechstr_to_oid(Could not obtain mechanism oid as requested)"},
        {[] { pMechInfo[0].pMechOid = &nothing; },
         ": Error when calling functiom gssp_oid_to_mechindex(An argument was not valid.)"},
        {[] { GSS_C_NT_QXAT_MECHDATA = nullptr; },
         ": Error when calling gssp_add_oid_set_member(An argument was not valid.)"},
        {[] { pMechInfo[0].NegotiatedMechCount = 0; },
         ": Error when calling QXNEGO_INT_InitNegMechList(The QXNEGO security mechanism could not find "
         "any mechanisms available for negotiation.)"},
    };
    for (const auto &[alter, piece] : rows)
        for (const std::string given : {"0123456789", ""}) {
            alter();
            qxgss_buffer_desc message{given.size(), given.empty() ? nullptr : std::malloc(given.size())};
            given.copy(static_cast<char *>(message.value), given.size());
            EXPECT_EQ(outcome(QXNEGO_configure, QXGSS_CLIENT, nullptr, &message), "000D0000/A100012B");
            EXPECT_EQ(support::taken(message), given + "QXNEGO_configure" + piece + " Mechanism Disabled");
            EXPECT_EQ(QXNEGO_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr), GSS_S_FAILURE);
            pMechInfo[0] = before;
            GSS_C_NT_QXAT_MECHDATA = plain;
        }
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

TEST_F(EntryPoints, CredentialsRememberTheRequestInUtf8) {
    const std::string utf8 = "authcid=anna", utf16("a\0u\0", 4);
    const std::tuple<qxgss_OID, std::string, std::string> rows[] = {
        {GSS_C_NT_QXAT_MECHDATA, utf8, utf8},        {GSS_C_NT_QXAT_MECHDATA_UTF8, utf8, utf8},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, utf16, "au"}, {GSS_C_NT_QXAT_MECHDATA_UTF32, {"a\0\0\0", 4}, "a"},
        {GSS_C_NT_QXAT_MECHDATA_UTF16, "", ""},
    };
    qxgss_cred_id_t credential = nullptr;
    qxgss_OID_set actual = nullptr, desired = nullptr;
    OM_uint32 time = 0, remembered = 0;
    for (const auto &[type, bytes, expected] : rows) {
        qxgss_name_t name = support::imported(bytes, type), copy = nullptr;
        qxgss_cred_usage_t usage = -1;
        EXPECT_EQ(outcome(QXNEGO_acquire_cred, name, 99, pQxnegoSupportedAllNameTypes, GSS_C_BOTH, &credential, &actual,
                          &time),
                  kDone);
        EXPECT_EQ(support::taken(name), bytes);
        EXPECT_EQ(outcome(QXNEGO_inquire_cred, credential, &copy, &remembered, &usage, &desired), kDone);
        EXPECT_EQ(support::taken(copy), expected);
        EXPECT_EQ(dotted(actual), dotted(pQxnegoMechOidSet));
        EXPECT_EQ(dotted(desired), dotted(pQxnegoSupportedAllNameTypes));
        EXPECT_TRUE(time == 99 && remembered == 99 && usage == GSS_C_BOTH);
        EXPECT_EQ(outcome(QXNEGO_release_cred, &credential), kDone);
        EXPECT_EQ(credential, nullptr);
        for (qxgss_OID_set *each : {&actual, &desired})
            gssp_release_oid_set(nullptr, each);
    }
    qxgss_name_t half = support::imported({'\0', '\xD8', 'a'}, GSS_C_NT_QXAT_MECHDATA_UTF16); // a character's
    EXPECT_EQ(outcome(QXNEGO_acquire_cred, half, 99, nullptr, GSS_C_BOTH, &credential, &actual, &time),
              "000D0000/E10000C2");
    EXPECT_TRUE(credential == nullptr && actual == nullptr && time == 0);
    support::taken(half);
}

} // namespace
