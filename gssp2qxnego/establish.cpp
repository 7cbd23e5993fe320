// Establishing, inspecting and deleting a context. Each establishment call runs a fixed sequence of steps and ends with
// the status of the first that fails; what earlier steps did stays, and the context stays with the caller.
//
//     client                                         server
//     init: acquire, identity, drive, select, token_encode
//        ── INIT: every mechanism, its inner token, who ──▶  accept: token_decode, reconcile, acquire, policy, drive,
//                                                               select (the first available one established),
//        ◀── RESP: changes, state, selected, policy applied ──  token_encode
//     init: token_decode, reconcile, drive, select, token_encode
//        ── RESP ──▶  ... until each side has returned GSS_S_COMPLETE, with what results hands out
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/gssp2qxnegoutil/trace.h"

using namespace qxnego;

namespace {

// A later call of either side: counts it and reads the peer's token.
Status continue_with(const qxgss_buffer_t pInputToken, NegContext_desc &negotiation) {
    ++negotiation.TokenNum;
    return ask(QXNEGO_INT_ProcessInputToken, NEG_MECH_TOKENTYPE_RESP, pInputToken, &negotiation);
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
    Status set(NegContext_desc &negotiation) const {
        const NegMechEntry_t entry = selected_entry(negotiation);
        if (negotiation.NegState != NEG_STATE_COMPLETED || entry == nullptr || entry->IsCtxEstablished == 1)
            return put(&negotiation);
        static_cast<void>(put(nullptr));
        return common::failure(QXNEGO_E_NONE_SELECTED);
    }

  private:
    // Without a negotiation they are cleared.
    Status put(NegContext_t pNegotiation) const {
        return ask(QXNEGO_INT_SetReturns, pNegotiation, ppSrcName, ppMechType, pRetFlags, pTimeRec,
                   ppDelegatedCredHandle);
    }
};

// Whether these results are those of a negotiation that is not over.
bool goes_on(Status results) {
    return results.major == GSS_S_CONTINUE_NEEDED || results.minor == QXNEGO_E_CONTINUE_NEEDED;
}

// The end of every call that goes on: select, write the token, set the results.
Status conclude(OM_uint32 TokenType, qxgss_buffer_t pOutputToken, const Results &results,
                NegContext_desc &negotiation) {
    Status status = ask(QXNEGO_INT_SelectMechanism, &negotiation);
    if (!status.failed())
        status = ask(QXNEGO_INT_ConstructOutputToken, TokenType, &negotiation, pOutputToken);
    if (status.failed())
        return status;
    status = results.set(negotiation);
    if (status.failed()) // the peer is not told of a completion that this side has not reported
        gssp_release_buffer(nullptr, pOutputToken);
    return status;
}

// The checks with which both establishment calls begin.
Status check_handles(const qxgss_ctx_id_t *ppContextHandle, qxgss_OID *ppMechType,
                     const qxgss_buffer_desc *pOutputToken) {
    set_if_given(ppMechType, pQxnegoMechOid);
    if (ppContextHandle == nullptr)
        return {kNoContextToWrite, QXNEGO_E_NO_CONTEXT};
    if (pOutputToken == nullptr)
        return {kInaccessibleWrite, QXNEGO_E_NO_BUFFER};
    return kSuccess;
}

// Makes the context of a first call; it is in the caller's handle before anything else can fail.
Status create(OM_uint32 is_initiator, qxgss_ctx_id_t *ppContextHandle) {
    QxnegoSecCtx_int_t context = nullptr;
    const Status created = ask(QXNEGO_INT_InitializeContext, is_initiator, &context);
    *ppContextHandle = context;
    return created;
}

Status begin_initiator(const qxgss_cred_id_t pCredHandle, qxgss_ctx_id_t *ppContextHandle) {
    Status status = create(1, ppContextHandle);
    if (status.failed())
        return status;
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    const auto credential = static_cast<QxnegoCred_t>(pCredHandle);
    status = ask(QXNEGO_INT_Mechs_Acquire_Creds, credential, &negotiation);
    return status.failed() ? status : ask(QXNEGO_INT_SetAuthInfo, credential, &negotiation);
}

Status begin_acceptor(const qxgss_cred_id_t pCredHandle, const qxgss_buffer_t pInputToken,
                      qxgss_ctx_id_t *ppContextHandle) {
    Status status = create(0, ppContextHandle);
    if (status.failed())
        return status;
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    const auto credential = static_cast<QxnegoCred_t>(pCredHandle);
    status = ask(QXNEGO_INT_ProcessInputToken, NEG_MECH_TOKENTYPE_INIT, pInputToken, &negotiation);
    return status.failed() ? status : ask(QXNEGO_INT_Mechs_Acquire_Creds, credential, &negotiation);
}

Status apply_rules(NegContext_desc &negotiation) {
    const Status applied = ask(QXNEGO_INT_Apply_Policy_Info, qxgss_buffer_t{nullptr}, &negotiation);
    return applied.failed() ? applied : ask(QXNEGO_INT_Apply_Authorization_Rules, &negotiation);
}

// The end of every call; there is no context when none could be made.
OM_uint32 finish(OM_uint32 *pMinorStatus, Status outcome, qxgss_ctx_id_t context) {
    if (is_tracing && context != nullptr) [[unlikely]]
        trace(outcome, negotiation_of(context));
    return report(pMinorStatus, outcome);
}

} // namespace

