// The internal operations on contexts made by hand: state changes, selection, policy, results, and the log.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/hand_made_context.h"

namespace {

using namespace harness;

using Engine = NegotiationTest;

TEST_F(Engine, NullArguments) {
    Context context(kClient, "A");
    qxgss_buffer_desc none{0, nullptr}, some{1, &none};
    NegMechList_desc list{}, empty{}, no_array{1, nullptr};
    const auto decoding = reinterpret_cast<gsspasn_decoding_t>(&none); // followed by nobody
    const auto encoding = reinterpret_cast<gsspasn_encoding_t>(&none);
    const std::pair<const char *, std::string> rows[] = {
        {"02080000/E30003FF", outcome(QXNEGO_INT_InitializeContext, 1U, nullptr)},
        {"020D0000/E3000400", outcome(QXNEGO_INT_ReleaseNegContext, nullptr)},
        {"020D0000/E3000400", outcome(QXNEGO_INT_InitNegLog, nullptr)},
        {"020D0000/E3000400", outcome(QXNEGO_INT_NegLogEntry, nullptr, nullptr, nullptr)},
        {"010D0000/E3000400", outcome(QXNEGO_INT_ReleaseNegLog, nullptr)},
        {"000D0000/E3000400", outcome(QXNEGO_INT_Apply_Authorization_Rules, nullptr)},
        {"000D0000/E3000400", outcome(QXNEGO_INT_SetAuthInfo, nullptr, nullptr)},
        {"000D0000/E3000400", outcome(QXNEGO_INT_Mechs_Acquire_Creds, nullptr, nullptr)},
        {"020D0000/E30003F6", outcome(QXNEGO_INT_ReleaseNegMechList, nullptr)},
        {"020D0000/E30003F6", outcome(QXNEGO_INT_ProcessInputToken, 2U, &some, nullptr)},
        {"010D0000/E30003F6", outcome(QXNEGO_INT_ProcessInputToken, 1U, nullptr, nullptr)},
        {"010D0000/E30003F6", outcome(QXNEGO_INT_ProcessInputToken, 2U, &none, context.get())},
        {"010D0000/E30003F6", outcome(QXNEGO_INT_ConstructOutputToken, 2U, nullptr, &none)},
        {"010D0000/E30003F6", outcome(QXNEGO_INT_ProcessNegMech, nullptr, nullptr)},
        {"020D0000/E30003F6", outcome(QXNEGO_INT_ProcessNegMech, &context.entry(0), nullptr)},
        {"010D0000/E30003F6", outcome(QXNEGO_INT_DecodeNegTokenInit, nullptr, context.get())},
        {"010D0000/E30003F6", outcome(QXNEGO_INT_DecodeNegMechList, nullptr, context.get())},
        {"020D0000/E30003F6", outcome(QXNEGO_INT_DecodeNegMech, decoding, nullptr)},
        {"020D0000/E30003F7", outcome(QXNEGO_INT_SelectMechanism, nullptr)},
        {"020D0000/E30003F7", outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, nullptr)},
        {"020D0000/E30003F7", outcome(QXNEGO_INT_NegMechStateChange, NEG_MECH_STATE_SELECTED, NEG_MECH_REASON_AVAILABLE,
                                      0U, 0U, nullptr, nullptr)},
        {"020D0000/E30003FA", outcome(QXNEGO_INT_ConstructOutputToken, 2U, nullptr, nullptr)},
        {"000D0000/E300040B", outcome(QXNEGO_INT_ProcessInputToken, 3U, nullptr, nullptr)},
        {"020D0000/E3000409", outcome(QXNEGO_INT_GetNegMechList, nullptr, nullptr, nullptr)},
        {"010D0000/E3000409", outcome(QXNEGO_INT_GetNegMechList, nullptr, &list, nullptr)},
        {"000D0000/E3000406", outcome(QXNEGO_INT_GetNegMechList, &empty, &list, nullptr)},
        {"000D0000/E3000406", outcome(QXNEGO_INT_GetNegMechList, &no_array, &list, nullptr)},
        {"020D0000/E3000406", outcome(QXNEGO_INT_SetReturns, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)},
        {kDone, outcome(QXNEGO_INT_ReleaseNegMechList, &empty)},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(rows[i].second, rows[i].first) << "number " << i;
    const NegContext_t c = context.get();
    for (const auto put : {QXNEGO_INT_EncodeNegTokenInit, QXNEGO_INT_EncodeNegTokenResp, QXNEGO_INT_EncodeNegMechList})
        support::expect_all("010D0000/E30003F6", {outcome(put, nullptr, encoding), outcome(put, c, nullptr)});
    support::expect_all("010D0000/E30003F6", {outcome(QXNEGO_INT_EncodeNegMech, nullptr, encoding),
                                              outcome(QXNEGO_INT_EncodeNegMech, &context.entry(0), nullptr)});
    // A list without entries or without an array, in each operation that goes through it.
    const NegMechList_desc good = context->NegMechList;
    qxgss_name_desc no_elements{1, nullptr, nullptr};
    QxnegoCredDescStruct credential{&no_elements, 0, nullptr, GSS_C_INITIATE};
    for (const bool array : {false, true}) {
        context->NegMechList = {array ? 0 : good.Count, array ? good.pNegMech : nullptr};
        support::expect_all(
            array ? "000D0000/E3000406" : "000D0000/E3000408",
            {outcome(QXNEGO_INT_Mechs_Acquire_Creds, nullptr, c),
             outcome(QXNEGO_INT_Mechs_Init_Contexts, nullptr, 0U, 0U, nullptr, nullptr, nullptr, nullptr, c),
             outcome(QXNEGO_INT_Mechs_Accept_Contexts, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, c),
             outcome(QXNEGO_INT_SetReturns, c, nullptr, nullptr, nullptr, nullptr, nullptr)});
        EXPECT_EQ(outcome(QXNEGO_INT_SelectMechanism, c), "010D0000/E3000406");
        support::expect_all("000D0000/E3000408", {outcome(QXNEGO_INT_ProcessNegMech, &good.pNegMech[0], c),
                                                  outcome(QXNEGO_INT_ConstructOutputToken, 1U, c, &none),
                                                  outcome(QXNEGO_INT_ConstructOutputToken, 2U, c, &none)});
        EXPECT_EQ(outcome(QXNEGO_INT_Apply_Authorization_Rules, c), array ? kDone : "000D0000/E3000408");
        EXPECT_EQ(outcome(QXNEGO_get_mic, context.context, 0, &some, &none), "000D0000/E3000414");
        EXPECT_EQ(outcome(QXNEGO_INT_SetAuthInfo, &credential, c), kDone);
    }
    context->NegMechList = good;
}

// ---- Context and list ----------------------------------------------------------------------------------------------

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

TEST_F(Engine, StateChangesAreCheckedAndMarked) {
    Context context(kClient, "A");
    NegMechEntry_desc &entry = context.entry(0);
    qxgss_buffer_desc text{3, const_cast<char *>("why")};
    for (OM_uint32 state = 0; state < 6; ++state)
        for (OM_uint32 reason = 0; reason < 12; ++reason) {
            context.set("A11");
            entry.IsMechStateChanged = 0;
            const bool state_valid = state >= 1 && state <= 3, valid = state_valid && reason >= 1 && reason <= 9;
            EXPECT_EQ(outcome(QXNEGO_INT_NegMechStateChange, static_cast<NegMechState_et>(state),
                              static_cast<NegMechReason_et>(reason), 7U, 8U, reason % 2 == 0 ? &text : nullptr, &entry),
                      failed(valid         ? ""
                             : state_valid ? "E300040E"
                                           : "E300040D"))
                << state << " " << reason;
            EXPECT_EQ(entry.MechState, valid ? state : 1U);
            EXPECT_EQ(entry.MechReason, valid ? reason : 1U);
            EXPECT_EQ(entry.IsMechStateChanged, OM_uint32{valid});
        }
    EXPECT_EQ(context.entries(), "A11(00000007/00000008 why)"); // an odd reason came without a text
}

// ---- Selection -----------------------------------------------------------------------------------------------------

// What no scenario reaches.
TEST_F(Engine, SelectionLeavesTheListAlone) {
    const struct {
        int line;
        const char *entries;
        OM_uint32 policy, from_peer;
        OM_sint32 index;
        const char *minor;
        OM_uint32 state = NEG_STATE_INCOMPLETE;
    } rows[] = {
        {__LINE__, "A32 B11 C11+", 1, 2, -1, ""},
        {__LINE__, "A11+ B11+ C11+", 0, 2, -1, ""},
        {__LINE__, "A32+ B34 C35", 1, 2, -1, "E3000406", NEG_STATE_REJECT},
        {__LINE__, "A11+ B11+ C01", 1, 3, -1, "E300040F"},
        {__LINE__, "A11+ B26 C11", 1, 1, 1, "E30003F3"},
        {__LINE__, "A11+ B11+ C11+", 1, 1, -1, "E30003F3"},
        {__LINE__, "A11+ B11+ C11+", 1, 1, 3, "E30003F3"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        Context context(kServer, "ABC");
        context.set(row.entries);
        context->IsPolicyApplied = row.policy;
        context->NegStateFromPeer = static_cast<NegState_et>(row.from_peer);
        context->SelectedMechListIndex = row.index;
        EXPECT_EQ(outcome(QXNEGO_INT_SelectMechanism, context.get()), failed(row.minor));
        EXPECT_EQ(context.entries() + context.log(), row.entries);
        EXPECT_EQ(context->NegState, row.state);
        EXPECT_EQ(context->SelectedMechListIndex, row.index);
    }
}

// ---- Policy --------------------------------------------------------------------------------------------------------

TEST_F(Engine, PolicyIsLookedUpOnce) {
    Context context(kServer, "AB");
    set_text(context->AuthenticationIdBuf, {'\0', 'x'}); // no user name, so the lookup fails
    EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), "000D0000/E10000CB");
    context->AuthenticationIdBuf.length = SIZE_MAX; // no room for its NUL
    EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), "000D0000/E30003F9");
    context->UserNameBuf = {2, nullptr}; // comes before the identity
    EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), "000D0000/E10000CB");
    EXPECT_EQ(context->IsPolicyApplied, 0U);
    set_text(context->UserNameBuf, "onlyb");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), kDone);
    EXPECT_EQ(context.log(), "[0] policy-no:A35 [0p] policy-set");
}

