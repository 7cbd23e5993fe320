// What the host has, checked against what the configuration asks of it.
#include <charconv>
#include <cstdlib>
#include <initializer_list>
#include <iterator>

#include "common/owned.h"
#include "mechanisms/exposure.h"
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/ntlm.h"
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

// Appends the texts to the message, behind what is there.
void say(qxgss_buffer_t pConfigInfo, std::initializer_list<Bytes> texts) {
    if (pConfigInfo == nullptr)
        return;
    Block whole;
    bool complete = pConfigInfo->length == 0 || whole.append("; ");
    for (const Bytes text : texts)
        complete = complete && whole.append(text);
    if (complete)
        common::append(*pConfigInfo, whole.view()); // without memory the status has to do
}

OM_uint32 disable(OM_uint32 *pMinorStatus, qxgss_buffer_t pConfigInfo, std::initializer_list<Bytes> texts) {
    say(pConfigInfo, texts);
    return finish(pMinorStatus, {GSS_S_FAILURE, GSSP_E_MECHANISM_DISABLED, "The mechanism is out of use."});
}

constexpr Bytes kCost =
    "gss-ntlmssp loses memory and, with newer OpenSSL, thread keys with every logon, also a refused one, until the "
    "process ends, unless its user file has hashes instead of passwords";

// What is wrong with the entry's settings; nothing: empty.
Bytes wrong_setting(const MechInfo_t &entry) {
    const char *const accept = setting_of(entry, "accept");
    if (accept != nullptr && Bytes(accept) != "yes" && Bytes(accept) != "no")
        return "accept must be \"yes\" or \"no\"";
    return accept_limit(entry) == 0 ? "accept_limit must be a number from 1 to 4294967295" : "";
}

void warn_of_exposure(qxgss_buffer_t pConfigInfo, const char *file) {
    if (const char *const exposed = exposure(file); exposed != nullptr)
        say(pConfigInfo, {file, exposed});
}

// Of an acceptor's mechanism: what it costs, and who else can open what it keeps.
void warn(const MechInfo_t &entry, qxgss_buffer_t pConfigInfo) {
    warn_of_exposure(pConfigInfo, setting_of(entry, "keytab_file"));
    if (bytes_of(entry.pMechOid) != kNtlm)
        return;
    char digits[10];
    const char *const end = std::to_chars(std::begin(digits), std::end(digits), accept_limit(entry)).ptr;
    say(pConfigInfo, {"NTLM logons are accepted, at most ", {digits, end}, " in this process: ", kCost});
    warn_of_exposure(pConfigInfo, ntlm_user_file());
}

} // namespace

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_configure(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, qxgss_buffer_t,
                            qxgss_buffer_t pConfigInfoBuf) {
    OidSet host;
    if (mechanisms(host).failed())
        return disable(pMinorStatus, pConfigInfoBuf, {"the host's GSS-API library cannot be used"});
    const MechInfo_t *entry = entry_being_configured();
    if (entry == nullptr)
        return finish(pMinorStatus, {});
    const Bytes mech = bytes_of(entry->pMechOid), wrong = wrong_setting(*entry);
    if (mech == kNegotiator)
        return disable(pMinorStatus, pConfigInfoBuf,
                       {"the host's own negotiator is not served: its tokens hide mechanisms that are not negotiable "
                        "here, and NTLM messages from the checks that they need"});
    if (!contains(host, mech))
        return disable(pMinorStatus, pConfigInfoBuf,
                       {"the host's GSS-API library has no mechanism ", entry->pszMechOid,
                        "; is its package installed, and named in /etc/gss/mech.d?"});
    if (!wrong.empty())
        return disable(pMinorStatus, pConfigInfoBuf, {wrong});
    if (ClientServer == QXGSS_SERVER && !may_accept(*entry))
        return disable(pMinorStatus, pConfigInfoBuf,
                       {"a server does not accept it unless its settings say accept = \"yes\"",
                        mech == kNtlm ? "; then " : "", mech == kNtlm ? kCost : ""});
    if (ClientServer == QXGSS_SERVER)
        warn(*entry, pConfigInfoBuf);
    return finish(pMinorStatus, {});
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
    if (!contains(host, bytes_of(pMechanism)))
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
