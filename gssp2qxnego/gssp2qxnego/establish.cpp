// Establishing, inspecting and deleting a context. Each establishment call runs a fixed sequence of steps and ends with
// the status of the first that fails; what earlier steps did stays, and the context stays with the caller.
//
//     client                                                    server
//     init: credentials, identity, drive, select
//           ── INIT: every mechanism, its inner token, who ──▶  accept: reconcile, credentials, policy, drive, select
//                                                                       (selects the first available one established)
//     init: reconcile, drive, select  ◀── RESP: changes, state, selected mechanism, policy applied ──
//           ── RESP ──▶  ... until each side has returned GSS_S_COMPLETE
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

// A later call of either side: counts it and reads the peer's token.
OM_uint32 continue_with(OM_uint32 *pMinorStatus, const qxgss_buffer_t pInputToken, NegContext_desc &negotiation) {
    ++negotiation.TokenNum;
    return QXNEGO_INT_ProcessInputToken(pMinorStatus, NEG_MECH_TOKENTYPE_RESP, pInputToken, &negotiation);
}

// The caller's results, as QXNEGO_INT_SetReturns takes them.
struct Results {
    qxgss_name_t *ppSrcName;
    qxgss_OID *ppMechType;
    OM_uint32 *pRetFlags;
    OM_uint32 *pTimeRec;
    qxgss_cred_id_t *ppDelegatedCredHandle;

    // None for a selected mechanism that is not established here: a peer can name one in a token for a context that is
    // complete already.
    OM_uint32 set(OM_uint32 *pMinorStatus, NegContext_desc &negotiation) const {
        const NegMechEntry_t entry = selected_entry(negotiation);
        if (negotiation.NegState == NEG_STATE_COMPLETED && entry != nullptr && entry->IsCtxEstablished != 1) {
            put(nullptr, nullptr);
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NONE_SELECTED);
        }
        return put(pMinorStatus, &negotiation);
    }

  private:
    // Without a negotiation they are cleared.
    OM_uint32 put(OM_uint32 *pMinorStatus, NegContext_t pNegotiation) const {
        return QXNEGO_INT_SetReturns(pMinorStatus, pNegotiation, ppSrcName, ppMechType, pRetFlags, pTimeRec,
                                     ppDelegatedCredHandle);
    }
};

// Whether these results are those of a negotiation that is not over.
bool goes_on(OM_uint32 major, OM_uint32 minor) {
    return major == GSS_S_CONTINUE_NEEDED || minor == QXNEGO_E_CONTINUE_NEEDED;
}

// The end of every call that goes on: select, write the token, set the results.
OM_uint32 conclude(OM_uint32 *pMinorStatus, OM_uint32 TokenType, qxgss_buffer_t pOutputToken, const Results &results,
                   NegContext_desc &negotiation) {
    OM_uint32 major = QXNEGO_INT_SelectMechanism(pMinorStatus, &negotiation);
    if (!failed(major))
        major = QXNEGO_INT_ConstructOutputToken(pMinorStatus, TokenType, &negotiation, pOutputToken);
    if (failed(major))
        return major;
    major = results.set(pMinorStatus, negotiation);
    if (failed(major)) // the peer is not told of a completion that this side has not reported
        gssp_release_buffer(nullptr, pOutputToken);
    return major;
}

// The checks with which both establishment calls begin.
OM_uint32 check_handles(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t *ppContextHandle, qxgss_OID *ppMechType,
                        const qxgss_buffer_desc *pOutputToken) {
    if (ppMechType != nullptr)
        *ppMechType = pQxnegoMechOid;
    if (ppContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CONTEXT, QXNEGO_E_NO_CONTEXT);
    if (pOutputToken == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_BUFFER);
    return GSS_S_COMPLETE;
}

// Makes the context of a first call; it is in the caller's handle before anything else can fail.
OM_uint32 create(OM_uint32 *pMinorStatus, OM_uint32 isInitiator, qxgss_ctx_id_t *ppContextHandle) {
    QxnegoSecCtx_int_t context = nullptr;
    const OM_uint32 major = QXNEGO_INT_InitializeContext(pMinorStatus, isInitiator, &context);
    *ppContextHandle = context;
    return major;
}

