// The operations that establish contexts, and those that ask what became of them.
#include <memory>

#include "bridge/gssapi/context.h"
#include "bridge/gssapi/qxnego_gssapi.h"

namespace bridge {

namespace {

class Bindings {
  public:
    explicit Bindings(gss_channel_bindings_t given) : given_(given != GSS_C_NO_CHANNEL_BINDINGS) {
        if (given_)
            bindings_ = {given->initiator_addrtype, view(given->initiator_address), given->acceptor_addrtype,
                         view(given->acceptor_address), view(given->application_data)};
    }
    qxgss_channel_bindings_t get() { return given_ ? &bindings_ : QXGSS_C_NO_CHANNEL_BINDINGS; }

  private:
    static qxgss_buffer_desc view(const gss_buffer_desc &buffer) { return {buffer.length, buffer.value}; }

    bool given_;
    qxgss_channel_bindings_desc bindings_{};
};

void check_usage(bool is_right) {
    if (!is_right)
        refuse(GSS_S_NO_CRED, "the credential is not one to do that with");
}

// What is told of a context that goes with its failure.
void keep_story(Context &context) noexcept {
    try {
        last_failure().story = {context.log(), context.story(), context.selected()};
    } catch (const std::exception &) { // the status has to do
    }
}

// Makes a step of the caller's context, or of the fresh one that `make` gives, which is the caller's if it succeeds:
// the host's library keeps none whose first call has failed. A token that tells the peer of a failure is handed out.
template <typename Make>
Context &step(gss_ctx_id_t *pContext, gss_buffer_t pInput, gss_buffer_t pOutput, gss_channel_bindings_t bindings,
              const Make &make) {
    std::unique_ptr<Context> fresh;
    if (*pContext == GSS_C_NO_CONTEXT)
        fresh = make();
    Context &context = fresh != nullptr ? *fresh : *context_of(*pContext);
    try {
        *pOutput = copy_of(context.step(bytes_of(pInput), Bindings(bindings).get()));
    } catch (const std::exception &) {
        keep_story(context);
        try {
            *pOutput = copy_of(context.parting());
        } catch (const std::bad_alloc &) { // the peer hears nothing
        }
        throw;
    }
    if (fresh != nullptr)
        *pContext = handle_of(fresh.release());
    return context;
}

std::string told(Context &context, std::string_view oid) {
    if (oid == QXNEGO_GSS_LOG)
        return context.log();
    if (oid == QXNEGO_GSS_STORY)
        return context.story();
    if (oid == QXNEGO_GSS_SELECTED)
        return context.selected();
    refuse(GSS_S_UNAVAILABLE, "that is not known of a context");
}

void give_delegated(Context &context, gss_cred_id_t *pDelegated) {
    Delegated delegated(context.negotiation().mechanism(), context.negotiation().take_delegated());
    if (pDelegated != nullptr && delegated.handle() != nullptr)
        *pDelegated = handle_of(new Credential(std::move(delegated)));
}

Name proved_name(const Context &context) {
    qxgss_session_facts_desc facts{};
    context.negotiation().describe(facts);
    return {Name::Kind::kUser, std::string(common::bytes_of(&facts.User))};
}

// What the selected mechanism says of its context.
struct Facts {
    common::Name source, target;
    OM_uint32 lifetime = 0;
};

Facts inquire(Context &context) {
    Facts facts;
    OM_uint32 minor = 0;
    const session::Negotiation &negotiation = context.negotiation();
    const auto ask = negotiation.negotiator().table->ftn_gssp_inquire_context;
    if (ask == nullptr)
        refuse(GSS_S_UNAVAILABLE, "the mechanism tells nothing of its contexts");
    const OM_uint32 major = ask(&minor, negotiation.context(), facts.source.out(), facts.target.out(), &facts.lifetime,
                                nullptr, nullptr, nullptr, nullptr);
    if (common::failed(major))
        throw Failure(QXGSS_SESSION_FAILURE_RESOURCES, "the mechanism tells nothing of its context", major, minor);
    return facts;
}

std::unique_ptr<Name> made_name(const common::Name &name) {
    if (name.get() == nullptr || name.get()->Count == 0)
        return nullptr;
    return std::make_unique<Name>(
        Name{Name::Kind::kUser, std::string(common::bytes_of(&name.get()->pElements[0].Name))});
}

} // namespace

} // namespace bridge

using namespace bridge;

