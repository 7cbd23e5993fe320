// The server's two rules: which mechanisms the user may log on with, and that acting as another user or profile needs
// a mechanism that can authorize.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

// Entries that the policy itself has rejected were none when it was looked up.
bool is_left(const NegMechEntry_desc &entry, bool is_applied) {
    return entry.MechState != NEG_MECH_STATE_REJECTED ||
           (is_applied && entry.MechReason == NEG_MECH_REASON_DUE_TO_POLICY);
}

} // namespace

const qxgss_buffer_desc &qxnego::policy_identity(const NegContext_desc &context) {
    if (context.UserNameBuf.length != 0)
        return context.UserNameBuf;
    if (context.IsSso == 1)
        for (OM_uint32 i = 0; context.NegMechList.pNegMech != nullptr && i < context.NegMechList.Count; ++i) {
            const NegMechEntry_desc &entry = context.NegMechList.pNegMech[i];
            if (is_left(entry, context.IsPolicyApplied != 0) && present(entry.SsoAuthenticationIdBuf))
                return entry.SsoAuthenticationIdBuf;
        }
    return context.AuthenticationIdBuf;
}

namespace {

OM_uint32 look_up_policy(OM_uint32 *pMinorStatus, const qxgss_buffer_desc &identity, qxgss_OID_set *ppAllowed) {
    const SecretText user(identity);
    if (user.get() == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = gssp_inquire_mech_policy_for_user(&minor, user.get(), ppAllowed);
    return report(pMinorStatus, major, minor);
}

void mark_applied(NegContext_t context, const char *text) {
    context->IsPolicyApplied = 1;
    QXNEGO_INT_NegLogEntry(nullptr, text, nullptr, context);
}

// Rejects every entry outside the set; `outside` counts those already rejected too.
OM_uint32 reject_disallowed(OM_uint32 *pMinorStatus, NegContext_t context, qxgss_OID_set allowed, OM_uint32 &outside) {
    const NegMechList_desc &list = context->NegMechList;
    for (OM_uint32 i = 0; list.pNegMech != nullptr && i < list.Count; ++i) {
        NegMechEntry_desc &entry = list.pNegMech[i];
        int isMember = 0;
        const OM_uint32 testMajor = gssp_test_oid_set_member(pMinorStatus, entry.pMechOid, allowed, &isMember);
        if (isMember != 0)
            continue;
        ++outside;
        if (entry.MechState == NEG_MECH_STATE_REJECTED)
            continue;
        const OM_uint32 testMinor = *pMinorStatus;
        const OM_uint32 major =
            QXNEGO_INT_NegMechStateChange(pMinorStatus, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_DUE_TO_POLICY,
                                          testMajor, testMinor, nullptr, &entry);
        if (failed(major))
            return major;
        QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_Apply_Policy_Info: Mechanism disallowed due to policy", &entry,
                               context);
    }
    return GSS_S_COMPLETE;
}

} // namespace

OM_uint32 QXNEGO_INT_Apply_Policy_Info(OM_uint32 *pMinorStatus, qxgss_buffer_t /*pUserNameBuf*/,
                                       NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    if (pNegContext->IsPolicyApplied != 0)
        return succeed(pMinorStatus);
    const qxgss_buffer_desc &identity = policy_identity(*pNegContext);
    if (identity.length == 0) {
        mark_applied(pNegContext, "QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (no user name)");
        return succeed(pMinorStatus);
    }

    OidSet<qxgss_release_oid_set> allowed;
    OM_uint32 major = look_up_policy(pMinorStatus, identity, allowed.get());
    if (failed(major))
        return major;
    if (*allowed == nullptr || (*allowed)->count == 0) {
        mark_applied(pNegContext, "QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (empty policy)");
        return succeed(pMinorStatus);
    }

    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    OM_uint32 outside = 0;
    major = reject_disallowed(&minor, pNegContext, *allowed, outside);
    if (failed(major))
        return report(pMinorStatus, major, minor);
    mark_applied(pNegContext, "QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (non-empty policy)");
    if (outside == pNegContext->NegMechList.Count)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_MECHANISM);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_Apply_Authorization_Rules(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
    const NegMechList_desc &list = pNegContext->NegMechList;
    if (list.pNegMech == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    if (pNegContext->UserNameBuf.length == 0 && pNegContext->ProfileNameBuf.length == 0)
        return succeed(pMinorStatus);

    for (OM_uint32 i = 0; i < list.Count; ++i) {
        NegMechEntry_desc &entry = list.pNegMech[i];
        if (entry.MechState == NEG_MECH_STATE_REJECTED || entry.AuthorizationSupported != 0 ||
            entry.AuthenticationSupported != 1)
            continue;
        const OM_uint32 major = QXNEGO_INT_NegMechStateChange(
            pMinorStatus, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_AUTHORIZATION_REQUIRED, 0, 0, nullptr, &entry);
        if (failed(major))
            return major;
        QXNEGO_INT_NegLogEntry(
            nullptr, "QXNEGO_INT_Apply_Authorization_Rules: Authorization required but not supported by mechanism",
            &entry, pNegContext);
    }
    return succeed(pMinorStatus);
}
