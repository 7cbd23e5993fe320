// Messages: the selected mechanism's, as they are.
#include "bridge/gssapi/context.h"
#include "common/codes.h"

namespace bridge {

namespace {

// An empty message is one, too.
qxgss_buffer_desc view(const gss_buffer_desc *pBuffer) {
    if (pBuffer == GSS_C_NO_BUFFER)
        refuse(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE, "there is no message");
    const std::string_view bytes = bytes_of(pBuffer);
    return common::view(bytes.data() == nullptr ? std::string_view("", 0) : bytes);
}

// A call of the selected mechanism; it passes on supplementary statuses, and fails with its text.
template <auto Slot, typename... Arguments> OM_uint32 call(Context &context, Arguments... arguments) {
    const session::Negotiation &negotiation = context.negotiation();
    const auto operation = negotiation.negotiator().table->*Slot;
    if (operation == nullptr)
        refuse(GSS_S_UNAVAILABLE, "the mechanism does not protect messages");
    OM_uint32 minor = 0;
    const OM_uint32 major = operation(&minor, negotiation.context(), arguments...);
    if (common::failed(major))
        throw Failure(QXGSS_SESSION_FAILURE_PROTECTION, common::minor_text(minor, &negotiation.mechanism()), major,
                      minor);
    return major;
}

} // namespace

} // namespace bridge

using namespace bridge;
using Table = qxgss_ftn_table_desc;

OM_uint32 bridge_gss_wrap(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, int wanted, gss_qop_t qop, gss_buffer_t pText,
                          int *pGranted, gss_buffer_t pMessage) {
    return guarded(pMinorStatus, [&] {
        required(pMessage) = GSS_C_EMPTY_BUFFER;
        qxgss_buffer_desc text = view(pText);
        common::Buffer message;
        const OM_uint32 major =
            call<&Table::ftn_gssp_wrap>(open_context(handle), wanted, qop, &text, pGranted, message.out());
        *pMessage = handed_over(message);
        return major;
    });
}

OM_uint32 bridge_gss_unwrap(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, gss_buffer_t pMessage, gss_buffer_t pText,
                            int *pGranted, gss_qop_t *pQop) {
    return guarded(pMinorStatus, [&] {
        required(pText) = GSS_C_EMPTY_BUFFER;
        qxgss_buffer_desc message = view(pMessage);
        common::Buffer text;
        const OM_uint32 major =
            call<&Table::ftn_gssp_unwrap>(open_context(handle), &message, text.out(), pGranted, pQop);
        *pText = handed_over(text);
        return major;
    });
}

OM_uint32 bridge_gss_get_mic(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, gss_qop_t qop, gss_buffer_t pText,
                             gss_buffer_t pMic) {
    return guarded(pMinorStatus, [&] {
        required(pMic) = GSS_C_EMPTY_BUFFER;
        qxgss_buffer_desc text = view(pText);
        common::Buffer mic;
        const OM_uint32 major = call<&Table::ftn_gssp_get_mic>(open_context(handle), qop, &text, mic.out());
        *pMic = handed_over(mic);
        return major;
    });
}

OM_uint32 bridge_gss_verify_mic(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, gss_buffer_t pText, gss_buffer_t pMic,
                                gss_qop_t *pQop) {
    return guarded(pMinorStatus, [&] {
        qxgss_buffer_desc text = view(pText), mic = view(pMic);
        return call<&Table::ftn_gssp_verify_mic>(open_context(handle), &text, &mic, pQop);
    });
}

OM_uint32 bridge_gss_wrap_size_limit(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, int wanted, gss_qop_t qop,
                                     OM_uint32 size, OM_uint32 *pMost) {
    return guarded(pMinorStatus, [&] {
        required(pMost) = 0;
        return call<&Table::ftn_gssp_wrap_size_limit>(open_context(handle), wanted, qop, size, pMost);
    });
}
