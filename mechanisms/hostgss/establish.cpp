// Establishing, inquiring and deleting contexts.
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/ntlm_message.h"
#include "mechanisms/hostgss/status.h"

namespace hostgss {

namespace {

// The caller's channel bindings, none for a null pointer.
class ChannelBindings {
  public:
    explicit ChannelBindings(const qxgss_channel_bindings_desc *pGiven) : given_(pGiven != nullptr) {
        if (given_)
            bindings_ = {pGiven->initiator_addrtype, view(&pGiven->initiator_address), pGiven->acceptor_addrtype,
                         view(&pGiven->acceptor_address), view(&pGiven->application_data)};
    }
    const Bindings *get() const { return given_ ? &bindings_ : nullptr; }

  private:
    bool given_;
    Bindings bindings_{};
};

// A target name in UTF-8 or another text type of the framework.
Status read_target(const qxgss_name_t pTarget, HostNameText &target) {
    if (pTarget == nullptr || pTarget->Count == 0)
        return {GSS_S_BAD_NAME, GSSP_E_INVALID_ARGUMENT};
    if (is_host_based(pTarget->pElements[0])) {
        const Bytes text = view(&pTarget->pElements[0].Name);
        return target.from_host_based(text) ? Status{} : kOutOfMemory;
    }
    const gssp_utf_convert_flags_t flags = {GSSP_UTF_BY_NAMETYPE, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    qxgss_buffer_desc text{};
    Status status;
    if (GSS_ERROR(gssp_convertname_utf(&status.minor, pTarget, &text, &flags)) != 0)
        return status.minor == kNoMemory ? kOutOfMemory : Status{GSS_S_BAD_NAME, status.minor};
    status = target.from_service(view(&text)) ? Status{} : kOutOfMemory;
    gssp_release_buffer(nullptr, &text);
    return status;
}

// What both kinds of establishment call hand out, whether they succeed or not.
void give_leg(Leg &leg, qxgss_OID *ppMech, qxgss_buffer_t pToken, OM_uint32 *pFlags, OM_uint32 *pTime) {
    set(ppMech, registered_oid(leg.mech));
    give(leg.token, pToken);
    set(pFlags, leg.flags);
    set(pTime, leg.lifetime);
}

// Where memory was lacking, the host may have established what the call could not hand out. It has failed all the same:
// there is nothing to send, and no context to go on with.
void give_up(qxgss_ctx_id_t *ppContext, qxgss_buffer_t pToken) {
    gssp_release_buffer(nullptr, pToken);
    Block unsent;
    if (*ppContext != nullptr)
        delete_context(ppContext, unsent);
}

// Accepts, and makes a framework name of the source.
Status accept_named(void *credential, void **context, const Bindings *bindings, Bytes token, Leg &leg,
                    qxgss_name_t *ppSource, qxgss_cred_id_t *ppDelegated) {
    Status status = accept(credential, context, bindings, token, leg, ppDelegated);
    if (status.failed() || ppSource == nullptr)
        return status;
    const Status named = make_name(leg.source.view(), ppSource);
    if (!named.failed())
        return status;
    if (ppDelegated != nullptr && *ppDelegated != nullptr)
        release_credential(ppDelegated);
    return named;
}

// The acceptor's default credential for one mechanism.
class DefaultAcceptor {
  public:
    DefaultAcceptor() = default;
    DefaultAcceptor(const DefaultAcceptor &) = delete;
    DefaultAcceptor &operator=(const DefaultAcceptor &) = delete;
    ~DefaultAcceptor() {
        if (credential_ != nullptr)
            release_credential(&credential_);
    }
    void *get() const { return credential_; }

    Status acquire(const qxgss_OID pMech) {
        CredentialRequest request;
        request.keytab = keytab_of(pMech);
        request.mech = view(pMech);
        request.usage = GSS_C_ACCEPT;
        OM_uint32 lifetime;
        return hostgss::acquire(request, &credential_, &lifetime);
    }

  private:
    void *credential_ = nullptr;
};

// Accepts a first token without a credential. The host would take any mechanism that it has; so each one served here is
// tried with a credential for it alone, until one is for the token. Without any, the first reason with a text is told.
Status accept_by_default(void **context, const Bindings *bindings, Bytes token, Leg &leg, qxgss_name_t *ppSource,
                         qxgss_cred_id_t *ppDelegated) {
    Status reason = kNoCredential;
    for (OM_uint32 i = 0; i != MechCount; ++i) {
        if (!served_here(pMechInfo[i]) || pMechInfo[i].fUseMech == GSSP_MECH_UNUSED)
            continue;
        DefaultAcceptor own;
        Status status = own.acquire(pMechInfo[i].pMechOid);
        if (!status.failed())
            status = accept_named(own.get(), context, bindings, token, leg, ppSource, ppDelegated);
        if (status.major != GSS_S_NO_CRED)
            return status;
        if (reason.minor == 0)
            reason = status;
    }
    return reason;
}

Status make_names(const ContextFacts &facts, qxgss_name_t *ppSource, qxgss_name_t *ppTarget) {
    Status status;
    if (ppSource != nullptr)
        status = make_name(facts.source.view(), ppSource);
    if (!status.failed() && ppTarget != nullptr)
        status = make_name(facts.target.view(), ppTarget);
    if (status.failed() && ppSource != nullptr)
        gssp_release_name(nullptr, ppSource);
    return status;
}

OM_uint32 refuse_context(OM_uint32 *pMinorStatus) {
    return refuse_argument(pMinorStatus, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, "There is no context.");
}

// Every token but the first has something in it; mechanisms do not all look, and some fail hard.
OM_uint32 refuse_empty_token(OM_uint32 *pMinorStatus) {
    return refuse_argument(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, "The peer sent no token for this mechanism.");
}

OM_uint32 refuse_ntlm_message(OM_uint32 *pMinorStatus) {
    return refuse_argument(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, "The peer's NTLM message lacks a field.");
}

OM_uint32 refuse_output(OM_uint32 *pMinorStatus) {
    return refuse_argument(pMinorStatus, kInaccessibleWrite, "There is no room for the token.");
}

} // namespace

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_init_sec_context(OM_uint32 *pMinorStatus, qxgss_cred_id_t pInitiatorCredHandle,
                                   qxgss_ctx_id_t *ppContextHandle, qxgss_name_t pTargetName, qxgss_OID pMechType,
                                   OM_uint32 ReqFlags, OM_uint32 TimeReq, qxgss_channel_bindings_t pInputChanBindings,
                                   qxgss_buffer_t pInputToken, qxgss_OID *ppActualMechType, qxgss_buffer_t pOutputToken,
                                   OM_uint32 *pRetFlags, OM_uint32 *pTimeRec) {
    Leg leg;
    if (pOutputToken == nullptr)
        return refuse_output(pMinorStatus);
    give_leg(leg, ppActualMechType, pOutputToken, pRetFlags, pTimeRec);
    if (ppContextHandle == nullptr)
        return refuse_context(pMinorStatus);
    if (view(pMechType).empty())
        return refuse_argument(pMinorStatus, GSS_S_BAD_MECH, "No mechanism is given.");
    if (*ppContextHandle != nullptr && view(pInputToken).empty())
        return refuse_empty_token(pMinorStatus);
    if (lacks_ntlm_field(view(pInputToken)))
        return refuse_ntlm_message(pMinorStatus);
    HostNameText target;
    const Status read = read_target(pTargetName, target);
    if (read.failed())
        return refuse(pMinorStatus, read, "The target name is missing or cannot be read.");
    const ChannelBindings bindings(pInputChanBindings);
    const Status status = initiate(pInitiatorCredHandle, ppContextHandle, target.name(), view(pMechType), ReqFlags,
                                   TimeReq, bindings.get(), view(pInputToken), leg);
    give_leg(leg, ppActualMechType, pOutputToken, pRetFlags, pTimeRec);
    if (status.minor == kNoMemory)
        give_up(ppContextHandle, pOutputToken);
    return finish(pMinorStatus, status);
}

OM_uint32 HOSTGSS_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                     qxgss_cred_id_t pAcceptorCredHandle, qxgss_buffer_t pInputToken,
                                     qxgss_channel_bindings_t pInputChanBindings, qxgss_name_t *ppSrcName,
                                     qxgss_OID *ppMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                     OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle) {
    Leg leg;
    set<qxgss_name_t>(ppSrcName, nullptr);
    set<qxgss_cred_id_t>(ppDelegatedCredHandle, nullptr);
    if (pOutputToken == nullptr)
        return refuse_output(pMinorStatus);
    give_leg(leg, ppMechType, pOutputToken, pRetFlags, pTimeRec);
    if (ppContextHandle == nullptr)
        return refuse_context(pMinorStatus);
    if (view(pInputToken).empty())
        return refuse_empty_token(pMinorStatus);
    const Bytes token = view(pInputToken);
    if (lacks_ntlm_field(token))
        return refuse_ntlm_message(pMinorStatus);
    const ChannelBindings bindings(pInputChanBindings);
    const bool by_default = pAcceptorCredHandle == nullptr && *ppContextHandle == nullptr;
    const Status status =
        by_default ? accept_by_default(ppContextHandle, bindings.get(), token, leg, ppSrcName, ppDelegatedCredHandle)
                   : accept_named(pAcceptorCredHandle, ppContextHandle, bindings.get(), token, leg, ppSrcName,
                                  ppDelegatedCredHandle);
    give_leg(leg, ppMechType, pOutputToken, pRetFlags, pTimeRec);
    if (status.minor == kNoMemory)
        give_up(ppContextHandle, pOutputToken);
    return finish(pMinorStatus, status);
}

OM_uint32 HOSTGSS_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                     qxgss_buffer_t pOutputToken) {
    if (pOutputToken != nullptr)
        *pOutputToken = {};
    if (ppContextHandle == nullptr)
        return refuse_context(pMinorStatus);
    Block token;
    const Status status = delete_context(ppContextHandle, token);
    if (pOutputToken != nullptr)
        give(token, pOutputToken);
    return finish(pMinorStatus, status);
}

OM_uint32 HOSTGSS_inquire_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_name_t *ppSourceName,
                                  qxgss_name_t *ppTargetName, OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType,
                                  OM_uint32 *pCtxFlags, int *pLocallyInitiated, int *pOpen) {
    set<qxgss_name_t>(ppSourceName, nullptr);
    set<qxgss_name_t>(ppTargetName, nullptr);
    ContextFacts facts;
    Status status = inquire_context(pContextHandle, facts);
    if (!status.failed())
        status = make_names(facts, ppSourceName, ppTargetName);
    set(pLifetimeRec, facts.lifetime);
    set(ppMechType, registered_oid(facts.mech));
    set(pCtxFlags, facts.flags);
    set(pLocallyInitiated, facts.initiated);
    set(pOpen, facts.open);
    return finish(pMinorStatus, status);
}
