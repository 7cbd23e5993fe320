// Establishing, inquiring and deleting contexts: what the host is not asked before a token has passed, and what the
// host has answered before it counts.
#include <atomic>
#include <memory>
#include <new>

#include "mechanisms/hostgss/context.h"
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/ntlm.h"

namespace hostgss {

namespace {

// The caller's channel bindings, none for a null pointer.
class ChannelBindings {
  public:
    explicit ChannelBindings(const qxgss_channel_bindings_desc *pGiven) : given_(pGiven != nullptr) {
        if (given_)
            bindings_ = {pGiven->initiator_addrtype, bytes_of(&pGiven->initiator_address), pGiven->acceptor_addrtype,
                         bytes_of(&pGiven->acceptor_address), bytes_of(&pGiven->application_data)};
    }
    const Bindings *get() const { return given_ ? &bindings_ : nullptr; }

  private:
    bool given_;
    Bindings bindings_{};
};

// A target name in UTF-8 or another text type of the framework.
Status read_target(const qxgss_name_t pTarget, HostNameText &target) {
    if (pTarget == nullptr || pTarget->Count == 0)
        return refusal(GSS_S_BAD_NAME, "There is no target name.");
    if (is_host_based(pTarget->pElements[0])) {
        const Bytes text = bytes_of(&pTarget->pElements[0].Name);
        return target.from_host_based(text) ? Status{} : kOutOfMemory;
    }
    const gssp_utf_convert_flags_t flags = {GSSP_UTF_BY_NAMETYPE, GSSP_UTF8, GSSP_UTF_STRICT_CONVERSION};
    qxgss_buffer_desc text{};
    Status status;
    if (GSS_ERROR(gssp_convertname_utf(&status.minor, pTarget, &text, &flags)) != 0)
        return status.minor == kNoMemory ? kOutOfMemory
                                         : Status{GSS_S_BAD_NAME, status.minor, "The target name cannot be read."};
    status = target.from_service(bytes_of(&text)) ? Status{} : kOutOfMemory;
    gssp_release_buffer(nullptr, &text);
    return status;
}

// ---- Both kinds of establishment call ------------------------------------------------------------------------------

// Where the results of a call go. The token may be one that tells the peer of a failure; all else is of a success.
struct Outputs {
    qxgss_OID *ppMech;
    qxgss_buffer_t pToken;
    OM_uint32 *pFlags;
    OM_uint32 *pTime;

    void clear() const {
        *pToken = {};
        give_facts({});
    }
    void give_facts(const Leg &leg) const {
        set_if_given(ppMech, registered_oid(leg.mech));
        set_if_given(pFlags, leg.flags);
        set_if_given(pTime, leg.lifetime);
    }
};

Status check_outputs(const qxgss_ctx_id_t *ppContext, const Outputs &outputs) {
    if (outputs.pToken == nullptr)
        return refusal(kInaccessibleWrite, "There is no room for the token.");
    outputs.clear();
    return ppContext != nullptr
               ? Status{}
               : refusal(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, "There is no room for the context.");
}

// A context goes on as what it began as, until it is established or a call fails. Every token but an initiator's first
// has something in it; mechanisms do not all look, and some fail hard.
Status check_turn(const Context *context, bool initiator, Bytes token) {
    if (context != nullptr && (context->host == nullptr || context->established || context->initiator != initiator))
        return refusal(GSS_S_NO_CONTEXT, "The context is not one that is being established.");
    if (token.empty() && (context != nullptr || !initiator))
        return refusal(GSS_S_DEFECTIVE_TOKEN, "The peer sent no token for this mechanism.");
    return {};
}

// The first message is an initiator's, the second an acceptor's.
Status check_message(const Context &context, Bytes token) {
    if (context.mech != kNtlm || token.empty())
        return {};
    return check_ntlm_message(token, context.initiator         ? NtlmMessage::kChallenge
                                     : context.host == nullptr ? NtlmMessage::kNegotiate
                                                               : NtlmMessage::kAuthenticate);
}

std::unique_ptr<Context> make_context(const MechInfo_t &entry, bool initiator) {
    return std::unique_ptr<Context>(new (std::nothrow) Context(bytes_of(entry.pMechOid), initiator));
}

bool is_complete(Status status) {
    return !status.failed() && (status.major & GSS_S_CONTINUE_NEEDED) == 0;
}

// Makes a call on the context, which is a fresh one or the caller's, and hands out what has come of it. A fresh one of
// which nothing came is gone; the caller's stays, as one that can only be asked and deleted.
template <typename Call>
Status drive(std::unique_ptr<Context> fresh, qxgss_ctx_id_t *ppContext, const Outputs &outputs, const Call &call) {
    Context *const context = fresh != nullptr ? fresh.get() : context_of(*ppContext);
    if (context == nullptr)
        return kOutOfMemory;
    Leg leg;
    const Status status = call(*context, leg);
    // A refusal of ours may follow what the host takes for a success: there is nothing to send.
    if (!status.failed() || !status.ours())
        give(leg.token, outputs.pToken);
    if (status.failed()) {
        context->drop();
        return status;
    }
    outputs.give_facts(leg);
    context->established = is_complete(status);
    context->flags = leg.flags;
    if (fresh != nullptr)
        *ppContext = fresh.release();
    return status;
}

// ---- Initiating ----------------------------------------------------------------------------------------------------

struct Initiation {
    const Credential *credential; // null: the default one
    const Name &target;
    OM_uint32 flags;
    OM_uint32 lifetime;
    const Bindings *bindings;
    Bytes token;

