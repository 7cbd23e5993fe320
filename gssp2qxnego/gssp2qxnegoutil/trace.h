// What a negotiation decides, line by line as it decides it, for whoever runs a program: QXNEGO_TRACE=FILE or "stderr".
// The program does not notice: whatever hinders a line costs that line and nothing else.
#ifndef QXNEGO_TRACE_H
#define QXNEGO_TRACE_H

#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

namespace qxnego {

// Bytes of a line at most, which a pipe takes whole or not at all (PIPE_BUF).
inline constexpr std::size_t kTraceLine = 4096;

// Set when the library is loaded; never in a set-uid program (secure_getenv).
[[gnu::visibility("hidden")]] extern const bool is_tracing;

// Writes the line of a record, or of what an establishment call gives, with one write(2); numbers the negotiation at
// its first.
void trace(const NegLogRecord &record, NegContext_desc &negotiation);
void trace(Status outcome, NegContext_desc &negotiation);

// The line in the area of kTraceLine bytes, and its length. It ends with a line end and holds no other; whatever a peer
// or a mechanism wrote is in it as printable ASCII, in quotation marks, \xNN for other bytes.
std::size_t write_trace_line(char *area, const NegLogRecord &record, const NegContext_desc &negotiation);

} // namespace qxnego

#endif
