// Buffers: copied and released; what may hold a secret is wiped first.

#include <cstring>

#include "qxgss/internal.h"

using namespace qxgss;

OM_uint32 gssp_release_buffer(OM_uint32 *pMinorStatus, qxgss_buffer_t pBuffer) {
    if (pBuffer != nullptr) {
        std::free(pBuffer->value);
        *pBuffer = {};
    }
    return succeed(pMinorStatus);
}

OM_uint32 gssp_release_secure_buffer(OM_uint32 *pMinorStatus, qxgss_buffer_t pBuffer) {
    if (pBuffer != nullptr && present(*pBuffer))
        explicit_bzero(pBuffer->value, pBuffer->length);
    return gssp_release_buffer(pMinorStatus, pBuffer);
}

OM_uint32 gssp_duplicate_buffer(OM_uint32 *pMinorStatus, const qxgss_buffer_t pSource, qxgss_buffer_t pDestination) {
    if (pDestination == nullptr)
        return fail(pMinorStatus, QXGSS_E_BUFFER_NOT_DUPLICATED);
    *pDestination = {};
    if (pSource == nullptr)
        return fail(pMinorStatus, QXGSS_E_BUFFER_NOT_DUPLICATED);
    if (!present(*pSource))
        return succeed(pMinorStatus);
    Heap<unsigned char> copy = copy_bytes(pSource->value, pSource->length);
    if (copy == nullptr)
        return fail(pMinorStatus, GSSP_E_NO_MEMORY);
    *pDestination = {pSource->length, copy.release()};
    return succeed(pMinorStatus);
}
