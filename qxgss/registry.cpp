// The registry of mechanisms: look-ups by name, by OID and by dotted OID, and the properties and settings behind them.
// What it hands out belongs to the framework. It is only read once qxgss_configure has returned, from any thread.
#include <mutex>
#include <new>
#include <string_view>

#include "qxgss/internal.h"

MechInfo_t *pMechInfo = nullptr;
OM_uint32 MechCount = 0;

namespace qxgss {

Configuration *configuration = nullptr;

namespace {

// OIDs that were asked for and that no mechanism has, by their DER octets. Unlike the registry it can grow later.
struct {
    std::mutex lock;
    std::map<std::string, qxgss_OID_desc> oids;
} unregistered;

const MechInfo_t *mechanism_named(const char *name) {
    if (name == nullptr)
        return nullptr;
    for (OM_uint32 i = 0; i < MechCount; ++i)
        if (std::strcmp(pMechInfo[i].pszMechName, name) == 0)
            return &pMechInfo[i];
    return nullptr;
}

OM_sint32 index_of(const qxgss_OID_desc &oid) {
    for (OM_uint32 i = 0; i < MechCount; ++i)
        if (equal(*pMechInfo[i].pMechOid, oid))
            return static_cast<OM_sint32>(i);
    return -1;
}

qxgss_OID unregistered_oid(std::string &&der) {
    const std::lock_guard<std::mutex> guard(unregistered.lock);
    const auto [place, added] = unregistered.oids.try_emplace(std::move(der));
    if (added)
        place->second = {static_cast<OM_uint32>(place->first.size()), const_cast<char *>(place->first.data())};
    return &place->second;
}

qxgss_OID framework_oid(std::string &&der) {
    const OM_sint32 index = index_of({static_cast<OM_uint32>(der.size()), der.data()});
    return index >= 0 ? pMechInfo[index].pMechOid : unregistered_oid(std::move(der));
}

// What the configuration file says about a mechanism of the registry.
const Mechanism *behind(const MechInfo_t *info) {
    return info == nullptr || configuration == nullptr
               ? nullptr
               : &configuration->mechanisms[static_cast<std::size_t>(info - pMechInfo)];
}

template <typename T>
OM_uint32 inquire_property(OM_uint32 *pMinorStatus, const qxgss_OID pMech, std::map<OM_uint32, T> Mechanism::*kind,
                           OM_uint32 Property, T *pValue) {
    if (!usable(pMech) || pValue == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_PROPERTY);
    const OM_sint32 index = index_of(*pMech);
    const Mechanism *mechanism = behind(index < 0 ? nullptr : &pMechInfo[index]);
    if (mechanism == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_PROPERTY);
    const auto property = (mechanism->*kind).find(Property);
    if (property == (mechanism->*kind).end())
        return fail(pMinorStatus, QXGSS_E_NO_PROPERTY);
    *pValue = property->second;
    return succeed(pMinorStatus);
}

} // namespace

std::optional<std::string> der_of(const char *oid) {
    OM_uint32 minor = 0, length = 0;
    unsigned char *elements = nullptr;
    if (GSS_ERROR(gssp_oidstr_to_oidder(&minor, 0, 0, oid, &length, &elements)) != 0) {
        if (minor == GSSP_E_NO_MEMORY)
            throw std::bad_alloc();
        return std::nullopt;
    }
    const Heap<unsigned char> owner(elements);
    return std::string(reinterpret_cast<const char *>(elements), length);
}

void forget_unregistered_oids() {
    const std::lock_guard<std::mutex> guard(unregistered.lock);
    unregistered.oids.clear();
}

} // namespace qxgss

using namespace qxgss;

OM_uint32 gssp_mechstr_to_oid(OM_uint32 *pMinorStatus, const char *pszMechName, qxgss_OID *ppOid) {
    if (ppOid == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_MECHANISM_OID);
    const MechInfo_t *info = mechanism_named(pszMechName);
    *ppOid = info == nullptr ? nullptr : info->pMechOid;
    return info == nullptr ? fail(pMinorStatus, QXGSS_E_NO_MECHANISM_OID) : succeed(pMinorStatus);
}

OM_uint32 gssp_mechoidstr_to_oid(OM_uint32 *pMinorStatus, const char *pszOid, qxgss_OID *ppOid) try {
    if (ppOid != nullptr)
        *ppOid = nullptr;
    if (pszOid == nullptr || ppOid == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_MECHANISM_OID);
    std::optional<std::string> der = der_of(pszOid);
    if (!der)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_STRING);
    *ppOid = framework_oid(std::move(*der));
    return succeed(pMinorStatus);
} catch (...) {
    return fail(pMinorStatus, GSSP_E_NO_MEMORY);
}

OM_uint32 gssp_oid_to_mechindex(OM_uint32 *pMinorStatus, const qxgss_OID pOid, OM_sint32 *pIndex) {
    if (pIndex != nullptr)
        *pIndex = -1;
    if (pOid == nullptr || pIndex == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_MECHANISM_OID);
    if (!usable(pOid))
        return fail(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    *pIndex = index_of(*pOid);
    return succeed(pMinorStatus);
}

OM_uint32 gssp_oid_to_mechstr(OM_uint32 *pMinorStatus, const qxgss_OID pOid, const char **ppszMechName) {
    if (ppszMechName == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_MECHANISM_STRING);
    const OM_sint32 index = usable(pOid) ? index_of(*pOid) : -1;
    *ppszMechName = index < 0 ? nullptr : pMechInfo[index].pszMechName;
    return index < 0 ? fail(pMinorStatus, QXGSS_E_NO_MECHANISM_STRING) : succeed(pMinorStatus);
}

OM_uint32 gssp_mechstr_to_oidstr(OM_uint32 *pMinorStatus, const char *pszMechName, const char **ppszOid) {
    if (ppszOid == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_OID_STRING);
    const MechInfo_t *info = mechanism_named(pszMechName);
    *ppszOid = info == nullptr ? nullptr : info->pszMechOid;
    return info == nullptr ? fail(pMinorStatus, QXGSS_E_NO_OID_STRING) : succeed(pMinorStatus);
}

OM_uint32 gssp_inquire_one_mech_property_boolean(OM_uint32 *pMinorStatus, const qxgss_OID pMech, OM_uint32 Property,
                                                 OM_uint32 *pValue) {
    return inquire_property(pMinorStatus, pMech, &Mechanism::booleans, Property, pValue);
}

OM_uint32 gssp_inquire_one_mech_property_int(OM_uint32 *pMinorStatus, const qxgss_OID pMech, OM_uint32 Property,
                                             OM_sint32 *pValue) {
    return inquire_property(pMinorStatus, pMech, &Mechanism::integers, Property, pValue);
}

OM_uint32 gssp_inquire_mech_setting(OM_uint32 *pMinorStatus, const char *pszMechName, const char *pszKey,
                                    const char **ppszValue) {
    if (ppszValue == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_PROPERTY);
    *ppszValue = nullptr;
    const Mechanism *mechanism = behind(mechanism_named(pszMechName));
    if (mechanism == nullptr || pszKey == nullptr)
        return fail(pMinorStatus, QXGSS_E_NO_PROPERTY);
    const auto setting = mechanism->settings.find(std::string_view(pszKey));
    if (setting == mechanism->settings.end())
        return fail(pMinorStatus, QXGSS_E_NO_PROPERTY);
    *ppszValue = setting->second.c_str();
    return succeed(pMinorStatus);
}
