// The identifier octet of a context-specific element and the first length octet (X.690 8.1.2.2 to 8.1.3.6), as the
// encoder writes and the decoder reads them. Never included from outside this folder.
#ifndef QXGSS_ASN_OCTETS_H
#define QXGSS_ASN_OCTETS_H

namespace qxgss {

inline constexpr unsigned kClassMask = 0xC0;
inline constexpr unsigned kContextSpecific = 0x80;
inline constexpr unsigned kConstructed = 0x20;
inline constexpr unsigned kTagMask = 0x1F; // as a number: a longer form of identifier follows
inline constexpr unsigned kMaxTag = 30;
inline constexpr unsigned kLongLength = 0x80; // with the number of length octets that follow; 0 of them: indefinite

} // namespace qxgss

#endif
