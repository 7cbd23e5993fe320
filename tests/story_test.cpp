// The whole story of a negotiation as the server application gets it: the selected mechanism's records, the policy mark
// and the rendered log, against a golden text in which host, times and nothing else are replaced.
#include <gtest/gtest.h>

#include "qxgss/qxgss_records.h"
#include "tests/scenarios.h"

namespace {

using namespace harness;
using namespace std::string_literals;
using scripted::script;

constexpr const char kGolden[] = R"(
QXNEGO Negotiation Log


Package: QuorvGSS
Version: 16.00.00.01
Run on:  <host>
Run at:  <time>

Record 0: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_GetNegMechList: Mechanism is available for negotiation
   Mechanism:        A
   MechState:        Available
   MechReason:       Available
   IsCtxEstablished: FALSE
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 1: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_GetNegMechList: Mechanism is available for negotiation
   Mechanism:        B
   MechState:        Available
   MechReason:       Available
   IsCtxEstablished: FALSE
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 2: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_ProcessNegMech: Peer reporting Mech state
   Mechanism:        A
   MechState:        Available
   MechReason:       Available
   IsCtxEstablished: FALSE
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 3: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_ProcessNegMech: Peer reporting Mech state
   Mechanism:        B
   MechState:        Available
   MechReason:       Available
   IsCtxEstablished: FALSE
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 4: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_ProcessNegMech: Peer reports a mechanism not known locally
   Mechanism OID:    2b.06.01.04.01.81.fd.59.02.04
   MechState:        Available
   MechReason:       Available
   IsCtxEstablished: FALSE
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 5: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_ProcessNegMech: Reject peer mechanism because not available on local system
   Mechanism OID:    2b.06.01.04.01.81.fd.59.02.04
   MechState:        Rejected
   MechReason:       Not Available at Server
   IsCtxEstablished: FALSE
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 6: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not needed for NULL credential at Server
   IsPolicyApplied:  FALSE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 7: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (empty policy)
   IsPolicyApplied:  TRUE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 8: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_Mechs_Accept_Contexts: accept_sec_context failed for mechanism
   Mechanism:        A
   MechState:        Rejected
   MechReason:       GSSAPI Error
   GSS MajorStatus:  00070000
   GSS MinorStatus:  C5000007
   GSS MinorStatusText:  scripted failure
   IsCtxEstablished: FALSE
   IsPolicyApplied:  TRUE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 9: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_Mechs_Accept_Contexts: Mechanism established context
   Mechanism:        B
   MechState:        Available
   MechReason:       Available
   IsCtxEstablished: TRUE
   IsPolicyApplied:  TRUE
   NegState:         Incomplete
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

Record 10: QXNEGO_accept_sec_context call 1
   Text:             QXNEGO_INT_SelectMechanism: A mechanism has been selected
   Mechanism:        B
   MechState:        Selected
   MechReason:       Due to Rank
   IsCtxEstablished: TRUE
   IsPolicyApplied:  TRUE
   NegState:         Completed
   NegStateFromPeer: Incomplete
   Elapsed Time:     0 ms

)";

// What follows a label, up to the end of its line, wherever the label stands.
void replace_after(std::string &text, const std::string &label, const std::string &with) {
    for (std::size_t at = text.find(label); at != std::string::npos; at = text.find(label, at + 1))
        text.replace(at + label.size(), text.find('\n', at) - at - label.size(), with);
}

std::string without_times(std::string log) {
    replace_after(log, "Run on:  ", "<host>");
    replace_after(log, "Run at:  ", "<time>");
    replace_after(log, "Elapsed Time:     ", "0 ms");
    return log;
}

// The properties that the server's application gets, cut at the log's record.
struct Story {
    explicit Story(Session &session) {
        session.server.act();
        qxgss_buffer_desc buffer{};
        EXPECT_EQ(outcome(QXNEGO_inquire_properties_for_user, session.server.context, &buffer), "00000000/230003E8");
        const std::string_view all = text_of(buffer);
        const std::size_t at = all.find("\nQXNEGO Negotiation Log") - 6;
        records = all.substr(0, at);
        header = all.substr(at, 6);
        log = all.substr(at + 6, static_cast<unsigned char>(header[4]) + 256U * static_cast<unsigned char>(header[5]));
        EXPECT_EQ(header.substr(0, 2), "\x14\0"s);
        gssp_release_buffer(nullptr, &buffer);
    }
    std::string records, header, log;
};

class StoryTest : public testing::Test {
  protected:
    void SetUp() override {
        OM_uint32 major = 0;
        ASSERT_EQ(configure(&major, configuration()), "");
        scripted::reset();
        script().at('A', kServer).failing_call = 1;
    }
};

TEST_F(StoryTest, OfASelectedMechanism) {
    script().at('B', kServer).properties = {"\x09\0\x0c\0\x04\0anna\0\0", 12};
    Session session("ABD", "AB");
    session.client.log_on("authcid=anna password=secret");
    session.run();
    const Story story(session);
    EXPECT_EQ(story.records, "\x09\0\x0c\0\x04\0anna\0\0"s
                             "\x08\0\x10\0\x02\0\0\0\x01\0\0\0\0\0\0\0"s);
    EXPECT_EQ(without_times(story.log), kGolden);
}

TEST_F(StoryTest, OfAFailedNegotiation) {
    Session session("A", "A");
    session.client.log_on("authcid=anna password=secret");
    EXPECT_EQ(session.run(), "C cont token, S 000D0000/E3000406 kept");
    const Story story(session);
    EXPECT_EQ(story.records, "\x08\0\x10\0\x02\0\0\0\0\0\0\0\0\0\0\0"s);
    EXPECT_NE(story.log.find("   GSS MinorStatusText:  scripted failure\n"), std::string::npos);
    EXPECT_EQ(without_times(Story(session).log),
              without_times(story.log)); // built anew each time, from the same records
}

} // namespace
