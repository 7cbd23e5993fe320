#include "tools/bytes.h"

namespace tools {

std::string hex(ByteView bytes, std::string_view separator) {
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

} // namespace tools
