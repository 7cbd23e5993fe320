// The internal operations on contexts and tokens made by hand: state changes, selection, decoding and reconciliation,
// policy, encoding, results, and the log.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "tests/negotiation_harness.h"

namespace {

using namespace harness;

void set_text(qxgss_buffer_desc &buffer, const std::string &text) {
    qxgss_buffer_desc source = support::view(text);
    gssp_release_buffer(nullptr, &buffer);
    gssp_duplicate_buffer(nullptr, &source, &buffer);
}

// The outcome of a failure with that minor status; of success when there is none.
std::string failed(const std::string &minor) {
    return minor.empty() ? kDone : "000D0000/" + minor;
}

// A fresh context with these mechanisms, whose log begins after them; entries in the notation of the harness.
struct Context : Peer {
    Context(Side side, std::string_view mechanisms) : Peer(side, mechanisms) {
        act();
        QxnegoSecCtx_int_t made = nullptr;
        EXPECT_EQ(outcome(QXNEGO_INT_InitializeContext, OM_uint32{side == kClient}, &made), kDone);
        context = made;
        QXNEGO_INT_ReleaseNegLog(nullptr, &negotiation());
        QXNEGO_INT_InitNegLog(nullptr, &negotiation());
    }
    NegContext_desc *operator->() { return &negotiation(); }
    NegContext_t get() { return &negotiation(); }
    NegMechEntry_desc &entry(OM_uint32 i) { return negotiation().NegMechList.pNegMech[i]; }

