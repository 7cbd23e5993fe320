// How every entry point reports: through these, so that the text of a failure can be told afterwards.
#ifndef HOSTGSS_STATUS_H
#define HOSTGSS_STATUS_H

#include <type_traits>

#include "mechanisms/hostgss/host.h"
#include "qxgss/gssp.h"

namespace hostgss {

inline constexpr OM_uint32 kInaccessibleRead = GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE;
inline constexpr OM_uint32 kInaccessibleWrite = GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE;

// A failure of our own.
constexpr Status refusal(OM_uint32 major, const char *text) {
    return {major, GSSP_E_INVALID_ARGUMENT, text};
}

// The outcome of a call; a failure is remembered for display_status.
OM_uint32 finish(OM_uint32 *pMinorStatus, Status status);

inline OM_uint32 refuse(OM_uint32 *pMinorStatus, OM_uint32 major, const char *text) {
    return finish(pMinorStatus, refusal(major, text));
}

inline OM_uint32 no_memory(OM_uint32 *pMinorStatus) {
    return finish(pMinorStatus, kOutOfMemory);
}

template <typename T> void set(T *pOutput, std::type_identity_t<T> value) {
    if (pOutput != nullptr)
        *pOutput = value;
}

inline Bytes view(const qxgss_buffer_desc *pBuffer) {
    return pBuffer == nullptr || pBuffer->value == nullptr
               ? Bytes{}
               : Bytes{static_cast<const char *>(pBuffer->value), pBuffer->length};
}

inline Bytes view(const qxgss_OID_desc *pOid) {
    return pOid == nullptr || pOid->elements == nullptr
               ? Bytes{}
               : Bytes{static_cast<const char *>(pOid->elements), pOid->length};
}

// Hands a block to the caller, who frees it.
inline void give(Block &block, qxgss_buffer_t pOutput) {
    pOutput->length = block.length();
    pOutput->value = block.release();
}

} // namespace hostgss

#endif