OM_uint32 QXNEGO_init_sec_context(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pInitiatorCredHandle,
                                  qxgss_ctx_id_t *ppContextHandle, const qxgss_name_t pTargetName,
                                  const qxgss_OID /*pMechType*/, OM_uint32 ReqFlags, OM_uint32 TimeReq,
                                  const qxgss_channel_bindings_t pInputChanBindings, const qxgss_buffer_t pInputToken,
                                  qxgss_OID *ppActualMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                  OM_uint32 *pTimeRec) {
    if (const Status checked = check_handles(ppContextHandle, ppActualMechType, pOutputToken); checked.failed())
        return report(pMinorStatus, checked);
    const Results results = {nullptr, ppActualMechType, pRetFlags, pTimeRec, nullptr};
    const bool is_first = *ppContextHandle == nullptr;
    Status status = is_first ? begin_initiator(pInitiatorCredHandle, ppContextHandle)
                             : continue_with(pInputToken, negotiation_of(*ppContextHandle));
    if (status.failed())
        return finish(pMinorStatus, status, *ppContextHandle);
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    if (!is_first) { // a negotiation that has just begun cannot be over
        status = results.set(negotiation);
        if (!goes_on(status))
            return finish(pMinorStatus, status, *ppContextHandle);
    }
    status = ask(QXNEGO_INT_Mechs_Init_Contexts, pTargetName, ReqFlags, TimeReq, pInputChanBindings, ppActualMechType,
                 pRetFlags, pTimeRec, &negotiation);
    if (!status.failed())
        status =
            conclude(is_first ? NEG_MECH_TOKENTYPE_INIT : NEG_MECH_TOKENTYPE_RESP, pOutputToken, results, negotiation);
    return finish(pMinorStatus, status, *ppContextHandle);
}

OM_uint32 QXNEGO_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                    const qxgss_cred_id_t pAcceptorCredHandle, const qxgss_buffer_t pInputToken,
                                    const qxgss_channel_bindings_t pInputChanBindings, qxgss_name_t *ppSrcName,
                                    qxgss_OID *ppMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                    OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle) {
    if (const Status checked = check_handles(ppContextHandle, ppMechType, pOutputToken); checked.failed())
        return report(pMinorStatus, checked);
    const Results results = {ppSrcName, ppMechType, pRetFlags, pTimeRec, ppDelegatedCredHandle};
    Status status = *ppContextHandle == nullptr ? begin_acceptor(pAcceptorCredHandle, pInputToken, ppContextHandle)
                                                : continue_with(pInputToken, negotiation_of(*ppContextHandle));
    if (status.failed())
        return finish(pMinorStatus, status, *ppContextHandle);
    NegContext_desc &negotiation = negotiation_of(*ppContextHandle);
    status = apply_rules(negotiation);
    if (status.failed())
        return finish(pMinorStatus, status, *ppContextHandle);
    status = results.set(negotiation);
    if (!goes_on(status))
        return finish(pMinorStatus, status, *ppContextHandle);
    status = ask(QXNEGO_INT_Mechs_Accept_Contexts, pInputChanBindings, ppSrcName, ppMechType, pRetFlags, pTimeRec,
                 ppDelegatedCredHandle, &negotiation);
    if (!status.failed())
        status = conclude(NEG_MECH_TOKENTYPE_RESP, pOutputToken, results, negotiation);
    return finish(pMinorStatus, status, *ppContextHandle);
}

OM_uint32 QXNEGO_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                    qxgss_buffer_t pOutputToken) {
    if (ppContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToWrite, QXNEGO_E_NO_CONTEXT);
    if (*ppContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_NO_CONTEXT);
    const Heap<QxnegoSecCtxDescStruct> context(static_cast<QxnegoSecCtx_int_t>(*ppContextHandle));

    LastFailure result(QXNEGO_E_SUCCESSFUL);
    result.note(ask(QXNEGO_INT_ReleaseNegContext, &context->NegCtx));
    if (context->UserProperties.value != nullptr)
        result.note(ask(gssp_release_secure_buffer, &context->UserProperties));
    if (pOutputToken != nullptr)
        *pOutputToken = {};
    *ppContextHandle = nullptr;
    return report(pMinorStatus, result.get());
}

OM_uint32 QXNEGO_inquire_context(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                 qxgss_name_t *ppSourceName, qxgss_name_t *ppTargetName, OM_uint32 *pLifetimeRec,
                                 qxgss_OID *ppMechType, OM_uint32 *pCtxFlags, int *pLocallyInitiated, int *pOpen) {
    if (pContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    if (negotiation.NegState == NEG_STATE_COMPLETED) {
        const SelectedMechanism mechanism = selected_mechanism(negotiation);
        if (!mechanism)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
        const auto inquire = mechanism.table->ftn_gssp_inquire_context;
        if (inquire == nullptr)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NOT_IMPLEMENTED);
        const Status status = ask(inquire, mechanism.context, ppSourceName, ppTargetName, pLifetimeRec, ppMechType,
                                  pCtxFlags, pLocallyInitiated, pOpen);
        return report(pMinorStatus, status.failed() ? status : kSuccess);
    }
    set_if_given(pLifetimeRec, GSS_C_INDEFINITE);
    set_if_given(ppMechType, pQxnegoMechOid);
    set_if_given(pCtxFlags, GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG);
    set_if_given(pLocallyInitiated, negotiation.IsInitiator != 0 ? 1 : 0);
    set_if_given(pOpen, 0);
    return succeed(pMinorStatus);
}
