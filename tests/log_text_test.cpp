// The rendered log: every line and its condition, where lines, records and the banner are cut, and a golden text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "tests/failing_heap.h"

namespace {

// The clock and the host name, which tests set; a null host or a time of -1 is one that cannot be obtained.
const char *host = "host";
std::time_t now = 1000000000;

} // namespace

#pragma GCC visibility push(default)
extern "C" {
int __wrap_gethostname(char *name, std::size_t size) {
    if (host == nullptr)
        return -1;
    std::strncpy(name, host, size);
    return 0;
}
std::time_t __wrap_time(std::time_t *) {
    return now;
}
}
#pragma GCC visibility pop

namespace {

const std::string kTitle = "\nQXNEGO Negotiation Log\n\n\nPackage: QuorvGSS\nVersion: 16.00.00.01\n";

std::string time_line() {
    char text[64];
    return std::string("Run at:  ") + ctime_r(&now, text) + "\n";
}

unsigned char kerberos[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x12, 0x01, 0x02, 0x02};
char error_text[] = {'n', 'o', '\0', 't', 'i', '\n', 'c', 'k', 'e', 't'};

std::string format(NegLogRecord record, OM_uint32 number = 0) {
    char *text = nullptr;
    std::size_t length = 99;
    OM_uint32 minor = 0;
    EXPECT_EQ(QXNEGO_INT_FormatOneNegLogRecord(&minor, &record, number, 0, &text, &length), GSS_S_COMPLETE);
    EXPECT_EQ(minor, 0x230003E8U);
    const std::string result(text, length);
    EXPECT_EQ(text[length], '\0');
    std::free(text);
    return result;
}

class LogText : public testing::Test {
  protected:
    void SetUp() override {
        host = "host";
        now = 1000000000;
        mechanisms_[0].pszMechName = name_;
        pMechInfo = mechanisms_;
        MechCount = 2;
        record_.NegState = NEG_STATE_INCOMPLETE;
        record_.NegStateFromPeer = NEG_STATE_COMPLETED;
        record_.pszLogString = text_;
        entry_ = record_;
        entry_.MechOid = {sizeof kerberos, kerberos};
        entry_.MechState = NEG_MECH_STATE_AVAILABLE;
        entry_.MechReason = NEG_MECH_REASON_AVAILABLE;
    }
    void TearDown() override {
        pMechInfo = nullptr;
        MechCount = 0;
    }

