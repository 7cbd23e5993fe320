// Texts. Statuses: values that no table has, and who is refused by display_status in which order. The rendered log:
// every line and its condition, where lines, records and the banner are cut, and that its reader gives back what was
// recorded, whatever stands in its texts.
#include <cstdint>
#include <cstring>
#include <ctime>
#include <sstream>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "common/owned.h"
#include "gssp2qxnego/gssp2qxnegoutil/trace.h"
#include "session/qxgss_log.h"
#include "tests/support.h"

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

using namespace support;
using common::bytes_of;
using support::taken;

constexpr const char *kDone = "00000000/230003E8";
const std::string kTitle = "\nQXNEGO Negotiation Log\n\n\nPackage: QuorvGSS\nVersion: 16.00.00.01\n";

std::string time_line() {
    char text[64];
    return std::string("Run at:  ") + ctime_r(&now, text) + "\n";
}

unsigned char bytes[] = {0x2B, 0x06, 0x01, 0x7F, 0x01}, other_bytes[] = {0x2B, 0x06, 0x01, 0x7E};
qxgss_OID_desc own{4, bytes}, longer{5, bytes}, shorter{3, bytes}, other{4, other_bytes}, without_bytes{4, nullptr};

// A text with its length and a zero at its end, which is released.
std::string taken(char *text, std::size_t length) {
    const std::string result(text, length);
    EXPECT_EQ(text[length], '\0');
    std::free(text);
    return result;
}

std::string format(NegLogRecord record, OM_uint32 number = 0) {
    char *text = nullptr;
    std::size_t length = 99;
    EXPECT_EQ(outcome(QXNEGO_INT_FormatOneNegLogRecord, &record, number, 0, &text, &length), kDone);
    return taken(text, length);
}

class Texts : public testing::Test {
  protected:
    void SetUp() override {
        host = "host";
        now = 1000000000;
        mechanisms_[0].pszMechName = name_;
        mechanisms_[0].pMechOid = &own;
        pMechInfo = mechanisms_;
        MechCount = 2;
        record_.NegState = NEG_STATE_INCOMPLETE;
        record_.NegStateFromPeer = NEG_STATE_COMPLETED;
        record_.pszLogString = text_;
        entry_ = record_;
        entry_.MechOid = own;
        entry_.MechState = NEG_MECH_STATE_AVAILABLE;
        entry_.MechReason = NEG_MECH_REASON_AVAILABLE;
    }
    void TearDown() override {
        pMechInfo = nullptr;
        MechCount = 0;
    }

    char text_[10] = "op: event";
    char name_[7] = "QXNEGO";
    MechInfo_t mechanisms_[2]{}; // the second has no name
    NegLogRecord record_{};      // of an event without a mechanism
    NegLogRecord entry_{};       // of one with
};

// ---- Statuses ------------------------------------------------------------------------------------------------------

TEST_F(Texts, AreRefusedInOrderAndGivenWhereThereIsARegistration) {
    const std::tuple<OM_uint32, int, qxgss_OID, bool, const char *> cases[] = {
        {1, 1, nullptr, false, "010D0000/230003E8"},
        {1, 1, &other, false, "00010000/E30003F4"},
        {0x230003E8U, 2, &shorter, true, "00010000/E30003F4"},
        {0x230003E8U, 2, &without_bytes, true, "00010000/E30003F4"},
        {0xE1000065U, 1, &own, false, "00050000/E30003F4"},
        {0xE1000065U, 2, &own, false, "00050000/A3000403"},
        {0x030003E8U, 2, &own, true, "00050000/A3000403"},
        {0xE3000403U, 2, &own, false, "000D0000/E30003FA"},
        {0xE3000403U, 2, &own, true, "00050000/A3000403"},
    };
    OM_uint32 message = 9;
    qxgss_buffer_desc text{3, &message};
    for (const auto &[status, type, mechanism, with_buffer, expected] : cases) {
        qxgss_buffer_desc *const pText = with_buffer ? &text : nullptr;
        EXPECT_EQ(outcome(QXNEGO_display_status, status, type, mechanism, &message, pText), expected) << status;
        EXPECT_TRUE(message == 9 && text.length == 3 && text.value == &message);
        EXPECT_NE(QXNEGO_display_status(nullptr, status, type, mechanism, nullptr, pText), GSS_S_COMPLETE);
    }
    for (qxgss_OID mechanism : {&own, &longer}) {
        EXPECT_EQ(outcome(QXNEGO_display_status, 0xE300040CU, 2, mechanism, &message, &text), kDone);
        EXPECT_EQ(message, 0U);
        EXPECT_EQ(taken(static_cast<char *>(text.value), text.length),
                  "An INIT Token can only be generated as the first Client token.  ");
    }
    EXPECT_STREQ(qxgsserrtostr(0xE10000C2U), "The UTF input buffer contains insufficient characters. ");
    EXPECT_STREQ(qxgsserrtostr(0x210000C2U), "?");
    MechCount = 0;
    EXPECT_EQ(outcome(QXNEGO_display_status, 0x230003E8U, 2, &own, &message, &text), "000D0000/E100007B");
}