    Status operator()(Context &context, Leg &leg) const {
        Status status = check_message(context, token);
        if (!status.failed())
            status = initiate(host_of(credential), &context.host, target, context.mech, flags, lifetime, bindings,
                              token, leg);
        // gss-ntlmssp (1.2.0) gives back what was asked for. NTLM delegates nothing, and no server proves itself.
        if (context.mech == kNtlm)
            leg.flags &= ~(GSS_C_DELEG_FLAG | GSS_C_MUTUAL_FLAG);
        return status;
    }
};

// ---- Accepting -----------------------------------------------------------------------------------------------------

// The mechanism of a first token, as the host finds it out; empty for a token of no known form.
Bytes mechanism_of(Bytes token) {
    if (token.starts_with(kNtlmSignature))
        return kNtlm;
    if (token.starts_with('\x6e')) // an AP-REQ without a frame
        return kKerberos;
    if (!token.starts_with('\x60') || token.size() < 2) // RFC 2743 3.1
        return {};
    const auto length = static_cast<unsigned char>(token[1]);
    const std::size_t oid = length < 0x80 ? 2 : 2 + (length & 0x7FU);
    if (token.size() < oid + 2 || token[oid] != 6)
        return {};
    const auto octets = static_cast<unsigned char>(token[oid + 1]);
    return token.size() - oid - 2 < octets ? Bytes{} : token.substr(oid + 2, octets);
}

// NTLM logons that this process has let through to the host's library, which keeps something of each.
std::atomic<std::uint64_t> ntlm_logons{0};

// A logon is counted with its last message, when it costs; one that could not be is refused with its first.
Status count_logon(const Context &context, const MechInfo_t &entry) {
    if (context.mech != kNtlm)
        return {};
    const std::uint64_t before = context.host == nullptr ? ntlm_logons.load() : ntlm_logons.fetch_add(1);
    if (before < accept_limit(entry))
        return {};
    return refusal(GSS_S_FAILURE, "This process has had as many NTLM logons as its accept_limit allows: the host's "
                                  "library loses memory with each, until the process ends.");
}

// The acceptor's default credential for one mechanism.
Status acquire_default(const MechInfo_t &entry, Credential &credential) {
    CredentialRequest request;
    request.keytab = setting_of(entry, "keytab_file");
    request.mech = bytes_of(entry.pMechOid);
    request.usage = GSS_C_ACCEPT;
    return acquire(request, credential);
}

// Whether the credential accepts, and is for that mechanism alone: the host's mechanisms do not all check it.
Status check_acceptor(const Credential &credential, Bytes mech) {
    const CredentialFacts &facts = credential.facts;
    if (facts.usage == GSS_C_INITIATE)
        return kNoCredential;
    return facts.mechs.count() == 1 && facts.mechs[0] == mech ? Status{} : kOtherMechanism;
}

// What the host has answered, and whether that counts. The name of a peer who has logged on is kept.
Status judge(Context &context, Status status, const Leg &leg) {
    if (status.failed() || (leg.mech.empty() && !is_complete(status)))
        return status;
    if (leg.mech != context.mech)
        return kOtherMechanism;
    if (!is_complete(status))
        return status;
    if (leg.source.length() == 0)
        return refusal(GSS_S_UNAUTHORIZED, "The host does not tell who the peer is.");
    if (context.mech == kNtlm)
        return canonical_ntlm_name(leg.source.view(), ntlm_user_file(), context.source);
    return context.source.append(leg.source.view()) ? status : kOutOfMemory;
}

struct Acceptance {
    const Credential *credential; // null: the default one of the token's mechanism
    const Bindings *bindings;
    Bytes token;
    qxgss_name_t *ppSource;
    qxgss_cred_id_t *ppDelegated;

