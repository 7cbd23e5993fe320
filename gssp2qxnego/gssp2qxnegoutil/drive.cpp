// Driving the mechanisms underneath: one algorithm for both roles, which differ in the slot called and in three texts.
// A mechanism that fails is rejected with its own status and text, and the others go on.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"
#include "gssp2qxnego/gssp2qxnegoutil/reject.h"

using namespace qxnego;

namespace {

struct DriveTexts {
    const char *continued;
    const char *established;
    const char *failed;
};

constexpr DriveTexts kInitTexts = {
    "QXNEGO_INT_Mechs_Init_Contexts: Continue needed for mechanism to establish context",
    "QXNEGO_INT_Mechs_Init_Contexts: Mechanism established context",
    "QXNEGO_INT_Mechs_Init_Contexts: init_sec_context failed for mechanism",
};
constexpr DriveTexts kAcceptTexts = {
    "QXNEGO_INT_Mechs_Accept_Contexts: Continue needed for mechanism to establish context",
    "QXNEGO_INT_Mechs_Accept_Contexts: Mechanism established context",
    "QXNEGO_INT_Mechs_Accept_Contexts: accept_sec_context failed for mechanism",
};

// A failed context that the mechanism cannot delete is the one failure that ends the pass.
OM_uint32 delete_failed_context(OM_uint32 *pMinorStatus, NegMechEntry_desc &entry) {
    const auto remove = table_of(entry).ftn_gssp_delete_sec_context;
    if (entry.pMechContext == nullptr || remove == nullptr)
        return GSS_S_COMPLETE;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = remove(&minor, &entry.pMechContext, nullptr);
    if (failed(major))
        return report(pMinorStatus, major, minor);
    entry.pMechContext = nullptr;
    return GSS_S_COMPLETE;
}

// What a mechanism's call has come to: under way, established, or failed and then rejected.
OM_uint32 settle(OM_uint32 *pMinorStatus, const DriveTexts &texts, OM_uint32 major, OM_uint32 minor,
                 OM_uint32 &messageContext, NegMechEntry_desc &entry, NegContext_t context) {
    const char *text = texts.continued;
    if (failed(major)) {
        if (const OM_uint32 ended = delete_failed_context(pMinorStatus, entry); failed(ended))
            return ended;
        if (const OM_uint32 ended = reject_with_status(pMinorStatus, entry, major, minor, messageContext);
            failed(ended))
            return ended;
        text = texts.failed;
    } else if ((major & GSS_S_CONTINUE_NEEDED) == 0) {
        entry.IsCtxEstablished = 1;
        text = texts.established;
    }
    QXNEGO_INT_NegLogEntry(nullptr, text, &entry, context);
    return GSS_S_COMPLETE;
}

// Calls `operate(slot, entry, &minor)` for each entry that is neither rejected nor established.
template <auto Slot, typename Operate>
OM_uint32 drive(OM_uint32 *pMinorStatus, const DriveTexts &texts, NegContext_t pNegContext, Operate operate) {
    if (const OM_uint32 major = require_mechanisms(pMinorStatus, pNegContext); failed(major))
        return major;
    OM_uint32 messageContext = 0;
    const NegMechList_desc &list = pNegContext->NegMechList;
    for (OM_uint32 i = 0; i < list.Count; ++i) {
        NegMechEntry_desc &entry = list.pNegMech[i];
        if (entry.MechState == NEG_MECH_STATE_REJECTED || entry.IsCtxEstablished != 0)
            continue;
        OM_uint32 major = GSS_S_UNAVAILABLE;
        OM_uint32 minor = GSSP_E_FUNCTION_UNAVAILABLE;
        if (const auto slot = table_of(entry).*Slot; slot != nullptr) {
            discard(entry.OutputToken);
            minor = QXNEGO_E_SUCCESSFUL;
            major = operate(slot, entry, &minor);
        }
        major = settle(pMinorStatus, texts, major, minor, messageContext, entry, pNegContext);
        if (failed(major))
            return major;
    }
    return succeed(pMinorStatus);
}

// A result is asked of the mechanism when the caller wants it.
template <typename Wanted, typename Field> Field *if_wanted(Wanted *wanted, Field &field) {
    return wanted != nullptr ? &field : nullptr;
}

OM_uint32 hand_out_results(OM_uint32 *pMinorStatus, const NegContext_desc &context, qxgss_name_t *ppSrcName,
                           qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                           qxgss_cred_id_t *ppDelegatedCredHandle) {
    const NegMechEntry_t selected = selected_entry(context);
    if (selected == nullptr || selected->MechState != NEG_MECH_STATE_SELECTED)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NONE_SELECTED);
    if (ppSrcName != nullptr) {
        OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
        const OM_uint32 major = gssp_duplicate_name(&minor, selected->pSrcName, ppSrcName);
        if (failed(major))
            return report(pMinorStatus, major, minor);
    }
    set_if_given(ppActualMechType, selected->pMechType);
    set_if_given(pRetFlags, selected->RetFlags);
    set_if_given(pTimeRec, selected->TimeRec);
    if (ppDelegatedCredHandle != nullptr) {
        *ppDelegatedCredHandle = selected->pDelegatedCredHandle;
        selected->pDelegatedCredHandle = nullptr; // the caller's from here on
    }
    return succeed(pMinorStatus);
}

} // namespace

