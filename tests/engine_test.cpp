// What scenarios do not reach: mechanisms no longer in use, policies over lists of every kind, principals, and a log
// that grows or fails.
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
    EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, 1U, &made), "000D0000/E3000406");
    EXPECT_EQ(made, nullptr);
    registered("A").fUseMech = registered("C").fUseMech = 1;
    EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, 1U, &made), kDone);
    peer.context = made;
    EXPECT_EQ(peer.entries(), "A11 C11");
    EXPECT_EQ(peer.log(), "[0] have:A11,C11");
    EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, 0U, &made), kDone);
    EXPECT_EQ(made, peer.context);
    EXPECT_EQ(made->NegCtx.IsInitiator, 1U);
    registered("B").fUseMech = 1;
}

TEST_F(Engine, ThePolicyIsAppliedOnceAndLeavesWhatItAllows) {
    const struct {
        std::string user, identity;
        const char *before, *minor, *after, *log;
    } rows[] = {
        {"onlyb", "onlya", "A11 B32", "", "A35(00000000/21000064) B32", "[0] policy-no:A35 [0p] policy-set"},
        {"onlyc", "", "A32 B11", "E3000406", "A32 B35(00000000/21000064)", "[0] policy-no:B35 [0p] policy-set"},
        {"", "nobody", "A11 B32", "E3000406", "A35(00000000/21000064) B32", "[0] policy-no:A35 [0p] policy-set"},
        {"", "", "A11 B11", "", "A11 B11", "[0p] policy-nouser"},
        {{'\0', 'x'}, "onlya", "A11 B11", "E10000CB", "A11 B11", ""}, // no user name, so the lookup fails
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.user + "/" + row.identity);
        Context context(kServer, "AB");
        context.set(row.before);
        set_text(context->UserNameBuf, row.user);
        set_text(context->AuthenticationIdBuf, row.identity);
        EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), failed(row.minor));
        const bool applied = context->IsPolicyApplied != 0;
        EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), failed(applied ? "" : row.minor));
        EXPECT_EQ(context.entries(), row.after);
        EXPECT_EQ(context.log(), row.log);
    }
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
    EXPECT_EQ(log.MaxCount, 64U);
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
    EXPECT_EQ(log.pRecords[64].MechOid.length, 0U);
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

TEST_F(Engine, ARecordThatFailsLeavesNoTrace) {
    Context context(kClient, "A");
    qxgss_OID_desc nothing{3, nullptr};
    NegMechEntry_desc &entry = context.entry(0), unusable = entry;
    unusable.pMechOid = &nothing;
    unusable.MechState = NEG_MECH_STATE_SELECTED;
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "failed", &unusable, context.get()), "000D0000/E30003F4");
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "next", nullptr, context.get()), kDone);
    EXPECT_EQ(context.log(), "[0] next");
    EXPECT_EQ(context->NegLog.pRecords[0].MechState, 0U);
}

} // namespace
