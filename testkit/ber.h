// Elements of tokens, whatever one wants in them.
#ifndef QXNEGO_TESTKIT_BER_H
#define QXNEGO_TESTKIT_BER_H

#include <string>

namespace testkit {

// With the shortest length (X.690 10.1), of at most two octets.
inline std::string tlv(unsigned identifier, const std::string &contents) {
    std::string out(1, static_cast<char>(identifier));
    if (contents.size() > 255)
        out += {'\x82', static_cast<char>(contents.size() >> 8)};
    else if (contents.size() > 127)
        out += '\x81';
    return out + static_cast<char>(contents.size()) + contents;
}

} // namespace testkit

#endif
