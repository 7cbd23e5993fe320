// User-properties records: the walk over what a mechanism sent, the exact bytes of each writer, and the kept copy.
#include <algorithm>
#include <cstring>
#include <sstream>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "qxat/qxatint.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace support;
using namespace std::string_literals;

#define CHECK_LAYOUT(id, constant, type, field, overhead)                                                              \
    static_assert(offsetof(qxgss_data_##type##_t, qxgss_##field##Length) == 4 &&                                       \
                  offsetof(qxgss_data_##type##_t, qxgss_##field) == QXGSS_RECORD_DATA_OFFSET);
QXGSS_STRING_RECORDS(CHECK_LAYOUT)

constexpr const char *kFilled = "00000000/21000064", *kDone = "00000000/230003E8";

// No bytes and no length, as every failure leaves an output.
bool is_empty(const qxgss_buffer_desc &buffer) {
    return buffer.value == nullptr && buffer.length == 0;
}

// ---- The mechanism's records and the log ---------------------------------------------------------------------------

TEST(QxnegoInfo, PassesRecordsThroughAndMarksTheirAttributes) {
    const std::string user = "\x09\0\x0c\0\x02\0jo\0\0\0\0"s, odd = "c\0\x05\0\x07"s;
    const std::string sent = "\x08\0\x10\0\x01\0\x01\x01\0\0\0\0\0\0\0\0"s;
    const std::string marked = "\x08\0\x10\0\x02\0\x01\x01\x03\0\0\0\0\0\0\0"s;
    const std::string added = "\x08\0\x10\0\x02\0\0\0\x03\0\0\0\0\0\0\0"s;
    std::vector<std::pair<std::string, std::string>> cases{
        {"", added}, {user + odd + sent + user + sent, user + odd + marked + user + marked}};
    // Where the walk stops: cut, beyond the end, too short, standing still, below a header.
    for (const std::string &end :
         {"\x08\0\x10"s, "\x08\0\x11\0\x01\0\x01\x01\0\0\0\0\0\0\0\0"s, "\x08\0\x08\0\x01\0\x01\x01"s + sent,
          "\x09\0\0\0"s + sent, "\x09\0\x03\0\0\0"s + sent}) {
        cases.emplace_back(user + end, user + end + added);
        cases.emplace_back(sent + end, marked + end);
    }
    for (auto &[given, expected] : cases) {
        std::string log = "log";
        qxgss_buffer_desc props = view(given), text = view(log), made{};
        ASSERT_EQ(outcome(QXNEGO_INT_FillQxnegoInfo, &props, 0x103, &text, &made), kDone);
        EXPECT_EQ(taken(made), expected + "\x14\0\x0c\0\x03\0log\0\0\0"s);
    }
    EXPECT_EQ(outcome(QXNEGO_INT_FillQxnegoInfo, nullptr, 1, nullptr, nullptr), "000D0000/E30003F6");
    qxgss_buffer_desc made{7, &made}, empty{};
    EXPECT_EQ(outcome(QXNEGO_INT_FillQxnegoInfo, &empty, 0, &empty, &made), kDone); // nothing to report
    EXPECT_TRUE(made.length == 7 && made.value == &made);
}

TEST(QxnegoInfo, ALogThatIsTooLongEndsWithAWholeRecord) {
    const auto log_of = [](std::size_t second) { // where the second record begins
        return std::string(60000, 'r') + "\nRecord 1\n" + std::string(second - 60011, 'x') + "\nRecord 2\n";
    };
    const std::pair<std::string, std::size_t> cases[] = {{std::string(65526, 'x'), 65525},
                                                         {std::string(65525, 'x'), 65525},
                                                         {log_of(65525), 65525},
                                                         {log_of(65526), 60001}};
    for (const auto &[log, kept] : cases) {
        qxgss_buffer_desc text = view(log), made{};
        ASSERT_EQ(QXNEGO_INT_FillQxnegoInfo(nullptr, nullptr, 1, &text, &made), GSS_S_COMPLETE);
        const std::string length = std::to_string((kept + 10) & ~std::size_t{3});
        EXPECT_TRUE(described(taken(made)) == "8:16(2 0 0 1) 20:" + length + "[" + log.substr(0, kept) + "]") << kept;
    }
}

// ---- The user's properties of a context ----------------------------------------------------------------------------

using UserProperties = harness::NegotiationTest;
using MechanismInfo = harness::NegotiationTest;

TEST_F(UserProperties, AreBuiltOnceAfterCompletion) {
    auto &acceptor = scripted::script().at('A', scripted::kServer);
    acceptor.properties = {"\x09\0\x0c\0\x03\0joe\0\0\0", 12};
    scripted::script().legs[0] = 3;
    harness::Session session("A", "A", "authcid=anna");
    // What is handed out before the log, or the statuses.
    const auto told = [&](bool mechanism_fails) {
        acceptor.messages_fail = mechanism_fails;
        qxgss_buffer_desc buffer{3, &session};
        const std::string got = outcome(QXNEGO_inquire_properties_for_user, session.server.context, &buffer);
        EXPECT_EQ(is_empty(buffer), got != kDone);
        const std::string text = described(taken(buffer));
        return got == kDone ? text.substr(0, text.find(" 20:")) : got;
    };
    const std::string first = session.server.call(session.client.call("").token).token;
    EXPECT_EQ(told(true), "8:16(2 0 0 0)"); // nobody is asked
    acceptor.messages_fail = false;
    session.server.call(session.client.call(first).token);
    NegContext_desc &negotiation = session.server.negotiation();
    for (const OM_sint32 nobody : {-1, 99}) {
        const OM_sint32 index = std::exchange(negotiation.SelectedMechInfoIndex, nobody);
        EXPECT_EQ(told(false), "000D0000/E3000400");
        negotiation.SelectedMechInfoIndex = index;
    }
    EXPECT_EQ(told(true), "00070000/C5000007");
    for (const bool mechanism_fails : {false, true}) // what was given once answers from then on, with copies of its own
        EXPECT_EQ(told(mechanism_fails), "9:12[joe] 8:16(2 0 0 1)");
    registered("A").MechFtnTable.ftn_gssp_inquire_properties_for_user = nullptr; // it need not have any
    gssp_release_buffer(nullptr, &static_cast<QxnegoSecCtx_int_t>(session.server.context)->UserProperties);
    EXPECT_EQ(told(false), "8:16(2 0 0 1)");
    EXPECT_EQ(outcome(QXNEGO_INT_FillUserProperties, nullptr, nullptr), "01080000/E30003F6");
}

// ---- The logon-data module's writers -------------------------------------------------------------------------------

TEST(InsertItem, WritesExactBytesOrNothing) {
    const std::tuple<qxgss_data_id_t, const char *, std::string> cases[] = {
        {5, "ab", "\x05\0\x08\0\x02\0ab"s},
        {9, "ab", "\x09\0\x0c\0\x02\0ab...."s}, // padded by what was there
        {14, "", "\x0e\0\x08\0\0\0.."s},
        {8, "\x01", "\x08\0\x10\0\x01\0\x01........."s},
        {15, "a", ""}, // a record, but no item
    };
    for (const auto &[id, from, written] : cases) {
        const std::string untouched(40, '.');
        std::string room = untouched;
        EXPECT_EQ(InsertItem(room.data(), id, from, room.size()), written.size()) << id;
        EXPECT_EQ(room, written + untouched.substr(written.size())) << id;
        EXPECT_EQ(InsertItem(room.data(), id, from, written.size()), written.size()) << id;
        EXPECT_EQ(InsertItem(room.data(), id, from, written.empty() ? 0 : written.size() - 1), 0U) << id;
    }
    std::vector<unsigned char> room(70000);
    EXPECT_EQ(InsertItem(room.data(), 7, nullptr, room.size()), 0U); // nothing is read for what is no item
    for (const auto &[length, written] : {std::pair{65525U, 65532U}, {65526U, 0U}})
        EXPECT_EQ(InsertItem(room.data(), 9, std::string(length, 'x').c_str(), room.size()), written);
    char to[] = "......";
    CopyString(to, 5, '-', "xy");
    EXPECT_STREQ(to, "xy---.");
}

// A null-terminated list of heap strings from "a,b,c", as a directory module gives it, and back, which frees it.
std::vector<char *> listed(const std::string &text) {
    std::vector<char *> names;
    std::istringstream in(text);
    for (std::string name; std::getline(in, name, ',');)
        names.push_back(strdup(name.c_str()));
    names.push_back(nullptr);
    return names;
}
std::string unlisted(const std::vector<char *> &names) {
    std::string text;
    for (char *const *name = names.data(); *name != nullptr; std::free(*name++))
        text += (text.empty() ? "" : ",") + std::string(*name);
    return text;
}

char address[] = "ldap://d", database[] = "db", service[] = "svc";

TEST(Authorizations, FollowTheDirectory) {
    const std::string kTail = " 5:12[anna] 12:12[anna] 11:16[ldap://d]", kWhole = "9:12[db] 8:16(1 1 0 0)";
    constexpr qxs_authorizeas_t kUser = QXS_AUTHZ_USER, kNone = QXS_AUTHZ_NONE;
    // clang-format off
    const struct {
        qxs_authorizeas_t as;
        const char *roles, *profiles, *users, *desired_user, *desired_profile;
        std::string records; // before the common ones; "" when it is refused
        const char *users_left, *domain = nullptr;
        unsigned service = 0;
        qxs_authtype_t type = QXS_AUTHTYPE_LEGACY;
    } cases[] = {
        {kUser, "", "", "", nullptr, nullptr, kWhole, ""},
        {kUser, "r1,r", "p", "u", nullptr, nullptr, "9:8[u] 10:12[dom] 8:16(1 0 0 0) 14:8[p] 13:12[r1] 13:8[r]", "u", "dom", 1},
        {QXS_AUTHZ_DEFAULT, "", "p,q", "u,v", "V", "Q", "9:8[V] 8:16(1 0 0 0) 14:8[Q]", "u,v"},
        {QXS_AUTHZ_SERVICE, "", "p,q", "u,v", "v", nullptr, "", "u,v"},
        {kUser, "", "", "a,b", nullptr, nullptr, "", "a,b"},
        {kUser, "", "p", "a", "c", nullptr, "", "a"},
        {kUser, "", "p", "a", "a", "x", "", "a"},
        {kUser, "", "", "extuser,dbu1", nullptr, nullptr, "9:12[dbu1] 8:16(1 0 0 0)", "dbu1"},
        {kUser, "", "", "extuser,dbu1", "EXTUSER", nullptr, kWhole, "dbu1"},
        {kUser, "", "", "a,b,ExtUser", "b", nullptr, "9:8[b] 8:16(1 0 0 0)", "a,b"},
        // The name that moves into the freed place is not looked at.
        {kUser, "", "", "extuser,a,extuser", "a", nullptr, "9:8[a] 8:16(1 0 0 0)", "extuser,a"},
        {kUser, "", "", "dbu1", "extuser", nullptr, "", "dbu1"},
        {kUser, "", "", "", nullptr, nullptr, "9:12[db] 8:16(1 0 0 0)", "", nullptr, 0, QXS_AUTHTYPE_LIGHTWEIGHT},
        {kNone, "r", "p", "extuser,u", nullptr, nullptr, "9:12[db] 8:16(1 0 0 0)", "extuser,u"},
        {kNone, "r", "p", "extuser,u", "u", nullptr, "", "extuser,u"},
        {kNone, "r", "p", "u", nullptr, "p", "", "u"},
    };
    // clang-format on
    for (const auto &c : cases) {
        qxs_authorizations_t authz{};
        authz.ta_authorizeas = c.as;
        authz.ta_authtype = c.type;
        authz.ta_service = service;
        authz.ta_ldapurl = address;
        authz.ta_databasename = database;
        std::vector<char *> roles = listed(c.roles), profiles = listed(c.profiles), users = listed(c.users);
        authz.ta_roles = roles.data();
        authz.ta_profile = profiles.data();
        authz.ta_user = users.data();
        qxgss_buffer_desc props{3, address};
        EXPECT_EQ(outcome(qxat_fill_authorizations, &props, "anna", c.domain, &authz, c.desired_user, c.desired_profile,
                          c.service),
                  c.records.empty() ? "000D0000/00000000" : kFilled)
            << "number " << &c - cases;
        EXPECT_EQ(described(taken(props)),
                  c.records.empty() ? "" : c.records + kTail + (c.service != 0 ? " 19:12[svc]" : ""));
        EXPECT_EQ(unlisted(users), c.users_left);
        EXPECT_EQ(unlisted(roles) + " " + unlisted(profiles), c.roles + std::string(" ") + c.profiles);
    }
}

TEST(Authorizations, RefuseWhatIsMissingOrTooLong) {
    qxs_authorizations_t whole{};
    whole.ta_ldapurl = address;
    whole.ta_databasename = database;
    qxs_authorizations_t no_url = whole, no_database = whole;
    no_url.ta_ldapurl = no_database.ta_databasename = nullptr;
    qxgss_buffer_desc props{3, address};
    const auto filled = [&](const char *authcid, qxs_authorizations_t *authz) {
        return outcome(qxat_fill_authorizations, &props, authcid, nullptr, authz, nullptr, nullptr, 1);
    };
    expect_all("000D0000/E10000CD", {filled("anna", nullptr), filled("anna", &no_url), filled("anna", &no_database),
                                     filled(nullptr, &whole)});
    EXPECT_EQ(filled(std::string(65526, 'x').c_str(), &whole), "000D0000/00000000");
    EXPECT_TRUE(is_empty(props));
    EXPECT_EQ(qxat_fill_authorizations(nullptr, nullptr, "anna", nullptr, &whole, nullptr, nullptr, 1), GSS_S_FAILURE);
}

const unsigned char kYes = 1;

TEST_F(MechanismInfo, MarksAttributesOrAddsThem) {
    qxgss_OID oid = registered("A").pMechOid;
    const std::string made = "15:8[A] 16:28[1.3.6.1.4.1.32473.2.1] 17:20[" + bytes_of(*oid) + "]";
    const std::string sent = "\x08\0\x10\0\x01\0\x01\0\x01\0\0\0\0\0\0\0"s, cut = sent.substr(0, 8);
    const std::string marked = "\x08\0\x10\0\x02\0\x01\x01\x01\0\0\0\0\0\0\0"s;
    for (auto [given, added, left] : {std::tuple{sent, std::string(), marked}, {cut, "8:16(2 0 1 0) ", cut}}) {
        qxgss_buffer_desc props = view(given), records{3, oid};
        EXPECT_EQ(outcome(qxat_fill_mechinfo, &props, &records, &kYes, oid), kFilled);
        EXPECT_EQ(described(taken(records)), added + made);
        EXPECT_EQ(given, left);
    }
}

TEST_F(MechanismInfo, RefusesWithoutLeavingABuffer) {
    MechInfo_t &mechanism = registered("A");
    const MechInfo_t whole = mechanism;
    const auto refused = [&](const unsigned char *authenticated, qxgss_OID oid) {
        qxgss_buffer_desc made{3, &mechanism};
        const std::string got = outcome(qxat_fill_mechinfo, nullptr, &made, authenticated, oid);
        EXPECT_TRUE(is_empty(made)) << got;
        return got;
    };
    std::string long_name(65526, 'n'), bad = "1.x";
    expect_all("000D0000/E30003F6", {outcome(qxat_fill_mechinfo, nullptr, nullptr, &kYes, whole.pMechOid),
                                     refused(nullptr, whole.pMechOid), refused(&kYes, nullptr)});
    EXPECT_EQ(refused(&kYes, GSS_C_NT_QXAT_MECHDATA), "000D0000/E100007C");
    mechanism.pszMechOid = bad.data();
    EXPECT_EQ(refused(&kYes, whole.pMechOid), "000D0000/E1000081");
    mechanism = whole;
    mechanism.pszMechName = long_name.data();
    EXPECT_EQ(refused(&kYes, whole.pMechOid), "000D0000/00000000");
    mechanism = whole;
}

TEST(KerberosLogdata, CarriesNoIdentityOrPassword) {
    for (const char *allowed : {"", "AUTHCID=joe", "authcid joe", static_cast<const char *>(nullptr)})
        EXPECT_EQ(outcome(qxat_validate_kerberos_logdata, allowed), kFilled);
    for (const char *refused : {"authcid=joe", "x password=y", "xauthcid="})
        EXPECT_EQ(outcome(qxat_validate_kerberos_logdata, refused), "000D0000/E300042A") << refused;
}

} // namespace
