// Byte strings of the command: the type, and the ways in which bytes are shown to people.
#ifndef QXNEGO_TOOLS_BYTES_H
#define QXNEGO_TOOLS_BYTES_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// Lower-case hexadecimal digits, two a byte, with the separator (if any) between bytes.
std::string hex(ByteView bytes, std::string_view separator = "");

// The text on one line, safe for a terminal: every control character, and every byte that is part of no UTF-8
// character, is shown as \xNN. Texts that a peer sent are only printed this way.
std::string printable(std::string_view text);

} // namespace tools

#endif
