// Tokens that are none of QXNEGO's, and that people hand to it nevertheless: raw NTLMSSP messages, Kerberos and other
// tokens in the framing of RFC 2743 3.1, and those of RFC 4178.
#ifndef QXNEGO_TOOLS_TOKEN_FOREIGN_H
#define QXNEGO_TOOLS_TOKEN_FOREIGN_H

#include <optional>
#include <string>
#include <vector>

#include "tools/bytes.h"

namespace tools {

struct Foreign {
    struct Field {
        std::string name, value; // safe to show; those of a token inside begin with blanks
    };
    std::string kind;
    std::vector<Field> fields; // what can be told without keys; nothing that may be secret
};

// Nothing for any other token. Lengths that lead out of the token are passed over.
std::optional<Foreign> read_foreign(ByteView token);

} // namespace tools

#endif
