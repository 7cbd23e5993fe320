// Every decision of any program that negotiates, told as it is made, without a line of code: one line each, to where
// the variable QXNEGO_TRACE says (qxnego(1)). Nothing of it can block or end the program; what cannot be written is
// lost.
#ifndef QXNEGO_TRACE_H
#define QXNEGO_TRACE_H

#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

namespace qxnego {

// Read once, when the library is loaded. Whoever traces asks it first.
extern const bool is_tracing;

void trace_record(const NegLogRecord &record, NegLog_desc &log);

// What an establishment call gives.
void trace_outcome(Status outcome, NegContext_desc &negotiation);

} // namespace qxnego

#endif
