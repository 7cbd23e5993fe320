// What the module says of the mechanism, and of failures. Nothing here configures anything: the host's library may hold
// its lock.
#include "bridge/gssapi/call.h"
#include "bridge/gssapi/qxnego_gssapi.h"
#include "common/codes.h"

namespace bridge {

namespace {

const std::string &told(std::string_view oid) {
    const Story &story = last_failure().story;
    if (oid == QXNEGO_GSS_LOG)
        return story.log;
    if (oid == QXNEGO_GSS_STORY)
        return story.json;
    if (oid == QXNEGO_GSS_SELECTED)
        return story.selected;
    refuse(GSS_S_UNAVAILABLE, "that is not known of a failure");
}

} // namespace

} // namespace bridge

using namespace bridge;

OM_uint32 bridge_gss_indicate_mechs(OM_uint32 *pMinorStatus, gss_OID_set *pMechs) {
    return guarded(pMinorStatus, [&] {
        required(pMechs) = set_of({mechanism_oid()});
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_inquire_names_for_mech(OM_uint32 *pMinorStatus, gss_OID, gss_OID_set *pTypes) {
    return guarded(pMinorStatus, [&] {
        required(pTypes) = set_of({GSS_C_NT_USER_NAME, GSS_C_NT_HOSTBASED_SERVICE, GSS_C_NT_EXPORT_NAME});
        return GSS_S_COMPLETE;
    });
}

// What holds whatever is selected. A mechanism that negotiates is not offered by another one that does (RFC 5587).
OM_uint32 bridge_gss_inquire_attrs_for_mech(OM_uint32 *pMinorStatus, gss_const_OID, gss_OID_set *pAttributes,
                                            gss_OID_set *pKnown) {
    return guarded(pMinorStatus, [&] {
        const auto attributes = [] { return set_of({GSS_C_MA_MECH_NEGO, GSS_C_MA_ITOK_FRAMED}); };
        set(pKnown, GSS_C_NO_OID_SET);
        if (pAttributes != nullptr)
            *pAttributes = attributes();
        if (pKnown != nullptr)
            *pKnown = attributes();
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_display_status(OM_uint32 *pMinorStatus, OM_uint32 status, int type, gss_OID,
                                    OM_uint32 *pMessageContext, gss_buffer_t pText) {
    // A failure of this call is not one that is asked for later.
    set(pMessageContext, 0U);
    set(pMinorStatus, 0U);
    if (pText == GSS_C_NO_BUFFER)
        return GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE;
    *pText = GSS_C_EMPTY_BUFFER;
    if (type != GSS_C_MECH_CODE)
        return GSS_S_BAD_STATUS;
    const LastFailure &last = last_failure();
    try {
        *pText = copy_of(status == last.minor && !last.text.empty() ? last.text : common::minor_text(status));
        return GSS_S_COMPLETE;
    } catch (const std::exception &) {
        set(pMinorStatus, GSSP_E_NO_MEMORY);
        return GSS_S_FAILURE;
    }
}

OM_uint32 bridge_gssspi_mech_invoke(OM_uint32 *pMinorStatus, const gss_OID, const gss_OID pWanted,
                                    gss_buffer_t pValue) {
    return guarded(pMinorStatus, [&] {
        required(pValue) = GSS_C_EMPTY_BUFFER;
        *pValue = copy_of(told(bytes_of(gss_const_OID{pWanted})));
        return GSS_S_COMPLETE;
    });
}
