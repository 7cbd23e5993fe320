// Per-message protection: the host's, with buffers of the C heap. Tokens and messages are the mechanism's own.
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/status.h"

namespace hostgss {

namespace {

constexpr const char *kNoInput = "There is no message.";
constexpr const char *kNoOutput = "There is no room for the result.";

// The arguments that all but wrap_size_limit have: the context, what is read and, for some, what is written.
OM_uint32 check(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContext, const qxgss_buffer_desc *pInput) {
    if (pContext == nullptr)
        return refuse_argument(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, "There is no context.");
    if (pInput == nullptr)
        return refuse_argument(pMinorStatus, kInaccessibleRead, kNoInput);
    return GSS_S_COMPLETE;
}

OM_uint32 check(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContext, const qxgss_buffer_desc *pInput,
                qxgss_buffer_t pOutput) {
    if (pOutput == nullptr)
        return refuse_argument(pMinorStatus, kInaccessibleWrite, kNoOutput);
    *pOutput = {};
    return check(pMinorStatus, pContext, pInput);
}

// A result is only handed out by a call that succeeded.
OM_uint32 finish(OM_uint32 *pMinorStatus, Status status, Block &result, qxgss_buffer_t pOutput) {
    if (!status.failed())
        give(result, pOutput);
    return finish(pMinorStatus, status);
}

} // namespace

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_wrap_size_limit(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                                  qxgss_qop_t QopReq, OM_uint32 ReqOutputSize, OM_uint32 *pMaxInputSize) {
    if (pMaxInputSize == nullptr)
        return refuse_argument(pMinorStatus, kInaccessibleWrite, kNoOutput);
    *pMaxInputSize = 0;
    return finish(pMinorStatus, wrap_size_limit(pContextHandle, ConfReqFlag, QopReq, ReqOutputSize, pMaxInputSize));
}

OM_uint32 HOSTGSS_wrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag, qxgss_qop_t QopReq,
                       qxgss_buffer_t pInputMessageBuffer, int *pConfState, qxgss_buffer_t pOutputMessageBuffer) {
    set(pConfState, 0);
    const OM_uint32 wrong = check(pMinorStatus, pContextHandle, pInputMessageBuffer, pOutputMessageBuffer);
    if (wrong != 0)
        return wrong;
    Block wrapped;
    return finish(pMinorStatus,
                  wrap(pContextHandle, ConfReqFlag, QopReq, view(pInputMessageBuffer), pConfState, wrapped), wrapped,
                  pOutputMessageBuffer);
}

OM_uint32 HOSTGSS_unwrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_buffer_t pInputMessageBuffer,
                         qxgss_buffer_t pOutputMessageBuffer, int *pConfState, qxgss_qop_t *pQopState) {
    set(pConfState, 0);
    set(pQopState, 0U);
    const OM_uint32 wrong = check(pMinorStatus, pContextHandle, pInputMessageBuffer, pOutputMessageBuffer);
    if (wrong != 0)
        return wrong;
    Block message;
    return finish(pMinorStatus, unwrap(pContextHandle, view(pInputMessageBuffer), message, pConfState, pQopState),
                  message, pOutputMessageBuffer);
}

OM_uint32 HOSTGSS_get_mic(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_qop_t QopReq,
                          qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer) {
    const OM_uint32 wrong = check(pMinorStatus, pContextHandle, pInputMessageBuffer, pOutputMessageBuffer);
    if (wrong != 0)
        return wrong;
    Block mic;
    return finish(pMinorStatus, get_mic(pContextHandle, QopReq, view(pInputMessageBuffer), mic), mic,
                  pOutputMessageBuffer);
}

OM_uint32 HOSTGSS_verify_mic(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_buffer_t pMessageBuffer,
                             qxgss_buffer_t pTokenBuffer, qxgss_qop_t *pQopState) {
    set(pQopState, 0U);
    OM_uint32 wrong = check(pMinorStatus, pContextHandle, pMessageBuffer);
    if (wrong == 0)
        wrong = check(pMinorStatus, pContextHandle, pTokenBuffer);
    if (wrong != 0)
        return wrong;
    return finish(pMinorStatus, verify_mic(pContextHandle, view(pMessageBuffer), view(pTokenBuffer), pQopState));
}