OM_uint32 bridge_gss_init_sec_context(OM_uint32 *pMinorStatus, gss_cred_id_t handle, gss_ctx_id_t *pContext,
                                      gss_name_t pTarget, gss_OID, OM_uint32 flags, OM_uint32 lifetime,
                                      gss_channel_bindings_t bindings, gss_buffer_t pInput, gss_OID *pMech,
                                      gss_buffer_t pOutput, OM_uint32 *pFlags, OM_uint32 *pLifetime) {
    return guarded(pMinorStatus, [&] {
        required(pOutput) = GSS_C_EMPTY_BUFFER;
        set(pMech, mechanism_oid());
        set(pFlags, 0U);
        set(pLifetime, 0U);
        const Context &context = step(&required(pContext), pInput, pOutput, bindings, [&] {
            const Credential *const credential = credential_of(handle);
            if (pTarget == GSS_C_NO_NAME)
                refuse(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_BAD_NAME, "there is no target name");
            check_usage(credential == nullptr || credential->initiates());
            configure(false);
            return std::make_unique<Context>(credential, Wish{name_of(pTarget), flags, lifetime});
        });
        if (!context.is_open())
            return GSS_S_CONTINUE_NEEDED;
        set(pFlags, context.flags());
        set(pLifetime, context.negotiation().lifetime());
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_accept_sec_context(OM_uint32 *pMinorStatus, gss_ctx_id_t *pContext, gss_cred_id_t handle,
                                        gss_buffer_t pInput, gss_channel_bindings_t bindings, gss_name_t *pSource,
                                        gss_OID *pMech, gss_buffer_t pOutput, OM_uint32 *pFlags, OM_uint32 *pLifetime,
                                        gss_cred_id_t *pDelegated) {
    return guarded(pMinorStatus, [&] {
        required(pOutput) = GSS_C_EMPTY_BUFFER;
        set(pSource, GSS_C_NO_NAME);
        set(pMech, mechanism_oid());
        set(pFlags, 0U);
        set(pLifetime, 0U);
        set(pDelegated, GSS_C_NO_CREDENTIAL);
        Context &context = step(&required(pContext), pInput, pOutput, bindings, [&] {
            const Credential *const credential = credential_of(handle);
            check_usage(credential == nullptr || credential->accepts());
            configure(true);
            return std::make_unique<Context>(credential);
        });
        if (!context.is_open())
            return GSS_S_CONTINUE_NEEDED;
        give_delegated(context, pDelegated);
        give_name(proved_name(context), pSource);
        set(pFlags, context.flags());
        set(pLifetime, context.negotiation().lifetime());
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_delete_sec_context(OM_uint32 *pMinorStatus, gss_ctx_id_t *pContext, gss_buffer_t pOutput) {
    return guarded(pMinorStatus, [&] {
        if (pOutput != GSS_C_NO_BUFFER)
            *pOutput = GSS_C_EMPTY_BUFFER;
        delete context_of(std::exchange(required(pContext), GSS_C_NO_CONTEXT));
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_inquire_context(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, gss_name_t *pSource,
                                     gss_name_t *pTarget, OM_uint32 *pLifetime, gss_OID *pMech, OM_uint32 *pFlags,
                                     int *pIsInitiator, int *pIsOpen) {
    return guarded(pMinorStatus, [&] {
        set(pSource, GSS_C_NO_NAME);
        set(pTarget, GSS_C_NO_NAME);
        if (handle == GSS_C_NO_CONTEXT)
            refuse(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, "there is no context");
        Context &context = *context_of(handle);
        const Facts facts = context.is_open() ? inquire(context) : Facts();
        std::unique_ptr<Name> source = made_name(facts.source);
        std::unique_ptr<Name> target =
            context.is_client() ? std::make_unique<Name>(*context.target()) : made_name(facts.target);
        set(pLifetime, facts.lifetime);
        set(pMech, mechanism_oid());
        set(pFlags, context.is_open() ? context.flags() : 0U);
        set(pIsInitiator, context.is_client() ? 1 : 0);
        set(pIsOpen, context.is_open() ? 1 : 0);
        if (pSource != nullptr)
            *pSource = handle_of(source.release());
        if (pTarget != nullptr)
            *pTarget = handle_of(target.release());
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_context_time(OM_uint32 *pMinorStatus, gss_ctx_id_t handle, OM_uint32 *pLifetime) {
    return guarded(pMinorStatus, [&] {
        required(pLifetime) = 0;
        *pLifetime = inquire(open_context(handle)).lifetime;
        if (*pLifetime == 0)
            refuse(GSS_S_CONTEXT_EXPIRED, "the context has expired");
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_inquire_sec_context_by_oid(OM_uint32 *pMinorStatus, const gss_ctx_id_t handle,
                                                const gss_OID pWanted, gss_buffer_set_t *pSet) {
    return guarded(pMinorStatus, [&] {
        required(pSet) = GSS_C_NO_BUFFER_SET;
        if (handle == GSS_C_NO_CONTEXT)
            refuse(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, "there is no context");
        std::string text = told(*context_of(handle), bytes_of(gss_const_OID{pWanted}));
        gss_buffer_desc member{text.size(), text.data()};
        OM_uint32 minor = 0;
        if (GSS_ERROR(gss_add_buffer_set_member(&minor, &member, pSet)) != 0)
            throw std::bad_alloc();
        return GSS_S_COMPLETE;
    });
}
