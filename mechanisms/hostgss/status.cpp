// Reporting, and the texts of statuses. The only state of the adapter lives here: each thread's last failure.
#include "mechanisms/hostgss/status.h"

#include "mechanisms/hostgss/hostgss.h"

namespace hostgss {

namespace {

thread_local Status last_failure{};

// The host knows no text of our lack of memory, and no other cause is told where that is what failed.
void remember(Status status) {
    last_failure = {status.major, status.minor,
                    status.minor == kNoMemory ? "There is not enough memory." : status.text};
}

Status failure_text(OM_uint32 minor, Bytes mech, Block &text) {
    const Status &last = last_failure;
    const bool remembered = last.failed() && minor == last.minor;
    Status result = remembered ? major_text(last.major, text) : Status{};
    if (result.failed() || (remembered && minor == 0 && last.text == nullptr))
        return result;
    if (!remembered || last.text == nullptr)
        return minor_text(minor, mech, text);
    return text.append(": ") && text.append(last.text) ? result : kOutOfMemory;
}

} // namespace

OM_uint32 finish(OM_uint32 *pMinorStatus, Status status) {
    if (status.failed())
        remember(status);
    set_if_given(pMinorStatus, status.failed() ? status.minor : GSSP_E_SUCCESS);
    return status.major;
}

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_display_status(OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType, qxgss_OID pMechType,
                                 OM_uint32 *pMessageContext, qxgss_buffer_t pStatusString) {
    set_if_given(pMessageContext, 0U);
    if (pStatusString == nullptr) {
        set_if_given(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
        return kInaccessibleWrite;
    }
    *pStatusString = {};
    Block text;
    Status status{GSS_S_BAD_STATUS, GSSP_E_INVALID_ARGUMENT};
    if (StatusType == GSS_C_MECH_CODE)
        status = failure_text(StatusValue, bytes_of(pMechType), text);
    else if (StatusType == GSS_C_GSS_CODE)
        status = major_text(StatusValue, text);
    if (!status.failed())
        give(text, pStatusString);
    set_if_given(pMinorStatus, status.failed() ? status.minor : GSSP_E_SUCCESS);
    return status.major;
}
