// Reporting, and the texts of statuses. The only state of the adapter lives here: each thread's last failure.
#include "mechanisms/hostgss/status.h"

#include "mechanisms/hostgss/hostgss.h"

namespace hostgss {

namespace {

struct Failure {
    Status status;
    const char *text; // null: the host knows
};

thread_local Failure last_failure{};

// The host knows no text of our lack of memory, and no other cause is told where that is what failed.
void remember(Status status, const char *text) {
    last_failure = {status, status.minor == kNoMemory ? "There is not enough memory." : text};
}

Status failure_text(OM_uint32 minor, Bytes mech, Block &text) {
    const Failure &last = last_failure;
    const bool remembered = last.status.failed() && minor == last.status.minor;
    Status result = remembered ? major_text(last.status.major, text) : Status{};
    if (result.failed() || (remembered && minor == 0))
        return result;
    if (!remembered || last.text == nullptr)
        return minor_text(minor, mech, text);
    return text.append(": ") && text.append(last.text) ? result : kOutOfMemory;
}

} // namespace

OM_uint32 finish(OM_uint32 *pMinorStatus, Status status) {
    if (status.failed())
        remember(status, nullptr);
    set(pMinorStatus, status.failed() ? status.minor : GSSP_E_SUCCESS);
    return status.major;
}

OM_uint32 refuse(OM_uint32 *pMinorStatus, Status status, const char *text) {
    remember(status, text);
    set(pMinorStatus, status.minor);
    return status.major;
}

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_display_status(OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType, qxgss_OID pMechType,
                                 OM_uint32 *pMessageContext, qxgss_buffer_t pStatusString) {
    set(pMessageContext, 0U);
    if (pStatusString == nullptr) {
        set(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
        return kInaccessibleWrite;
    }
    *pStatusString = {};
    Block text;
    Status status{GSS_S_BAD_STATUS, GSSP_E_INVALID_ARGUMENT};
    if (StatusType == GSS_C_MECH_CODE)
        status = failure_text(StatusValue, view(pMechType), text);
    else if (StatusType == GSS_C_GSS_CODE)
        status = major_text(StatusValue, text);
    if (!status.failed())
        give(text, pStatusString);
    set(pMinorStatus, status.failed() ? status.minor : GSSP_E_SUCCESS);
    return status.major;
}
