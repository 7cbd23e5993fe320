// The result of an establishment call, and what a completed negotiation hands out.
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

namespace {

OM_uint32 hand_out(OM_uint32 *pMinorStatus, const NegContext_desc &negotiation, qxgss_name_t *ppSrcName,
                   qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                   qxgss_cred_id_t *ppDelegatedCredHandle) {
    const NegMechEntry_t selected = selected_entry(negotiation);
    if (selected == nullptr || selected->MechState != NEG_MECH_STATE_SELECTED)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NONE_SELECTED);
    if (ppSrcName != nullptr) {
        const Status copied = ask(gssp_duplicate_name, selected->pSrcName, ppSrcName);
        if (copied.failed())
            return report(pMinorStatus, copied);
    }
    set_if_given(ppActualMechType, selected->pMechType);
    set_if_given(pRetFlags, selected->RetFlags);
    set_if_given(pTimeRec, selected->TimeRec);
    if (ppDelegatedCredHandle != nullptr) // the caller's from here on
        *ppDelegatedCredHandle = std::exchange(selected->pDelegatedCredHandle, nullptr);
    return succeed(pMinorStatus);
}

} // namespace

OM_uint32 QXNEGO_INT_SetReturns(OM_uint32 *pMinorStatus, NegContext_t pNegCtx, qxgss_name_t *ppSrcName,
                                qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                                qxgss_cred_id_t *ppDelegatedCredHandle) {
    set_if_given(ppSrcName, qxgss_name_t{});
    set_if_given(ppActualMechType, pQxnegoMechOid);
    set_if_given(pRetFlags, OM_uint32{0});
    set_if_given(pTimeRec, OM_uint32{0});
    set_if_given(ppDelegatedCredHandle, qxgss_cred_id_t{});
    if (pNegCtx == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_MECHANISM);
    if (const Status required = require_mechanisms(pNegCtx); required.failed())
        return report(pMinorStatus, required);

    switch (pNegCtx->NegState) {
    case NEG_STATE_INCOMPLETE:
        return report(pMinorStatus, GSS_S_CONTINUE_NEEDED, QXNEGO_E_CONTINUE_NEEDED);
    case NEG_STATE_REJECT:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    case NEG_STATE_REQUEST_MIC:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_STATE_UNSUPPORTED);
    case NEG_STATE_COMPLETED:
        return hand_out(pMinorStatus, *pNegCtx, ppSrcName, ppActualMechType, pRetFlags, pTimeRec,
                        ppDelegatedCredHandle);
    default:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    }
}
