// QXNEGO_inquire_properties_for_user: built once for a completed negotiation and kept; every request gets a copy.
// Before completion every request builds afresh. What was kept is not given out once the negotiation's state has
// changed: the buffer is then empty.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

OM_uint32 QXNEGO_inquire_properties_for_user(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                             qxgss_buffer_t pUserPropBuffer) {
    if (pUserPropBuffer != nullptr)
        *pUserPropBuffer = {};
    if (pContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, QXNEGO_E_INACCESSIBLE);
    if (pUserPropBuffer == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    auto *context = static_cast<QxnegoSecCtx_int_t>(pContextHandle);
    const bool completed = context->NegCtx.NegState == NEG_STATE_COMPLETED;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    OM_uint32 major = GSS_S_COMPLETE;
    if (context->UserProperties.value == nullptr)
        major = QXNEGO_INT_FillUserProperties(&minor, context, completed ? &context->UserProperties : pUserPropBuffer);
    if (!failed(major) && completed)
        major = gssp_duplicate_buffer(&minor, &context->UserProperties, pUserPropBuffer);
    if (!failed(major))
        return succeed(pMinorStatus);
    *pUserPropBuffer = {};
    return report(pMinorStatus, major, minor);
}
