// The server's two rules: which mechanisms the user may log on with, and that acting as another user or profile needs
// a mechanism that can authorize.
#include "gssp2qxnego/gssp2qxnegoutil/policy.h"
#include "gssp2qxnego/gssp2qxnegoutil/events.h"

using namespace qxnego;

const qxgss_buffer_desc &qxnego::policy_name(const NegContext_desc &negotiation) {
    if (negotiation.UserNameBuf.length != 0)
        return negotiation.UserNameBuf;
    if (negotiation.PolicyNameListIndex >= 0)
        return negotiation.NegMechList.pNegMech[negotiation.PolicyNameListIndex].SsoAuthenticationIdBuf;
    return negotiation.AuthenticationIdBuf;
}

namespace {

// Of single sign-on, the entry whose name stands for the user: the first that is not rejected and has one.
OM_sint32 find_sso_name(const NegContext_desc &negotiation) {
    const std::span<NegMechEntry_desc> all = entries(negotiation.NegMechList);
    for (std::size_t i = 0; negotiation.IsSso == 1 && i != all.size(); ++i)
        if (all[i].MechState != NEG_MECH_STATE_REJECTED && present(all[i].SsoAuthenticationIdBuf))
            return static_cast<OM_sint32>(i);
    return -1;
}

using Allowed = common::Owned<qxgss_OID_set, qxgss_release_oid_set>;

Status look_up(const qxgss_buffer_desc &identity, Allowed &allowed) {
    const SecretText user(common::bytes_of(&identity));
    if (user.get() == nullptr)
        return common::failure(QXNEGO_E_CALLOC);
    return ask(gssp_inquire_mech_policy_for_user, user.get(), allowed.out());
}

// Rejects every entry outside the set; `outside` counts those already rejected too.
Status reject_disallowed(qxgss_OID_set allowed, NegContext_desc &negotiation, OM_uint32 &outside) {
    for (NegMechEntry_desc &entry : entries(negotiation.NegMechList)) {
        int is_member = 0;
        const Status tested = ask(gssp_test_oid_set_member, entry.pMechOid, allowed, &is_member);
        if (is_member != 0)
            continue;
        ++outside;
        if (entry.MechState == NEG_MECH_STATE_REJECTED)
            continue;
        const Status status =
            change_state(entry, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_DUE_TO_POLICY,
                         "QXNEGO_INT_Apply_Policy_Info: Mechanism disallowed due to policy", negotiation, tested);
        if (status.failed())
            return status;
    }
    return kSuccess;
}

Status apply(NegContext_desc &negotiation) {
    const auto mark_applied = [&](EventText text) {
        negotiation.IsPolicyApplied = 1;
        log_event(text, nullptr, negotiation);
        return kSuccess;
    };
    negotiation.PolicyNameListIndex = find_sso_name(negotiation);
    const qxgss_buffer_desc &identity = policy_name(negotiation);
    if (identity.length == 0)
        return mark_applied("QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (no user name)");
    Allowed allowed;
    if (const Status status = look_up(identity, allowed); status.failed())
        return status;
    if (allowed.get() == nullptr || allowed.get()->count == 0)
        return mark_applied("QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (empty policy)");
    OM_uint32 outside = 0;
    if (const Status status = reject_disallowed(allowed.get(), negotiation, outside); status.failed())
        return status;
    const Status applied =
        mark_applied("QXNEGO_INT_Apply_Policy_Info: Mechanism Policy has been applied (non-empty policy)");
    return outside == negotiation.NegMechList.Count ? common::failure(QXNEGO_E_NO_MECHANISM) : applied;
}

} // namespace

OM_uint32 QXNEGO_INT_Apply_Policy_Info(OM_uint32 *pMinorStatus, qxgss_buffer_t /*pUserNameBuf*/,
                                       NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    return report(pMinorStatus, pNegContext->IsPolicyApplied != 0 ? kSuccess : apply(*pNegContext));
}

OM_uint32 QXNEGO_INT_Apply_Authorization_Rules(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
    if (pNegContext->NegMechList.pNegMech == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    if (pNegContext->UserNameBuf.length == 0 && pNegContext->ProfileNameBuf.length == 0)
        return succeed(pMinorStatus);

    for (NegMechEntry_desc &entry : entries(pNegContext->NegMechList)) {
        if (entry.MechState == NEG_MECH_STATE_REJECTED || entry.AuthorizationSupported != 0 ||
            entry.AuthenticationSupported != 1)
            continue;
        const Status status =
            change_state(entry, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_AUTHORIZATION_REQUIRED,
                         "QXNEGO_INT_Apply_Authorization_Rules: Authorization required but not supported by mechanism",
                         *pNegContext);
        if (status.failed())
            return report(pMinorStatus, status);
    }
    return succeed(pMinorStatus);
}
