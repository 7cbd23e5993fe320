// Text of others made safe to show: the one place where that is decided.
#ifndef COMMON_TEXT_H
#define COMMON_TEXT_H

#include <string>
#include <string_view>

namespace common {

// The text on one line, valid UTF-8 (RFC 3629) and safe for a terminal: every control character, every character that
// turns the direction of what follows, breaks the line or takes no room, and every byte that is part of no character is shown as
// \xNN, byte by byte.
std::string printable(std::string_view text);

// The same in quotation marks; a quotation mark or backslash inside has a backslash in front, so that nothing in the
// text can look like what stands behind it.
std::string quoted(std::string_view text);

} // namespace common

#endif
