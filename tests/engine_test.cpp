// What no negotiation between two ends reaches: mechanisms taken out of use, a log that grows, principals of all kinds.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/hand_made_context.h"

namespace {

using namespace harness;

using Engine = NegotiationTest;

TEST_F(Engine, AContextTakesTheMechanismsInUse) {
    Peer peer(kClient, "ABCD");
    peer.act();
    QxnegoMechList.pNegMech[3].MechIndex = -1; // of no registered mechanism
    for (const char *name : {"A", "B", "C"})
        registered(name).fUseMech = 0;
    QxnegoSecCtx_int_t made = nullptr;
    EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, 1U, &made), kReject);
    EXPECT_EQ(made, nullptr);
    registered("A").fUseMech = registered("C").fUseMech = 1;
    EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, 1U, &made), kDone);
    peer.context = made;
    EXPECT_EQ(peer.entries() + " " + peer.log(), "A11 C11 [0] have:A11,C11");
    EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, 0U, &made), kDone); // there is one already
    EXPECT_TRUE(made == peer.context && made->NegCtx.IsInitiator == 1);
    registered("B").fUseMech = 1;
}

TEST_F(Engine, PrincipalsAreUsersOfOneItem) {
    char *user = nullptr;
    EXPECT_EQ(QXNEGO_INT_get_principal("anna@REALM@@secret", &user), QXNEGO_E_SUCCESSFUL);
    EXPECT_STREQ(user, "anna");
    std::free(user);
    EXPECT_EQ(QXNEGO_INT_get_principal("anna", nullptr), QXNEGO_E_SUCCESSFUL);
    for (const char *text : {"", "anna,bert", "@REALM"})
        EXPECT_EQ(QXNEGO_INT_get_principal(text, &user), QXNEGO_E_LOGON_PROPERTY) << text;
}

TEST_F(Engine, TheLogGrowsAndKeepsItsRecords) {
    Context context(kServer, "A");
    NegLog_desc &log = context->NegLog;
    EXPECT_LT(QXNEGO_INT_GetElapsedTime(log.BaseTime), 10000U);
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, std::to_string(i).c_str(), &context.entry(0), context.get()), kDone);
    EXPECT_EQ(log.MaxCount, 64U);
    EXPECT_EQ(std::string(1 << 16, 'x').back(), 'x'); // so that new memory is not zero by itself
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, nullptr, nullptr, context.get()), kDone);
    EXPECT_EQ(log.MaxCount, 80U);
    EXPECT_STREQ(log.pRecords[0].pszLogString, "0");
    EXPECT_STREQ(log.pRecords[63].pszLogString, "63");
    EXPECT_STREQ(log.pRecords[64].pszLogString,
                 "QXNEGO_INT_NegLogEntry: ***WARNING*** No information provided for logging.");
    QXNEGO_INT_GrowNegLog(&log, UINT32_MAX - 79);
    EXPECT_EQ(log.MaxCount, 80U);
    for (const OM_uint32 more : {1000U, 16U}) // with room for others, and within it
        QXNEGO_INT_GrowNegLog(&log, more);
    EXPECT_EQ(log.MaxCount, 1096U);
    const NegLogRecord zero{};
    for (OM_uint32 i = 65; i < log.MaxCount; ++i)
        EXPECT_EQ(std::memcmp(&log.pRecords[i], &zero, sizeof zero), 0) << i;
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(outcome(QXNEGO_INT_ReleaseNegLog, context.get()), kDone);
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "x", nullptr, context.get()), "020D0000/E300040A");
}

TEST_F(Engine, ARecordIsASnapshotAndLeavesNoTraceWhenItFails) {
    Context context(kClient, "A");
    qxgss_OID_desc nothing{3, nullptr};
    NegMechEntry_desc &entry = context.entry(0), unusable = entry;
    unusable.pMechOid = &nothing;
    unusable.MechState = NEG_MECH_STATE_SELECTED;
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "failed", &unusable, context.get()), "000D0000/E30003F4");
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "next", nullptr, context.get()), kDone);
    EXPECT_EQ(context->NegLog.pRecords[0].MechState, 0U);
    context->TokenNum = 3;
    context->IsPolicyApplied = 1;
    context.set("A32+");
    entry.GssMajorStatus = 5;
    set_text(entry.GssMinorStatusText, "why");
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, nullptr, &entry, context.get()), kDone);
    EXPECT_EQ(context.log(), "[0] next [3p] (null):A32+(00000005/00000000 why)");
    EXPECT_NE(context->NegLog.pRecords[1].GssMinorStatusText.value, entry.GssMinorStatusText.value);
}

} // namespace
