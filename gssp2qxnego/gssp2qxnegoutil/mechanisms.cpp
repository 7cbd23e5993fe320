#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

namespace qxnego {

namespace {

constexpr char kNoDisplayStatus[] = "(display_status function not available)";

// Of an OID with bytes: those of mechanisms differ there first.
unsigned char last_byte(const qxgss_OID_desc &oid) {
    return static_cast<const unsigned char *>(oid.elements)[oid.length - 1];
}

} // namespace

// Most entries are passed over without a call; one without an OID is left to the framework's comparison, whose failure
// ends the search.
Found find_mechanism(std::span<NegMechEntry_desc> list, qxgss_OID_desc &oid, OM_uint32 minor_before) {
    const unsigned char last = last_byte(oid);
    Status status{GSS_S_COMPLETE, minor_before};
    for (std::size_t i = 0; i != list.size(); ++i) {
        const qxgss_OID other = list[i].pMechOid;
        if (usable(other) && (other->length != oid.length || last_byte(*other) != last))
            continue;
        OM_sint32 difference = 0;
        status.major = gssp_compare_oids(&status.minor, &oid, other, &difference);
        if (status.failed())
            return {-1, status};
        if (difference == 0)
            return {static_cast<OM_sint32>(i), status};
    }
    return {-1, status};
}

Status require_mechanisms(const NegContext_desc *pNegContext) {
    if (pNegContext == nullptr)
        return common::failure(QXNEGO_E_NEG_CONTEXT);
    if (pNegContext->NegMechList.pNegMech == nullptr)
        return common::failure(QXNEGO_E_EMPTY_LIST);
    if (pNegContext->NegMechList.Count == 0)
        return common::failure(QXNEGO_E_NO_MECHANISM);
    return kSuccess;
}

void StatusTexts::fetch(const NegMechEntry_desc &entry, OM_uint32 minor, common::Buffer &text) {
    OM_uint32 ignored = QXNEGO_E_SUCCESSFUL;
    if (const auto display = table_of(entry).ftn_gssp_display_status; display != nullptr)
        display(&ignored, minor, GSS_C_MECH_CODE, entry.pMechOid, &message_context_, text.out());
    if (present(*text.out()))
        return;
    text = {};
    if (Heap<char> copy = common::copy_text(kNoDisplayStatus); copy != nullptr)
        *text.out() = {sizeof kNoDisplayStatus - 1, copy.release()};
}

Status StatusTexts::reject(NegMechEntry_desc &entry, Status cause) {
    common::Buffer text;
    fetch(entry, cause.minor, text);
    return ask(QXNEGO_INT_NegMechStateChange, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_GSSAPI_ERROR, cause.major,
               cause.minor, text.out(), &entry);
}

} // namespace qxnego
