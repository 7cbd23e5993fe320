// The reader of saved logs gives back what was recorded, whatever stands in its texts. Its rules for any bytes are the
// fuzz target's.
#include <sstream>

#include <gtest/gtest.h>

#include "common/owned.h"
#include "gssp2qxnego/gssp2qxnegoint.h"
#include "session/qxgss_log.h"
#include "tests/support.h"

namespace {

using common::bytes_of;
using common::view;
using support::outcome;
using support::without_each;

constexpr const char *kDone = "00000000/21000064";

char peers[] = "QXNEGO_INT_ProcessNegMech: Peer reporting Mech state, \x1b<";

// A record of each kind, all but the first with a status text.
std::string rendered(std::string_view status_text) {
    unsigned char oid[] = {0x2B, 0x06, 0x01, 0x7F};
    char scram[] = "SCRAM";
    MechInfo_t name{};
    name.pszMechName = scram;
    NegLogRecord records[4]{};
    records[0].pszLogString = scram;
    records[0].NegState = NEG_STATE_COMPLETED;
    records[0].IsPolicyApplied = 1;
    for (int i = 1; i != 4; ++i)
        records[i] = {.MechOid = {4, oid},
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
    common::Buffer text;
    pMechInfo = &name, MechCount = 1;
    EXPECT_EQ(outcome(QXNEGO_INT_GetNegLog, &context, 0, text.out()), "00000000/230003E8");
    pMechInfo = nullptr, MechCount = 0;
    return std::string(text.bytes());
}

// All that the log tells of a record.
std::string told(qxgss_log_t log, OM_uint32 number) {
    qxgss_log_record_desc record{};
    EXPECT_EQ(outcome(qxgss_log_inquire_record, log, number, &record), kDone);
    std::ostringstream out;
    out << "flags " << record.IsInitiator << record.IsPeerView << record.IsCtxEstablished << record.IsPolicyApplied
        << " call " << record.Call << " states " << record.MechState << record.MechReason << record.NegState
        << record.NegStateFromPeer << " statuses " << record.MajorStatus << ' ' << record.MinorStatus << " time "
        << record.ElapsedTime << " [" << bytes_of(&record.Event) << "] [" << bytes_of(&record.MechName) << "] ["
        << bytes_of(&record.MechOid) << "] [" << bytes_of(&record.StatusText) << ']';
    return out.str();
}

TEST(Log, GivesBackWhatWasRecorded) {
    for (const std::string status_text : {"", "why", "two\nlines\n\n", "<b>\x1b[2J\xff", "   IsPolicyApplied: TRUE"}) {
        const std::string text = rendered(status_text);
        const qxgss_buffer_desc data = view(text);
        qxgss_log_t log = nullptr;
        ASSERT_EQ(outcome(qxgss_log_open, &data, &log), kDone);
        qxgss_log_facts_desc facts{};
        EXPECT_EQ(outcome(qxgss_log_inquire, log, &facts), kDone);
        EXPECT_TRUE(facts.RecordCount == 4 && facts.PropertyCount == 0 && bytes_of(&facts.Text) == text);
        EXPECT_TRUE(facts.Host.length != 0 && facts.Time.length == 24);
        EXPECT_EQ(told(log, 0), "flags 0001 call 1 states 0010 statuses 0 0 time 0 [SCRAM] [] [] []");
        const std::string event = std::string(" statuses 393216 12648430 time 5000000000 [") + peers,
                          end = "] [" + status_text + "]";
        EXPECT_EQ(told(log, 1), "flags 1110 call 42 states 1214" + event + "] [] [+\6\1\x7f" + end);
        EXPECT_EQ(told(log, 2), "flags 1110 call 42 states 2224" + event + "] [SCRAM] [" + end);
        EXPECT_EQ(told(log, 3), "flags 1110 call 42 states 3234" + event + "] [] [+\6\1\x7f" + end);
        qxgss_log_record_desc record{};
        record.Call = 7;
        EXPECT_EQ(outcome(qxgss_log_inquire_record, log, 4, &record), "00100000/E10000FE");
        EXPECT_EQ(record.Call, 0U);
        qxgss_log_property_desc property{};
        EXPECT_EQ(outcome(qxgss_log_inquire_property, log, 0, &property), "00100000/E10000FE");
        EXPECT_EQ(without_each(qxgss_log_inquire_record, log, 0, &record), "010D0000/E10000CD 020D0000/E10000CD");
        EXPECT_EQ(outcome(qxgss_log_delete, &log), kDone);
        EXPECT_EQ(log, nullptr);
    }
}

TEST(Log, RefusesWhatItCannotRead) {
    qxgss_log_t log = nullptr;
    const std::string_view unknown("\xff\xff\4\0", 4);
    for (const std::string_view bytes : {unknown, unknown.substr(1), std::string_view()}) {
        const qxgss_buffer_desc data = view(bytes);
        EXPECT_EQ(outcome(qxgss_log_open, &data, &log), "00090000/E10000CD");
        EXPECT_EQ(without_each(qxgss_log_open, &data, &log), "010D0000/E10000CD 020D0000/E10000CD");
    }
    EXPECT_EQ(outcome(qxgss_log_inquire, nullptr, nullptr), "010D0000/E10000CD");
    EXPECT_EQ(outcome(qxgss_log_delete, nullptr), "020D0000/E10000CD");
}

} // namespace
