// What a server's configuration decides for a user and an offer, without a client: QXNEGO itself decides, on a token
// made for the occasion, and each mechanism's own exchange is taken to succeed at once.
#ifndef QXNEGO_TOOLS_TOKEN_REHEARSAL_H
#define QXNEGO_TOOLS_TOKEN_REHEARSAL_H

#include <string>
#include <vector>

#include "tools/registry.h"
#include "tools/show/verdicts.h"

namespace tools {

struct Request {
    std::string user; // who authenticates
    std::string as;   // the user and the profile that are asked for, if any
    std::string profile;
    std::vector<std::string> offer; // names or dotted OIDs
};

struct Decision {
    std::string policy;            // that applies, as a sentence
    std::string selected;          // mechanism; empty when the server refuses
    std::string failure;           // the text of the refusal
    std::vector<Verdict> verdicts; // with their rules
};

// The registry is a server's. Its function tables are changed; it serves nothing else afterwards. Throws Failure
// (configuration) when QXNEGO is not in use, and (usage) for a mechanism that has no OID.
Decision rehearse(const Registry &registry, const Request &request);

} // namespace tools

#endif