    // Whether the host may see the token at all. Its mechanism is the context's, and must be the credential's.
    Status check(const Context &context, const MechInfo_t &entry) const {
        if (!may_accept(entry))
            return refusal(GSS_S_BAD_MECH, kNotAccepted);
        Status status = credential == nullptr ? Status{} : check_acceptor(*credential, context.mech);
        if (!status.failed())
            status = check_message(context, token);
        return status.failed() ? status : count_logon(context, entry);
    }

    // Without a credential the host would take any mechanism that it has.
    Status ask_host(Context &context, const MechInfo_t &entry, Leg &leg, Credential *delegated) const {
        Credential own;
        if (credential == nullptr && context.host == nullptr)
            if (const Status status = acquire_default(entry, own); status.failed())
                return status;
        void *const used = host_of(credential != nullptr ? credential : &own);
        return judge(context, accept(used, &context.host, bindings, token, leg, delegated), leg);
    }

    Status operator()(Context &context, Leg &leg) const {
        const MechInfo_t *const entry = entry_of(context.mech);
        if (entry == nullptr)
            return refusal(GSS_S_BAD_MECH, kNotServed);
        std::unique_ptr<Credential> delegated(ppDelegated == nullptr ? nullptr : new (std::nothrow) Credential);
        if (ppDelegated != nullptr && delegated == nullptr)
            return kOutOfMemory;
        Status status = check(context, *entry);
        if (!status.failed())
            status = ask_host(context, *entry, leg, delegated.get());
        if (is_complete(status) && ppSource != nullptr)
            status = make_name(context.source.view(), ppSource);
        if (!status.failed() && host_of(delegated.get()) != nullptr)
            *ppDelegated = delegated.release();
        return status;
    }
};

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

} // namespace

Status inquire(const Context *context, ContextFacts &facts) {
    if (context == nullptr)
        return refusal(GSS_S_NO_CONTEXT, "There is no context.");
    Status status = context->established ? inquire_context(context->host, facts) : Status{};
    facts.mech = context->mech;
    facts.flags = context->flags;
    facts.initiated = context->initiator ? 1 : 0;
    facts.open = context->established ? 1 : 0;
    if (!status.failed() && !context->initiator && !facts.source.append(context->source.view()))
        status = kOutOfMemory;
    return status;
}

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_init_sec_context(OM_uint32 *pMinorStatus, qxgss_cred_id_t pInitiatorCredHandle,
                                   qxgss_ctx_id_t *ppContextHandle, qxgss_name_t pTargetName, qxgss_OID pMechType,
                                   OM_uint32 ReqFlags, OM_uint32 TimeReq, qxgss_channel_bindings_t pInputChanBindings,
                                   qxgss_buffer_t pInputToken, qxgss_OID *ppActualMechType, qxgss_buffer_t pOutputToken,
                                   OM_uint32 *pRetFlags, OM_uint32 *pTimeRec) {
    const Outputs outputs{ppActualMechType, pOutputToken, pRetFlags, pTimeRec};
    const Bytes token = bytes_of(pInputToken);
    Status status = check_outputs(ppContextHandle, outputs);
    if (!status.failed())
        status = check_turn(context_of(*ppContextHandle), true, token);
    if (status.failed())
        return finish(pMinorStatus, status);
    const MechInfo_t *const entry = entry_of(bytes_of(pMechType));
    const Context *const context = context_of(*ppContextHandle);
    if (entry == nullptr || (context != nullptr && context->mech != bytes_of(pMechType)))
        return refuse(pMinorStatus, GSS_S_BAD_MECH, kNotServed);
    HostNameText target;
    status = read_target(pTargetName, target);
    if (status.failed())
        return finish(pMinorStatus, status);
    const ChannelBindings bindings(pInputChanBindings);
    const Initiation call{
        static_cast<const Credential *>(pInitiatorCredHandle), target.name(), ReqFlags, TimeReq, bindings.get(), token};
    return finish(pMinorStatus,
                  drive(context == nullptr ? make_context(*entry, true) : nullptr, ppContextHandle, outputs, call));
}

OM_uint32 HOSTGSS_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                     qxgss_cred_id_t pAcceptorCredHandle, qxgss_buffer_t pInputToken,
                                     qxgss_channel_bindings_t pInputChanBindings, qxgss_name_t *ppSrcName,
                                     qxgss_OID *ppMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                     OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle) {
    set_if_given(ppSrcName, nullptr);
    set_if_given(ppDelegatedCredHandle, nullptr);
    const Outputs outputs{ppMechType, pOutputToken, pRetFlags, pTimeRec};
    const Bytes token = bytes_of(pInputToken);
    Status status = check_outputs(ppContextHandle, outputs);
    if (!status.failed())
        status = check_turn(context_of(*ppContextHandle), false, token);
    if (status.failed())
        return finish(pMinorStatus, status);
    std::unique_ptr<Context> fresh;
    if (*ppContextHandle == nullptr) {
        const MechInfo_t *const entry = entry_of(mechanism_of(token));
        if (entry == nullptr)
            return refuse(pMinorStatus, GSS_S_BAD_MECH, kNotServed);
        fresh = make_context(*entry, false);
    }
    const ChannelBindings bindings(pInputChanBindings);
    const Acceptance call{static_cast<const Credential *>(pAcceptorCredHandle), bindings.get(), token, ppSrcName,
                          ppDelegatedCredHandle};
    return finish(pMinorStatus, drive(std::move(fresh), ppContextHandle, outputs, call));
}

