// The reader of saved logs gives back what was recorded, whatever stands in its texts, and no byte breaks it. Its rules
// for any bytes are the fuzz target's.
#include <cstdint>

#include <gtest/gtest.h>

#include "common/owned.h"
#include "gssp2qxnego/gssp2qxnegoint.h"
#include "session/qxgss_log.h"
#include "tests/support.h"

// Ends the program where a rule is broken.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

using common::bytes_of;
using common::view;
using support::outcome;

constexpr const char *kDone = "00000000/21000064";

class Log : public testing::Test {
  protected:
    void SetUp() override {
        name_[0].pszMechName = scram_;
        pMechInfo = name_;
        MechCount = 1;
    }
    void TearDown() override {
        pMechInfo = nullptr;
        MechCount = 0;
    }

    // A record of each kind, the second with a status text.
    std::string rendered(std::string_view status_text) {
        NegLogRecord records[4]{};
        records[0].pszLogString = scram_;
        records[0].NegState = NEG_STATE_COMPLETED;
        records[0].IsPolicyApplied = 1;
        for (int i = 1; i != 4; ++i) {
            records[i] = {.MechOid = {4, oid_},
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
                          .pszLogString = peer_,
                          .ElapsedTime = 5'000'000'000U};
        }
        NegContext_desc context{};
        context.NegLog = {4, 4, records, 0};
        common::Buffer text;
        EXPECT_EQ(outcome(QXNEGO_INT_GetNegLog, &context, 0, text.out()), "00000000/230003E8");
        return std::string(text.bytes());
    }

    unsigned char oid_[4] = {0x2B, 0x06, 0x01, 0x7F};
    char scram_[6] = "SCRAM", peer_[57] = "QXNEGO_INT_ProcessNegMech: Peer reporting Mech state, \x1b<";
    MechInfo_t name_[1]{};
};

TEST_F(Log, GivesBackWhatWasRecorded) {
    for (const std::string status_text : {"", "why", "two\nlines\n\n", "<b>\x1b[2J\xff", "   IsPolicyApplied: TRUE"}) {
        const std::string text = rendered(status_text);
        const qxgss_buffer_desc data = view(text);
        qxgss_log_t log = nullptr;
        ASSERT_EQ(outcome(qxgss_log_open, &data, &log), kDone);
        qxgss_log_facts_desc facts{};
        EXPECT_EQ(outcome(qxgss_log_inquire, log, &facts), kDone);
        EXPECT_TRUE(facts.RecordCount == 4 && facts.PropertyCount == 0 && bytes_of(&facts.Text) == text);
        EXPECT_TRUE(facts.Host.length != 0 && facts.Time.length == 24);
        qxgss_log_record_desc record{};
        EXPECT_EQ(outcome(qxgss_log_inquire_record, log, 0, &record), kDone);
        EXPECT_TRUE(bytes_of(&record.Event) == "SCRAM" && record.Call == 1 && !record.IsInitiator);
        EXPECT_TRUE(record.IsPolicyApplied == 1 && record.NegState == 1 && record.MechName.length == 0);
        for (OM_uint32 i = 1; i != 4; ++i) {
            EXPECT_EQ(outcome(qxgss_log_inquire_record, log, i, &record), kDone);
            EXPECT_TRUE(record.MechState == i && record.NegState == i && record.NegStateFromPeer == 4);
            EXPECT_TRUE(record.MechReason == QXGSS_MECH_REASON_GSSAPI_ERROR && record.MajorStatus == GSS_S_BAD_SIG);
            EXPECT_TRUE(record.MinorStatus == 0xC0FFEEU && bytes_of(&record.StatusText) == status_text);
            EXPECT_TRUE(record.IsInitiator == 1 && record.Call == 42 && record.ElapsedTime == 5'000'000'000U);
            EXPECT_TRUE(record.IsCtxEstablished == 1 && record.IsPolicyApplied == 0 && record.IsPeerView == 1);
            EXPECT_TRUE(bytes_of(&record.MechName) == (i == 2 ? "SCRAM" : "") &&
                        bytes_of(&record.MechOid) == (i == 2 ? "" : "\x2B\x06\x01\x7F"));
        }
        EXPECT_EQ(outcome(qxgss_log_inquire_record, log, 4, &record), "00100000/E10000FE");
        qxgss_log_property_desc property{};
        EXPECT_EQ(outcome(qxgss_log_inquire_property, log, 0, &property), "00100000/E10000FE");
        EXPECT_EQ(outcome(qxgss_log_delete, &log), kDone);
        EXPECT_EQ(log, nullptr);
    }
}

TEST_F(Log, EveryChangedLogKeepsTheRules) {
    const std::string text =
        rendered("Record 2: <i>\n   IsCtxEstablished: x\nRecord 2: \n   GSS MinorStatusText: \n\n<");
    const auto check = [](const std::string &changed) {
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(changed.data()), changed.size());
    };
    for (std::size_t at = 0; at < text.size(); at += 3) {
        check(text.substr(0, at));
        for (const char c : {'\n', '<', '\xff'}) {
            std::string changed = text;
            changed[at] = c;
            check(changed);
        }
    }
}

TEST_F(Log, RefusesWhatItCannotRead) {
    qxgss_log_t log = nullptr;
    const std::string_view unknown("\xff\xff\4\0", 4);
    qxgss_buffer_desc data = view(unknown);
    EXPECT_EQ(outcome(qxgss_log_open, &data, nullptr), "020D0000/E10000CD");
    EXPECT_EQ(outcome(qxgss_log_open, nullptr, &log), "010D0000/E10000CD");
    for (const std::string_view bytes : {unknown, unknown.substr(1), std::string_view()}) {
        data = view(bytes);
        EXPECT_EQ(outcome(qxgss_log_open, &data, &log), "00090000/E10000CD");
    }
    EXPECT_EQ(outcome(qxgss_log_inquire, nullptr, nullptr), "010D0000/E10000CD");
    EXPECT_EQ(outcome(qxgss_log_inquire_record, nullptr, 0, nullptr), "010D0000/E10000CD");
    EXPECT_EQ(outcome(qxgss_log_delete, nullptr), "020D0000/E10000CD");
}

} // namespace
