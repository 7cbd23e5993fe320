// Credentials: an initiator's identity and password out of the logon string, an acceptor's claim to the verifiers. No
// copy of a password is left behind on any path.
#include "mechanisms/scram/scram.h"
#include "qxat/qxatldapauthorize.h"

namespace scram {
namespace {

// A framework buffer with a logon string.
struct LogonBuffer : qxgss_buffer_desc {
    LogonBuffer() : qxgss_buffer_desc{} {}
    LogonBuffer(const LogonBuffer &) = delete;
    LogonBuffer &operator=(const LogonBuffer &) = delete;
    ~LogonBuffer() { gssp_release_secure_buffer(nullptr, this); }
};

// The name's text as a C string. GSS_S_BAD_NAME when it cannot be one.
OM_uint32 read_text(OM_uint32 *pMinorStatus, qxgss_name_t pName, Secret &text) {
    const gssp_utf_convert_flags_t flags{GSSP_UTF_BY_NAMETYPE, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    LogonBuffer utf8;
    OM_uint32 minor = 0;
    const OM_uint32 major = gssp_convertname_utf(&minor, pName, &utf8, &flags);
    if (minor == GSSP_E_NO_MEMORY)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    if (GSS_ERROR(major) || (utf8.length != 0 && std::memchr(utf8.value, '\0', utf8.length) != nullptr))
        return report(pMinorStatus, GSS_S_BAD_NAME, E_LOGON_STRING);
    text.reset(static_cast<char *>(std::calloc(utf8.length + 1, 1)));
    if (text == nullptr)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    if (utf8.length != 0)
        std::memcpy(text.get(), utf8.value, utf8.length);
    return succeed(pMinorStatus);
}

// Identity and password of an initiator.
OM_uint32 read_logon(OM_uint32 *pMinorStatus, qxgss_name_t pName, Credential &credential) {
    if (pName == nullptr)
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_IDENTITY);
    Secret text;
    if (const OM_uint32 major = read_text(pMinorStatus, pName, text); GSS_ERROR(major))
        return major;
    char *identity = nullptr;
    char *password = nullptr;
    OM_uint32 minor = 0;
    const OM_uint32 major = qxat_parse_logon(&minor, text.get(), nullptr, &identity, &password, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, nullptr, QXAT_FLAG_UNESCAPE_ALL);
    credential.identity.reset(identity);
    credential.password.reset(password);
    if (minor == QXAT_E_CALLOC)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    if (GSS_ERROR(major))
        return report(pMinorStatus, GSS_S_BAD_NAME, E_LOGON_STRING);
    if (identity == nullptr || *identity == '\0')
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_IDENTITY);
    if (password == nullptr || *password == '\0')
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_PASSWORD);
    return succeed(pMinorStatus);
}

OM_uint32 fill(const Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_name_t pName, Credential &credential) {
    if (credential.usage != GSS_C_INITIATE && mechanism.verifiers == nullptr)
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_VERIFIERS);
    if (credential.usage == GSS_C_ACCEPT)
        return succeed(pMinorStatus);
    return read_logon(pMinorStatus, pName, credential);
}

// Whether the application wants this mechanism; no set wants any.
bool is_wanted(Mechanism &mechanism, qxgss_OID_set pDesired) {
    int isPresent = 1;
    if (pDesired != nullptr)
        gssp_test_oid_set_member(nullptr, &mechanism.oid, pDesired, &isPresent);
    return isPresent != 0;
}

} // namespace

OM_uint32 acquire_cred(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_name_t pDesiredName,
                       qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage, qxgss_cred_id_t *ppOutputCredHandle,
                       qxgss_OID_set *ppActualMechs, OM_uint32 *pTimeRec) {
    if (ppActualMechs != nullptr)
        *ppActualMechs = nullptr;
    if (pTimeRec != nullptr)
        *pTimeRec = 0;
    if (ppOutputCredHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CRED, E_ARGUMENT);
    *ppOutputCredHandle = QXGSS_C_NO_CREDENTIAL;
    if (!is_wanted(mechanism, pDesiredMechs))
        return report(pMinorStatus, GSS_S_BAD_MECH, E_OTHER_MECHANISM);
    if (CredUsage != GSS_C_BOTH && CredUsage != GSS_C_INITIATE && CredUsage != GSS_C_ACCEPT)
        return report(pMinorStatus, GSS_S_FAILURE, E_CRED_USAGE);
    auto credential = std::make_unique<Credential>();
    credential->usage = CredUsage;
    if (const OM_uint32 major = fill(mechanism, pMinorStatus, pDesiredName, *credential); GSS_ERROR(major))
        return major;
    OidSet mechs = ppActualMechs != nullptr ? set_of(mechanism) : nullptr;
    if (ppActualMechs != nullptr && mechs == nullptr)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    if (ppActualMechs != nullptr)
        *ppActualMechs = mechs.release();
    if (pTimeRec != nullptr)
        *pTimeRec = GSS_C_INDEFINITE;
    *ppOutputCredHandle = credential.release();
    return succeed(pMinorStatus);
}

OM_uint32 release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle) {
    if (ppCredHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CRED, E_ARGUMENT);
    delete static_cast<Credential *>(*ppCredHandle);
    *ppCredHandle = QXGSS_C_NO_CREDENTIAL;
    return succeed(pMinorStatus);
}

OM_uint32 inquire_cred(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_cred_id_t pCredHandle, qxgss_name_t *ppName,
                       OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage, qxgss_OID_set *ppMechanisms) {
    if (ppName != nullptr)
        *ppName = QXGSS_C_NO_NAME;
    if (ppMechanisms != nullptr)
        *ppMechanisms = nullptr;
    if (pCredHandle == QXGSS_C_NO_CREDENTIAL)
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_CREDENTIAL);
    const auto &credential = *static_cast<const Credential *>(pCredHandle);
    OidSet mechs = set_of(mechanism);
    if (mechs == nullptr)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    const char *const identity = credential.identity != nullptr ? credential.identity.get() : "";
    if (ppName != nullptr && !make_name(identity, ppName))
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    if (pLifetimeRec != nullptr)
        *pLifetimeRec = GSS_C_INDEFINITE;
    if (pCredUsage != nullptr)
        *pCredUsage = credential.usage;
    if (ppMechanisms != nullptr)
        *ppMechanisms = mechs.release();
    return succeed(pMinorStatus);
}

} // namespace scram
