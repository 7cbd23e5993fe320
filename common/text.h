// Text of others made safe to show: the one place where that is decided.
#ifndef COMMON_TEXT_H
#define COMMON_TEXT_H

#include <limits>
#include <string>
#include <string_view>

namespace common {

// The text on one line, valid UTF-8 (RFC 3629) and safe for a terminal: every control character, every character that
// turns the direction of what follows, breaks the line or takes no room, and every byte that is part of no character is
// shown as \xNN, byte by byte. What would take more than `most` bytes is left out, and "..." says so.
std::string printable(std::string_view text, std::size_t most = std::numeric_limits<std::size_t>::max());

// Bytes of a text of somebody else's that are shown among other things: of a name, and of a whole failure line.
inline constexpr std::size_t kMostOfText = 256;
inline constexpr std::size_t kMostOfLine = 1024;

// At most kMostOfText bytes of it in quotation marks; a quotation mark or backslash inside has a backslash in front, so
// that nothing in the text can look like what stands behind it.
std::string quoted(std::string_view text);

} // namespace common

#endif
