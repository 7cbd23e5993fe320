// Files to dump, in any of the forms in which people pass them on.
#ifndef QXNEGO_TOOLS_TOKEN_FILE_H
#define QXNEGO_TOOLS_TOKEN_FILE_H

#include <string>

#include "tools/bytes.h"

namespace tools {

// The bytes in a file ("-": the standard input): hexadecimal digits with or without separators, base64 (RFC 4648 4),
// also at the end of a line of HTTP ("Authorization: Negotiate ...", RFC 4559), or the bytes themselves. Neither a
// token nor user properties are printable text alone: a file that is, but for a rendered log, is one of the first two.
// Throws Failure (usage) when it is neither, or cannot be read.
Bytes read_dumped_file(const std::string &path);

} // namespace tools

#endif
