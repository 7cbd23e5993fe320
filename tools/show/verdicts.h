// What became of each mechanism, as each side saw it, and the table that both views make.
#ifndef QXNEGO_TOOLS_SHOW_VERDICTS_H
#define QXNEGO_TOOLS_SHOW_VERDICTS_H

#include <ostream>
#include <string>
#include <vector>

#include "session/qxgss_session.h"

namespace tools {

// A mechanism's last state at one side; state 0 when that side never heard of it, or its view is not known.
struct View {
    OM_uint32 state = 0;
    OM_uint32 reason = 0;
    std::string status_text;
    bool is_adopted = false; // taken from what the other side said
};

struct Verdict {
    std::string mechanism;
    View client{}, server{};
    qxgss_session_verdict_et verdict = QXGSS_SESSION_VERDICT_UNDECIDED;
    OM_uint32 reason = 0;
    std::string status_text{};
    std::string rule{}; // that decided; only where it is known
};

// Of a session; and of the client's own views and the server's, whatever each took the other's for.
std::vector<Verdict> verdicts_of(qxgss_session_t session);
std::vector<Verdict> join(const std::vector<Verdict> &client, const std::vector<Verdict> &server);

const char *verdict_word(qxgss_session_verdict_et verdict); // "selected", "rejected", "undecided"
std::string state_word(const View &view);                   // "-" for none
std::string server_word(const View &view);                  // "as client" for a rejection that is only the client's
std::string reason_word(const Verdict &verdict);

// At most kMostVerdicts rows; a line, or a number, says how many were left out.
inline constexpr std::size_t kMostVerdicts = 100;
void print_verdicts(std::ostream &out, const std::vector<Verdict> &verdicts, const char *last_column = "status text",
                    std::string Verdict::*last = &Verdict::status_text);

} // namespace tools

#endif
