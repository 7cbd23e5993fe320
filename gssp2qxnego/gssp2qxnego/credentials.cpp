// QXNEGO's credential: a remembered request, from which each context acquires the mechanisms' own credentials.
#include <utility>

#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

OM_uint32 test_name_type(OM_uint32 *pMinorStatus, const qxgss_name_desc &name, qxgss_OID_set types, int &isMember) {
    if (name.Count == 0 || name.pElements == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NAMETYPE);
    return gssp_test_oid_set_member(pMinorStatus, name.pElements[0].pNameType, types, &isMember);
}

// Stores a copy of the name whose text is in UTF-8. The text it replaces may hold a password.
OM_uint32 record_name(OM_uint32 *pMinorStatus, qxgss_name_t desiredName, QxnegoCredDescStruct &credential) {
    OM_uint32 major = gssp_duplicate_name(pMinorStatus, desiredName, &credential.pDesiredName);
    if (failed(major) || desiredName == nullptr)
        return major;
    int isPreferred = 0;
    major = test_name_type(pMinorStatus, *desiredName, pQxnegoPreferredCredNameTypes, isPreferred);
    if (failed(major) || isPreferred != 0)
        return major;
    const gssp_utf_convert_flags_t flags = {GSSP_UTF_BY_NAMETYPE, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    qxgss_buffer_desc text{};
    major = gssp_convertname_utf(pMinorStatus, desiredName, &text, &flags);
    if (failed(major) || text.length == 0) {
        discard(text);
        return major;
    }
    std::swap(credential.pDesiredName->pElements[0].Name, text);
    return gssp_release_secure_buffer(pMinorStatus, &text);
}

} // namespace

OM_uint32 QXNEGO_acquire_cred(OM_uint32 *pMinorStatus, const qxgss_name_t pDesiredName, OM_uint32 TimeReq,
                              const qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage,
                              qxgss_cred_id_t *ppOutputCredHandle, qxgss_OID_set *ppActualMechs, OM_uint32 *pTimeRec) {
    set_if_given(ppActualMechs, qxgss_OID_set{});
    set_if_given(pTimeRec, OM_uint32{0});
    if (ppOutputCredHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CRED, QXNEGO_E_NO_CREDENTIAL);
    *ppOutputCredHandle = nullptr;

    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    if (pDesiredName != nullptr) {
        int isSupported = 0;
        if (failed(test_name_type(&minor, *pDesiredName, pQxnegoSupportedCredNameTypes, isSupported)))
            return report(pMinorStatus, GSS_S_FAILURE, minor);
        if (isSupported == 0)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NAMETYPE);
    }
    if (CredUsage < GSS_C_BOTH || CredUsage > GSS_C_ACCEPT)
        return report(pMinorStatus, GSS_S_NO_CRED, QXNEGO_E_BAD_CRED_USAGE);

    const QxnegoCred_t credential = zeroed<QxnegoCredDescStruct>().release();
    *ppOutputCredHandle = credential;
    if (credential == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    credential->TimeReq = TimeReq;
    credential->CredUsage = CredUsage;
    OM_uint32 major = record_name(&minor, pDesiredName, *credential);
    if (!failed(major))
        major = gssp_duplicate_oid_set(&minor, pDesiredMechs, &credential->pDesiredMechs);
    if (!failed(major) && ppActualMechs != nullptr)
        major = gssp_duplicate_oid_set(&minor, pQxnegoMechOidSet, ppActualMechs);
    if (failed(major)) {
        QXNEGO_release_cred(nullptr, ppOutputCredHandle);
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    }
    set_if_given(pTimeRec, TimeReq);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle) {
    if (ppCredHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CRED, QXNEGO_E_NO_CREDENTIAL);
    if (*ppCredHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CRED, QXNEGO_E_NO_CREDENTIAL);
    const Heap<QxnegoCredDescStruct> credential(static_cast<QxnegoCred_t>(*ppCredHandle));
    *ppCredHandle = nullptr;

    LastFailure result;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    if (credential->pDesiredName != nullptr) {
        const OM_uint32 major = gssp_release_name(&minor, &credential->pDesiredName);
        result.note(major, minor);
    }
    if (credential->pDesiredMechs != nullptr) {
        const OM_uint32 major = gssp_release_oid_set(&minor, &credential->pDesiredMechs);
        result.note(major, minor);
    }
    return result.report(pMinorStatus);
}

OM_uint32 QXNEGO_inquire_cred(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pCredHandle, qxgss_name_t *ppName,
                              OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage, qxgss_OID_set *ppMechanisms) {
    set_if_given(ppName, qxgss_name_t{});
    set_if_given(pLifetimeRec, OM_uint32{0});
    set_if_given(pCredUsage, qxgss_cred_usage_t{0});
    set_if_given(ppMechanisms, qxgss_OID_set{});
    const auto *credential = static_cast<QxnegoCredDescStruct *>(pCredHandle);
    if (credential == nullptr)
        return report(pMinorStatus, GSS_S_NO_CRED, QXNEGO_E_NO_CREDENTIAL);

    set_if_given(pLifetimeRec, credential->TimeReq);
    set_if_given(pCredUsage, credential->CredUsage);
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    OM_uint32 major = GSS_S_COMPLETE;
    if (ppName != nullptr)
        major = gssp_duplicate_name(&minor, credential->pDesiredName, ppName);
    if (major == GSS_S_COMPLETE && ppMechanisms != nullptr)
        major = gssp_duplicate_oid_set(&minor, credential->pDesiredMechs, ppMechanisms);
    if (major == GSS_S_COMPLETE)
        return succeed(pMinorStatus);
    // A copy that came with another status than complete is not handed out either.
    if (ppName != nullptr)
        gssp_release_name(nullptr, ppName);
    if (ppMechanisms != nullptr)
        gssp_release_oid_set(nullptr, ppMechanisms);
    return report(pMinorStatus, GSS_S_DEFECTIVE_CREDENTIAL, minor);
}
