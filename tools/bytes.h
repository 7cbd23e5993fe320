// Byte strings of the command, and hexadecimal.
#ifndef QXNEGO_TOOLS_BYTES_H
#define QXNEGO_TOOLS_BYTES_H

#include <charconv>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/text.h"

namespace tools {

using common::printable; // texts that a peer sent are only printed this way
using common::quoted;

// A text of a peer's among other things.
inline std::string shortened(std::string_view text) {
    return printable(text, common::kMostOfText);
}

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

inline std::string_view as_text(ByteView bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

inline ByteView as_bytes(std::string_view text) {
    return {reinterpret_cast<const unsigned char *>(text.data()), text.size()};
}

// Lower-case hexadecimal digits, two a byte, with the separator (if any) between bytes.
inline std::string hex(ByteView bytes, std::string_view separator = "") {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const unsigned char byte : bytes) {
        if (!out.empty())
            out += separator;
        out += kDigits[byte >> 4];
        out += kDigits[byte & 15];
    }
    return out;
}

// The bytes of so many pairs of hexadecimal digits; nothing for any other text.
inline std::optional<Bytes> from_hex(std::string_view digits) {
    Bytes out(digits.size() / 2);
    for (std::size_t i = 0; i != out.size(); ++i) {
        const char *pair = digits.data() + 2 * i;
        if (std::from_chars(pair, pair + 2, out[i], 16).ptr != pair + 2)
            return std::nullopt;
    }
    return digits.size() % 2 == 0 ? std::optional(out) : std::nullopt;
}

inline std::string without(std::string_view text, std::string_view characters) {
    std::string out(text);
    std::erase_if(out, [&](char c) { return characters.find(c) != characters.npos; });
    return out;
}

} // namespace tools

#endif