    char text_[10] = "op: event";
    char name_[4] = "KRB";
    MechInfo_t mechanisms_[2]{}; // the second has no name
    NegLogRecord record_{};      // of an event without a mechanism
    NegLogRecord entry_{};       // of one with
};

TEST_F(LogText, RecordsHaveAllTheirLines) {
    EXPECT_EQ(format(record_), "Record 0: QXNEGO_accept_sec_context call 1\n"
                               "   Text:             op: event\n"
                               "   IsPolicyApplied:  FALSE\n"
                               "   NegState:         Incomplete\n"
                               "   NegStateFromPeer: Completed\n"
                               "   Elapsed Time:     0 ms\n"
                               "\n");
    entry_.IsInitiator = 2;
    entry_.TokenNum = 2;
    entry_.MechState = NEG_MECH_STATE_REJECTED;
    entry_.MechReason = NEG_MECH_REASON_GSSAPI_ERROR;
    entry_.GssMajorStatus = GSS_S_FAILURE;
    entry_.GssMinorStatus = 0xC5ABCDEFU;
    entry_.GssMinorStatusText = {sizeof error_text, error_text};
    entry_.IsCtxEstablished = 5;
    entry_.IsPolicyApplied = 1;
    entry_.ElapsedTime = 1234;
    EXPECT_EQ(format(entry_, 70), std::string("Record 70: QXNEGO_init_sec_context call 3\n"
                                              "   Text:             op: event\n"
                                              "   Mechanism:        KRB\n"
                                              "   MechState:        Rejected\n"
                                              "   MechReason:       GSSAPI Error\n"
                                              "   GSS MajorStatus:  000D0000\n"
                                              "   GSS MinorStatus:  C5ABCDEF\n"
                                              "   GSS MinorStatusText:  ") +
                                      std::string(error_text, sizeof error_text) +
                                      "\n"
                                      "   IsCtxEstablished: TRUE\n"
                                      "   IsPolicyApplied:  TRUE\n"
                                      "   NegState:         Incomplete\n"
                                      "   NegStateFromPeer: Completed\n"
                                      "   Elapsed Time:     1234 ms\n"
                                      "\n");
}

TEST_F(LogText, LinesFollowTheRecord) {
    using Change = void (*)(NegLogRecord &);
    const struct {
        int line;
        Change change;
        const char *label;
        const char *value; // null: the line is left out
    } cases[] = {
        {__LINE__, [](NegLogRecord &r) { r.pszLogString = nullptr; }, "   Text: ", nullptr},
        {__LINE__, [](NegLogRecord &r) { r.TokenNum = 0xFFFFFFFEU; }, "Record 0: QXNEGO_accept",
         "_sec_context call -1"},
        {__LINE__, [](NegLogRecord &r) { r.MechIndex = -1; }, "   Mechanism OID:    ", "2a.86.48.86.f7.12.01.02.02"},
        {__LINE__, [](NegLogRecord &r) { r.MechIndex = 2; }, "   Mechanism OID:    ", "2a.86.48.86.f7.12.01.02.02"},
        {__LINE__, [](NegLogRecord &r) { r.MechIndex = -1, r.MechOid.length = 0; }, "   Mechanism OID:    ", ""},
        {__LINE__, [](NegLogRecord &r) { r.MechOid.elements = nullptr; }, "   Mech", nullptr},
        {__LINE__, [](NegLogRecord &r) { r.MechOid.elements = nullptr; }, "   IsCtxEstablished", nullptr},
        {__LINE__, [](NegLogRecord &r) { r.MechState = NEG_MECH_STATE_INVALID_LAST; },
         "   MechState:        ", "Invalid MechState (4)"},
        {__LINE__, [](NegLogRecord &r) { r.MechReason = NegMechReason_et{0xFFFFFFFFU}; },
         "   MechReason:       ", "Invalid MechReason (-1)"},
        {__LINE__, [](NegLogRecord &r) { r.GssMajorStatus = 1; }, "   GSS ", nullptr},
        {__LINE__, [](NegLogRecord &r) { r.MechReason = NEG_MECH_REASON_GSSAPI_ERROR; }, "   GSS MinorStatusText",
         nullptr},
        {__LINE__, [](NegLogRecord &r) { r.NegState = NEG_STATE_INVALID_LAST; },
         "   NegState:         ", "Invalid NegState (5)"},
        {__LINE__, [](NegLogRecord &r) { r.NegStateFromPeer = NEG_STATE_INVALID; },
         "   NegStateFromPeer: ", "Invalid NegState (0)"},
        {__LINE__, [](NegLogRecord &r) { r.ElapsedTime = ~OM_uint64{6}; }, "   Elapsed Time:     ", "-7 ms"},
        {__LINE__, [](NegLogRecord &r) { r.ElapsedTime = OM_uint64{1} << 63; },
         "   Elapsed Time:     ", "-9223372036854775808 ms"},
    };
    for (const auto &c : cases) {
        NegLogRecord record = entry_;
        c.change(record);
        const std::string text = "\n" + format(record);
        const std::string label = std::string("\n") + c.label;
        if (c.value == nullptr)
            EXPECT_EQ(text.find(label), std::string::npos) << c.line << text;
        else
            EXPECT_NE(text.find(label + c.value + "\n"), std::string::npos) << c.line << text;
    }
}

// Around the end of the area: whole lines only, and none after the first that does not fit.
TEST_F(LogText, RecordIsCutAfterItsLastWholeLine) {
    const std::string whole = format(record_);
    const std::size_t at = whole.find("op: event") + 9;
    for (std::size_t extra = 3800; extra < 4200; ++extra) {
        std::string text = text_ + std::string(extra, 'x');
        record_.pszLogString = text.data();
        const std::string uncut = whole.substr(0, at) + std::string(extra, 'x') + whole.substr(at);
        const std::size_t end = uncut.size() <= 4095 ? uncut.size() : uncut.rfind('\n', 4094) + 1;
        ASSERT_EQ(format(record_), uncut.substr(0, end)) << extra;
    }
    // The minor status text is the line that does not fit: the shorter ones after it are not printed either.
    std::vector<char> status(5000, 's');
    entry_.MechReason = NEG_MECH_REASON_GSSAPI_ERROR;
    entry_.GssMinorStatusText = {status.size(), status.data()};
    const std::string text = format(entry_);
    EXPECT_EQ(text.substr(text.size() - 30), "   GSS MinorStatus:  00000000\n");
}

TEST_F(LogText, OidTextEndsAt126Characters) {
    std::vector<unsigned char> octets(200, 0xAB);
    std::string expected;
    for (OM_uint32 length = 0; length <= octets.size(); ++length) {
        qxgss_OID_desc oid{length, octets.data()};
        char *text = QXNEGO_INT_oid_to_string(&oid);
        ASSERT_EQ(text, expected.substr(0, 126)) << length;
        std::free(text);
        expected += expected.empty() ? "ab" : ".ab";
    }
    EXPECT_EQ(QXNEGO_INT_oid_to_string(nullptr), nullptr);
}

std::string banner() {
    char *text = nullptr;
    std::size_t length = 0;
    EXPECT_EQ(QXNEGO_INT_NegLogBanner(nullptr, 0, &text, &length), GSS_S_COMPLETE);
    const std::string result(text, length);
    std::free(text);
    return result;
}

TEST_F(LogText, BannerTellsWhatCouldBeObtained) {
    EXPECT_EQ(banner(), kTitle + "Run on:  host\n" + time_line());
    host = nullptr;
    EXPECT_EQ(banner(), kTitle + time_line());
    const std::string endless(300, 'h');
    host = endless.c_str();
    now = -1;
    EXPECT_EQ(banner(), kTitle + "Run on:  " + endless.substr(0, 259) + "\n");
    now = INT64_MAX; // no calendar has it
    EXPECT_EQ(banner(), kTitle + "Run on:  " + endless.substr(0, 259) + "\n");
}

TEST_F(LogText, WholeLogIsBannerAndRecords) {
    NegContext_desc context{};
    std::vector<NegLogRecord> records(200, entry_);
    context.NegLog.pRecords = records.data();
    std::string expected = banner();
    for (OM_uint32 count = 0; count <= records.size(); ++count) {
        context.NegLog.Count = count;
        qxgss_buffer_desc text{};
        OM_uint32 minor = 0;
        ASSERT_EQ(QXNEGO_INT_GetNegLog(&minor, &context, 0, &text), GSS_S_COMPLETE);
        EXPECT_EQ(minor, 0x230003E8U);
        EXPECT_EQ(std::string(static_cast<char *>(text.value), text.length),
                  expected + (count == 0 ? "\nNo records found in Negotiation Log.\n\n" : ""));
        gssp_release_buffer(nullptr, &text);
        if (count < records.size())
            expected += format(records[count], count);
    }
}

TEST_F(LogText, RefusesNullPointersInOrder) {
    NegContext_desc context{};
    OM_uint32 minor = 0;
    EXPECT_EQ(QXNEGO_INT_GetNegLog(&minor, nullptr, 0, nullptr), 0x020D0000U);
    EXPECT_EQ(minor, 0xE30003FAU);
    for (NegContext_t given : {static_cast<NegContext_t>(nullptr), &context}) {
        qxgss_buffer_desc text{1, &context};
        EXPECT_EQ(QXNEGO_INT_GetNegLog(&minor, given, 0, &text), 0x010D0000U);
        EXPECT_EQ(minor, given == nullptr ? 0xE3000400U : 0xE300040AU);
        EXPECT_EQ(text.length, 0U);
        EXPECT_EQ(text.value, nullptr);
    }
    std::size_t length = 7;
    EXPECT_EQ(QXNEGO_INT_NegLogBanner(&minor, 0, nullptr, &length), 0x020D0000U);
    EXPECT_EQ(minor, 0xE30003F6U);
    EXPECT_EQ(length, 0U);
    char *piece = text_;
    length = 7;
    EXPECT_EQ(QXNEGO_INT_FormatOneNegLogRecord(&minor, nullptr, 0, 0, &piece, &length), GSS_S_COMPLETE);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(piece, nullptr);
    EXPECT_EQ(QXNEGO_INT_FormatOneNegLogRecord(nullptr, &record_, 0, 0, nullptr, nullptr), GSS_S_COMPLETE);
}

TEST_F(LogText, ReportsLackOfMemory) {
    NegContext_desc context{};
    context.NegLog.pRecords = &entry_;
    context.NegLog.Count = 1;
    entry_.MechIndex = -1;
    OM_uint32 minor = 0;
    qxgss_buffer_desc text{};
    char *piece = nullptr;
    std::size_t length = 7;
    {
        const failing_heap::From failing(0);
        EXPECT_EQ(QXNEGO_INT_GetNegLog(&minor, &context, 0, &text), GSS_S_FAILURE);
        EXPECT_EQ(minor, 0xE30003F8U);
        EXPECT_EQ(text.value, nullptr);
        minor = 0;
        EXPECT_EQ(QXNEGO_INT_NegLogBanner(&minor, 0, &piece, &length), GSS_S_FAILURE);
        EXPECT_EQ(minor, 0xE30003F8U);
        EXPECT_EQ(QXNEGO_INT_FormatOneNegLogRecord(&minor, &entry_, 0, 0, &piece, &length), GSS_S_FAILURE);
        EXPECT_EQ(minor, 0xE30003F8U);
        EXPECT_EQ(piece, nullptr);
        EXPECT_EQ(length, 0U);
    }
    // Neither the OID's text nor the smaller block is worth failing for.
    const failing_heap::From failing(1);
    ASSERT_EQ(QXNEGO_INT_GetNegLog(&minor, &context, 0, &text), GSS_S_COMPLETE);
    EXPECT_NE(
        std::string(static_cast<char *>(text.value), text.length).find("   Mechanism OID:    <Unable to print OID>\n"),
        std::string::npos);
    gssp_release_buffer(nullptr, &text);
}

} // namespace