    void set(const std::string &states) { // "A11+ B36": letters as they are in the list
        std::istringstream words(states);
        std::string word;
        for (OM_uint32 i = 0; words >> word; ++i) {
            entry(i).MechState = static_cast<NegMechState_et>(word[1] - '0');
            entry(i).MechReason = static_cast<NegMechReason_et>(word[2] - '0');
            entry(i).IsCtxEstablished = word.back() == '+';
        }
    }
};

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

// ---- Tokens by hand ------------------------------------------------------------------------------------------------

// Elements of tokens, whatever a test wants in them; none is longer than 127 octets.
std::string tlv(OM_uint32 identifier, const std::string &contents) {
    return std::string{static_cast<char>(identifier), static_cast<char>(contents.size())} + contents;
}
std::string text(OM_uint32 tag, const std::string &value) {
    return tlv(0x80 + tag, value);
}
std::string number(OM_uint32 tag, OM_uint32 value) {
    std::string octets(1, static_cast<char>(value)); // X.690 8.3.2: no octet more than needed
    for (; value > 0x7F; value >>= 8)
        octets.insert(octets.begin(), static_cast<char>(value >> 8));
    return tlv(0x80 + tag, octets);
}
std::string oid(OM_uint32 tag, char mechanism) {
    return text(tag, support::bytes_of(oid_of(mechanism)));
}
std::string list(const std::string &elements) {
    return tlv(0xA0, elements);
}
// Without a reason when that is 0.
std::string mech(char mechanism, OM_uint32 state, OM_uint32 reason = 0, const std::string &more = "") {
    return tlv(0xA0, oid(0, mechanism) + number(1, state) + (reason == 0 ? "" : number(2, reason)) + more);
}

std::string process(Context &context, OM_uint32 type, const std::string &token) {
    qxgss_buffer_desc buffer = support::view(token);
    return outcome(QXNEGO_INT_ProcessInputToken, type, &buffer, context.get());
}

TEST_F(Engine, TokensAreReadAndReconciled) {
    const std::string goes_on = number(1, 2);
    // clang-format off
    const struct {
        int line;
        std::string items; // of a RESP
        const char *minor, *log;
        const char *after = "A11 B11 C11", *buffers_of_b = "old old"; // it holds an input token and an identity
        Side side = kServer;
        const char *before = "A11 B11 C11";
    } rows[] = {
        {__LINE__, list(mech('A', 3, 5) + mech('B', 1, 0, text(6, "new") + text(7, "id"))) + goes_on,
         "", "[0] peer:A35 adopt:A35 peer:B11", "A35 B11 C11", "new id", kClient},
        {__LINE__, list(mech('A', 2, 6) + mech('B', 1, 1, text(6, "new"))) + goes_on,
         "", "[0] peer:A26,B11", "A32 B37 C11", "new old", kClient, "A32 B37 C11"},
        {__LINE__, list(mech('B', 2, 0, text(6, "") + text(7, ""))) + goes_on, "", "[0] peer:B21 adopt:B21", "A11 B21 C11"},
        // A status is read only with the reason that has one; then all three are needed.
        {__LINE__, list(mech('A', 3, 2, number(3, 0x80010000U) + number(4, 0xE3000408U) + text(5, "t")) +
                        mech('B', 3, 5, number(3, 0x80010000U) + text(6, "new"))) + goes_on,
         "", "[0] peer:A32 adopt:A32 peer:B35 adopt:B35", "A32(80010000/E3000408 t) B35 C11", "new old"},
        {__LINE__, list(mech('A', 3, 2, number(3, 1) + number(4, 2) + text(6, "new"))) + goes_on, "E10000FB", ""},
        // States and reasons are checked when they are adopted; what was read before stays.
        {__LINE__, list(mech('A', 3, 5) + mech('B', 0, 0, text(6, "new") + text(7, "id")) + mech('C', 3, 5)) + goes_on,
         "E300040D", "[0] peer:A35 adopt:A35 peer:B01", "A35 B11 C11"},
        {__LINE__, list(mech('A', 3, 10)) + goes_on, "E300040E", "[0] peer:A310"},
        {__LINE__, list(mech('A', 1, 77)) + goes_on, "", "[0] peer:A177"},
        {__LINE__, list(mech('A', 0x80000000U, 1)) + goes_on, "E300040D", "[0] peer:A21474836481"},
        // Unknown mechanisms are appended, rejected for the side's own reason, whatever the peer said of them.
        {__LINE__, list(mech('D', 2, 2, number(3, 1) + number(4, 2) + text(5, "t") + text(6, "x") + text(7, "y"))) + goes_on,
         "", "[0] unknown:D22 refuse:D33", "A11 B11 C11 D33", "old old", kClient},
        {__LINE__, list(mech('D', 0) + mech('D', 3, 5)) + goes_on,
         "", "[0] unknown:D00 refuse:D34 peer:D35", "A11 B11 C11 D34"},
        // Structure
        {__LINE__, "", "E300041E", ""},
        {__LINE__, goes_on, "E10000FB", ""},
        {__LINE__, text(0, "x") + goes_on, "E10000F9", ""},
        {__LINE__, list("") + goes_on, "E3000408", ""},
        {__LINE__, list(tlv(0xA0, oid(0, 'A'))) + goes_on, "E10000FB", ""},
        {__LINE__, list(tlv(0xA0, list("") + number(1, 1))) + goes_on, "E10000FA", ""},
        {__LINE__, list(mech('A', 1, 1)), "E10000FB", "[0] peer:A11"},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        Context context(row.side, "ABC");
        context.set(row.before);
        set_text(context.entry(1).InputToken, "old");
        set_text(context.entry(1).SsoAuthenticationIdBuf, "old");
        for (OM_uint32 i = 0; i < 3; ++i)
            context.entry(i).IsMechStateChanged = 0;
        EXPECT_EQ(process(context, NEG_MECH_TOKENTYPE_RESP, tlv(0xA1, row.items)), failed(row.minor));
        EXPECT_EQ(context.entries(), row.after);
        EXPECT_EQ(text_of(context.entry(1).InputToken) + " " + text_of(context.entry(1).SsoAuthenticationIdBuf),
                  row.buffers_of_b);
        EXPECT_EQ(context.log(), row.log);
        for (OM_uint32 i = 0; i < context->NegMechList.Count; ++i)
            EXPECT_EQ(context.entry(i).IsMechStateChanged, OM_uint32{i >= 3}) << i;
    }
    Context context(kServer, "A"); // an element without children, for which any of the mechanism's own codes will do
    EXPECT_EQ(process(context, 2, tlv(0xA1, list(list("")) + goes_on)).substr(0, 12), "000D0000/E30");
}

// What neither side can use is released, a value without a length too, and is cleared where the reader looks for it.
TEST_F(Engine, NothingIsLeftInThePeersEntry) {
    for (const char mechanism : {'A', 'D'}) {
        Context context(kServer, "A");
        qxgss_buffer_desc oid{};
        set_text(oid, support::bytes_of(oid_of(mechanism)));
        NegMechEntry_desc peer{};
        peer.MechOidFromPeer = {static_cast<OM_uint32>(oid.length), oid.value};
        peer.pMechOid = &peer.MechOidFromPeer;
        peer.MechState = NEG_MECH_STATE_AVAILABLE;
        qxgss_buffer_desc *const buffers[] = {&peer.InputToken, &peer.SsoAuthenticationIdBuf, &peer.GssMinorStatusText};
        for (qxgss_buffer_desc *buffer : buffers)
            *buffer = {0, std::malloc(1)};
        EXPECT_EQ(outcome(QXNEGO_INT_ProcessNegMech, &peer, context.get()), kDone);
        EXPECT_EQ(peer.MechOidFromPeer.elements, nullptr);
        for (const qxgss_buffer_desc *buffer : buffers)
            EXPECT_EQ(buffer->value, nullptr);
        EXPECT_EQ(context.entry(context->NegMechList.Count - 1).MechIndex >= 0, mechanism == 'A');
    }
}

// A token with a list that changes nothing, then these items.
std::string told(OM_uint32 state, const std::string &items = "", OM_uint32 outer = 0xA1) {
    return tlv(outer, list(mech('A', 1, 1)) + number(1, state) + items);
}

TEST_F(Engine, ItemsOfTheWholeToken) {
    // clang-format off
    const struct {
        int line;
        OM_uint32 state;
        std::string items;
        const char *minor;
        OM_sint32 selected;
        const char *log;
    } rows[] = {
        {__LINE__, 1, oid(2, 'C'), "", 2, "[0] peer:A11 peer-state"},
        {__LINE__, 1, oid(2, 'D'), "E3000413", -1, "[0] peer:A11 peer-state"},
        {__LINE__, 1, text(2, "\x2A\x03"), "E3000413", -1, "[0] peer:A11 peer-state"},
        {__LINE__, 1, "", "E10000FB", -1, "[0] peer:A11 peer-state"},
        {__LINE__, 3, oid(2, 'C'), "", -1, "[0] peer:A11 peer-state"},
        {__LINE__, 0, "", "E300040F", -1, "[0] peer:A11"},
        {__LINE__, 4, "", "E3000410", -1, "[0] peer:A11"},
        {__LINE__, 5, "", "E300040F", -1, "[0] peer:A11"},
        {__LINE__, 2, number(3, 1), "", -1, "[0] peer:A11 [0p] policy-told"},
        {__LINE__, 2, number(3, 0), "", -1, "[0] peer:A11"},
        {__LINE__, 2, text(3, ""), "E10000F3", -1, "[0] peer:A11"},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        Context context(kServer, "ABC");
        EXPECT_EQ(process(context, NEG_MECH_TOKENTYPE_RESP, told(row.state, row.items)), failed(row.minor));
        EXPECT_EQ(context->NegStateFromPeer, row.state);
        EXPECT_EQ(context->SelectedMechListIndex, row.selected);
        EXPECT_EQ(context.log(), row.log);
        EXPECT_TRUE(row.selected < 0 || context->SelectedMechInfoIndex == context.entry(2).MechIndex);
    }
    Context client(kClient, "A"), server(kServer, "A"); // the policy flag is read once
    for (const OM_uint32 flag : {1U, 0U, 1U})
        EXPECT_EQ(process(client, 2, told(2, number(3, flag))), kDone);
    EXPECT_EQ(client.log(), "[0] peer:A11 [0p] policy-told peer:A11,A11");
    EXPECT_EQ(process(server, 1, tlv(0xA0, "")), "000D0000/E300041D");
    EXPECT_EQ(process(server, 1, told(2)), "000D0000/E10000FB"); // of the other kind
    EXPECT_EQ(process(server, 1, told(2, text(2, "a") + number(3, 1) + text(4, "u") + text(5, "p"), 0xA0)), kDone);
    EXPECT_EQ(server->IsSso, 1U);
    EXPECT_EQ(text_of(server->AuthenticationIdBuf) + text_of(server->UserNameBuf) + text_of(server->ProfileNameBuf),
              "aup");
    Context broken(kClient, "AB"); // an entry without an OID ends each search that meets it, and is rejected
    broken.entry(1).pMechOid = nullptr;
    EXPECT_EQ(process(broken, 2, told(1, oid(2, 'C'))), "000D0000/E10000CD");
    EXPECT_EQ(process(broken, 2, tlv(0xA1, list(mech('C', 1)) + number(1, 2))), "000D0000/E10000CD");
    EXPECT_EQ(outcome(QXNEGO_INT_Mechs_Acquire_Creds, nullptr, broken.get()), kDone);
    EXPECT_EQ(broken.entry(1).GssMinorStatus, 0xE10000CDU);
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

// ---- Encoding and results ------------------------------------------------------------------------------------------

TEST_F(Engine, TokensThatMustNotBeWritten) {
    using Alter = void (*)(NegContext_desc & context);
    // clang-format off
    const struct {
        int line;
        Side side;
        OM_uint32 type;
        const char *minor;
        Alter alter;
    } rows[] = {
        {__LINE__, kClient, 3, "E300040B", [](auto &) {}},
        {__LINE__, kServer, 1, "E300040C", [](auto &) {}},
        {__LINE__, kClient, 1, "E300040C", [](auto &c) { c.TokenNum = 1; }},
        {__LINE__, kClient, 1, "E300040F", [](auto &c) { c.NegState = NEG_STATE_COMPLETED; }},
        {__LINE__, kClient, 1, "E300040F", [](auto &c) { c.NegState = NEG_STATE_REJECT; }},
        {__LINE__, kServer, 2, "E300040F", [](auto &c) { c.NegState = NEG_STATE_INVALID; }},
        {__LINE__, kServer, 2, "E300040F", [](auto &c) { c.NegState = NEG_STATE_INVALID_LAST; }},
        {__LINE__, kClient, 1, "E300041C", [](auto &c) { c.NegState = NEG_STATE_REQUEST_MIC; }},
        {__LINE__, kClient, 1, "E300041C", [](auto &c) { c.AuthenticationIdBuf.length = 1; }},
        {__LINE__, kClient, 1, "E30003F3", [](auto &c) { c.IsSso = 1, c.AuthenticationIdBuf.value = std::malloc(1); }},
        {__LINE__, kClient, 1, "E30003F3", [](auto &c) { c.IsSso = 1, set_text(c.AuthenticationIdBuf, "anna"); }},
        {__LINE__, kServer, 2, "E30003F6", [](auto &c) { c.NegState = NEG_STATE_COMPLETED; }},
        {__LINE__, kServer, 2, "E30003F6", [](auto &c) { c.NegMechList.pNegMech[0].pMechOid = nullptr; }},
        {__LINE__, kServer, 2, "E30003F6", [](auto &c) { c.NegMechList.pNegMech[0].pMechOid = nullptr,
                                                         c.SelectedMechListIndex = 0, c.NegState = NEG_STATE_COMPLETED; }},
        {__LINE__, kServer, 2, "E300041A", [](auto &c) { c.NegMechList.pNegMech[0].IsMechStateChanged = 0,
                                                         c.NegMechList.pNegMech[0].MechState = NEG_MECH_STATE_REJECTED; }},
        {__LINE__, kServer, 2, "", [](auto &c) { c.NegStateFromPeer = NEG_STATE_REJECT; }},
        {__LINE__, kClient, 2, "", [](auto &c) { c.NegStateFromPeer = NEG_STATE_COMPLETED; }},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        Context context(row.side, "A");
        row.alter(context.negotiation());
        const OM_uint32 changed = context.entry(0).IsMechStateChanged;
        qxgss_buffer_desc out{4, &context};
        EXPECT_EQ(outcome(QXNEGO_INT_ConstructOutputToken, row.type, context.get(), &out), failed(row.minor));
        EXPECT_TRUE(out.length == 0 && out.value == nullptr);
        EXPECT_EQ(context.entry(0).IsMechStateChanged, changed);
    }
}

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
    const NegLogRecord zero{};
    for (OM_uint32 i = 65; i < 80; ++i)
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
