// The framework's descriptors as bytes: views of them, and which of them say something.
#ifndef COMMON_BYTES_H
#define COMMON_BYTES_H

#include <cstring>
#include <string_view>

#include "qxgss/qxgss.h"

namespace common {

// A descriptor over bytes that are only read.
inline qxgss_buffer_desc view(std::string_view bytes) {
    return {bytes.size(), const_cast<char *>(bytes.data())};
}

// The bytes of a descriptor; none for a null one and for one without a value.
inline std::string_view bytes_of(const qxgss_buffer_desc *pBuffer) {
    return pBuffer == nullptr || pBuffer->value == nullptr
               ? std::string_view()
               : std::string_view(static_cast<const char *>(pBuffer->value), pBuffer->length);
}

inline std::string_view bytes_of(const qxgss_OID_desc *pOid) {
    return pOid == nullptr || pOid->elements == nullptr
               ? std::string_view()
               : std::string_view(static_cast<const char *>(pOid->elements), pOid->length);
}

// The text of a name; none for a null one and for one without elements.
inline std::string_view text_of(const qxgss_name_desc *pName) {
    return pName == nullptr || pName->Count == 0 || pName->pElements == nullptr ? std::string_view()
                                                                                : bytes_of(&pName->pElements[0].Name);
}

// A buffer counts as present when it has a length and a value; either alone is nothing to send or to read.
inline bool present(const qxgss_buffer_desc &buffer) {
    return buffer.length != 0 && buffer.value != nullptr;
}

// An OID that can be compared: it has bytes.
inline bool usable(const qxgss_OID_desc *pOid) {
    return pOid != nullptr && pOid->length != 0 && pOid->elements != nullptr;
}

// Of usable OIDs; lengths first, which tells most of them apart.
inline bool equal(const qxgss_OID_desc &a, const qxgss_OID_desc &b) {
    return a.length == b.length && std::memcmp(a.elements, b.elements, a.length) == 0;
}

} // namespace common

#endif
