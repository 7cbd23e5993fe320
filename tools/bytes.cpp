// How bytes are shown: hexadecimal, and text that cannot harm a terminal.
#include "tools/bytes.h"

#include <algorithm>

namespace tools {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

void append_hex(std::string &out, unsigned char byte) {
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
}

bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Bytes of the UTF-8 character (RFC 3629) at the start of the text; 0 when there is none, or a control character.
std::size_t character_length(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (at(0) < 0x80)
        return at(0) >= 0x20 && at(0) != 0x7F ? 1 : 0;
    const std::size_t length = at(0) >= 0xF0 ? 4 : at(0) >= 0xE0 ? 3 : 2;
    if (at(0) < 0xC2 || at(0) > 0xF4 || text.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if (!is_continuation(at(i)))
            return 0;
    const bool is_c1_control = at(0) == 0xC2 && at(1) < 0xA0;
    const bool is_overlong = (at(0) == 0xE0 && at(1) < 0xA0) || (at(0) == 0xF0 && at(1) < 0x90);
    return is_c1_control || is_overlong ? 0 : length;
}

} // namespace

std::string hex(ByteView bytes, std::string_view separator) {
    std::string out;
    for (unsigned char byte : bytes) {
        if (!out.empty())
            out += separator;
        append_hex(out, byte);
    }
    return out;
}

std::string printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        if (length != 0) {
            out += text.substr(0, length);
        } else {
            out += "\\x";
            append_hex(out, static_cast<unsigned char>(text.front()));
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

} // namespace tools
