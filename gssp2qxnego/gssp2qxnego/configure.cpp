// The module's state, built from the framework's registry when it is configured and read-only afterwards: the template
// list of negotiable mechanisms in order of preference, QXNEGO's own OID, and its name types.
#include <cstdio>
#include <utility>

#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

qxgss_OID pQxnegoMechOid = nullptr;
OM_sint32 QxnegoMechIndex = -1;
qxgss_OID_set pQxnegoMechOidSet = nullptr;
NegMechList_desc QxnegoMechList = {0, nullptr};
qxgss_OID_set pQxnegoPreferredCredNameTypes = nullptr;
qxgss_OID_set pQxnegoSupportedCredNameTypes = nullptr;
qxgss_OID_set pQxnegoSupportedAllNameTypes = nullptr;

namespace {

constexpr char kResolveFailed[] = "QXNEGO_configure:  Error when calling gssp_mechstr_to_oid(%s) Mechanism Disabled";
constexpr char kIndexFailed[] =
    "QXNEGO_configure: Error when calling functiom gssp_oid_to_mechindex(%s) Mechanism Disabled";
constexpr char kCreateFailed[] =
    "QXNEGO_configure: Error when calling gssp_create_empty_oid_set(%s) Mechanism Disabled";
constexpr char kAddFailed[] = "QXNEGO_configure: Error when calling gssp_add_oid_set_member(%s) Mechanism Disabled";
constexpr char kListFailed[] = "QXNEGO_configure: Error when calling QXNEGO_INT_InitNegMechList(%s) Mechanism Disabled";
constexpr char kDuplicateFailed[] =
    "QXNEGO_configure: Error when calling gssp_duplicate_oid_set(%s) Mechanism Disabled";

// The steps of the configuration; the message of the first that fails, or null.
const char *add_all(OM_uint32 *pMinor, qxgss_OID_set *ppSet, std::initializer_list<qxgss_OID> members) {
    for (const qxgss_OID member : members)
        if (failed(gssp_add_oid_set_member(pMinor, member, ppSet)))
            return kAddFailed;
    return nullptr;
}

const char *make_set(OM_uint32 *pMinor, qxgss_OID_set *ppSet, std::initializer_list<qxgss_OID> members) {
    if (failed(gssp_create_empty_oid_set(pMinor, ppSet)))
        return kCreateFailed;
    return add_all(pMinor, ppSet, members);
}

// What an earlier configuration of the process left, which this one replaces. Contexts have copies of their own.
void release_state() {
    for (qxgss_OID_set *set : {&pQxnegoMechOidSet, &pQxnegoPreferredCredNameTypes, &pQxnegoSupportedCredNameTypes,
                               &pQxnegoSupportedAllNameTypes})
        gssp_release_oid_set(nullptr, set);
    std::free(QxnegoMechList.pNegMech);
    QxnegoMechList = {};
    pQxnegoMechOid = nullptr;
    QxnegoMechIndex = -1;
}

const char *build_state(OM_uint32 *pMinor) {
    if (failed(gssp_mechstr_to_oid(pMinor, "QXNEGO", &pQxnegoMechOid)))
        return kResolveFailed;
    if (failed(gssp_oid_to_mechindex(pMinor, pQxnegoMechOid, &QxnegoMechIndex)) || QxnegoMechIndex == -1)
        return kIndexFailed;
    if (const char *failure = make_set(pMinor, &pQxnegoMechOidSet, {pQxnegoMechOid}))
        return failure;
    if (failed(QXNEGO_INT_InitNegMechList(pMinor, &QxnegoMechList)))
        return kListFailed;
    if (const char *failure = make_set(pMinor, &pQxnegoPreferredCredNameTypes, {GSS_C_NT_QXAT_MECHDATA_UTF8}))
        return failure;
    if (const char *failure = make_set(pMinor, &pQxnegoSupportedCredNameTypes,
                                       {GSS_C_NT_QXAT_MECHDATA, GSS_C_NT_QXAT_MECHDATA_UTF8,
                                        GSS_C_NT_QXAT_MECHDATA_UTF16, GSS_C_NT_QXAT_MECHDATA_UTF32}))
        return failure;
    if (failed(gssp_duplicate_oid_set(pMinor, pQxnegoSupportedCredNameTypes, &pQxnegoSupportedAllNameTypes)))
        return kDuplicateFailed;
    return add_all(pMinor, &pQxnegoSupportedAllNameTypes, {GSS_C_NT_HOSTBASED_SERVICE});
}

// Appends the message to the framework's buffer, which keeps what it holds; no separator and no NUL.
bool append_message(qxgss_buffer_t pConfigInfoBuf, const char *message, std::size_t length) {
    void *grown = std::realloc(pConfigInfoBuf->value, pConfigInfoBuf->length + length);
    if (grown == nullptr)
        return false;
    std::memcpy(static_cast<char *>(grown) + pConfigInfoBuf->length, message, length);
    pConfigInfoBuf->value = grown;
    pConfigInfoBuf->length += length;
    return true;
}

bool is_proxy(OM_uint32 *pMinor, qxgss_OID oid, qxgss_OID proxy) {
    OM_sint32 difference = 0;
    return proxy != nullptr && (failed(gssp_compare_oids(pMinor, oid, proxy, &difference)) || difference == 0);
}

qxgss_OID proxy_oid(OM_uint32 *pMinor) {
    qxgss_OID proxy = nullptr;
    return gssp_mechstr_to_oid(pMinor, "PROXY", &proxy) == GSS_S_COMPLETE ? proxy : nullptr;
}

// The OID and the registry's index of what a row of the configuration names; false when the registry lacks it.
bool resolve(OM_uint32 *pMinor, const char *pszOid, qxgss_OID &oid, OM_sint32 &index) {
    return pszOid != nullptr && !failed(gssp_mechoidstr_to_oid(pMinor, pszOid, &oid)) &&
           !failed(gssp_oid_to_mechindex(pMinor, oid, &index)) && index != -1;
}

// Fills an entry for a negotiable mechanism; why it is not to be negotiated, or null.
const char *make_entry(OM_uint32 *pMinor, const NegMechInfo_t &negotiable, qxgss_OID proxy, NegMechEntry_desc &entry) {
    qxgss_OID oid = nullptr;
    OM_sint32 index = -1;
    if (negotiable.fEnabled == 0)
        return "it is disabled in QXNEGO's negotiates";
    if (!resolve(pMinor, negotiable.pNegotiatedMech, oid, index))
        return "it is not registered";
    if (is_proxy(pMinor, oid, proxy))
        return "PROXY is never negotiated";
    if (!in_use(index))
        return "it is not loaded";
    if (index == QxnegoMechIndex)
        return "QXNEGO does not negotiate itself";
    OM_uint32 authentication = 0;
    OM_uint32 authorization = 0;
    OM_sint32 rank = 0;
    OM_uint32 singleSignOn = 0;
    if (failed(gssp_inquire_one_mech_property_boolean(pMinor, oid, GSSP_PROPERTY_AUTHENTICATION_SUPPORTED,
                                                      &authentication)))
        return "its property authentication is not set";
    if (failed(
            gssp_inquire_one_mech_property_boolean(pMinor, oid, GSSP_PROPERTY_AUTHORIZATION_SUPPORTED, &authorization)))
        return "its property authorization is not set";
    if (failed(gssp_inquire_one_mech_property_int(pMinor, oid, GSSP_PROPERTY_RANK, &rank)))
        return "its property rank is not set";
    if (failed(gssp_inquire_one_mech_property_boolean(pMinor, oid, GSSP_PROPERTY_SINGLE_SIGN_ON, &singleSignOn)))
        return "its property single_sign_on is not set";

    entry = {};
    entry.IsMechStateChanged = 1;
    entry.pMechOid = oid;
    entry.MechState = NEG_MECH_STATE_AVAILABLE;
    entry.MechReason = NEG_MECH_REASON_AVAILABLE;
    entry.IsMechLocal = 1;
    entry.MechIndex = index;
    entry.AuthenticationSupported = authentication;
    entry.AuthorizationSupported = authorization;
    entry.MechanismRank = rank;
    entry.SingleSignOn = static_cast<OM_sint32>(singleSignOn);
    return nullptr;
}

const char *why_not_negotiated(const MechInfo_t &self, OM_sint32 wanted) {
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    for (OM_uint32 i = 0; i < self.NegotiatedMechCount; ++i) {
        const NegMechInfo_t &negotiable = self.pNegMechInfo[i];
        qxgss_OID oid = nullptr;
        OM_sint32 index = -1;
        NegMechEntry_desc ignored;
        if (resolve(&minor, negotiable.pNegotiatedMech, oid, index) && index == wanted)
            return make_entry(&minor, negotiable, proxy_oid(&minor), ignored);
    }
    return wanted == QxnegoMechIndex ? "QXNEGO does not negotiate itself" : "it is not listed in QXNEGO's negotiates";
}

template <typename Before> void exchange_pass(const NegMechList_desc &list, Before before) {
    for (OM_uint32 i = 0; i + 1 < list.Count; ++i)
        for (OM_uint32 j = i + 1; j < list.Count; ++j)
            if (before(list.pNegMech[j], list.pNegMech[i]))
                std::swap(list.pNegMech[i], list.pNegMech[j]);
}

// The order is the one that these three passes give; mechanisms of equal rank may change places in the first.
void sort_by_preference(const NegMechList_desc &list) {
    const auto both = [](bool authenticate) {
        return [authenticate](const NegMechEntry_desc &a, const NegMechEntry_desc &b) {
            return (a.AuthenticationSupported != 0) == authenticate &&
                   (b.AuthenticationSupported != 0) == authenticate && a.MechanismRank < b.MechanismRank;
        };
    };
    exchange_pass(list, [](const NegMechEntry_desc &a, const NegMechEntry_desc &b) {
        return a.AuthenticationSupported > b.AuthenticationSupported;
    });
    exchange_pass(list, both(true));
    exchange_pass(list, both(false));
}

} // namespace

