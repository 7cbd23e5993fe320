// Per-message calls: the selected mechanism's operation on its own context, with nothing added, and the conversions
// that QXNEGO does not offer. Outputs are cleared first, then the checks run in one order for all.
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

namespace {

bool missing(const qxgss_buffer_desc *buffer) {
    return buffer == nullptr || buffer->value == nullptr;
}

// The call for a caller that wants no minor status: the mechanism is given a place for it all the same. Apart from
// `forward`, so that the usual call there needs no place on the stack and is a jump.
template <typename Operation, typename... Arguments>
[[gnu::noinline]] OM_uint32 call_without_minor(Operation operation, Arguments... arguments) {
    OM_uint32 unwanted = QXNEGO_E_SUCCESSFUL;
    return operation(&unwanted, arguments...);
}

// Calls the slot with the selected mechanism's context and these arguments; its statuses are passed on unchanged.
template <auto Slot, typename... Arguments>
OM_uint32 forward(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, bool is_input_missing,
                  Arguments... arguments) {
    if (pContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_NO_CONTEXT);
    if (is_input_missing)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NO_INPUT_TOKEN);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    if (negotiation.NegState != NEG_STATE_COMPLETED)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MECHANISM_UNAVAILABLE);
    const SelectedMechanism mechanism = selected_mechanism(negotiation);
    if (!mechanism)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MECHANISM_UNAVAILABLE);
    const auto operation = mechanism.table->*Slot;
    if (operation == nullptr)
        return report(pMinorStatus, GSS_S_UNAVAILABLE, GSSP_E_FUNCTION_UNAVAILABLE);
    if (pMinorStatus == nullptr)
        return call_without_minor(operation, mechanism.context, arguments...);
    *pMinorStatus = QXNEGO_E_SUCCESSFUL;
    return operation(pMinorStatus, mechanism.context, arguments...);
}

// The output buffer of a call that makes one: it must be there, and is emptied before anything else is looked at.
bool emptied(qxgss_buffer_t pOutput) {
    if (pOutput == nullptr)
        return false;
    *pOutput = {};
    return true;
}

} // namespace

OM_uint32 QXNEGO_wrap(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, int ConfReqFlag, qxgss_qop_t QopReq,
                      const qxgss_buffer_t pInputMessageBuffer, int *pConfState, qxgss_buffer_t pOutputMessageBuffer) {
    set_if_given(pConfState, 0);
    if (!emptied(pOutputMessageBuffer))
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_BUFFER);
    return forward<&qxgss_ftn_table_desc::ftn_gssp_wrap>(pMinorStatus, pContextHandle, missing(pInputMessageBuffer),
                                                         ConfReqFlag, QopReq, pInputMessageBuffer, pConfState,
                                                         pOutputMessageBuffer);
}

OM_uint32 QXNEGO_unwrap(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                        const qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer, int *pConfState,
                        qxgss_qop_t *pQopState) {
    set_if_given(pConfState, 0);
    set_if_given(pQopState, qxgss_qop_t{0});
    if (!emptied(pOutputMessageBuffer))
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_BUFFER);
    return forward<&qxgss_ftn_table_desc::ftn_gssp_unwrap>(pMinorStatus, pContextHandle, missing(pInputMessageBuffer),
                                                           pInputMessageBuffer, pOutputMessageBuffer, pConfState,
                                                           pQopState);
}

OM_uint32 QXNEGO_get_mic(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, qxgss_qop_t QopReq,
                         const qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer) {
    if (!emptied(pOutputMessageBuffer))
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_BUFFER);
    return forward<&qxgss_ftn_table_desc::ftn_gssp_get_mic>(pMinorStatus, pContextHandle, missing(pInputMessageBuffer),
                                                            QopReq, pInputMessageBuffer, pOutputMessageBuffer);
}

OM_uint32 QXNEGO_verify_mic(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                            const qxgss_buffer_t pMessageBuffer, const qxgss_buffer_t pTokenBuffer,
                            qxgss_qop_t *pQopState) {
    set_if_given(pQopState, qxgss_qop_t{0});
    return forward<&qxgss_ftn_table_desc::ftn_gssp_verify_mic>(pMinorStatus, pContextHandle,
                                                               missing(pMessageBuffer) || missing(pTokenBuffer),
                                                               pMessageBuffer, pTokenBuffer, pQopState);
}

OM_uint32 QXNEGO_wrap_size_limit(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                                 qxgss_qop_t QopReq, OM_uint32 ReqOutputSize, OM_uint32 *pMaxInputSize) {
    if (pContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_INVALID_INPUT);
    if (pMaxInputSize == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    if (negotiation.NegState != NEG_STATE_COMPLETED)
        return report(pMinorStatus, GSS_S_NO_CONTEXT, QXNEGO_E_NOT_READY);
    const SelectedMechanism mechanism = selected_mechanism(negotiation);
    if (!mechanism)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
    const auto operation = mechanism.table->ftn_gssp_wrap_size_limit;
    if (operation == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NOT_IMPLEMENTED);
    const Status status = ask(operation, mechanism.context, ConfReqFlag, QopReq, ReqOutputSize, pMaxInputSize);
    return report(pMinorStatus, status.failed() ? status : kSuccess);
}

OM_uint32 QXNEGO_get_client_domain_username(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t /*pContextHandle*/,
                                            char ** /*psUserName*/, char ** /*psDomain*/) {
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_qop_string_to_int(OM_uint32 *pMinorStatus, const qxgss_OID /*pMechTypeOid*/,
                                   const qxgss_buffer_t /*pQopValueBuffer*/, qxgss_qop_t * /*pQopValueInt*/) {
    return report(pMinorStatus, GSS_S_UNAVAILABLE, QXNEGO_E_NOT_IMPLEMENTED);
}

OM_uint32 QXNEGO_qop_int_to_string(OM_uint32 *pMinorStatus, const qxgss_OID /*pMechTypeOid*/,
                                   qxgss_qop_t /*QopValueInt*/, qxgss_buffer_t /*pQopValueBuffer*/) {
    return report(pMinorStatus, GSS_S_UNAVAILABLE, QXNEGO_E_NOT_IMPLEMENTED);
}