OM_uint32 begin_initiator(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pCredHandle, qxgss_ctx_id_t *ppContextHandle) {
    OM_uint32 major = create(pMinorStatus, 1, ppContextHandle);
    if (failed(major))
        return major;
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    const auto credential = static_cast<QxnegoCred_t>(pCredHandle);
    major = QXNEGO_INT_Mechs_Acquire_Creds(pMinorStatus, credential, &negotiation);
    if (!failed(major))
        major = QXNEGO_INT_SetAuthInfo(pMinorStatus, credential, &negotiation);
    return major;
}

OM_uint32 begin_acceptor(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pCredHandle, const qxgss_buffer_t pInputToken,
                         qxgss_ctx_id_t *ppContextHandle) {
    OM_uint32 major = create(pMinorStatus, 0, ppContextHandle);
    if (failed(major))
        return major;
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    major = QXNEGO_INT_ProcessInputToken(pMinorStatus, NEG_MECH_TOKENTYPE_INIT, pInputToken, &negotiation);
    if (!failed(major))
        major = QXNEGO_INT_Mechs_Acquire_Creds(pMinorStatus, static_cast<QxnegoCred_t>(pCredHandle), &negotiation);
    return major;
}

OM_uint32 apply_rules(OM_uint32 *pMinorStatus, NegContext_desc &negotiation) {
    const OM_uint32 major = QXNEGO_INT_Apply_Policy_Info(pMinorStatus, nullptr, &negotiation);
    return failed(major) ? major : QXNEGO_INT_Apply_Authorization_Rules(pMinorStatus, &negotiation);
}

} // namespace

OM_uint32 QXNEGO_init_sec_context(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pInitiatorCredHandle,
                                  qxgss_ctx_id_t *ppContextHandle, const qxgss_name_t pTargetName,
                                  const qxgss_OID /*pMechType*/, OM_uint32 ReqFlags, OM_uint32 TimeReq,
                                  const qxgss_channel_bindings_t pInputChanBindings, const qxgss_buffer_t pInputToken,
                                  qxgss_OID *ppActualMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                  OM_uint32 *pTimeRec) {
    if (const OM_uint32 major = check_handles(pMinorStatus, ppContextHandle, ppActualMechType, pOutputToken);
        failed(major))
        return major;
    const Results results = {nullptr, ppActualMechType, pRetFlags, pTimeRec, nullptr};
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const bool first = *ppContextHandle == nullptr;
    OM_uint32 major = first ? begin_initiator(&minor, pInitiatorCredHandle, ppContextHandle)
                            : continue_with(&minor, pInputToken, negotiation_of(*ppContextHandle));
    if (failed(major))
        return report(pMinorStatus, major, minor);
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    if (!first) {
        major = results.set(&minor, negotiation);
        if (!goes_on(major, minor))
            return report(pMinorStatus, major, minor);
    }
    major = QXNEGO_INT_Mechs_Init_Contexts(&minor, pTargetName, ReqFlags, TimeReq, pInputChanBindings, ppActualMechType,
                                           pRetFlags, pTimeRec, &negotiation);
    if (!failed(major))
        major = conclude(&minor, first ? NEG_MECH_TOKENTYPE_INIT : NEG_MECH_TOKENTYPE_RESP, pOutputToken, results,
                         negotiation);
    return report(pMinorStatus, major, minor);
}

OM_uint32 QXNEGO_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                    const qxgss_cred_id_t pAcceptorCredHandle, const qxgss_buffer_t pInputToken,
                                    const qxgss_channel_bindings_t pInputChanBindings, qxgss_name_t *ppSrcName,
                                    qxgss_OID *ppMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                    OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle) {
    if (const OM_uint32 major = check_handles(pMinorStatus, ppContextHandle, ppMechType, pOutputToken); failed(major))
        return major;
    const Results results = {ppSrcName, ppMechType, pRetFlags, pTimeRec, ppDelegatedCredHandle};
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    OM_uint32 major = *ppContextHandle == nullptr
                          ? begin_acceptor(&minor, pAcceptorCredHandle, pInputToken, ppContextHandle)
                          : continue_with(&minor, pInputToken, negotiation_of(*ppContextHandle));
    if (failed(major))
        return report(pMinorStatus, major, minor);
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    major = apply_rules(&minor, negotiation);
    if (failed(major))
        return report(pMinorStatus, major, minor);
    major = results.set(&minor, negotiation);
    if (!goes_on(major, minor))
        return report(pMinorStatus, major, minor);
    major = QXNEGO_INT_Mechs_Accept_Contexts(&minor, pInputChanBindings, ppSrcName, ppMechType, pRetFlags, pTimeRec,
                                             ppDelegatedCredHandle, &negotiation);
    if (!failed(major))
        major = conclude(&minor, NEG_MECH_TOKENTYPE_RESP, pOutputToken, results, negotiation);
    return report(pMinorStatus, major, minor);
}

