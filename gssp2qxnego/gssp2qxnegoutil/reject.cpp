// The status and text of a mechanism's failed call, kept in its entry.
#include "gssp2qxnego/gssp2qxnegoutil/reject.h"

namespace qxnego {

namespace {

constexpr char kNoDisplayStatus[] = "(display_status function not available)";

void fetch_status_text(OM_uint32 *pMinorStatus, const NegMechEntry_desc &entry, OM_uint32 minor,
                       OM_uint32 &messageContext, Buffer &text) {
    if (const auto display = table_of(entry).ftn_gssp_display_status; display != nullptr)
        display(pMinorStatus, minor, GSS_C_MECH_CODE, entry.pMechOid, &messageContext, text.get());
    if (present(*text))
        return;
    text.reset();
    if (auto copy = copy_text(kNoDisplayStatus); copy != nullptr)
        *text.get() = {sizeof kNoDisplayStatus - 1, copy.release()};
}

} // namespace

OM_uint32 reject_with_status(OM_uint32 *pMinorStatus, NegMechEntry_desc &entry, OM_uint32 major, OM_uint32 minor,
                             OM_uint32 &messageContext) {
    Buffer text;
    OM_uint32 changeMinor = QXNEGO_E_SUCCESSFUL;
    fetch_status_text(&changeMinor, entry, minor, messageContext, text);
    const OM_uint32 changed = QXNEGO_INT_NegMechStateChange(
        &changeMinor, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_GSSAPI_ERROR, major, minor, text.get(), &entry);
    return failed(changed) ? report(pMinorStatus, changed, changeMinor) : GSS_S_COMPLETE;
}

OM_uint32 require_mechanisms(OM_uint32 *pMinorStatus, const NegContext_desc *pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
    if (pNegContext->NegMechList.pNegMech == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    if (pNegContext->NegMechList.Count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    return GSS_S_COMPLETE;
}

} // namespace qxnego
