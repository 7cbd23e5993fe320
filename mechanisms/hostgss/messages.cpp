// Per-message protection: the host's, with buffers of the C heap. Tokens and messages are the mechanism's own.
#include "mechanisms/hostgss/context.h"
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/ntlm.h"

namespace hostgss {

namespace {

constexpr Status kNoInput = refusal(kInaccessibleRead, "There is no message.");
constexpr Status kNoOutput = refusal(kInaccessibleWrite, "There is no room for the result.");

// The context of a call, with what the call needs of it: any of those flags. Without the flag of integrity
// gss-ntlmssp signs with a constant, and takes that for any message's signature.
Status check(const Context *context, std::uint32_t flags) {
    const Status status = check_established(context);
    if (status.failed() || (context->flags & flags) != 0)
        return status;
    return refusal(GSS_S_FAILURE, "The context does not protect messages.");
}

constexpr std::uint32_t kSigned = GSS_C_INTEG_FLAG, kWrapped = GSS_C_INTEG_FLAG | GSS_C_CONF_FLAG;

// gss-ntlmssp reads a whole signature, however short what the peer sent.
Status check_length(const Context &context, Bytes token, bool alone) {
    const bool whole = alone ? token.size() == kNtlmMicLength : token.size() >= kNtlmMicLength;
    return context.mech != kNtlm || whole ? Status{}
                                          : refusal(GSS_S_DEFECTIVE_TOKEN, "The token has not a signature's length.");
}

// Runs a call that makes a text of another one. A result is only handed out by a call that succeeded.
template <typename Call>
OM_uint32 convert(OM_uint32 *pMinorStatus, Status status, qxgss_buffer_t pInput, qxgss_buffer_t pOutput,
                  const Call &call) {
    if (pOutput == nullptr)
        return finish(pMinorStatus, kNoOutput);
    *pOutput = {};
    if (!status.failed() && pInput == nullptr)
        status = kNoInput;
    Block result;
    if (!status.failed())
        status = call(bytes_of(pInput), result);
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
        return finish(pMinorStatus, kNoOutput);
    *pMaxInputSize = 0;
    const Context *const context = context_of(pContextHandle);
    Status status = check(context, kWrapped);
    if (!status.failed())
        status = wrap_size_limit(context->host, ConfReqFlag, QopReq, ReqOutputSize, pMaxInputSize);
    return finish(pMinorStatus, status);
}

OM_uint32 HOSTGSS_wrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag, qxgss_qop_t QopReq,
                       qxgss_buffer_t pInputMessageBuffer, int *pConfState, qxgss_buffer_t pOutputMessageBuffer) {
    const Context *const context = context_of(pContextHandle);
    int state = 0;
    const OM_uint32 major = convert(pMinorStatus, check(context, kWrapped), pInputMessageBuffer, pOutputMessageBuffer,
                                    [&](Bytes message, Block &wrapped) {
                                        return wrap(context->host, ConfReqFlag, QopReq, message, &state, wrapped);
                                    });
    set_if_given(pConfState, GSS_ERROR(major) != 0 ? 0 : state);
    return major;
}

OM_uint32 HOSTGSS_unwrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_buffer_t pInputMessageBuffer,
                         qxgss_buffer_t pOutputMessageBuffer, int *pConfState, qxgss_qop_t *pQopState) {
    const Context *const context = context_of(pContextHandle);
    int state = 0;
    std::uint32_t qop = 0;
    const OM_uint32 major =
        convert(pMinorStatus, check(context, kWrapped), pInputMessageBuffer, pOutputMessageBuffer,
                [&](Bytes wrapped, Block &message) {
                    const Status status = check_length(*context, wrapped, false);
                    return status.failed() ? status : unwrap(context->host, wrapped, message, &state, &qop);
                });
    set_if_given(pConfState, GSS_ERROR(major) != 0 ? 0 : state);
    set_if_given(pQopState, GSS_ERROR(major) != 0 ? 0 : qop);
    return major;
}

OM_uint32 HOSTGSS_get_mic(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_qop_t QopReq,
                          qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer) {
    const Context *const context = context_of(pContextHandle);
    return convert(pMinorStatus, check(context, kSigned), pInputMessageBuffer, pOutputMessageBuffer,
                   [&](Bytes message, Block &mic) { return get_mic(context->host, QopReq, message, mic); });
}

OM_uint32 HOSTGSS_verify_mic(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_buffer_t pMessageBuffer,
                             qxgss_buffer_t pTokenBuffer, qxgss_qop_t *pQopState) {
    const Context *const context = context_of(pContextHandle);
    std::uint32_t qop = 0;
    Status status = check(context, kSigned);
    if (!status.failed() && (pMessageBuffer == nullptr || pTokenBuffer == nullptr))
        status = kNoInput;
    if (!status.failed())
        status = check_length(*context, bytes_of(pTokenBuffer), true);
    if (!status.failed())
        status = verify_mic(context->host, bytes_of(pMessageBuffer), bytes_of(pTokenBuffer), &qop);
    set_if_given(pQopState, status.failed() ? 0U : qop);
    return finish(pMinorStatus, status);
}
