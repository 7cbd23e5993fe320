// Names and OIDs on their way between the framework and the host.
#include "mechanisms/hostgss/names.h"

#include <charconv>

#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/status.h"

namespace hostgss {

bool HostNameText::keep(NameKind kind) {
    name_ = {text_.view(), kind};
    return true;
}

bool HostNameText::from_service(Bytes text) {
    const std::size_t slash = text.find('/');
    if (slash == Bytes::npos || text.find('@') != Bytes::npos)
        return from_user(text);
    return text_.append(text.substr(0, slash)) && text_.append("@") && text_.append(text.substr(slash + 1)) &&
           keep(NameKind::kHostBasedService);
}

bool HostNameText::from_host_based(Bytes text) {
    return text_.append(text) && keep(NameKind::kHostBasedService);
}

bool HostNameText::from_user(Bytes text) {
    return text_.append(text) && keep(NameKind::kUser);
}

bool is_host_based(const qxgss_name_element_desc &element) {
    return bytes_of(element.pNameType) == bytes_of(GSS_C_NT_HOSTBASED_SERVICE);
}

Status make_name(Bytes text, qxgss_name_t *ppName) {
    if (text.empty())
        return {};
    qxgss_buffer_desc buffer = {text.size(), const_cast<char *>(text.data())};
    Status status;
    status.major = qxgss_import_name(&status.minor, &buffer, GSS_C_NT_QXAT_MECHDATA_UTF8, ppName);
    status.text = status.failed() ? "The name cannot be handed over." : nullptr;
    return status;
}

Status make_oid_set(const OidSet &set, qxgss_OID_set *ppSet) {
    Status status;
    status.major = gssp_create_empty_oid_set(&status.minor, ppSet);
    for (std::size_t i = 0; i != set.count() && !status.failed(); ++i) {
        const Bytes bytes = set[i];
        qxgss_OID_desc oid = {static_cast<OM_uint32>(bytes.size()), const_cast<char *>(bytes.data())};
        status.major = gssp_add_oid_set_member(&status.minor, &oid, ppSet);
    }
    if (status.failed())
        gssp_release_oid_set(nullptr, ppSet);
    return status;
}

qxgss_OID registered_oid(Bytes mech) {
    for (OM_uint32 i = 0; i != MechCount; ++i)
        if (!mech.empty() && bytes_of(pMechInfo[i].pMechOid) == mech)
            return pMechInfo[i].pMechOid;
    return nullptr;
}

bool served_here(const MechInfo_t &mechanism) {
    return mechanism.MechFtnTable.ftn_gssp_configure == HOSTGSS_configure;
}

const MechInfo_t *entry_of(Bytes mech) {
    for (OM_uint32 i = 0; i != MechCount; ++i)
        if (bytes_of(pMechInfo[i].pMechOid) == mech && served_here(pMechInfo[i]) &&
            pMechInfo[i].fUseMech != GSSP_MECH_UNUSED)
            return &pMechInfo[i];
    return nullptr;
}

const char *setting_of(const MechInfo_t &entry, const char *key) {
    const char *value = nullptr;
    gssp_inquire_mech_setting(nullptr, entry.pszMechName, key, &value);
    return value;
}

bool may_accept(const MechInfo_t &entry) {
    const char *const said = setting_of(entry, "accept");
    return said == nullptr ? bytes_of(entry.pMechOid) == kKerberos : Bytes(said) == "yes";
}

std::uint32_t accept_limit(const MechInfo_t &entry) {
    const char *const said = setting_of(entry, "accept_limit");
    if (said == nullptr)
        return kAcceptLimit;
    const Bytes text = said;
    std::uint32_t limit = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), limit);
    return error == std::errc() && end == text.data() + text.size() ? limit : 0;
}

} // namespace hostgss