TEST_F(Engine, PolicyFailsWhenNothingInTheListIsAllowed) {
    const struct {
        const char *user, *before, *minor, *after, *log;
    } rows[] = {
        {"onlyb", "A11 B32", "", "A35(00000000/21000064) B32", "[0] policy-no:A35 [0p] policy-set"},
        {"onlyc", "A32 B11", "E3000406", "A32 B35(00000000/21000064)", "[0] policy-no:B35 [0p] policy-set"},
        {"nobody", "A11 B32", "E3000406", "A35(00000000/21000064) B32", "[0] policy-no:A35 [0p] policy-set"},
        {"", "A11 B11", "", "A11 B11", "[0p] policy-nouser"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.before);
        Context context(kServer, "AB");
        context.set(row.before);
        context->IsSso = *row.user == 0;
        set_text(context->UserNameBuf, row.user);
        EXPECT_EQ(outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()), failed(row.minor));
        EXPECT_EQ(context.entries(), row.after);
        EXPECT_EQ(context.log(), row.log);
        EXPECT_EQ(context->IsPolicyApplied, 1U);
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

// ---- Results --------------------------------------------------------------------------------------------------------

TEST_F(Engine, ResultsFollowTheState) {
    const struct {
        OM_uint32 state;
        OM_sint32 index;
        const char *entry;
        const char *status;
    } rows[] = {
        {0, 0, "A26", "000D0000/E300040F"},  {1, 0, "A26", kDone},
        {1, -1, "A26", "000D0000/E3000411"}, {1, 1, "A26", "000D0000/E3000411"},
        {1, 0, "A11", "000D0000/E3000411"},  {2, 0, "A26", "00000001/230003E9"},
        {3, 0, "A26", "000D0000/E3000406"},  {4, 0, "A26", "000D0000/E3000410"},
        {5, 0, "A26", "000D0000/E300040F"},
    };
    for (const auto &row : rows) {
        Context context(kServer, "A");
        context.set(row.entry);
        context->NegState = static_cast<NegState_et>(row.state);
        context->SelectedMechListIndex = row.index;
        OM_uint32 flags = 7;
        qxgss_OID type = nullptr;
        EXPECT_EQ(outcome(QXNEGO_INT_SetReturns, context.get(), nullptr, &type, &flags, nullptr, nullptr), row.status)
            << row.state;
        EXPECT_EQ(type, row.status == std::string(kDone) ? nullptr : pQxnegoMechOid);
        EXPECT_EQ(flags, 0U);
    }
}

// ---- The log -------------------------------------------------------------------------------------------------------

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

TEST_F(Engine, ARecordIsASnapshotAndLeavesNoTraceWhenItFails) {
    Context context(kClient, "A");
    qxgss_OID_desc nothing{3, nullptr};
    NegMechEntry_desc &entry = context.entry(0), unusable = entry;
    unusable.pMechOid = &nothing;
    unusable.MechState = NEG_MECH_STATE_SELECTED;
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "failed", &unusable, context.get()), "000D0000/E30003F4");
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "next", nullptr, context.get()), kDone);

    context->TokenNum = 3;
    context->IsPolicyApplied = 1;
    context->NegState = NEG_STATE_COMPLETED;
    context.set("A32+");
    entry.GssMajorStatus = 5;
    entry.GssMinorStatus = 6;
    set_text(entry.GssMinorStatusText, "why");
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, nullptr, &entry, context.get()), kDone);
    EXPECT_EQ(context.log(), "[0] next [3p] (null):A32");
    EXPECT_EQ(context->NegLog.pRecords[0].MechState, 0U);
    const NegLogRecord &record = context->NegLog.pRecords[1];
    EXPECT_EQ(record.MechOid.elements, entry.pMechOid->elements);
    EXPECT_NE(record.GssMinorStatusText.value, entry.GssMinorStatusText.value);
    EXPECT_EQ(text_of(record.GssMinorStatusText), "why");
    EXPECT_TRUE(record.GssMajorStatus == 5 && record.GssMinorStatus == 6 && record.MechIndex == entry.MechIndex);
    EXPECT_TRUE(record.IsCtxEstablished == 1 && record.NegState == 1 && record.NegStateFromPeer == 2);
}

} // namespace
