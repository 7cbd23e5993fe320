// User-properties records: the walk over what a mechanism sent, the exact bytes of each writer, and the kept copy.
#include <array>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "qxat/qxatldapauthorize.h"
#include "tests/failing_heap.h"

namespace {

#define CHECK_LAYOUT(id, constant, type, field, overhead)                                                              \
    static_assert(offsetof(qxgss_data_##type##_t, qxgss_##field##Length) == 4 &&                                       \
                  offsetof(qxgss_data_##type##_t, qxgss_##field) == QXGSS_RECORD_DATA_OFFSET);
QXGSS_STRING_RECORDS(CHECK_LAYOUT)
#undef CHECK_LAYOUT
static_assert(sizeof(qxgss_data_attributes_t) == 16 && offsetof(qxgss_data_attributes_t, qxgss_Authorized) == 6 &&
              offsetof(qxgss_data_attributes_t, qxgss_RFU) == 9);

std::string hex(const void *bytes, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char *>(bytes)[i]);
        text += digits;
    }
    return text;
}

// "ID:LENGTH[data]" of each record, "8:LENGTH(count authorized authenticated policy)" of an attributes record.
std::string describe(const qxgss_buffer_desc &buffer) {
    const auto *bytes = static_cast<const unsigned char *>(buffer.value);
    std::string text;
    std::size_t at = 0;
    qxat_data_header_t header;
    for (; qxgss_record_at(bytes, buffer.length, at, &header) != 0; at += header.qxgss_Length) {
        text += (at == 0 ? "" : " ") + std::to_string(header.qxgss_DataId) + ":" + std::to_string(header.qxgss_Length);
        std::size_t length = 0;
        const unsigned char *data = qxgss_record_data(bytes + at, &header, &length);
        if (header.qxgss_DataId == QXGSS_DATA_ID_ATTRIBUTES)
            for (std::size_t i = 4; i < 9; i += i == 4 ? 2 : 1)
                text += (i == 4 ? "(" : " ") + std::to_string(bytes[at + i]) + (i == 8 ? ")" : "");
        else
            text += "[" + std::string(data, data + length) + "]";
        const std::size_t end = data == nullptr ? 9 : QXGSS_RECORD_DATA_OFFSET + length;
        for (std::size_t i = header.qxgss_DataId == QXGSS_DATA_ID_ATTRIBUTES ? 9 : end; i < header.qxgss_Length; ++i)
            EXPECT_EQ(bytes[at + i], 0) << text;
    }
    EXPECT_EQ(at, buffer.length) << text;
    return text;
}

std::string take(qxgss_buffer_desc &buffer) {
    const std::string text = describe(buffer);
    gssp_release_buffer(nullptr, &buffer);
    return text;
}

std::string bytes_of(std::initializer_list<int> values) {
    return std::string(values.begin(), values.end());
}

qxgss_buffer_desc view(std::string &text) {
    return {text.size(), text.empty() ? nullptr : text.data()};
}

// ---- The mechanism's records and the log ---------------------------------------------------------------------------

TEST(QxnegoInfo, PassesRecordsThroughAndMarksTheirAttributes) {
    const std::string user = bytes_of({9, 0, 12, 0, 2, 0, 'j', 'o', 0, 0, 0, 0});
    const std::string attributes = bytes_of({8, 0, 16, 0, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0});
    const std::string shortest = bytes_of({8, 0, 9, 0, 1, 0, 1, 1, 0});
    const std::string odd = bytes_of({99, 0, 5, 0, 7});
    // Ends of a buffer at which the walk stops.
    const std::string cut = bytes_of({8, 0, 16});
    const std::string beyond = bytes_of({8, 0, 17, 0, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0});
    const std::string too_short = bytes_of({8, 0, 8, 0, 1, 0, 1, 1});
    const std::string standing_still = bytes_of({9, 0, 0, 0});
    const std::string below_header = bytes_of({9, 0, 3, 0, 0, 0});
    const struct {
        int line;
        std::string before; // whose attributes records are marked
        std::string after;  // not touched
        bool attributes;    // whether none is added
    } cases[] = {
        {__LINE__, "", "", false},
        {__LINE__, user, "", false},
        {__LINE__, attributes, "", true},
        {__LINE__, user + odd + attributes + user + attributes, "", true},
        {__LINE__, shortest, "", true},
        {__LINE__, attributes, cut, true},
        {__LINE__, attributes, beyond, true},
        {__LINE__, user, beyond, false},
        {__LINE__, attributes, too_short + attributes, true},
        {__LINE__, "", too_short + attributes, false},
        {__LINE__, attributes, standing_still + attributes, true},
        {__LINE__, "", below_header + attributes, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        std::string expected = c.before;
        for (std::size_t at = expected.find(bytes_of({8, 0})); at != std::string::npos && c.attributes;
             at = expected.find(bytes_of({8, 0}), at + 9)) {
            expected[at + 4] = 2;
            expected[at + 8] = 3;
        }
        expected += c.after;
        if (!c.attributes)
            expected += bytes_of({8, 0, 16, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0});
        expected += bytes_of({20, 0, 12, 0, 3, 0, 'l', 'o', 'g', 0, 0, 0});
        std::string sent = c.before + c.after, log = "log";
        qxgss_buffer_desc props = view(sent), text = view(log), made{};
        OM_uint32 minor = 0;
        ASSERT_EQ(QXNEGO_INT_FillQxnegoInfo(&minor, &props, 0x103, &text, &made), GSS_S_COMPLETE);
        EXPECT_EQ(minor, 0x230003E8U);
        EXPECT_EQ(hex(made.value, made.length), hex(expected.data(), expected.size()));
        gssp_release_buffer(nullptr, &made);
    }
}

TEST(QxnegoInfo, SurvivesAnyBuffer) {
    std::mt19937 random(20240);
    for (int round = 0; round < 20000; ++round) {
        // A block of its own size, so that every byte beyond it is noticed.
        const std::size_t size = 1 + random() % 48;
        auto *bytes = static_cast<unsigned char *>(std::malloc(size));
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<unsigned char>(random() % 3 == 0 ? 8 : random() % 24 * (random() % 2));
        qxgss_buffer_desc props{size, bytes}, made{};
        ASSERT_EQ(QXNEGO_INT_FillQxnegoInfo(nullptr, &props, 1, nullptr, &made), GSS_S_COMPLETE);
        ASSERT_TRUE(made.length == size + 8 || made.length == size + 24);
        EXPECT_EQ(std::memcmp(made.value, bytes, size), 0);
        gssp_release_buffer(nullptr, &made);
        std::free(bytes);
    }
}

TEST(QxnegoInfo, SizesTheLogRecord) {
    const std::string record(4000, 'r');
    std::string long_log = "banner\n\n";
    while (long_log.size() < 65525 + 4096)
        long_log += "Record 1\n" + record + "\n";
    std::size_t whole = long_log.rfind("\nRecord", 65525 - 1) + 1;
    std::string fitting = long_log.substr(0, whole) + std::string(65525 - whole - 1, 'r') + "\nRecord 2\n";
    const struct {
        int line;
        std::string log;
        std::size_t length, kept;
    } cases[] = {
        {__LINE__, "", 8, 0},
        {__LINE__, std::string(2, 'x'), 12, 2},
        {__LINE__, std::string(1000, 'x'), 1008, 1000},
        {__LINE__, std::string(1001, 'x'), 1008, 1001},
        {__LINE__, std::string(1002, 'x'), 1012, 1002},
        {__LINE__, std::string(65525, 'x'), 65532, 65525},
        {__LINE__, std::string(65526, 'x'), 65532, 65525},
        {__LINE__, long_log, (whole + 10) & ~std::size_t{3}, whole},
        {__LINE__, fitting, 65532, 65525},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        std::string log = c.log;
        qxgss_buffer_desc text = view(log), made{};
        ASSERT_EQ(QXNEGO_INT_FillQxnegoInfo(nullptr, nullptr, 1, &text, &made), GSS_S_COMPLETE);
        EXPECT_EQ(made.length, 16 + c.length);
        EXPECT_EQ(take(made), "8:16(2 0 0 1) 20:" + std::to_string(c.length) + "[" + c.log.substr(0, c.kept) + "]");
    }
}

TEST(QxnegoInfo, RefusesOrHasNothingToReport) {
    OM_uint32 minor = 0;
    EXPECT_EQ(QXNEGO_INT_FillQxnegoInfo(&minor, nullptr, 1, nullptr, nullptr), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE30003F6U);
    qxgss_buffer_desc made{7, &minor}, empty{};
    EXPECT_EQ(QXNEGO_INT_FillQxnegoInfo(&minor, &empty, 0, &empty, &made), GSS_S_COMPLETE);
    EXPECT_EQ(minor, 0x230003E8U);
    EXPECT_EQ(made.length, 7U);
    EXPECT_EQ(made.value, &minor);
    const failing_heap::From failing(0);
    EXPECT_EQ(QXNEGO_INT_FillQxnegoInfo(&minor, nullptr, 1, nullptr, &made), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE30003F9U);
    EXPECT_EQ(made.length, 0U);
    EXPECT_EQ(made.value, nullptr);
}

// ---- The user's properties of a context ----------------------------------------------------------------------------

OM_uint32 answer_major, answer_calls;
void *asked_context;

// Gives a user name also when it fails: what it filled in must not be lost.
OM_uint32 inquire_properties(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_buffer_t pUserPropBuffer) {
    ++answer_calls;
    asked_context = pContextHandle;
    *pMinorStatus = 0xC5000001U;
    *pUserPropBuffer = {12, std::calloc(12, 1)};
    InsertItem(pUserPropBuffer->value, QXGSS_DATA_ID_USERNAME, "joe", 12);
    return answer_major;
}

class UserProperties : public testing::Test {
  protected:
    void SetUp() override {
        answer_major = answer_calls = 0;
        mechanism_.MechFtnTable.ftn_gssp_inquire_properties_for_user = inquire_properties;
        pMechInfo = &mechanism_;
        MechCount = 1;
        entry_.pMechContext = this;
        negotiation_.NegMechList = {1, &entry_};
        negotiation_.NegLog.pRecords = &record_;
        negotiation_.NegState = NEG_STATE_COMPLETED;
        negotiation_.IsPolicyApplied = 1;
    }
    void TearDown() override {
        gssp_release_buffer(nullptr, &context_.UserProperties);
        pMechInfo = nullptr;
        MechCount = 0;
    }
    // What was handed out before the log.
    std::string inquire() {
        qxgss_buffer_desc buffer{};
        OM_uint32 minor = 0;
        EXPECT_EQ(QXNEGO_inquire_properties_for_user(&minor, &context_, &buffer), GSS_S_COMPLETE);
        EXPECT_EQ(minor, 0x230003E8U);
        const std::string text = take(buffer);
        EXPECT_NE(text.find("No records found in Negotiation Log."), std::string::npos);
        return text.substr(0, text.find(" 20:"));
    }

    MechInfo_t mechanism_{};
    NegMechEntry_desc entry_{};
    NegLogRecord record_{};
    QxnegoSecCtxDescStruct context_{};
    NegContext_desc &negotiation_ = context_.NegCtx;
};

TEST_F(UserProperties, AreBuiltOnceAfterCompletion) {
    negotiation_.NegState = NEG_STATE_INCOMPLETE;
    negotiation_.SelectedMechListIndex = negotiation_.SelectedMechInfoIndex = -1;
    EXPECT_EQ(inquire(), "8:16(2 0 0 0)");
    EXPECT_EQ(context_.UserProperties.value, nullptr);
    EXPECT_EQ(answer_calls, 0U);

    negotiation_.NegState = NEG_STATE_COMPLETED;
    negotiation_.SelectedMechListIndex = negotiation_.SelectedMechInfoIndex = 0;
    EXPECT_EQ(inquire(), "9:12[joe] 8:16(2 0 0 1)");
    EXPECT_EQ(asked_context, this);
    // The kept buffer answers from now on, with copies of its own.
    negotiation_.IsPolicyApplied = 0;
    qxgss_buffer_desc first{};
    ASSERT_EQ(QXNEGO_inquire_properties_for_user(nullptr, &context_, &first), GSS_S_COMPLETE);
    EXPECT_EQ(inquire(), "9:12[joe] 8:16(2 0 0 1)");
    EXPECT_NE(first.value, context_.UserProperties.value);
    EXPECT_EQ(describe(first), describe(context_.UserProperties));
    gssp_release_buffer(nullptr, &first);
    EXPECT_EQ(answer_calls, 1U);

    negotiation_.NegState = NEG_STATE_REJECT;
    qxgss_buffer_desc buffer{3, &first};
    EXPECT_EQ(QXNEGO_inquire_properties_for_user(nullptr, &context_, &buffer), GSS_S_COMPLETE);
    EXPECT_EQ(buffer.length, 0U);
    EXPECT_EQ(buffer.value, nullptr);
}

TEST_F(UserProperties, MechanismNeedNotHaveAny) {
    mechanism_.MechFtnTable.ftn_gssp_inquire_properties_for_user = nullptr;
    EXPECT_EQ(inquire(), "8:16(2 0 0 1)");
}

TEST_F(UserProperties, FailuresAreHandedOnAndKeepNothing) {
    const struct {
        int line;
        OM_sint32 registry, list;
        OM_uint32 mechanism; // its major status
        bool log;
        int failing; // allocation
        OM_uint32 major, minor;
    } cases[] = {
        {__LINE__, -1, 0, 0, true, 99, GSS_S_FAILURE, 0xE3000400U},
        {__LINE__, 1, 0, 0, true, 99, GSS_S_FAILURE, 0xE3000400U},
        {__LINE__, 0, -1, 0, true, 99, GSS_S_FAILURE, 0xE3000400U},
        {__LINE__, 0, 1, 0, true, 99, GSS_S_FAILURE, 0xE3000400U},
        {__LINE__, 0, 0, GSS_S_UNAVAILABLE, true, 99, GSS_S_UNAVAILABLE, 0xC5000001U},
        {__LINE__, 0, 0, GSS_S_CONTINUE_NEEDED, false, 99, 0x010D0000U, 0xE300040AU},
        {__LINE__, 0, 0, 0, true, 0, GSS_S_FAILURE, 0xE30003F8U},
        {__LINE__, 0, 0, 0, true, 2, GSS_S_FAILURE, 0xE30003F9U}, // 1: the log is not made smaller
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        negotiation_.SelectedMechInfoIndex = c.registry;
        negotiation_.SelectedMechListIndex = c.list;
        negotiation_.NegLog.pRecords = c.log ? &record_ : nullptr;
        answer_major = c.mechanism;
        if (c.failing < 99)
            mechanism_.MechFtnTable.ftn_gssp_inquire_properties_for_user = nullptr;
        const failing_heap::From failing(c.failing);
        qxgss_buffer_desc buffer{3, &context_};
        OM_uint32 minor = 0;
        EXPECT_EQ(QXNEGO_inquire_properties_for_user(&minor, &context_, &buffer), c.major);
        EXPECT_EQ(minor, c.minor);
        EXPECT_EQ(buffer.length, 0U);
        EXPECT_EQ(buffer.value, nullptr);
        EXPECT_EQ(context_.UserProperties.value, nullptr);
    }
}

TEST_F(UserProperties, RefuseNullPointersInOrder) {
    OM_uint32 minor = 0;
    qxgss_buffer_desc buffer{};
    EXPECT_EQ(QXNEGO_inquire_properties_for_user(&minor, nullptr, nullptr), 0x01080000U);
    EXPECT_EQ(minor, 0xE30003F7U);
    minor = 0;
    EXPECT_EQ(QXNEGO_inquire_properties_for_user(&minor, &context_, nullptr), 0x020D0000U);
    EXPECT_EQ(minor, 0xE30003F7U);
    EXPECT_EQ(QXNEGO_INT_FillUserProperties(&minor, nullptr, nullptr), 0x01080000U);
    EXPECT_EQ(minor, 0xE30003F6U);
    EXPECT_EQ(QXNEGO_INT_FillUserProperties(&minor, &context_, nullptr), 0x020D0000U);
    EXPECT_EQ(minor, 0xE30003F7U);
    EXPECT_EQ(QXNEGO_INT_FillUserProperties(nullptr, nullptr, &buffer), 0x01080000U);
}

// ---- The logon-data module's writers -------------------------------------------------------------------------------

TEST(InsertItem, WritesExactBytesOrNothing) {
    const struct {
        qxgss_data_id_t id;
        const char *from;
        const char *bytes; // "" for none
    } cases[] = {
        {5, "", "0500080000001111"}, // padded by what was there
        {5, "ab", "050008000200616211"},
        {9, "ab", "09000c0002006162"},
        {10, "abcde", "0a000c0005006162636465"},
        {11, "abcdef", "0b000c000600616263646566"},
        {12, "a", "0c0008000100611111"},
        {13, "abcde", "0d000c000500616263646511"},
        {14, "", "0e00080000001111"},
        {19, "abc", "13000c00030061626311"},
        {8, "\x01", "0800100001000111111111111111111111"},
        {7, "a", ""},
        {17, "a", ""},
        {20, "a", ""},
        {0xFFFF, "a", ""},
    };
    for (const auto &c : cases) {
        std::array<unsigned char, 40> room;
        room.fill(0x11);
        const std::size_t length = InsertItem(room.data(), c.id, c.from, room.size());
        const std::string bytes = hex(room.data(), room.size());
        const std::string written = bytes.substr(0, 2 * length);
        const std::string expected = (c.bytes + std::string(40, '1')).substr(0, 2 * length);
        EXPECT_EQ(written, expected) << c.id;
        EXPECT_EQ(length == 0, *c.bytes == '\0') << c.id;
        EXPECT_EQ(bytes.substr(2 * length), std::string(80 - 2 * length, '1')) << c.id;
        room.fill(0x11);
        EXPECT_EQ(InsertItem(room.data(), c.id, c.from, length), length) << c.id;
        room.fill(0x11);
        EXPECT_EQ(InsertItem(room.data(), c.id, c.from, length == 0 ? 0 : length - 1), 0U) << c.id;
    }
    std::vector<unsigned char> room(70000);
    EXPECT_EQ(InsertItem(room.data(), 9, std::string(65525, 'x').c_str(), room.size()), 65532U);
    EXPECT_EQ(InsertItem(room.data(), 9, std::string(65526, 'x').c_str(), room.size()), 0U);
    EXPECT_EQ(InsertItem(room.data(), 5, std::string(65526, 'x').c_str(), room.size()), 65532U);
    EXPECT_EQ(InsertItem(room.data(), 5, std::string(65527, 'x').c_str(), room.size()), 0U);
}

TEST(CopyString, CutsOrFills) {
    char to[] = "......";
    CopyString(to, 3, '-', "abcdef");
    EXPECT_STREQ(to, "abc...");
    CopyString(to, 5, '-', "xy");
    EXPECT_STREQ(to, "xy---.");
    CopyString(to, 0, '-', "z");
    EXPECT_STREQ(to, "xy---.");
}

// A heap list of heap strings from "a,b,c".
qxs_namelist_t list_of(const char *names) {
    auto *list = static_cast<qxs_namelist_t>(std::calloc(9, sizeof(qxs_name_t)));
    std::size_t n = 0;
    for (const char *at = names; *at != '\0'; at += *at == ',') {
        const std::size_t length = std::strcspn(at, ",");
        list[n++] = strndup(at, length);
        at += length;
    }
    return list;
}

std::string take_list(qxs_namelist_t list) {
    std::string names;
    for (std::size_t i = 0; list != nullptr && list[i] != nullptr; ++i) {
        names += (i == 0 ? "" : ",") + std::string(list[i]);
        std::free(list[i]);
    }
    std::free(list);
    return names;
}

char address[] = "ldap://d", database[] = "db", service[] = "svc";

TEST(Authorizations, FollowTheDirectory) {
    const std::string kTail = " 5:12[anna] 12:12[anna] 11:16[ldap://d]";
    const struct {
        int line;
        qxs_authorizeas_t as;
        const char *roles, *profiles, *users;
        const char *desired_user, *desired_profile;
        const char *records; // null: refused; "" before the common ones
        const char *users_left;
        const char *domain = nullptr;
        unsigned service = 0;
        qxs_authtype_t type = QXS_AUTHTYPE_LEGACY;
    } cases[] = {
        {__LINE__, QXS_AUTHZ_USER, "", "", "", nullptr, nullptr, "9:12[db] 8:16(1 1 0 0)", ""},
        {__LINE__, QXS_AUTHZ_USER, "r1,r", "p", "u", nullptr, nullptr,
         "9:8[u] 10:12[dom] 8:16(1 0 0 0) 14:8[p] 13:12[r1] 13:8[r]", "u", "dom", 1},
        {__LINE__, QXS_AUTHZ_DEFAULT, "", "p,q", "u,v", "V", "Q", "9:8[V] 8:16(1 0 0 0) 14:8[Q]", "u,v"},
        {__LINE__, QXS_AUTHZ_SERVICE, "", "p,q", "u,v", "v", nullptr, nullptr, "u,v"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "a,b", nullptr, nullptr, nullptr, "a,b"},
        {__LINE__, QXS_AUTHZ_USER, "", "p", "a", "c", nullptr, nullptr, "a"},
        {__LINE__, QXS_AUTHZ_USER, "", "p", "a", "a", "x", nullptr, "a"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "extuser,dbu1", nullptr, nullptr, "9:12[dbu1] 8:16(1 0 0 0)", "dbu1"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "extuser,dbu1", "EXTUSER", nullptr, "9:12[db] 8:16(1 1 0 0)", "dbu1"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "a,b,ExtUser", "b", nullptr, "9:8[b] 8:16(1 0 0 0)", "a,b"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "extuser", nullptr, nullptr, "9:12[db] 8:16(1 1 0 0)", ""},
        // The name that moves into the freed place is not looked at.
        {__LINE__, QXS_AUTHZ_USER, "", "", "extuser,a,extuser", "a", nullptr, "9:8[a] 8:16(1 0 0 0)", "extuser,a"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "dbu1", "extuser", nullptr, nullptr, "dbu1"},
        {__LINE__, QXS_AUTHZ_USER, "", "", "", nullptr, nullptr, "9:12[db] 8:16(1 0 0 0)", "", nullptr, 0,
         QXS_AUTHTYPE_LIGHTWEIGHT},
        {__LINE__, QXS_AUTHZ_NONE, "r", "p", "extuser,u", nullptr, nullptr, "9:12[db] 8:16(1 0 0 0)", "extuser,u"},
        {__LINE__, QXS_AUTHZ_NONE, "r", "p", "extuser,u", "u", nullptr, nullptr, "extuser,u"},
        {__LINE__, QXS_AUTHZ_NONE, "r", "p", "extuser,u", "extuser", nullptr, nullptr, "extuser,u"},
        {__LINE__, QXS_AUTHZ_NONE, "r", "p", "u", nullptr, "p", nullptr, "u"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        qxs_authorizations_t authz{};
        authz.ta_authorizeas = c.as;
        authz.ta_authtype = c.type;
        authz.ta_service = service;
        authz.ta_ldapurl = address;
        authz.ta_databasename = database;
        authz.ta_roles = list_of(c.roles);
        authz.ta_profile = list_of(c.profiles);
        authz.ta_user = list_of(c.users);
        qxgss_buffer_desc props{3, address};
        OM_uint32 minor = 7;
        EXPECT_EQ(qxat_fill_authorizations(&minor, &props, "anna", c.domain, &authz, c.desired_user, c.desired_profile,
                                           c.service),
                  c.records != nullptr ? GSS_S_COMPLETE : GSS_S_FAILURE);
        EXPECT_EQ(minor, c.records != nullptr ? 0x21000064U : 0U);
        EXPECT_EQ(take(props), c.records != nullptr ? c.records + kTail + (c.service != 0 ? " 19:12[svc]" : "") : "");
        EXPECT_EQ(take_list(authz.ta_user), c.users_left);
        take_list(authz.ta_roles);
        take_list(authz.ta_profile);
    }
}

TEST(Authorizations, RefuseWhatIsMissingOrTooLong) {
    qxs_authorizations_t whole{};
    whole.ta_ldapurl = address;
    whole.ta_databasename = database;
    const auto minor_of = [](qxs_authorizations_t *authz, const char *authcid) {
        qxgss_buffer_desc props{3, address};
        OM_uint32 minor = 7;
        EXPECT_EQ(qxat_fill_authorizations(&minor, &props, authcid, nullptr, authz, nullptr, nullptr, 1),
                  GSS_S_FAILURE);
        EXPECT_EQ(props.length, 0U);
        EXPECT_EQ(props.value, nullptr);
        return minor;
    };
    EXPECT_EQ(minor_of(nullptr, "anna"), 0xE10000CDU);
    EXPECT_EQ(minor_of(&whole, nullptr), 0xE10000CDU);
    qxs_authorizations_t lacking = whole;
    lacking.ta_ldapurl = nullptr;
    EXPECT_EQ(minor_of(&lacking, "anna"), 0xE10000CDU);
    lacking = whole;
    lacking.ta_databasename = nullptr;
    EXPECT_EQ(minor_of(&lacking, "anna"), 0xE10000CDU);
    EXPECT_EQ(qxat_fill_authorizations(nullptr, nullptr, "anna", nullptr, &whole, nullptr, nullptr, 1), GSS_S_FAILURE);
    EXPECT_EQ(minor_of(&whole, std::string(65526, 'x').c_str()), 0U);
    const failing_heap::From failing(0);
    EXPECT_EQ(minor_of(&whole, "anna"), 0xE30003F8U);
}

class Mechinfo : public testing::Test {
  protected:
    void SetUp() override {
        mechanism_.pszMechName = name_;
        mechanism_.pszMechOid = dotted_;
        mechanism_.pMechOid = &oid_;
        pMechInfo = &mechanism_;
        MechCount = 1;
    }
    void TearDown() override {
        pMechInfo = nullptr;
        MechCount = 0;
    }
    char name_[6] = "SCRAM";
    char dotted_[6] = "1.2.3";
    unsigned char der_[2] = {0x2A, 0x03};
    qxgss_OID_desc oid_{2, der_};
    MechInfo_t mechanism_{};
    unsigned char yes_ = 1;
};

TEST_F(Mechinfo, FollowsTheRecordsItIsGiven) {
    const std::string kRecords = "15:12[SCRAM] 16:12[1.2.3] 17:12[\x2A\x03]";
    std::string attributes = bytes_of({8, 0, 16, 0, 1, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0});
    std::string hostile = bytes_of({8, 0, 8, 0, 1, 0, 1, 0});
    std::string none;
    const struct {
        std::string *props;
        std::string made, marked;
    } cases[] = {
        {nullptr, "8:16(2 0 1 0) " + kRecords, ""},
        {&none, "8:16(2 0 1 0) " + kRecords, ""},
        {&attributes, kRecords, bytes_of({8, 0, 16, 0, 2, 0, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0})},
        {&hostile, "8:16(2 0 1 0) " + kRecords, hostile},
    };
    for (const auto &c : cases) {
        qxgss_buffer_desc props = c.props != nullptr ? view(*c.props) : qxgss_buffer_desc{};
        qxgss_buffer_desc made{3, name_};
        OM_uint32 minor = 7;
        EXPECT_EQ(qxat_fill_mechinfo(&minor, c.props != nullptr ? &props : nullptr, &made, &yes_, &oid_),
                  GSS_S_COMPLETE);
        EXPECT_EQ(minor, 0x21000064U);
        EXPECT_EQ(take(made), c.made);
        EXPECT_EQ(c.props != nullptr ? *c.props : "", c.marked);
    }
}

TEST_F(Mechinfo, RefusesWithoutLeavingABuffer) {
    qxgss_buffer_desc made{3, name_};
    OM_uint32 minor = 7;
    EXPECT_EQ(qxat_fill_mechinfo(&minor, nullptr, nullptr, &yes_, &oid_), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE30003F6U);
    unsigned char other_der[] = {0x2A, 0x04};
    qxgss_OID_desc other{2, other_der};
    char bad[] = "1.x";
    std::string long_name(65526, 'n');
    const struct {
        const unsigned char *authenticated;
        qxgss_OID oid;
        char *name, *dotted;
        int failing;
        OM_uint32 minor;
    } cases[] = {
        {nullptr, &oid_, name_, dotted_, 99, 0xE30003F6U}, {&yes_, nullptr, name_, dotted_, 99, 0xE30003F6U},
        {&yes_, &other, name_, dotted_, 99, 0xE100007CU},  {&yes_, &oid_, name_, bad, 99, 0xE1000081U},
        {&yes_, &oid_, long_name.data(), dotted_, 99, 0},  {&yes_, &oid_, name_, dotted_, 0, 0xE30003F8U},
    };
    for (const auto &c : cases) {
        mechanism_.pszMechName = c.name;
        mechanism_.pszMechOid = c.dotted;
        const failing_heap::From failing(c.failing);
        made = {3, name_};
        EXPECT_EQ(qxat_fill_mechinfo(&minor, nullptr, &made, c.authenticated, c.oid), GSS_S_FAILURE);
        EXPECT_EQ(minor, c.minor);
        EXPECT_EQ(made.length, 0U);
        EXPECT_EQ(made.value, nullptr);
    }
}

TEST(KerberosLogdata, CarriesNoIdentityOrPassword) {
    for (const char *allowed :
         {"", "joe@R", "AUTHCID=joe", "authcid joe", "user=u", static_cast<const char *>(nullptr)}) {
        OM_uint32 minor = 7;
        EXPECT_EQ(qxat_validate_kerberos_logdata(&minor, allowed), GSS_S_COMPLETE);
        EXPECT_EQ(minor, 0x21000064U);
    }
    for (const char *refused : {"authcid=joe", "x password=y", "xauthcid="}) {
        OM_uint32 minor = 7;
        EXPECT_EQ(qxat_validate_kerberos_logdata(&minor, refused), GSS_S_FAILURE);
        EXPECT_EQ(minor, 0xE300042AU);
    }
}

} // namespace
