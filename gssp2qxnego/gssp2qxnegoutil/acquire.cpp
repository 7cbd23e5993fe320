// Acquiring each candidate's own credential, once per context.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"
#include "gssp2qxnego/gssp2qxnegoutil/reject.h"

using namespace qxnego;

namespace {

// What every mechanism of the pass is asked for.
struct Request {
    qxgss_name_t desiredName;
    OM_uint32 lifetime;
    qxgss_cred_usage_t usage;
};

// The set of the one OID is made here: the framework's would cost three blocks of the heap for each candidate.
OM_uint32 call_mechanism(OM_uint32 *pMinorStatus, const Request &request, NegMechEntry_desc &entry) {
    if (!usable(entry.pMechOid))
        return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_INVALID_ARGUMENT);
    qxgss_OID_set_desc mechanism = {1, entry.pMechOid};
    return table_of(entry).ftn_gssp_acquire_cred(pMinorStatus, request.desiredName, request.lifetime, &mechanism,
                                                 request.usage, &entry.pMechCredential, nullptr, nullptr);
}

// One candidate's credential. A mechanism that has no such operation stays, one whose acquisition fails is rejected.
OM_uint32 acquire_for(OM_uint32 *pMinorStatus, const Request &request, OM_uint32 &messageContext,
                      NegMechEntry_desc &entry, NegContext_t context) {
    const char *text = "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not supported, skip for this mechanism";
    if (table_of(entry).ftn_gssp_acquire_cred != nullptr) {
        OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
        OM_uint32 major = call_mechanism(&minor, request, entry);
        text = "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred succeeded for mechanism";
        if (failed(major)) {
            entry.pMechCredential = nullptr;
            major = reject_with_status(pMinorStatus, entry, major, minor, messageContext);
            if (failed(major))
                return major;
            text = "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred failed for mechanism";
        }
    }
    QXNEGO_INT_NegLogEntry(nullptr, text, &entry, context);
    return GSS_S_COMPLETE;
}

} // namespace

OM_uint32 QXNEGO_INT_Mechs_Acquire_Creds(OM_uint32 *pMinorStatus, const QxnegoCred_t pCredHandle,
                                         NegContext_t pNegContext) {
    if (const OM_uint32 major = require_mechanisms(pMinorStatus, pNegContext); failed(major))
        return major;
    const bool initiator = pNegContext->IsInitiator != 0;
    if (!initiator && pCredHandle == nullptr) {
        QXNEGO_INT_NegLogEntry(nullptr,
                               "QXNEGO_INT_Mechs_Acquire_Creds: acquire_cred not needed for NULL credential at Server",
                               nullptr, pNegContext);
        return succeed(pMinorStatus);
    }
    Request request = {nullptr, GSS_C_INDEFINITE, initiator ? GSS_C_INITIATE : GSS_C_ACCEPT};
    if (pCredHandle != nullptr)
        request = {pCredHandle->pDesiredName, pCredHandle->TimeReq, pCredHandle->CredUsage};

    OM_uint32 messageContext = 0;
    const NegMechList_desc &list = pNegContext->NegMechList;
    for (OM_uint32 i = 0; i < list.Count; ++i)
        if (list.pNegMech[i].MechState == NEG_MECH_STATE_AVAILABLE)
            if (const OM_uint32 major =
                    acquire_for(pMinorStatus, request, messageContext, list.pNegMech[i], pNegContext);
                failed(major))
                return major;
    return succeed(pMinorStatus);
}
