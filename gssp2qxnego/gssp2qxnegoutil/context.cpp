// The security context's beginning and end. A context that could not be made whole is not left behind.
#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

using namespace qxnego;

OM_uint32 QXNEGO_INT_InitializeContext(OM_uint32 *pMinorStatus, OM_uint32 IsInitiator,
                                       QxnegoSecCtx_int_t *ppQxnegoSecCtx) {
    if (ppQxnegoSecCtx == nullptr)
        return report(pMinorStatus, kNoContextToWrite, QXNEGO_E_NO_CONTEXT);
    if (*ppQxnegoSecCtx != nullptr)
        return succeed(pMinorStatus);

    auto context = zeroed<QxnegoSecCtxDescStruct>();
    if (context == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    NegContext_desc &negotiation = context->NegCtx;
    negotiation.IsInitiator = IsInitiator;
    negotiation.NegState = NEG_STATE_INCOMPLETE;
    negotiation.NegStateFromPeer = NEG_STATE_INCOMPLETE;
    negotiation.SelectedMechInfoIndex = -1;
    negotiation.SelectedMechListIndex = -1;

    // The log comes first: the mechanisms available are its first records.
    Status status = ask(QXNEGO_INT_InitNegLog, &negotiation);
    if (!status.failed())
        status = ask(QXNEGO_INT_GetNegMechList, &QxnegoMechList, &negotiation.NegMechList, &negotiation);
    if (status.failed()) {
        QXNEGO_INT_ReleaseNegContext(nullptr, &negotiation);
        return report(pMinorStatus, status);
    }
    *ppQxnegoSecCtx = context.release();
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_ReleaseNegContext(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NEG_CONTEXT);
    discard(pNegContext->AuthenticationIdBuf);
    discard(pNegContext->UserNameBuf);
    discard(pNegContext->ProfileNameBuf);
    std::free(pNegContext->MechOrder.pPlaces);
    pNegContext->MechOrder = {};

    LastFailure result(QXNEGO_E_SUCCESSFUL);
    result.note(ask(QXNEGO_INT_ReleaseNegMechList, &pNegContext->NegMechList));
    result.note(ask(QXNEGO_INT_ReleaseNegLog, pNegContext));
    return report(pMinorStatus, result.get());
}
