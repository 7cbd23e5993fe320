// Acquiring each candidate's own credential, once per context.
#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

namespace {

// What every mechanism of the pass is asked for.
struct Request {
    qxgss_name_t desired_name;
    OM_uint32 lifetime;
    qxgss_cred_usage_t usage;
};

// The set of the one OID is made here: the framework's would cost three blocks of the heap for each candidate.
Status call_mechanism(const Request &request, NegMechEntry_desc &entry) {
    if (!usable(entry.pMechOid))
        return common::failure(GSSP_E_INVALID_ARGUMENT);
    qxgss_OID_set_desc mechanism = {1, entry.pMechOid};
    return ask(table_of(entry).ftn_gssp_acquire_cred, request.desired_name, request.lifetime, &mechanism, request.usage,
               &entry.pMechCredential, nullptr, nullptr);
}

// One candidate's credential. A mechanism that has no such operation stays, one whose acquisition fails is rejected.
Status acquire_for(NegMechEntry_desc &entry, const Request &request, StatusTexts &texts, NegContext_desc &negotiation) {
    EventText text = "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not supported, skip for this mechanism";
    if (table_of(entry).ftn_gssp_acquire_cred != nullptr) {
        const Status acquired = call_mechanism(request, entry);
        text = "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred succeeded for mechanism";
        if (acquired.failed()) {
            entry.pMechCredential = nullptr;
            if (const Status rejected = texts.reject(entry, acquired); rejected.failed())
                return rejected;
            text = "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred failed for mechanism";
        }
    }
    log_event(text, &entry, negotiation);
    return kSuccess;
}

} // namespace

OM_uint32 QXNEGO_INT_Mechs_Acquire_Creds(OM_uint32 *pMinorStatus, const QxnegoCred_t pCredHandle,
                                         NegContext_t pNegContext) {
    if (const Status required = require_mechanisms(pNegContext); required.failed())
        return report(pMinorStatus, required);
    const bool is_initiator = pNegContext->IsInitiator != 0;
    if (!is_initiator && pCredHandle == nullptr) {
        log_event("QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not needed for NULL credential at Server", nullptr,
                  *pNegContext);
        return succeed(pMinorStatus);
    }
    Request request = {nullptr, GSS_C_INDEFINITE, is_initiator ? GSS_C_INITIATE : GSS_C_ACCEPT};
    if (pCredHandle != nullptr)
        request = {pCredHandle->pDesiredName, pCredHandle->TimeReq, pCredHandle->CredUsage};

    StatusTexts texts;
    for (NegMechEntry_desc &entry : entries(pNegContext->NegMechList))
        if (entry.MechState == NEG_MECH_STATE_AVAILABLE)
            if (const Status status = acquire_for(entry, request, texts, *pNegContext); status.failed())
                return report(pMinorStatus, status);
    return succeed(pMinorStatus);
}
