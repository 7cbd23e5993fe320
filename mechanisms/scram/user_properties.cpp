// User properties: what the server application learns of the authenticated user, as tagged records.
#include "mechanisms/scram/scram.h"
#include "qxat/qxatldapauthorize.h"

namespace scram {

OM_uint32 inquire_properties_for_user(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                      qxgss_buffer_t pUserPropBuffer) {
    if (pUserPropBuffer == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *pUserPropBuffer = {};
    auto *const context = static_cast<Context *>(pContextHandle);
    if (context == nullptr || !context->is_established)
        return report(pMinorStatus, GSS_S_NO_CONTEXT, E_NO_CONTEXT);
    const common::Status status = common::ask<0>(qxat_describe_user, context->user.data(), context->user.size(),
                                                 &context->mechanism.oid, pUserPropBuffer);
    if (!status.failed())
        return succeed(pMinorStatus);
    return status.minor == QXAT_E_MALLOC ? fail(pMinorStatus, GSASL_MALLOC_ERROR)
                                         : report(pMinorStatus, GSS_S_FAILURE, E_PROPERTIES);
}

} // namespace scram
