// What an inner token is, told from its first bytes.
#ifndef QXNEGO_TOOLS_TOKEN_INNER_H
#define QXNEGO_TOOLS_TOKEN_INNER_H

#include <string>

#include "tools/bytes.h"

namespace tools {

// For example "Kerberos AP-REQ", "NTLMSSP NEGOTIATE" or "SCRAM client-first"; "of unknown kind" for anything else.
std::string kind_of_inner_token(ByteView token);

} // namespace tools

#endif
