// What became of a negotiation, as data: the same that its log tells as text.
#include <algorithm>

#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/gssp2qxnegoutil/policy.h"

using namespace qxnego;

namespace {

bool is_offered(const NegMechList_desc &list) {
    return std::ranges::any_of(entries(list), [](const NegMechEntry_desc &entry) {
        return entry.MechIndex >= 0 && present(entry.InputToken);
    });
}

} // namespace

OM_uint32 QXNEGO_inquire_negotiation(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                     qxgss_negotiation_desc *pNegotiation) {
    set_if_given(pNegotiation, qxgss_negotiation_desc{});
    if (pContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_INACCESSIBLE);
    if (pNegotiation == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    pNegotiation->MechCount = static_cast<OM_uint32>(entries(negotiation.NegMechList).size());
    pNegotiation->SelectedNumber = selected_entry(negotiation) == nullptr ? -1 : negotiation.SelectedMechListIndex;
    pNegotiation->NegState = negotiation.NegState;
    pNegotiation->NegStateFromPeer = negotiation.NegStateFromPeer;
    pNegotiation->IsPolicyApplied = negotiation.IsPolicyApplied;
    pNegotiation->IsOffered = is_offered(negotiation.NegMechList) ? 1 : 0;
    pNegotiation->PolicyName = policy_name(negotiation);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_inquire_negotiated_mech(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, OM_uint32 Number,
                                         qxgss_negotiated_mech_desc *pMech) {
    set_if_given(pMech, qxgss_negotiated_mech_desc{});
    if (pContextHandle == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_INACCESSIBLE);
    if (pMech == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    const std::span<NegMechEntry_desc> all = entries(negotiation.NegMechList);
    if (Number >= all.size())
        return report(pMinorStatus, GSS_S_UNAVAILABLE, QXNEGO_E_MECHANISM_UNAVAILABLE);
    const NegMechEntry_desc &entry = all[Number];
    *pMech = {entry.pMechOid,
              entry.MechIndex,
              static_cast<OM_uint32>(entry.MechState),
              static_cast<OM_uint32>(entry.MechReason),
              entry.GssMajorStatus,
              entry.GssMinorStatus,
              entry.GssMinorStatusText,
              entry.IsCtxEstablished != 0 ? 1 : 0,
              selected_entry(negotiation) == &entry ? 1 : 0,
              entry.IsStateFromPeer ? 1 : 0,
              present(entry.InputToken) ? 1 : 0};
    return succeed(pMinorStatus);
}