OM_uint32 QXNEGO_INT_Mechs_Init_Contexts(OM_uint32 *pMinorStatus, const qxgss_name_t pTargetName, OM_uint32 ReqFlags,
                                         OM_uint32 TimeReq, const qxgss_channel_bindings_t pInputChanBindings,
                                         qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                                         NegContext_t pNegContext) {
    return drive<&qxgss_ftn_table_desc::ftn_gssp_init_sec_context>(
        pMinorStatus, kInitTexts, pNegContext, [&](auto init, NegMechEntry_desc &entry, OM_uint32 *pMinor) {
            return init(pMinor, entry.pMechCredential, &entry.pMechContext, pTargetName, entry.pMechOid, ReqFlags,
                        TimeReq, pInputChanBindings, &entry.InputToken, if_wanted(ppActualMechType, entry.pMechType),
                        &entry.OutputToken, if_wanted(pRetFlags, entry.RetFlags), if_wanted(pTimeRec, entry.TimeRec));
        });
}

OM_uint32 QXNEGO_INT_Mechs_Accept_Contexts(OM_uint32 *pMinorStatus, const qxgss_channel_bindings_t pInputChanBindings,
                                           qxgss_name_t *ppSrcName, qxgss_OID *ppMechType, OM_uint32 *pRetFlags,
                                           OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle,
                                           NegContext_t pNegContext) {
    return drive<&qxgss_ftn_table_desc::ftn_gssp_accept_sec_context>(
        pMinorStatus, kAcceptTexts, pNegContext, [&](auto accept, NegMechEntry_desc &entry, OM_uint32 *pMinor) {
            return accept(pMinor, &entry.pMechContext, entry.pMechCredential, &entry.InputToken, pInputChanBindings,
                          if_wanted(ppSrcName, entry.pSrcName), if_wanted(ppMechType, entry.pMechType),
                          &entry.OutputToken, if_wanted(pRetFlags, entry.RetFlags), if_wanted(pTimeRec, entry.TimeRec),
                          if_wanted(ppDelegatedCredHandle, entry.pDelegatedCredHandle));
        });
}

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
    if (const OM_uint32 major = require_mechanisms(pMinorStatus, pNegCtx); failed(major))
        return major;

    switch (pNegCtx->NegState) {
    case NEG_STATE_INCOMPLETE:
        return report(pMinorStatus, GSS_S_CONTINUE_NEEDED, QXNEGO_E_CONTINUE_NEEDED);
    case NEG_STATE_REJECT:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    case NEG_STATE_REQUEST_MIC:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_STATE_UNSUPPORTED);
    case NEG_STATE_COMPLETED:
        return hand_out_results(pMinorStatus, *pNegCtx, ppSrcName, ppActualMechType, pRetFlags, pTimeRec,
                                ppDelegatedCredHandle);
    default:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    }
}
