// QXNEGO's credential: a remembered request, from which each context acquires the mechanisms' own credentials.
#include <utility>

#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

using namespace qxnego;

namespace {

Status test_name_type(const qxgss_name_desc &name, qxgss_OID_set types, int &is_member) {
    if (name.Count == 0 || name.pElements == nullptr)
        return common::failure(QXNEGO_E_BAD_NAMETYPE);
    return ask(gssp_test_oid_set_member, name.pElements[0].pNameType, types, &is_member);
}

Status require_supported(qxgss_name_t name) {
    int is_supported = 0;
    const Status tested = test_name_type(*name, pQxnegoSupportedCredNameTypes, is_supported);
    return tested.failed() || is_supported != 0 ? tested : common::failure(QXNEGO_E_BAD_NAMETYPE);
}

// Stores a copy of the name whose text is in UTF-8. The text it replaces may hold a password.
Status record_name(qxgss_name_t desired_name, QxnegoCredDescStruct &credential) {
    Status status = ask(gssp_duplicate_name, desired_name, &credential.pDesiredName);
    if (status.failed() || desired_name == nullptr)
        return status;
    int is_preferred = 0;
    status = test_name_type(*desired_name, pQxnegoPreferredCredNameTypes, is_preferred);
    if (status.failed() || is_preferred != 0)
        return status;
    const gssp_utf_convert_flags_t flags = {GSSP_UTF_BY_NAMETYPE, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    qxgss_buffer_desc text{};
    status = ask(gssp_convertname_utf, desired_name, &text, &flags);
    if (status.failed() || text.length == 0) {
        discard(text);
        return status;
    }
    std::swap(credential.pDesiredName->pElements[0].Name, text);
    return ask(gssp_release_secure_buffer, &text);
}

Status fill(QxnegoCredDescStruct &credential, qxgss_name_t desired_name, qxgss_OID_set desired_mechs,
            qxgss_OID_set *actual_mechs) {
    Status status = record_name(desired_name, credential);
    if (!status.failed())
        status = ask(gssp_duplicate_oid_set, desired_mechs, &credential.pDesiredMechs);
    if (!status.failed() && actual_mechs != nullptr)
        status = ask(gssp_duplicate_oid_set, pQxnegoMechOidSet, actual_mechs);
    return status;
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
    if (pDesiredName != nullptr)
        if (const Status supported = require_supported(pDesiredName); supported.failed())
            return report(pMinorStatus, GSS_S_FAILURE, supported.minor);
    if (CredUsage < GSS_C_BOTH || CredUsage > GSS_C_ACCEPT)
        return report(pMinorStatus, GSS_S_NO_CRED, QXNEGO_E_BAD_CRED_USAGE);

    const QxnegoCred_t credential = zeroed<QxnegoCredDescStruct>().release();
    *ppOutputCredHandle = credential;
    if (credential == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    credential->TimeReq = TimeReq;
    credential->CredUsage = CredUsage;
    const Status filled = fill(*credential, pDesiredName, pDesiredMechs, ppActualMechs);
    if (filled.failed()) {
        QXNEGO_release_cred(nullptr, ppOutputCredHandle);
        return report(pMinorStatus, GSS_S_FAILURE, filled.minor);
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

    LastFailure result(QXNEGO_E_SUCCESSFUL);
    if (credential->pDesiredName != nullptr)
        result.note(ask(gssp_release_name, &credential->pDesiredName));
    if (credential->pDesiredMechs != nullptr)
        result.note(ask(gssp_release_oid_set, &credential->pDesiredMechs));
    return report(pMinorStatus, result.get());
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
    Status status = kSuccess;
    if (ppName != nullptr)
        status = ask(gssp_duplicate_name, credential->pDesiredName, ppName);
    if (status.major == GSS_S_COMPLETE && ppMechanisms != nullptr)
        status = ask(gssp_duplicate_oid_set, credential->pDesiredMechs, ppMechanisms);
    if (status.major == GSS_S_COMPLETE)
        return succeed(pMinorStatus);
    // A copy that came with another status than complete is not handed out either.
    if (ppName != nullptr)
        gssp_release_name(nullptr, ppName);
    if (ppMechanisms != nullptr)
        gssp_release_oid_set(nullptr, ppMechanisms);
    return report(pMinorStatus, GSS_S_DEFECTIVE_CREDENTIAL, status.minor);
}
