// Choosing the mechanism: the first available one, once it is established and the server's policy applied.
#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

namespace {

// What a scan of the list finds; false in `is_valid` when an entry is neither available nor rejected.
struct Scan {
    NegMechEntry_t first_available = nullptr;
    std::size_t rejected = 0;
    bool is_valid = true;
};

Scan scan(std::span<NegMechEntry_desc> list) {
    Scan found;
    for (NegMechEntry_desc &entry : list) {
        if (entry.MechState == NEG_MECH_STATE_REJECTED) {
            ++found.rejected;
        } else if (entry.MechState != NEG_MECH_STATE_AVAILABLE) {
            found.is_valid = false;
            break;
        } else if (found.first_available == nullptr) {
            found.first_available = &entry;
        }
    }
    return found;
}

// The peer has completed: its selection counts, if it is established here too.
Status follow_peer(NegContext_desc &negotiation) {
    const NegMechEntry_t selected = selected_entry(negotiation);
    if (selected == nullptr || selected->IsCtxEstablished != 1)
        return common::failure(QXNEGO_E_INTERNAL);
    negotiation.NegState = NEG_STATE_COMPLETED;
    log_event("QXNEGO_INT_SelectMechanism: Negotiation State set to Completed", selected, negotiation);
    return kSuccess;
}

Status select(const NegMechEntry_desc &chosen, NegContext_desc &negotiation) {
    const std::span<NegMechEntry_desc> list = entries(negotiation.NegMechList);
    negotiation.SelectedMechListIndex = static_cast<OM_sint32>(&chosen - list.data());
    negotiation.NegState = NEG_STATE_COMPLETED;
    negotiation.SelectedMechInfoIndex = chosen.MechIndex;
    for (NegMechEntry_desc &entry : list) {
        if (entry.MechState != NEG_MECH_STATE_AVAILABLE)
            continue;
        const NegMechState_et state = &entry == &chosen ? NEG_MECH_STATE_SELECTED : NEG_MECH_STATE_REJECTED;
        const Status status = change_state(entry, state, NEG_MECH_REASON_DUE_TO_RANK,
                                           "QXNEGO_INT_SelectMechanism: A mechanism has been selected", negotiation);
        if (status.failed())
            return status;
    }
    return kSuccess;
}

} // namespace

OM_uint32 QXNEGO_INT_SelectMechanism(OM_uint32 *pMinorStatus, NegContext_t pNegCtx) {
    if (pNegCtx == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    const std::span<NegMechEntry_desc> list = entries(pNegCtx->NegMechList);
    if (list.empty())
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NO_MECHANISM);
    if (pNegCtx->NegStateFromPeer == NEG_STATE_COMPLETED)
        return report(pMinorStatus, follow_peer(*pNegCtx));

    const Scan found = scan(list);
    if (!found.is_valid)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (found.rejected == list.size()) {
        pNegCtx->NegState = NEG_STATE_REJECT;
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    }
    // A later mechanism that is ready does not overtake an earlier one that is still under way.
    if (found.first_available->IsCtxEstablished != 1 || pNegCtx->IsPolicyApplied != 1)
        return succeed(pMinorStatus);
    return report(pMinorStatus, select(*found.first_available, *pNegCtx));
}
