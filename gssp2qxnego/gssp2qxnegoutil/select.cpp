// Choosing the mechanism: the first available one, once it is established and the server's policy applied.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

// What a scan of the list finds; false in `valid` when an entry is neither available nor rejected.
struct Scan {
    OM_sint32 firstAvailable = -1;
    OM_uint32 rejected = 0;
    bool valid = true;
};

Scan scan(const NegMechList_desc &list) {
    Scan result;
    for (OM_uint32 i = 0; i < list.Count && result.valid; ++i) {
        switch (list.pNegMech[i].MechState) {
        case NEG_MECH_STATE_AVAILABLE:
            if (result.firstAvailable < 0)
                result.firstAvailable = static_cast<OM_sint32>(i);
            break;
        case NEG_MECH_STATE_REJECTED:
            ++result.rejected;
            break;
        default:
            result.valid = false;
        }
    }
    return result;
}

// The peer has completed: its selection counts, if it is established here too.
OM_uint32 follow_peer(OM_uint32 *pMinorStatus, NegContext_t pNegCtx) {
    const NegMechEntry_t selected = selected_entry(*pNegCtx);
    if (selected == nullptr || selected->IsCtxEstablished != 1)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INTERNAL);
    pNegCtx->NegState = NEG_STATE_COMPLETED;
    QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_SelectMechanism: Negotiation State set to Completed", selected,
                           pNegCtx);
    return succeed(pMinorStatus);
}

OM_uint32 select_entry(OM_uint32 *pMinorStatus, NegContext_t pNegCtx, OM_sint32 index) {
    const NegMechList_desc &list = pNegCtx->NegMechList;
    pNegCtx->SelectedMechListIndex = index;
    pNegCtx->NegState = NEG_STATE_COMPLETED;
    pNegCtx->SelectedMechInfoIndex = list.pNegMech[index].MechIndex;
    for (OM_uint32 i = 0; i < list.Count; ++i) {
        NegMechEntry_desc &entry = list.pNegMech[i];
        if (entry.MechState != NEG_MECH_STATE_AVAILABLE)
            continue;
        const NegMechState_et state =
            i == static_cast<OM_uint32>(index) ? NEG_MECH_STATE_SELECTED : NEG_MECH_STATE_REJECTED;
        const OM_uint32 major =
            QXNEGO_INT_NegMechStateChange(pMinorStatus, state, NEG_MECH_REASON_DUE_TO_RANK, 0, 0, nullptr, &entry);
        if (failed(major))
            return major;
        QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_SelectMechanism: A mechanism has been selected", &entry, pNegCtx);
    }
    return succeed(pMinorStatus);
}

} // namespace

OM_uint32 QXNEGO_INT_SelectMechanism(OM_uint32 *pMinorStatus, NegContext_t pNegCtx) {
    if (pNegCtx == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const NegMechList_desc &list = pNegCtx->NegMechList;
    if (list.Count == 0 || list.pNegMech == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NO_MECHANISM);
    if (pNegCtx->NegStateFromPeer == NEG_STATE_COMPLETED)
        return follow_peer(pMinorStatus, pNegCtx);

    const Scan found = scan(list);
    if (!found.valid)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (found.rejected == list.Count) {
        pNegCtx->NegState = NEG_STATE_REJECT;
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    }
    // A later mechanism that is ready does not overtake an earlier one that is still under way.
    if (list.pNegMech[found.firstAvailable].IsCtxEstablished != 1 || pNegCtx->IsPolicyApplied != 1)
        return succeed(pMinorStatus);
    return select_entry(pMinorStatus, pNegCtx, found.firstAvailable);
}
