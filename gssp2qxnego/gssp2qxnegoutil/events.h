// What goes into the log, and a change of state that is logged.
#ifndef QXNEGO_EVENTS_H
#define QXNEGO_EVENTS_H

#include <string_view>

#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

namespace qxnego {

// The text of an event: only a constant of ours makes one, so that its length is known when it is compiled.
class EventText {
  public:
    template <std::size_t Size> consteval EventText(const char (&text)[Size]) : text_(text, Size) {}
    std::string_view with_nul() const { return text_; }

  private:
    std::string_view text_;
};

// Appends a record; the entry may be null. A failure of the log stops nothing.
void log_event(EventText text, const NegMechEntry_desc *entry, NegContext_desc &negotiation);

// Sets an entry's state, for a reason of this side's own, and logs the event. The failure is that of
// QXNEGO_INT_NegMechStateChange; nothing is logged then.
Status change_state(NegMechEntry_desc &entry, NegMechState_et state, NegMechReason_et reason, EventText text,
                    NegContext_desc &negotiation, Status cause = {});

} // namespace qxnego

#endif
