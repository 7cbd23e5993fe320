// The internal operations on contexts made by hand: what is read and reconciled of tokens that are written down here,
// which ones must not be written, mechanisms taken out of use, a policy for all kinds of names, records of the log.
#include <gtest/gtest.h>

#include <sstream>

#include "testkit/ber.h"
#include "tests/negotiation_harness.h"

namespace {

using namespace harness;
using testkit::tlv;

using Engine = NegotiationTest;

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

// ---- Tokens --------------------------------------------------------------------------------------------------------

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

// A token with a list that changes nothing, then these items.
std::string told(OM_uint32 state, const std::string &items = "") {
    return list(mech('A', 1, 1)) + number(1, state) + items;
}

TEST_F(Engine, TokensAreReadAndReconciled) {
    constexpr const char *kAsBefore = "A11 B11 C11";
    const std::string goes_on = number(1, 2);
    // clang-format off
    const struct {
        int line;
        std::string items; // of a RESP
        const char *minor, *log, *after = kAsBefore, *buffers_of_b = "old old"; // an input token and an identity
        OM_sint32 selected = -1;
        Side side = kServer;
        const char *before = kAsBefore;
    } rows[] = {
        {__LINE__, list(mech('A', 3, 5) + mech('B', 1, 0, text(6, "new") + text(7, "id"))) + goes_on,
         "", "[0] peer:A35=,B11", "A35< B11 C11", "new id", -1, kClient},
        {__LINE__, list(mech('A', 2, 6) + mech('B', 1, 1, text(6, "new"))) + goes_on,
         "", "[0] peer:A26,B11", "A32 B37 C11", "new old", -1, kClient, "A32 B37 C11"},
        {__LINE__, list(mech('B', 2, 0, text(6, "") + text(7, ""))) + goes_on, "", "[0] peer:B25=",
         "A11 B25< C11", "old old", -1, kServer, "A11 B15 C11"},
        // A status is read only with the reason that has one; then all three are needed.
        {__LINE__, list(mech('A', 3, 2, number(3, 0x80010000U) + number(4, 0xE3000408U) + text(5, "t")) +
                        mech('B', 3, 5, number(3, 0x80010000U) + text(6, "new"))) + goes_on,
         "", "[0] peer:A32(80010000/E3000408 t)=,B35=", "A32(80010000/E3000408 t)< B35< C11", "new old"},
        {__LINE__, list(mech('A', 3, 2, number(3, 1) + number(4, 2) + text(6, "new"))) + goes_on, "E10000FB", ""},
        // States and reasons are checked when they are adopted; what was read before stays.
        {__LINE__, list(mech('A', 3, 5) + mech('B', 0, 0, text(6, "new") + text(7, "id")) + mech('C', 3, 5)) + goes_on,
         "E300040D", "[0] peer:A35=,B01", "A35< B11 C11"},
        {__LINE__, list(mech('A', 3, 10)) + goes_on, "E300040E", "[0] peer:A310"},
        {__LINE__, list(mech('A', 1, 77)) + goes_on, "", "[0] peer:A177"},
        {__LINE__, list(mech('A', 0x80000000U, 1)) + goes_on, "E300040D", "[0] peer:A21474836481"},
        // Unknown mechanisms are appended, rejected for the side's own reason, whatever the peer said of them.
        {__LINE__, list(mech('D', 2, 2, number(3, 1) + number(4, 2) + text(5, "t") + text(6, "x") + text(7, "y"))) + goes_on,
         "", "[0] unknown:D22(00000001/00000002 t) refuse:D33", "A11 B11 C11 D33", "old old", -1, kClient},
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
        // What is said of the whole
        {__LINE__, told(1, oid(2, 'C')), "", "[0] peer:A11 peer-state", kAsBefore, "old old", 2},
        {__LINE__, told(1, oid(2, 'D')), "E3000413", "[0] peer:A11 peer-state"},
        {__LINE__, told(1), "E10000FB", "[0] peer:A11 peer-state"},
        {__LINE__, told(3, oid(2, 'C')), "", "[0] peer:A11 peer-state"},
        {__LINE__, told(0), "E300040F", "[0] peer:A11"},
        {__LINE__, told(4), "E3000410", "[0] peer:A11"},
        {__LINE__, told(2, number(3, 1)), "", "[0] peer:A11 [0p] policy-told"},
        {__LINE__, told(2, number(3, 0)), "", "[0] peer:A11"},
        {__LINE__, told(2, text(3, "")), "E10000F3", "[0] peer:A11"},
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
        EXPECT_EQ(context->SelectedMechListIndex, row.selected);
        EXPECT_TRUE(row.selected < 0 || context->SelectedMechInfoIndex == context.entry(2).MechIndex);
        for (OM_uint32 i = 0; i < context->NegMechList.Count; ++i)
            EXPECT_EQ(context.entry(i).IsMechStateChanged, OM_uint32{i >= 3}) << i;
    }
    Context context(kServer, "A"); // an element without children, for which any of the mechanism's own codes will do
    EXPECT_EQ(process(context, 2, tlv(0xA1, list(list("")) + goes_on)).substr(0, 12), "000D0000/E30");
    Context client(kClient, "A"), server(kServer, "A"); // the policy flag is read once
    for (const OM_uint32 flag : {1U, 0U, 1U})
        EXPECT_EQ(process(client, 2, tlv(0xA1, told(2, number(3, flag)))), kDone);
    EXPECT_EQ(client.log(), "[0] peer:A11 [0p] policy-told peer:A11,A11");
    EXPECT_EQ(process(server, 1, tlv(0xA0, "")), "000D0000/E300041D");
    EXPECT_EQ(process(server, 1, tlv(0xA1, told(2))), "000D0000/E10000FB"); // of the other kind
    EXPECT_EQ(process(server, 1, tlv(0xA0, told(2, text(2, "a") + number(3, 1) + text(4, "u") + text(5, "p")))), kDone);
    EXPECT_EQ(server->IsSso, 1U);
    EXPECT_EQ(text_of(server->AuthenticationIdBuf) + text_of(server->UserNameBuf) + text_of(server->ProfileNameBuf),
              "aup");
}

// OIDs of which many begin or end alike, in no order, each in a token of its own, and then all once more.
TEST_F(Engine, ManyMechanismsAreToldApart) {
    Context context(kServer, "AB");
    std::vector<std::string> oids;
    for (OM_uint32 i = 0; i < 300; ++i) {
        const OM_uint32 mixed = i * 7919 % 300;
        oids.push_back(std::string(1 + mixed % 3, '\x2B') + static_cast<char>(mixed / 3) + "\x01");
    }
    for (const OM_uint32 records : {600U, 900U}) {
        for (const std::string &each : oids)
            EXPECT_EQ(process(context, 2,
                              tlv(0xA1, list(tlv(0xA0, text(0, each) + number(1, 3) + number(2, 5))) + number(1, 2))),
                      kDone);
        EXPECT_EQ(context->NegLog.Count, records);
        ASSERT_EQ(context->NegMechList.Count, 302U);
        for (OM_uint32 i = 0; i < 300; ++i)
            EXPECT_EQ(support::bytes_of(*context.entry(i + 2).pMechOid), oids[i]) << i;
    }
}

// A context that is fed again after its completion failed, where A was told to be selected before it was established.
TEST_F(Engine, NoMechanismIsCompleteThatIsNotEstablished) {
    for (const Side side : {kClient, kServer}) {
        scripted::script().legs = {5, 1, 1, 1};
        scripted::script().at('A', kServer).source = "anna";
        scripted::script().at('A', kServer).delegates = true;
        Session session("AB", "AB", "authcid=anna");
        Peer &peer = session.side(side);
        const Outcome first = session.client.call("");
        EXPECT_EQ((side == kClient ? first : peer.call(first.token)).statuses(), kGoesOn);
        const std::string next = text(6, side == kClient ? "A2" : "A3");
        for (const std::string &items : {list(mech('A', 2, 6, next)) + number(1, 1) + oid(2, 'B') + number(3, 1),
                                         list(mech('A', 1, 1)) + number(1, 1) + oid(2, 'A')}) {
            peer.flags = peer.lifetime = 7;
            EXPECT_EQ(peer.call(tlv(0xA1, items)).statuses(), failed("E3000411"));
            EXPECT_TRUE(peer.flags == 0 && peer.lifetime == 0 && peer.mech_type == pQxnegoMechOid);
            EXPECT_TRUE(peer.source == nullptr && peer.delegated == nullptr);
        }
        EXPECT_EQ(peer.entries(), "A26< B11+");
    }
}

TEST_F(Engine, TokensThatMustNotBeWritten) {
    // clang-format off
    const std::tuple<Side, OM_uint32, const char *, void (*)(NegContext_desc &)> rows[] = {
        {kClient, 3, "E300040B", [](auto &) {}},
        {kServer, 1, "E300040C", [](auto &) {}},
        {kClient, 1, "E300040C", [](auto &c) { c.TokenNum = 1; }},
        {kClient, 1, "E300040F", [](auto &c) { c.NegState = NEG_STATE_REJECT; }},
        {kServer, 2, "E300040F", [](auto &c) { c.NegState = NEG_STATE_INVALID; }},
        {kServer, 2, "E300040F", [](auto &c) { c.NegState = NEG_STATE_INVALID_LAST; }},
        {kClient, 1, "E300041C", [](auto &c) { c.NegState = NEG_STATE_REQUEST_MIC; }},
        {kClient, 1, "E300041C", [](auto &c) { c.AuthenticationIdBuf.length = 1; }},
        {kClient, 1, "E30003F3", [](auto &c) { c.IsSso = 1, c.AuthenticationIdBuf.value = std::malloc(1); }},
        {kServer, 2, "E30003F6", [](auto &c) { c.NegState = NEG_STATE_COMPLETED; }},
        {kServer, 2, "E30003F6", [](auto &c) { c.NegMechList.pNegMech[0].pMechOid = nullptr; }},
        {kServer, 2, "E30003F6", [](auto &c) { c.NegMechList.pNegMech[0].pMechOid = nullptr,
                                               c.SelectedMechListIndex = 0, c.NegState = NEG_STATE_COMPLETED; }},
        {kServer, 2, "E300041A", [](auto &c) { c.NegMechList.pNegMech[0].IsMechStateChanged = 0,
                                               c.NegMechList.pNegMech[0].MechState = NEG_MECH_STATE_REJECTED; }},
        {kServer, 2, "", [](auto &c) { c.NegStateFromPeer = NEG_STATE_REJECT; }},
        {kClient, 2, "", [](auto &c) { c.NegStateFromPeer = NEG_STATE_COMPLETED; }},
    };
    // clang-format on
    for (const auto &[side, type, minor, alter] : rows) {
        Context context(side, "A");
        alter(context.negotiation());
        const OM_uint32 changed = context.entry(0).IsMechStateChanged;
        qxgss_buffer_desc out{4, &context};
        EXPECT_EQ(outcome(QXNEGO_INT_ConstructOutputToken, type, context.get(), &out), failed(minor)) << side << minor;
        EXPECT_TRUE(out.length == 0 && out.value == nullptr);
        EXPECT_EQ(context.entry(0).IsMechStateChanged, changed);
    }
}

// ---- What no negotiation between two ends reaches ------------------------------------------------------------------

TEST_F(Engine, AContextNeedsAMechanismInUse) {
    Peer none(kClient, "ABC"); // with its list, in which all are
    for (const char *name : {"A", "B", "C"})
        registered(name).fUseMech = 0;
    EXPECT_EQ(none.call("").statuses(), kReject);
}

TEST_F(Engine, ThePolicyIsAppliedOnceAndLeavesWhatItAllows) {
    const std::tuple<std::string, std::string, const char *, const char *, const char *, const char *> rows[] = {
        {"nobody", "onlyb", "A32 B11", "E3000406", "A32 B35(00000000/21000064)",
         "[0] policy-no:B35(00000000/21000064) [0p] policy-set"},
        {"", "", "A11 B11", "", "A11 B11", "[0p] policy-nouser"},
        {{'\0', 'x'}, "onlya", "A11 B11", "E10000CB", "A11 B11", ""}, // no user name, so the lookup fails
    };
    for (const auto &[user, identity, before, minor, after, log] : rows) {
        Context context(kServer, "AB");
        context.set(before);
        set_text(context->UserNameBuf, user);
        set_text(context->AuthenticationIdBuf, identity);
        const auto applied = [&] { return outcome(QXNEGO_INT_Apply_Policy_Info, nullptr, context.get()); };
        EXPECT_EQ(applied(), failed(minor)) << user;
        EXPECT_EQ(applied(), failed(context->IsPolicyApplied != 0 ? "" : minor));
        EXPECT_EQ(context.entries(), after);
        EXPECT_EQ(context.log(), log);
    }
    for (const char *text : {"", "anna,bert", "@REALM"}) // of whom there could be one: users of one item
        EXPECT_EQ(QXNEGO_INT_get_principal(text, nullptr), QXNEGO_E_LOGON_PROPERTY) << text;
    EXPECT_EQ(QXNEGO_INT_get_principal("anna@REALM@@secret", nullptr), QXNEGO_E_SUCCESSFUL);
}

TEST_F(Engine, ARecordIsASnapshotAndLeavesNoTraceWhenItFails) {
    Context context(kClient, "A");
    qxgss_OID_desc nothing{3, nullptr};
    NegMechEntry_desc &entry = context.entry(0), unusable = entry;
    unusable.pMechOid = &nothing;
    unusable.MechState = NEG_MECH_STATE_SELECTED;
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, "failed", &unusable, context.get()), "000D0000/E30003F4");
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, nullptr, nullptr, context.get()), kDone);
    EXPECT_EQ(context->NegLog.pRecords[0].MechState, 0U);
    context->TokenNum = 3;
    context->IsPolicyApplied = 1;
    context.set("A11+");
    entry.IsStateFromPeer = 1;
    qxgss_buffer_desc texts[] = {{4, const_cast<char *>("what")}, {3, const_cast<char *>("why")}};
    for (qxgss_buffer_desc &each : texts) // the second takes the first one's place
        EXPECT_EQ(outcome(QXNEGO_INT_NegMechStateChange, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_GSSAPI_ERROR, 5U, 0U,
                          &each, &entry),
                  kDone);
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, nullptr, &entry, context.get()), kDone);
    EXPECT_LT(context->NegLog.pRecords[1].ElapsedTime, 10'000U);
    EXPECT_EQ(context.log(), "[0] QXNEGO_INT_NegLogEntry: ***WARNING*** No information provided for logging. [3p] "
                             "(null):A32+(00000005/00000000 why)");
    EXPECT_EQ(context.entries(), "A32+(00000005/00000000 why)"); // its own now, not the peer's
    EXPECT_NE(context->NegLog.pRecords[1].GssMinorStatusText.value, entry.GssMinorStatusText.value);
    EXPECT_EQ(outcome(QXNEGO_INT_ReleaseNegLog, context.get()), kDone);
    EXPECT_EQ(outcome(QXNEGO_INT_NegLogEntry, nullptr, &entry, context.get()), "020D0000/E300040A");
}

} // namespace