OM_uint32 HOSTGSS_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                     qxgss_buffer_t pOutputToken) {
    if (pOutputToken != nullptr)
        *pOutputToken = {};
    if (ppContextHandle == nullptr || *ppContextHandle == nullptr)
        return refuse(pMinorStatus, GSS_S_NO_CONTEXT, "There is no context.");
    delete context_of(*ppContextHandle);
    *ppContextHandle = nullptr;
    return finish(pMinorStatus, {});
}

OM_uint32 HOSTGSS_inquire_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_name_t *ppSourceName,
                                  qxgss_name_t *ppTargetName, OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType,
                                  OM_uint32 *pCtxFlags, int *pLocallyInitiated, int *pOpen) {
    set_if_given(ppSourceName, nullptr);
    set_if_given(ppTargetName, nullptr);
    ContextFacts facts;
    Status status = inquire(context_of(pContextHandle), facts);
    if (!status.failed())
        status = make_names(facts, ppSourceName, ppTargetName);
    set_if_given(pLifetimeRec, facts.lifetime);
    set_if_given(ppMechType, registered_oid(facts.mech));
    set_if_given(pCtxFlags, facts.flags);
    set_if_given(pLocallyInitiated, facts.initiated);
    set_if_given(pOpen, facts.open);
    return finish(pMinorStatus, status);
}
