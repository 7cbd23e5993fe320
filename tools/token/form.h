// Negotiation tokens, read with the framework's own decoder.
#ifndef QXNEGO_TOOLS_TOKEN_FORM_H
#define QXNEGO_TOOLS_TOKEN_FORM_H

#include <string>

#include "tools/bytes.h"

namespace tools {

// The outer form of a token, "INIT" or "RESP"; "malformed" when it is neither or breaks the encoding rules.
std::string outer_form(ByteView token);

} // namespace tools

#endif
