// The mechanism list: copied from the template, changed through one operation, released with all its entries own.
#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

OM_uint32 QXNEGO_INT_GetNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pInputNegMechList,
                                    NegMechList_t pOutputNegMechList, NegContext_t pNegContext) {
    if (pOutputNegMechList == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_COPY_LIST);
    *pOutputNegMechList = {};
    if (pInputNegMechList == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_COPY_LIST);
    const std::span<NegMechEntry_desc> candidates = entries(*pInputNegMechList);
    if (candidates.empty())
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);

    // Entries beyond Count are never read, so they need not be cleared.
    pOutputNegMechList->pNegMech = static_cast<NegMechEntry_t>(std::malloc(candidates.size_bytes()));
    if (pOutputNegMechList->pNegMech == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    for (const NegMechEntry_desc &candidate : candidates) {
        if (!in_use(candidate.MechIndex))
            continue;
        NegMechEntry_desc &copy = pOutputNegMechList->pNegMech[pOutputNegMechList->Count++];
        copy = candidate;
        if (pNegContext != nullptr)
            log_event("QXNEGO_INT_GetNegMechList: Mechanism is available for negotiation", &copy, *pNegContext);
    }
    if (pOutputNegMechList->Count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_NegMechStateChange(OM_uint32 *pMinorStatus, NegMechState_et MechState, NegMechReason_et MechReason,
                                        OM_uint32 GssMajorStatus, OM_uint32 GssMinorStatus,
                                        qxgss_buffer_t pGssMinorStatusText, NegMechEntry_t pNegMechEntry) {
    if (pNegMechEntry == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    if (MechState <= NEG_MECH_STATE_INVALID || MechState >= NEG_MECH_STATE_INVALID_LAST)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_MECH_STATE);
    if (MechReason <= NEG_MECH_REASON_INVALID || MechReason >= NEG_MECH_REASON_INVALID_LAST)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_MECH_REASON);

    pNegMechEntry->MechState = MechState;
    pNegMechEntry->MechReason = MechReason;
    pNegMechEntry->IsStateFromPeer = false;
    pNegMechEntry->GssMajorStatus = GssMajorStatus;
    pNegMechEntry->GssMinorStatus = GssMinorStatus;
    if (pGssMinorStatusText != nullptr) {
        discard(pNegMechEntry->GssMinorStatusText);
        const OM_uint32 major =
            gssp_duplicate_buffer(pMinorStatus, pGssMinorStatusText, &pNegMechEntry->GssMinorStatusText);
        if (failed(major))
            return major;
    }
    pNegMechEntry->IsMechStateChanged = 1;
    return succeed(pMinorStatus);
}

namespace {

// What an entry holds of its mechanism. A slot that the mechanism lacks leaves the object where it is.
void release_mechanism_objects(NegMechEntry_desc &entry, LastFailure &result) {
    const qxgss_ftn_table_desc &table = table_of(entry);
    const auto give_back = [&](qxgss_cred_id_t &credential) {
        if (credential != nullptr && table.ftn_gssp_release_cred != nullptr)
            result.note(ask(table.ftn_gssp_release_cred, &credential));
    };
    give_back(entry.pMechCredential);
    give_back(entry.pDelegatedCredHandle);
    if (entry.pMechContext != nullptr && table.ftn_gssp_delete_sec_context != nullptr)
        result.note(ask(table.ftn_gssp_delete_sec_context, &entry.pMechContext, nullptr));
    if (entry.pSrcName != nullptr) {
        Status status = kSuccess;
        status.major = release_mechanism_name(entry, &status.minor, &entry.pSrcName);
        result.note(status);
    }
}

} // namespace

OM_uint32 QXNEGO_INT_ReleaseNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pNegMechList) {
    if (pNegMechList == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INVALID_INPUT);
    LastFailure result(QXNEGO_E_SUCCESSFUL);
    for (NegMechEntry_desc &entry : entries(*pNegMechList)) {
        discard(entry.GssMinorStatusText);
        discard(entry.InputToken);
        discard(entry.OutputToken);
        discard(entry.SsoAuthenticationIdBuf);
        release_mechanism_objects(entry, result);
        discard(entry.MechOidFromPeer);
    }
    std::free(pNegMechList->pNegMech);
    pNegMechList->pNegMech = nullptr;
    return report(pMinorStatus, result.get());
}