OM_uint32 QXNEGO_configure(OM_uint32 *pMinorStatus, OM_uint32 /*ClientServer*/, qxgss_buffer_t /*pLibPathBuf*/,
                           qxgss_buffer_t pConfigInfoBuf) {
    release_state();
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const char *failure = build_state(&minor);
    if (failure == nullptr)
        return succeed(pMinorStatus);

    char message[500] = {};
    const char *text = failure == kListFailed ? qxnegoerrtostr(minor) : qxgsserrtostr(minor);
    const int length = std::snprintf(message, sizeof message, failure, text);
    if (pConfigInfoBuf != nullptr && !append_message(pConfigInfoBuf, message, static_cast<std::size_t>(length)))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_MECHANISM_DISABLED);
}

OM_uint32 QXNEGO_INT_InitNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pQxnegoMechList) {
    if (pQxnegoMechList == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INIT_LIST);
    *pQxnegoMechList = {};
    const MechInfo_t *self = registered(QxnegoMechIndex);
    OM_uint32 enabled = 0;
    for (OM_uint32 i = 0; self != nullptr && i < self->NegotiatedMechCount; ++i)
        enabled += self->pNegMechInfo[i].fEnabled != 0 ? 1U : 0U;
    if (enabled == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    auto entries = zeroed<NegMechEntry_desc>(enabled);
    if (entries == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);

    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const qxgss_OID proxy = proxy_oid(&minor);
    OM_uint32 count = 0;
    for (OM_uint32 i = 0; i < self->NegotiatedMechCount; ++i)
        if (make_entry(&minor, self->pNegMechInfo[i], proxy, entries.get()[count]) == nullptr)
            ++count;
    if (count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    *pQxnegoMechList = {count, entries.release()};
    sort_by_preference(*pQxnegoMechList);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_inquire_candidate(OM_uint32 *pMinorStatus, OM_sint32 MechIndex, const char **ppszWhyNot) {
    if (ppszWhyNot == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    *ppszWhyNot = nullptr;
    const MechInfo_t *self = registered(QxnegoMechIndex);
    if (self == nullptr)
        return report(pMinorStatus, GSS_S_UNAVAILABLE, QXNEGO_E_NO_MECHANISM);
    *ppszWhyNot = why_not_negotiated(*self, MechIndex);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_indicate_mechs(OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet) {
    if (ppMechSet == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE, QXNEGO_E_INACCESSIBLE);
    *ppMechSet = nullptr;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    OM_uint32 major = gssp_create_empty_oid_set(&minor, ppMechSet);
    qxgss_OID oid = nullptr;
    if (major == GSS_S_COMPLETE && gssp_mechstr_to_oid(&minor, "QXNEGO", &oid) != GSS_S_COMPLETE)
        major = GSS_S_FAILURE;
    if (major == GSS_S_COMPLETE)
        major = gssp_add_oid_set_member(&minor, oid, ppMechSet);
    if (major == GSS_S_COMPLETE)
        return succeed(pMinorStatus);
    gssp_release_oid_set(nullptr, ppMechSet);
    return report(pMinorStatus, major, minor);
}

OM_uint32 QXNEGO_inquire_names_for_mech(OM_uint32 *pMinorStatus, const qxgss_OID /*pMechanism*/,
                                        qxgss_OID_set *ppNameTypes) {
    if (ppNameTypes == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    *ppNameTypes = nullptr;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = gssp_duplicate_oid_set(&minor, pQxnegoSupportedAllNameTypes, ppNameTypes);
    return report(pMinorStatus, major, failed(major) ? minor : OM_uint32{QXNEGO_E_SUCCESSFUL});
}
