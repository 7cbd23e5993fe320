// QXNEGO_display_status: the text of one of QXNEGO's own minor statuses. A status of another component, or one that
// has no text, is refused; every status has exactly one message.
#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

namespace qxnego {
namespace {

constexpr OM_uint32 kComponentMask = 0x0F000000U;
constexpr OM_uint32 kComponentQxnego = 0x03000000U;
constexpr OM_uint32 kCustomerFlag = 0x20000000U;
constexpr char kNoText[] = "?";

// Over the length of our OID only: bytes that follow in the given one do not matter, missing ones do.
bool begins_with(const qxgss_OID_desc &given, const qxgss_OID_desc &own) {
    return given.elements != nullptr && given.length >= own.length &&
           std::memcmp(given.elements, own.elements, own.length) == 0;
}

bool is_own_status(OM_uint32 status) {
    return (status & kComponentMask) == kComponentQxnego && (status & kCustomerFlag) != 0;
}

} // namespace
} // namespace qxnego

using namespace qxnego;

OM_uint32 QXNEGO_display_status(OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType,
                                const qxgss_OID pMechType, OM_uint32 *pMessageContext, qxgss_buffer_t pStatusString) {
    if (pMechType == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_SUCCESSFUL);
    qxgss_OID own = nullptr;
    if (const Status known = ask(gssp_mechstr_to_oid, "QXNEGO", &own); known.major != GSS_S_COMPLETE)
        return report(pMinorStatus, GSS_S_FAILURE, known.minor);
    if (!begins_with(*pMechType, *own))
        return report(pMinorStatus, GSS_S_BAD_MECH, QXNEGO_E_BAD_MECH_OID);
    if (StatusType != GSS_C_MECH_CODE)
        return report(pMinorStatus, GSS_S_BAD_STATUS, QXNEGO_E_BAD_MECH_OID);
    if (!is_own_status(StatusValue))
        return report(pMinorStatus, GSS_S_BAD_STATUS, QXNEGO_E_FOREIGN_STATUS);
    const char *text = qxnegoerrtostr(StatusValue);
    if (pStatusString == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_BUFFER);
    if (std::strcmp(text, kNoText) == 0)
        return report(pMinorStatus, GSS_S_BAD_STATUS, QXNEGO_E_FOREIGN_STATUS);
    pStatusString->length = std::strlen(text);
    pStatusString->value = std::calloc(pStatusString->length + 1, 1);
    if (pStatusString->value == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    std::memcpy(pStatusString->value, text, pStatusString->length);
    set_if_given(pMessageContext, OM_uint32{0});
    return succeed(pMinorStatus);
}
