// Driving the mechanisms underneath: one algorithm for both roles, which differ in the slot called and in three texts.
// A mechanism that fails is rejected with its own status and text, and the others go on.
#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

namespace {

struct DriveTexts {
    EventText continued;
    EventText established;
    EventText failed;
};

constexpr DriveTexts kInitTexts = {
    "QXNEGO_INT_Mechs_Init_Contexts: Continue needed for mechanism to establish context",
    "QXNEGO_INT_Mechs_Init_Contexts: Mechanism established context",
    "QXNEGO_INT_Mechs_Init_Contexts: init_sec_context failed for mechanism",
};
constexpr DriveTexts kAcceptTexts = {
    "QXNEGO_INT_Mechs_Accept_Contexts: Continue needed for mechanism to establish context",
    "QXNEGO_INT_Mechs_Accept_Contexts: Mechanism established context",
    "QXNEGO_INT_Mechs_Accept_Contexts: accept_sec_context failed for mechanism",
};

// A failed context that the mechanism cannot delete is the one failure that ends the pass.
Status delete_failed_context(NegMechEntry_desc &entry) {
    const auto remove = table_of(entry).ftn_gssp_delete_sec_context;
    if (entry.pMechContext == nullptr || remove == nullptr)
        return kSuccess;
    const Status removed = ask(remove, &entry.pMechContext, nullptr);
    if (!removed.failed())
        entry.pMechContext = nullptr;
    return removed;
}

// What a mechanism's call has come to: under way, established, or failed and then rejected.
Status settle(NegMechEntry_desc &entry, Status outcome, const DriveTexts &texts, StatusTexts &status_texts,
              NegContext_desc &negotiation) {
    EventText text = texts.continued;
    if (outcome.failed()) {
        if (const Status removed = delete_failed_context(entry); removed.failed())
            return removed;
        if (const Status rejected = status_texts.reject(entry, outcome); rejected.failed())
            return rejected;
        text = texts.failed;
    } else if ((outcome.major & GSS_S_CONTINUE_NEEDED) == 0) {
        entry.IsCtxEstablished = 1;
        text = texts.established;
    }
    log_event(text, &entry, negotiation);
    return kSuccess;
}

// Calls `operate(slot, entry)` for each entry that is neither rejected nor established.
template <auto Slot, typename Operate>
OM_uint32 drive(OM_uint32 *pMinorStatus, const DriveTexts &texts, NegContext_t pNegContext, Operate operate) {
    if (const Status required = require_mechanisms(pNegContext); required.failed())
        return report(pMinorStatus, required);
    StatusTexts status_texts;
    for (NegMechEntry_desc &entry : entries(pNegContext->NegMechList)) {
        if (entry.MechState == NEG_MECH_STATE_REJECTED || entry.IsCtxEstablished != 0)
            continue;
        Status outcome{GSS_S_UNAVAILABLE, GSSP_E_FUNCTION_UNAVAILABLE};
        if (const auto slot = table_of(entry).*Slot; slot != nullptr) {
            discard(entry.OutputToken);
            outcome = operate(slot, entry);
        }
        const Status status = settle(entry, outcome, texts, status_texts, *pNegContext);
        if (status.failed())
            return report(pMinorStatus, status);
    }
    return succeed(pMinorStatus);
}

// A result is asked of the mechanism when the caller wants it.
template <typename Wanted, typename Field> Field *if_wanted(Wanted *wanted, Field &field) {
    return wanted != nullptr ? &field : nullptr;
}

} // namespace

OM_uint32 QXNEGO_INT_Mechs_Init_Contexts(OM_uint32 *pMinorStatus, const qxgss_name_t pTargetName, OM_uint32 ReqFlags,
                                         OM_uint32 TimeReq, const qxgss_channel_bindings_t pInputChanBindings,
                                         qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                                         NegContext_t pNegContext) {
    return drive<&qxgss_ftn_table_desc::ftn_gssp_init_sec_context>(
        pMinorStatus, kInitTexts, pNegContext, [&](auto init, NegMechEntry_desc &entry) {
            return ask(init, entry.pMechCredential, &entry.pMechContext, pTargetName, entry.pMechOid, ReqFlags, TimeReq,
                       pInputChanBindings, &entry.InputToken, if_wanted(ppActualMechType, entry.pMechType),
                       &entry.OutputToken, if_wanted(pRetFlags, entry.RetFlags), if_wanted(pTimeRec, entry.TimeRec));
        });
}

OM_uint32 QXNEGO_INT_Mechs_Accept_Contexts(OM_uint32 *pMinorStatus, const qxgss_channel_bindings_t pInputChanBindings,
                                           qxgss_name_t *ppSrcName, qxgss_OID *ppMechType, OM_uint32 *pRetFlags,
                                           OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle,
                                           NegContext_t pNegContext) {
    return drive<&qxgss_ftn_table_desc::ftn_gssp_accept_sec_context>(
        pMinorStatus, kAcceptTexts, pNegContext, [&](auto accept, NegMechEntry_desc &entry) {
            return ask(accept, &entry.pMechContext, entry.pMechCredential, &entry.InputToken, pInputChanBindings,
                       if_wanted(ppSrcName, entry.pSrcName), if_wanted(ppMechType, entry.pMechType), &entry.OutputToken,
                       if_wanted(pRetFlags, entry.RetFlags), if_wanted(pTimeRec, entry.TimeRec),
                       if_wanted(ppDelegatedCredHandle, entry.pDelegatedCredHandle));
        });
}
