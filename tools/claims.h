// The names that a client claims in its first token, before anything is proved.
#ifndef QXNEGO_TOOLS_CLAIMS_H
#define QXNEGO_TOOLS_CLAIMS_H

#include <string>

#include "tools/bytes.h"

namespace tools {

struct Claims {
    std::string name; // whom QXNEGO looks the policy up for: who is asked for, else who logs on; may be empty
    Bytes nameless;   // the token with every name overwritten, so that no policy entry fits it
};

// Empty for a token that is malformed, or no client's first.
Claims read_claims(ByteView token);

} // namespace tools

#endif