// ---- The log -------------------------------------------------------------------------------------------------------

TEST_F(Texts, LinesFollowTheRecord) {
    const std::string kFlags = "   IsCtxEstablished: TRUE\n   IsPolicyApplied:  TRUE\n";
    EXPECT_EQ(format(record_), "Record 0: QXNEGO_accept_sec_context call 1\n"
                               "   Text:             op: event\n   IsPolicyApplied:  FALSE\n"
                               "   NegState:         Incomplete\n   NegStateFromPeer: Completed\n"
                               "   Elapsed Time:     0 ms\n\n");
    const std::string status("no\0 \n", 5);
    NegLogRecord odd = entry_;
    odd.IsInitiator = odd.TokenNum = 2;
    odd.IsCtxEstablished = odd.IsPolicyApplied = 5;
    odd.MechReason = NEG_MECH_REASON_GSSAPI_ERROR;
    odd.GssMajorStatus = GSS_S_FAILURE;
    odd.GssMinorStatus = 0xC5ABCDEFU;
    odd.GssMinorStatusText = view(status); // a zero ends it, its length is its width
    odd.ElapsedTime = OM_uint64{1} << 63;
    EXPECT_EQ(format(odd), "Record 0: QXNEGO_init_sec_context call 3\n"
                           "   Text:             op: event\n   Mechanism:        QXNEGO\n"
                           "   MechState:        Available\n   MechReason:       GSSAPI Error\n"
                           "   GSS MajorStatus:  000D0000\n   GSS MinorStatus:  C5ABCDEF\n"
                           "   GSS MinorStatusText:     no\n" +
                               kFlags +
                               "   NegState:         Incomplete\n   NegStateFromPeer: Completed\n"
                               "   Elapsed Time:     -9223372036854775808 ms\n\n");
    odd.pszLogString = nullptr;
    odd.TokenNum = 0xFFFFFFFEU;
    odd.MechState = NEG_MECH_STATE_INVALID_LAST;
    odd.MechReason = NegMechReason_et{0xFFFFFFFFU};
    odd.NegState = NEG_STATE_INVALID_LAST;
    odd.NegStateFromPeer = NEG_STATE_INVALID;
    odd.ElapsedTime = ~OM_uint64{6};
    for (const OM_sint32 index : {-1, 1, 2}) { // of no mechanism, of one without a name, beyond the registry
        odd.MechIndex = index;
        EXPECT_EQ(format(odd),
                  "Record 0: QXNEGO_init_sec_context call -1\n"
                  "   Mechanism OID:    2b.06.01.7f\n"
                  "   MechState:        Invalid MechState (4)\n   MechReason:       Invalid MechReason (-1)\n" +
                      kFlags +
                      "   NegState:         Invalid NegState (5)\n   NegStateFromPeer: Invalid NegState (0)\n"
                      "   Elapsed Time:     -7 ms\n\n");
    }
    odd.MechOid.length = 0;
    EXPECT_NE(format(odd).find("\n   Mechanism OID:    \n"), std::string::npos);
}

// Around the end of the area: whole lines only, and none after the first that does not fit.
TEST_F(Texts, RecordIsCutAfterItsLastWholeLine) {
    const std::string whole = format(record_);
    const std::size_t at = whole.find("op: event") + 9;
    for (std::size_t extra = 3900; extra < 4100; ++extra) {
        std::string text = text_ + std::string(extra, 'x');
        record_.pszLogString = text.data();
        const std::string uncut = whole.substr(0, at) + std::string(extra, 'x') + whole.substr(at);
        const std::size_t end = uncut.size() <= 4095 ? uncut.size() : uncut.rfind('\n', 4094) + 1;
        ASSERT_EQ(format(record_), uncut.substr(0, end)) << extra;
    }
    entry_.MechReason = NEG_MECH_REASON_GSSAPI_ERROR;
    const std::string status(5000, 's');
    entry_.GssMinorStatusText = view(status);
    EXPECT_TRUE(format(entry_).ends_with("   GSS MinorStatus:  00000000\n"));
}