OM_uint32 QXNEGO_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                    qxgss_buffer_t pOutputToken) {
    if (ppContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CONTEXT, QXNEGO_E_NO_CONTEXT);
    if (*ppContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, QXNEGO_E_NO_CONTEXT);
    const Heap<QxnegoSecCtxDescStruct> context(static_cast<QxnegoSecCtx_int_t>(*ppContextHandle));

    LastFailure result;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    OM_uint32 major = QXNEGO_INT_ReleaseNegContext(&minor, &context->NegCtx);
    result.note(major, minor);
    if (context->UserProperties.value != nullptr) {
        major = gssp_release_secure_buffer(&minor, &context->UserProperties);
        result.note(major, minor);
    }
    if (pOutputToken != nullptr)
        *pOutputToken = {};
    *ppContextHandle = nullptr;
    return result.report(pMinorStatus);
}

OM_uint32 QXNEGO_inquire_context(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                 qxgss_name_t *ppSourceName, qxgss_name_t *ppTargetName, OM_uint32 *pLifetimeRec,
                                 qxgss_OID *ppMechType, OM_uint32 *pCtxFlags, int *pLocallyInitiated, int *pOpen) {
    if (pContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    if (negotiation.NegState == NEG_STATE_COMPLETED) {
        const Selected mechanism = selected(negotiation);
        if (!mechanism)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
        const auto inquire = mechanism.table->ftn_gssp_inquire_context;
        if (inquire == nullptr)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NOT_IMPLEMENTED);
        OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
        const OM_uint32 major = inquire(&minor, mechanism.entry->pMechContext, ppSourceName, ppTargetName, pLifetimeRec,
                                        ppMechType, pCtxFlags, pLocallyInitiated, pOpen);
        return failed(major) ? report(pMinorStatus, major, minor) : succeed(pMinorStatus);
    }
    set_if_given(pLifetimeRec, GSS_C_INDEFINITE);
    set_if_given(ppMechType, pQxnegoMechOid);
    set_if_given(pCtxFlags, GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG);
    set_if_given(pLocallyInitiated, negotiation.IsInitiator != 0 ? 1 : 0);
    set_if_given(pOpen, 0);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_inquire_negotiated_mech(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, OM_uint32 Number,
                                         qxgss_negotiated_mech_desc *pMech) {
    set_if_given(pMech, qxgss_negotiated_mech_desc{});
    if (pContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, QXNEGO_E_INACCESSIBLE);
    if (pMech == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    if (Number >= negotiation.NegMechList.Count)
        return report(pMinorStatus, GSS_S_UNAVAILABLE, QXNEGO_E_MECHANISM_UNAVAILABLE);
    const NegMechEntry_desc &entry = negotiation.NegMechList.pNegMech[Number];
    pMech->pMechOid = entry.pMechOid;
    pMech->MechIndex = entry.MechIndex;
    pMech->MechState = entry.MechState;
    pMech->MechReason = entry.MechReason;
    pMech->GssMajorStatus = entry.GssMajorStatus;
    pMech->GssMinorStatus = entry.GssMinorStatus;
    pMech->GssMinorStatusText = entry.GssMinorStatusText;
    pMech->IsCtxEstablished = entry.IsCtxEstablished != 0 ? 1 : 0;
    pMech->IsSelected = selected_entry(negotiation) == &entry ? 1 : 0;
    return succeed(pMinorStatus);
}
