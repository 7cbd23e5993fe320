// QXNEGO_inquire_properties_for_user: built once for a completed negotiation and kept; every request gets a copy.
// Before completion every request builds afresh. What was kept is not given out once the negotiation's state has
// changed: the buffer is then empty.
#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

using namespace qxnego;

OM_uint32 QXNEGO_inquire_properties_for_user(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                             qxgss_buffer_t pUserPropBuffer) {
    if (pUserPropBuffer != nullptr)
        *pUserPropBuffer = {};
    if (pContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_INACCESSIBLE);
    if (pUserPropBuffer == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    auto *context = static_cast<QxnegoSecCtx_int_t>(pContextHandle);
    const bool is_completed = context->NegCtx.NegState == NEG_STATE_COMPLETED;
    Status status = kSuccess;
    if (context->UserProperties.value == nullptr)
        status = ask(QXNEGO_INT_FillUserProperties, context, is_completed ? &context->UserProperties : pUserPropBuffer);
    if (!status.failed() && is_completed)
        status = ask(gssp_duplicate_buffer, &context->UserProperties, pUserPropBuffer);
    if (!status.failed())
        return succeed(pMinorStatus);
    *pUserPropBuffer = {};
    return report(pMinorStatus, status);
}
