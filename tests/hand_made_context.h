// A context made by hand, in a state that a test writes down, for tests of single operations.
#ifndef QXNEGO_HAND_MADE_CONTEXT_H
#define QXNEGO_HAND_MADE_CONTEXT_H

#include <sstream>

#include "tests/negotiation_harness.h"

namespace harness {

inline void set_text(qxgss_buffer_desc &buffer, const std::string &text) {
    qxgss_buffer_desc source = support::view(text);
    gssp_release_buffer(nullptr, &buffer);
    gssp_duplicate_buffer(nullptr, &source, &buffer);
}

// The outcome of a failure with that minor status; of success when there is none.
inline std::string failed(const std::string &minor) {
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

} // namespace harness

#endif
