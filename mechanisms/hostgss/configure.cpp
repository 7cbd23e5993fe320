// What the host has, checked against what the configuration asks of it.
#include <cstdlib>
#include <initializer_list>

#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/status.h"

namespace hostgss {

namespace {

bool contains(const OidSet &set, Bytes mech) {
    for (std::size_t i = 0; i != set.count(); ++i)
        if (set[i] == mech)
            return true;
    return false;
}

// The entry that the framework is configuring; null when it does not say.
const MechInfo_t *entry_being_configured() {
    for (OM_uint32 i = 0; i != MechCount; ++i)
        if (served_here(pMechInfo[i]) && pMechInfo[i].fUseMech == GSSP_MECH_BEING_CONFIGURED)
            return &pMechInfo[i];
    return nullptr;
}

// Left as it was when memory is lacking: the status then has to do.
void append(qxgss_buffer_t pBuffer, Bytes text) {
    void *const grown = std::realloc(pBuffer->value, pBuffer->length + text.size());
    if (grown == nullptr)
        return;
    pBuffer->value = grown;
    text.copy(static_cast<char *>(grown) + pBuffer->length, text.size());
    pBuffer->length += text.size();
}

OM_uint32 disable(OM_uint32 *pMinorStatus, qxgss_buffer_t pConfigInfo, std::initializer_list<Bytes> texts) {
    Block whole;
    bool complete = pConfigInfo != nullptr;
    for (const Bytes text : texts)
        complete = complete && whole.append(text);
    if (complete)
        append(pConfigInfo, whole.view());
    return finish(pMinorStatus, {GSS_S_FAILURE, GSSP_E_MECHANISM_DISABLED,
                                 "The host's GSS-API library does not have the mechanism."});
}

} // namespace

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_configure(OM_uint32 *pMinorStatus, OM_uint32, qxgss_buffer_t, qxgss_buffer_t pConfigInfoBuf) {
    OidSet host;
    const Status status = mechanisms(host);
    if (status.failed())
        return disable(pMinorStatus, pConfigInfoBuf, {"the host's GSS-API library cannot be used"});
    const MechInfo_t *entry = entry_being_configured();
    if (entry == nullptr || contains(host, view(entry->pMechOid)))
        return finish(pMinorStatus, {});
    return disable(pMinorStatus, pConfigInfoBuf,
                   {"the host's GSS-API library has no mechanism ", entry->pszMechOid,
                    "; is its package installed, and named in /etc/gss/mech.d?"});
}

OM_uint32 HOSTGSS_indicate_mechs(OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet) {
    if (ppMechSet == nullptr)
        return refuse(pMinorStatus, kInaccessibleWrite, "There is no room for the mechanisms.");
    *ppMechSet = nullptr;
    OidSet host;
    Status status = mechanisms(host);
    if (!status.failed())
        status = make_oid_set(host, ppMechSet);
    return finish(pMinorStatus, status);
}

OM_uint32 HOSTGSS_inquire_names_for_mech(OM_uint32 *pMinorStatus, qxgss_OID pMechanism, qxgss_OID_set *ppNameTypes) {
    if (ppNameTypes == nullptr)
        return refuse(pMinorStatus, kInaccessibleWrite, "There is no room for the name types.");
    *ppNameTypes = nullptr;
    OidSet host;
    Status status = mechanisms(host);
    if (status.failed())
        return finish(pMinorStatus, status);
    if (!contains(host, view(pMechanism)))
        return refuse(pMinorStatus, GSS_S_BAD_MECH, "The host's GSS-API library does not have the mechanism.");
    status.major = gssp_create_empty_oid_set(&status.minor, ppNameTypes);
    for (const qxgss_OID type : {GSS_C_NT_QXAT_MECHDATA, GSS_C_NT_QXAT_MECHDATA_UTF8, GSS_C_NT_QXAT_MECHDATA_UTF16,
                                 GSS_C_NT_QXAT_MECHDATA_UTF32, GSS_C_NT_HOSTBASED_SERVICE})
        if (!status.failed())
            status.major = gssp_add_oid_set_member(&status.minor, type, ppNameTypes);
    if (status.failed())
        gssp_release_oid_set(nullptr, ppNameTypes);
    return finish(pMinorStatus, status);
}
