// Byte strings of the command, and hexadecimal.
#ifndef QXNEGO_TOOLS_BYTES_H
#define QXNEGO_TOOLS_BYTES_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace tools {

using common::printable; // texts that a peer sent are only printed this way
using common::quoted;

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

inline ByteView as_bytes(std::string_view text) {
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size()};
}

// Lower-case hexadecimal digits, two a byte, with the separator (if any) between bytes.
std::string hex(ByteView bytes, std::string_view separator = "");

} // namespace tools

#endif
