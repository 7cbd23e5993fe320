// What the module adds to QXNEGO's tokens on their way, and takes off again.
//
// The client's first token stands in the frame of RFC 2743 3.1, by which the acceptor's library finds the mechanism.
// Each side's first token may have one more element at its end, the offer to confirm: a reader of QXNEGO's tokens
// passes it over. After the last token of QXNEGO, and only between sides that have both made the offer, come tokens of
// the module itself, which begin with octets that none of QXNEGO's does.
#ifndef BRIDGE_GSSAPI_FRAMING_H
#define BRIDGE_GSSAPI_FRAMING_H

#include <optional>
#include <string>
#include <string_view>

namespace bridge {

std::string framed(std::string_view token);

// Throws Failure for a token that is in no frame of QXNEGO's.
std::string_view unframed(std::string_view token);

// The token with the offer in it: [30], an octet with its version. A token that is none comes back as it is.
std::string with_offer(std::string_view token);

// Takes the offer out of a token that is exactly what with_offer makes; whether it was in there.
bool take_offer(std::string &token);

// A token of the module itself: X.690 in DER, with a tag of the context.
enum class OwnToken : unsigned char {
    kConfirmation = 0x82, // a MIC over what this side has seen
    kEnd = 0x83           // why this side has given up, an octet
};
std::string own_token(OwnToken kind, std::string_view contents);

// The contents of a token of that kind; nothing for any other token.
std::optional<std::string_view> contents_of(OwnToken kind, std::string_view token);

} // namespace bridge

#endif
