// Statuses: the major status of each GNU SASL failure, and the texts of minor statuses.
#include "mechanisms/scram/scram.h"

namespace scram {
namespace {

OM_uint32 major_of(int rc) {
    switch (rc) {
    case GSASL_AUTHENTICATION_ERROR:
    case GSASL_INTEGRITY_ERROR:
        return GSS_S_UNAUTHORIZED;
    case GSASL_MECHANISM_PARSE_ERROR:
    case GSASL_BASE64_ERROR:
        return GSS_S_DEFECTIVE_TOKEN;
    case GSASL_SASLPREP_ERROR:
        return GSS_S_DEFECTIVE_CREDENTIAL;
    default:
        return GSS_S_FAILURE;
    }
}

// Null for a code of nobody's.
const char *text_of(OM_uint32 code) {
    switch (code) {
#define SCRAM_CODE(value, name, text)                                                                                  \
    case value:                                                                                                        \
        return text;
#include "mechanisms/scram/scram_codes.def"
#undef SCRAM_CODE
    default:
        break;
    }
    const int rc = static_cast<int>(code);
    return gsasl_strerror_name(rc) != nullptr ? gsasl_strerror(rc) : nullptr;
}

} // namespace

OM_uint32 fail(OM_uint32 *pMinorStatus, int rc) {
    return report(pMinorStatus, major_of(rc), static_cast<OM_uint32>(rc));
}

OM_uint32 display_status(const Mechanism &mechanism, OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType,
                         qxgss_OID pMechType, OM_uint32 *pMessageContext, qxgss_buffer_t pStatusString) {
    if (pMessageContext == nullptr || pStatusString == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *pStatusString = {};
    if (!is_for(mechanism, pMechType))
        return report(pMinorStatus, GSS_S_BAD_MECH, E_OTHER_MECHANISM);
    const char *const text = StatusType == GSS_C_MECH_CODE && *pMessageContext == 0 ? text_of(StatusValue) : nullptr;
    if (text == nullptr)
        return report(pMinorStatus, GSS_S_BAD_STATUS, E_ARGUMENT);
    common::Heap<char> copy(strdup(text));
    if (copy == nullptr)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    *pStatusString = {std::strlen(text), copy.release()};
    return succeed(pMinorStatus);
}

} // namespace scram
