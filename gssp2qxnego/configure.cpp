// The module's state, built from the framework's registry when it is configured and read-only afterwards: the template
// list of negotiable mechanisms in order of preference, QXNEGO's own OID, and its name types.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

qxgss_OID pQxnegoMechOid = nullptr;
OM_sint32 QxnegoMechIndex = -1;
qxgss_OID_set pQxnegoMechOidSet = nullptr;
NegMechList_desc QxnegoMechList = {0, nullptr};
qxgss_OID_set pQxnegoPreferredCredNameTypes = nullptr;
qxgss_OID_set pQxnegoSupportedCredNameTypes = nullptr;
qxgss_OID_set pQxnegoSupportedAllNameTypes = nullptr;

namespace {

// A step that can fail: the message, with a place for the text of its minor status, and whose status that is.
struct Failure {
    const char *format;
    const char *(*text_of)(OM_uint32);
};

constexpr Failure kResolveFailed{"QXNEGO_configure:  Error when calling gssp_mechstr_to_oid(%s) Mechanism Disabled",
                                 qxgsserrtostr};
constexpr Failure kIndexFailed{
    "QXNEGO_configure: Error when calling functiom gssp_oid_to_mechindex(%s) Mechanism Disabled", qxgsserrtostr};
constexpr Failure kCreateFailed{"QXNEGO_configure: Error when calling gssp_create_empty_oid_set(%s) Mechanism Disabled",
                                qxgsserrtostr};
constexpr Failure kAddFailed{"QXNEGO_configure: Error when calling gssp_add_oid_set_member(%s) Mechanism Disabled",
                             qxgsserrtostr};
constexpr Failure kListFailed{"QXNEGO_configure: Error when calling QXNEGO_INT_InitNegMechList(%s) Mechanism Disabled",
                              qxnegoerrtostr};
constexpr Failure kDuplicateFailed{"QXNEGO_configure: Error when calling gssp_duplicate_oid_set(%s) Mechanism Disabled",
                                   qxgsserrtostr};

// The steps of the configuration; the first that fails, or null.
const Failure *add_all(OM_uint32 *pMinor, qxgss_OID_set *ppSet, std::initializer_list<qxgss_OID> members) {
    for (const qxgss_OID member : members)
        if (failed(gssp_add_oid_set_member(pMinor, member, ppSet)))
            return &kAddFailed;
    return nullptr;
}

const Failure *make_set(OM_uint32 *pMinor, qxgss_OID_set *ppSet, std::initializer_list<qxgss_OID> members) {
    if (failed(gssp_create_empty_oid_set(pMinor, ppSet)))
        return &kCreateFailed;
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

const Failure *build_state(OM_uint32 *pMinor) {
    if (failed(gssp_mechstr_to_oid(pMinor, "QXNEGO", &pQxnegoMechOid)))
        return &kResolveFailed;
    if (failed(gssp_oid_to_mechindex(pMinor, pQxnegoMechOid, &QxnegoMechIndex)) || QxnegoMechIndex == -1)
        return &kIndexFailed;
    if (const Failure *failure = make_set(pMinor, &pQxnegoMechOidSet, {pQxnegoMechOid}))
        return failure;
    if (failed(QXNEGO_INT_InitNegMechList(pMinor, &QxnegoMechList)))
        return &kListFailed;
    if (const Failure *failure = make_set(pMinor, &pQxnegoPreferredCredNameTypes, {GSS_C_NT_QXAT_MECHDATA_UTF8}))
        return failure;
    if (const Failure *failure = make_set(pMinor, &pQxnegoSupportedCredNameTypes,
                                          {GSS_C_NT_QXAT_MECHDATA, GSS_C_NT_QXAT_MECHDATA_UTF8,
                                           GSS_C_NT_QXAT_MECHDATA_UTF16, GSS_C_NT_QXAT_MECHDATA_UTF32}))
        return failure;
    if (failed(gssp_duplicate_oid_set(pMinor, pQxnegoSupportedCredNameTypes, &pQxnegoSupportedAllNameTypes)))
        return &kDuplicateFailed;
    return add_all(pMinor, &pQxnegoSupportedAllNameTypes, {GSS_C_NT_HOSTBASED_SERVICE});
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

// The entry's properties; why it is not to be negotiated, or null.
const char *read_properties(OM_uint32 *pMinor, NegMechEntry_desc &entry) {
    const auto boolean = [&](OM_uint32 property, OM_uint32 &value) {
        return !failed(gssp_inquire_one_mech_property_boolean(pMinor, entry.pMechOid, property, &value));
    };
    OM_uint32 single_sign_on = 0;
    if (!boolean(GSSP_PROPERTY_AUTHENTICATION_SUPPORTED, entry.AuthenticationSupported))
        return "its property authentication is not set";
    if (!boolean(GSSP_PROPERTY_AUTHORIZATION_SUPPORTED, entry.AuthorizationSupported))
        return "its property authorization is not set";
    if (failed(gssp_inquire_one_mech_property_int(pMinor, entry.pMechOid, GSSP_PROPERTY_RANK, &entry.MechanismRank)))
        return "its property rank is not set";
    if (!boolean(GSSP_PROPERTY_SINGLE_SIGN_ON, single_sign_on))
        return "its property single_sign_on is not set";
    entry.SingleSignOn = static_cast<OM_sint32>(single_sign_on);
    return nullptr;
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
    entry = {};
    entry.IsMechStateChanged = 1;
    entry.pMechOid = oid;
    entry.MechState = NEG_MECH_STATE_AVAILABLE;
    entry.MechReason = NEG_MECH_REASON_AVAILABLE;
    entry.IsMechLocal = 1;
    entry.MechIndex = index;
    return read_properties(pMinor, entry);
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

template <typename Before> void exchange_pass(std::span<NegMechEntry_desc> list, Before before) {
    for (std::size_t i = 0; i + 1 < list.size(); ++i)
        for (std::size_t j = i + 1; j < list.size(); ++j)
            if (before(list[j], list[i]))
                std::swap(list[i], list[j]);
}

// The order is the one that these three passes give; mechanisms of equal rank may change places in the first.
void sort_by_preference(std::span<NegMechEntry_desc> list) {
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

void mark_first(std::span<NegMechEntry_desc> list) {
    for (std::size_t i = 0; i != list.size(); ++i) {
        const Found found = find_mechanism(list.first(i), *list[i].pMechOid, QXNEGO_E_SUCCESSFUL);
        list[i].IsFirstOfOid = found.number < 0 && !found.status.failed();
    }
}

} // namespace

OM_uint32 QXNEGO_configure(OM_uint32 *pMinorStatus, OM_uint32 /*ClientServer*/, qxgss_buffer_t /*pLibPathBuf*/,
                           qxgss_buffer_t pConfigInfoBuf) {
    release_state();
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const Failure *failure = build_state(&minor);
    if (failure == nullptr)
        return succeed(pMinorStatus);

    char message[500];
    const int length = std::snprintf(message, sizeof message, failure->format, failure->text_of(minor));
    const std::string_view text(message, static_cast<std::size_t>(length));
    if (pConfigInfoBuf != nullptr && !common::append(*pConfigInfoBuf, text))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_MECHANISM_DISABLED);
}

OM_uint32 QXNEGO_INT_InitNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pQxnegoMechList) {
    if (pQxnegoMechList == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INIT_LIST);
    *pQxnegoMechList = {};
    std::span<NegMechInfo_t> negotiables;
    if (const MechInfo_t *self = registered(QxnegoMechIndex); self != nullptr)
        negotiables = {self->pNegMechInfo, self->NegotiatedMechCount};
    const auto enabled = std::ranges::count_if(negotiables, [](const NegMechInfo_t &one) { return one.fEnabled != 0; });
    if (enabled == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    auto list = zeroed<NegMechEntry_desc>(static_cast<std::size_t>(enabled));
    if (list == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);

    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const qxgss_OID proxy = proxy_oid(&minor);
    OM_uint32 count = 0;
    for (const NegMechInfo_t &negotiable : negotiables)
        if (make_entry(&minor, negotiable, proxy, list[count]) == nullptr)
            ++count;
    if (count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    *pQxnegoMechList = {count, list.release()};
    sort_by_preference(entries(*pQxnegoMechList));
    mark_first(entries(*pQxnegoMechList));
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
    const Status copied = ask(gssp_duplicate_oid_set, pQxnegoSupportedAllNameTypes, ppNameTypes);
    return report(pMinorStatus, copied.major, copied.failed() ? copied.minor : kSuccess.minor);
}