TEST_F(Texts, OidTextEndsAt126Characters) {
    const std::vector<unsigned char> octets(43, 0xAB);
    for (const OM_uint32 length : {0U, 1U, 42U, 43U}) { // of three characters each, but for the first one's dot
        qxgss_OID_desc oid{length, const_cast<unsigned char *>(octets.data())};
        char *text = QXNEGO_INT_oid_to_string(&oid);
        EXPECT_EQ(std::strlen(text), length == 0 ? 0 : std::min(3 * length - 1, 126U)) << text;
        std::free(text);
    }
    EXPECT_TRUE(QXNEGO_INT_oid_to_string(nullptr) == nullptr && QXNEGO_INT_oid_to_string(&without_bytes) == nullptr);
}

std::string banner() {
    char *text = nullptr;
    std::size_t length = 0;
    EXPECT_EQ(QXNEGO_INT_NegLogBanner(nullptr, 0, &text, nullptr), GSS_S_COMPLETE);
    std::free(text);
    EXPECT_EQ(QXNEGO_INT_NegLogBanner(nullptr, 0, &text, &length), GSS_S_COMPLETE);
    return taken(text, length);
}

TEST_F(Texts, BannerTellsWhatCouldBeObtained) {
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

TEST_F(Texts, WholeLogIsBannerAndRecords) {
    NegContext_desc context{};
    std::vector<NegLogRecord> records(200, entry_);
    context.NegLog.pRecords = records.data();
    std::string expected = banner() + "\nNo records found in Negotiation Log.\n\n";
    for (const OM_uint32 count : {0U, 200U}) {
        context.NegLog.Count = count;
        if (count != 0)
            expected = banner();
        for (OM_uint32 i = 0; i < count; ++i)
            expected += format(records[i], i);
        qxgss_buffer_desc text{};
        EXPECT_EQ(outcome(QXNEGO_INT_GetNegLog, &context, 0, &text), kDone);
        EXPECT_EQ(taken(text), expected);
    }
}

// Whatever others wrote, a line of the trace is one line, and what stands in quotation marks ends at them.
TEST_F(Texts, TracesARecordAsOneLine) {
    NegContext_desc context{};
    context.NegLog.BaseTime = 1'000'000'000'000;
    context.TraceNumber = 7;
    entry_.ElapsedTime = 1'005;
    entry_.MechIndex = -1;
    entry_.MechState = NEG_MECH_STATE_REJECTED;
    entry_.MechReason = NEG_MECH_REASON_GSSAPI_ERROR;
    char line[qxnego::kTraceLine], hostile[] = "a\" b\\\n\x1b[2J\xe2\x80\xae\x7f\0z", event[] = "x: y";
    entry_.pszLogString = event;
    entry_.GssMinorStatusText = {sizeof hostile - 1, hostile};
    const auto traced = [&] { return std::string(line, qxnego::write_trace_line(line, entry_, context)); };
    EXPECT_EQ(traced(), "2001-09-09T01:46:41.005Z pid=" + std::to_string(getpid()) +
                            " context=7 role=server call=1 event=\"x: y\" mechanism=2b.06.01.7f state=\"Rejected\" "
                            "reason=\"GSSAPI Error\" major=00000000 minor=00000000 status=\"a\\x22 b\\x5c\\x0a\\x1b[2J"
                            "\\xe2\\x80\\xae\\x7f\\x00z\" established=no policy-applied=no "
                            "negotiation=\"Incomplete\" peer=\"Completed\"\n");
    std::string huge(1 << 16, '\xff');
    entry_.GssMinorStatusText = {huge.size(), huge.data()};
    entry_.pszLogString = huge.data();
    EXPECT_NE(traced().find("\\xff...\" established=no"), std::string::npos);
    EXPECT_TRUE(traced().size() < qxnego::kTraceLine && traced().ends_with("peer=\"Completed\"\n"));
}

// ---- The reader of saved logs, whose rules for any bytes are the fuzz target's --------------------------------------

constexpr const char *kRead = "00000000/21000064";
char peers[] = "QXNEGO_INT_ProcessNegMech: Peer reporting Mech state, \x1b<";

// All that the log tells of a record.
std::string told(qxgss_log_t log, OM_uint32 number) {
    qxgss_log_record_desc record{};
    EXPECT_EQ(outcome(qxgss_log_inquire_record, log, number, &record), kRead);
    std::ostringstream out;
    out << "flags " << record.IsInitiator << record.IsPeerView << record.IsCtxEstablished << record.IsPolicyApplied
        << " call " << record.Call << " states " << record.MechState << record.MechReason << record.NegState
        << record.NegStateFromPeer << " statuses " << record.MajorStatus << ' ' << record.MinorStatus << " time "
        << record.ElapsedTime << " [" << bytes_of(&record.Event) << "] [" << bytes_of(&record.MechName) << "] ["
        << bytes_of(&record.MechOid) << "] [" << bytes_of(&record.StatusText) << ']';
    return out.str();
}

TEST_F(Texts, AreReadBackAsTheyWereRecorded) {
    for (const std::string status_text : {"", "why", "two\nlines\n\n", "<b>\x1b[2J\xff", "   IsPolicyApplied: TRUE"}) {
        NegLogRecord records[4]{};
        records[0].pszLogString = text_;
        records[0].NegState = NEG_STATE_COMPLETED;
        records[0].IsPolicyApplied = 1;
        for (int i = 1; i != 4; ++i)
            records[i] = {.MechOid = own,
                          .MechState = static_cast<NegMechState_et>(i),
                          .MechReason = NEG_MECH_REASON_GSSAPI_ERROR,
                          .GssMajorStatus = GSS_S_BAD_SIG,
                          .GssMinorStatus = 0xC0FFEEU,
                          .GssMinorStatusText = view(status_text),
                          .MechIndex = i == 2 ? 0 : -1,
                          .IsCtxEstablished = 1,
                          .IsInitiator = 1,
                          .TokenNum = 41,
                          .IsPolicyApplied = 0,
                          .NegState = static_cast<NegState_et>(i),
                          .NegStateFromPeer = NEG_STATE_REQUEST_MIC,
                          .pszLogString = peers,
                          .ElapsedTime = 5'000'000'000U};
        NegContext_desc context{};
        context.NegLog = {4, 4, records, 0};
        qxgss_buffer_desc made{};
        EXPECT_EQ(outcome(QXNEGO_INT_GetNegLog, &context, 0, &made), kDone);
        const std::string text = taken(made);
        const qxgss_buffer_desc data = view(text);
        qxgss_log_t log = nullptr;
        ASSERT_EQ(outcome(qxgss_log_open, &data, &log), kRead);
        qxgss_log_facts_desc facts{};
        EXPECT_EQ(outcome(qxgss_log_inquire, log, &facts), kRead);
        EXPECT_TRUE(facts.RecordCount == 4 && facts.PropertyCount == 0 && bytes_of(&facts.Text) == text);
        EXPECT_TRUE(facts.Host.length != 0 && facts.Time.length == 24);
        EXPECT_EQ(told(log, 0), "flags 0001 call 1 states 0010 statuses 0 0 time 0 [op: event] [] [] []");
        const std::string event = std::string(" statuses 393216 12648430 time 5000000000 [") + peers,
                          end = "] [" + status_text + "]";
        EXPECT_EQ(told(log, 1), "flags 1110 call 42 states 1214" + event + "] [] [+\6\1\x7f" + end);
        EXPECT_EQ(told(log, 2), "flags 1110 call 42 states 2224" + event + "] [QXNEGO] [" + end);
        EXPECT_EQ(told(log, 3), "flags 1110 call 42 states 3234" + event + "] [] [+\6\1\x7f" + end);
        qxgss_log_record_desc record{};
        record.Call = 7;
        EXPECT_EQ(outcome(qxgss_log_inquire_record, log, 4, &record), "00100000/E10000FE");
        EXPECT_EQ(record.Call, 0U);
        qxgss_log_property_desc property{};
        EXPECT_EQ(outcome(qxgss_log_inquire_property, log, 0, &property), "00100000/E10000FE");
        EXPECT_EQ(without_each(qxgss_log_inquire_record, log, 0, &record), "010D0000/E10000CD 020D0000/E10000CD");
        EXPECT_EQ(outcome(qxgss_log_delete, &log), kRead);
        EXPECT_EQ(log, nullptr);
    }
}

TEST_F(Texts, ThatAreNoLogAreRefused) {
    qxgss_log_t log = nullptr;
    const std::string_view unknown("\xff\xff\4\0", 4);
    for (const std::string_view text : {unknown, unknown.substr(1), std::string_view()}) {
        const qxgss_buffer_desc data = common::view(text);
        EXPECT_EQ(outcome(qxgss_log_open, &data, &log), "00090000/E10000CD");
        EXPECT_EQ(without_each(qxgss_log_open, &data, &log), "010D0000/E10000CD 020D0000/E10000CD");
    }
    EXPECT_EQ(outcome(qxgss_log_inquire, nullptr, nullptr), "010D0000/E10000CD");
    EXPECT_EQ(outcome(qxgss_log_delete, nullptr), "020D0000/E10000CD");
}

} // namespace
