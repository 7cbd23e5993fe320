// What became of each mechanism, as each side saw it, and the table that both views make.
//
// The views come from the sides' negotiation logs: every change of a mechanism's state is logged, also those of a call
// that failed and so sent no token, and the log names states and reasons in the mechanism's own words.
#ifndef QXNEGO_TOOLS_VERDICTS_H
#define QXNEGO_TOOLS_VERDICTS_H

#include "tools/negotiation_log.h"

namespace tools {

// A mechanism's last state at one side.
struct View {
    std::string mechanism;
    std::string state;
    std::string reason;
    std::string status_text;
};

// One view a mechanism, in the order in which the log first names them.
std::vector<View> views_of(const std::vector<LogRecord> &log);

struct Verdict {
    std::string mechanism;
    std::string client; // state there; "-" when that side never heard of it
    std::string server;
    std::string verdict; // "selected" by both; "rejected" by either; else "undecided"
    std::string reason; // of the side that lacks the mechanism, or else of the one that rejected it: of two, the server
    std::string status_text;
};

std::vector<Verdict> join(const std::vector<View> &client, const std::vector<View> &server);

void print_verdicts(std::ostream &out, const std::vector<Verdict> &verdicts);
void print_views(std::ostream &out, const std::vector<View> &views);

} // namespace tools

#endif
