// What became of a negotiation, as data: the same that its log tells as text.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

bool is_offered(const NegMechList_desc &list) {
    for (OM_uint32 i = 0; list.pNegMech != nullptr && i < list.Count; ++i)
        if (list.pNegMech[i].MechIndex >= 0 && present(list.pNegMech[i].InputToken))
            return true;
    return false;
}

} // namespace

OM_uint32 QXNEGO_inquire_negotiation(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                     qxgss_negotiation_desc *pNegotiation) {
    if (pContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, QXNEGO_E_INACCESSIBLE);
    if (pNegotiation == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    *pNegotiation = {};
    pNegotiation->MechCount = negotiation.NegMechList.pNegMech == nullptr ? 0 : negotiation.NegMechList.Count;
    pNegotiation->SelectedNumber = selected_entry(negotiation) == nullptr ? -1 : negotiation.SelectedMechListIndex;
    pNegotiation->NegState = negotiation.NegState;
    pNegotiation->NegStateFromPeer = negotiation.NegStateFromPeer;
    pNegotiation->IsPolicyApplied = negotiation.IsPolicyApplied;
    pNegotiation->IsOffered = is_offered(negotiation.NegMechList) ? 1 : 0;
    pNegotiation->PolicyName = policy_identity(negotiation);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_inquire_negotiated_mech(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, OM_uint32 Number,
                                         qxgss_negotiated_mech_desc *pMech) {
    if (pContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, QXNEGO_E_INACCESSIBLE);
    if (pMech == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const NegContext_desc &negotiation = negotiation_of(pContextHandle);
    const NegMechList_desc &list = negotiation.NegMechList;
    *pMech = {};
    if (list.pNegMech == nullptr || Number >= list.Count)
        return report(pMinorStatus, GSS_S_UNAVAILABLE, QXNEGO_E_NO_MECHANISM);
    NegMechEntry_desc &entry = list.pNegMech[Number];
    *pMech = {entry.pMechOid,
              entry.MechIndex,
              static_cast<OM_uint32>(entry.MechState),
              static_cast<OM_uint32>(entry.MechReason),
              entry.GssMajorStatus,
              entry.GssMinorStatus,
              entry.GssMinorStatusText,
              entry.IsCtxEstablished != 0 ? 1 : 0,
              selected_entry(negotiation) == &entry ? 1 : 0};
    return succeed(pMinorStatus);
}
