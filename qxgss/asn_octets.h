// The identifier octet of a context-specific element and the first length octet (X.690 8.1.2.2 to 8.1.3.6), as the
// encoder writes and the decoder reads them. Never included from outside this folder.
#ifndef QXGSS_ASN_OCTETS_H
#define QXGSS_ASN_OCTETS_H

#include "qxgss/codes.h"
#include "qxgss/gsspasn.h"

namespace qxgss {

// The names of the C header.
static_assert(GSSPASN_E_SUCCESS == QXGSS_E_SUCCESS && GSSPASN_E_NO_MEMORY == QXGSS_E_NO_MEMORY &&
              GSSPASN_E_ARGUMENT == QXGSS_E_INVALID_ARGUMENT && GSSPASN_E_ENCODING == QXGSS_E_ASN_ENCODING &&
              GSSPASN_E_TAG_INVALID == QXGSS_E_ASN_TAG_INVALID && GSSPASN_E_STACK_FULL == QXGSS_E_ASN_STACK_FULL &&
              GSSPASN_E_TAG_MISMATCH == QXGSS_E_ASN_TAG_MISMATCH && GSSPASN_E_NO_HANDLE == QXGSS_E_ASN_NO_HANDLE &&
              GSSPASN_E_CLASS_INVALID == QXGSS_E_ASN_CLASS_INVALID &&
              GSSPASN_E_NOT_SEQUENCE == QXGSS_E_ASN_NOT_SEQUENCE && GSSPASN_E_NOT_ITEM == QXGSS_E_ASN_NOT_ITEM &&
              GSSPASN_E_TAG_NOT_FOUND == QXGSS_E_ASN_NO_TAG && GSSPASN_E_ITEM_TYPE == QXGSS_E_ASN_BAD_TYPES);

inline constexpr unsigned kClassMask = 0xC0;
inline constexpr unsigned kContextSpecific = 0x80;
inline constexpr unsigned kConstructed = 0x20;
inline constexpr unsigned kTagMask = 0x1F; // as a number: a longer form of identifier follows
inline constexpr unsigned kMaxTag = 30;
inline constexpr unsigned kLongLength = 0x80; // with the number of length octets that follow; 0 of them: indefinite

} // namespace qxgss

#endif
