// Negotiation tokens in files, in any of the forms in which people pass them on.
#ifndef QXNEGO_TOOLS_TOKEN_FILE_H
#define QXNEGO_TOOLS_TOKEN_FILE_H

#include <string>

#include "tools/bytes.h"

namespace tools {

// The token in a file ("-": the standard input): hexadecimal digits with or without separators, base64 (RFC 4648 4), or
// the bytes themselves. A token begins with a byte beyond ASCII, so a file of printable text alone is one of the first
// two. Throws Failure (usage) when it is neither, or cannot be read.
Bytes read_token_file(const std::string &path);

} // namespace tools

#endif
