// The mechanisms that a user may log on with, as the configuration file lists them.
#include "qxgss/internal.h"

namespace {

using namespace qxgss;

constexpr OM_uint32 kNoUser = 0xE10000CBU;
constexpr OM_uint32 kNoPolicy = 0xE10000F2U;

// What is allowed to the user; null when nothing restricts the user.
const MechanismNumbers *allowed(const char *user) {
    const auto listed = configuration->users.find(user);
    if (listed != configuration->users.end())
        return &listed->second;
    return configuration->default_policy ? &*configuration->default_policy : nullptr;
}

OM_uint32 add_all(OM_uint32 *pMinorStatus, const MechanismNumbers &numbers, qxgss_OID_set *ppMechs) {
    for (const std::size_t number : numbers) {
        const OM_uint32 major = gssp_add_oid_set_member(pMinorStatus, pMechInfo[number].pMechOid, ppMechs);
        if (GSS_ERROR(major) != 0)
            return major;
    }
    return succeed(pMinorStatus);
}

} // namespace

OM_uint32 gssp_inquire_mech_policy_for_user(OM_uint32 *pMinorStatus, const char *pszUser, qxgss_OID_set *ppMechs) {
    if (ppMechs == nullptr)
        return fail(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    *ppMechs = nullptr;
    if (pszUser == nullptr || *pszUser == '\0')
        return fail(pMinorStatus, kNoUser);
    // No policy is not the same as an unknown one: without a configuration nobody is let through.
    if (configuration == nullptr)
        return fail(pMinorStatus, kNoPolicy);
    const MechanismNumbers *numbers = allowed(pszUser);
    if (numbers == nullptr)
        return succeed(pMinorStatus);
    OM_uint32 major = gssp_create_empty_oid_set(pMinorStatus, ppMechs);
    if (GSS_ERROR(major) == 0)
        major = add_all(pMinorStatus, *numbers, ppMechs);
    if (GSS_ERROR(major) != 0)
        gssp_release_oid_set(nullptr, ppMechs);
    return major;
}
