// Elements of tokens, whatever one wants in them.
#ifndef QXNEGO_TESTKIT_BER_H
#define QXNEGO_TESTKIT_BER_H

#include <string>

namespace testkit {

// How an element says where it ends (X.690 8.1.3): the one form of DER, and what BER has besides. Only constructed
// elements have an indefinite form; the longest has all 126 octets of a length.
enum class Form { kShortest, kIndefinite, kLongest };

inline std::string tlv(unsigned identifier, const std::string &contents, Form form = Form::kShortest) {
    const std::string begin(1, static_cast<char>(identifier));
    if (form == Form::kIndefinite && (identifier & 0x20) != 0)
        return begin + '\x80' + contents + std::string(2, '\0');
    std::string length;
    for (std::size_t left = contents.size(); left != 0; left >>= 8)
        length.insert(length.begin(), static_cast<char>(left));
    if (form == Form::kLongest)
        length.insert(0, 126 - length.size(), '\0');
    else if (contents.size() < 0x80)
        return begin + static_cast<char>(contents.size()) + contents;
    return begin + static_cast<char>(0x80 | length.size()) + length + contents;
}

} // namespace testkit

#endif
