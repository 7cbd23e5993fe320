// The host's contexts: establishment, inquiry and per-message protection.
#include <optional>

#include "mechanisms/hostgss/host_types.h"

namespace hostgss {

namespace {

gss_ctx_id_t to_context(void *context) {
    return static_cast<gss_ctx_id_t>(context);
}

std::optional<gss_channel_bindings_struct> to_bindings(const Bindings *bindings) {
    if (bindings == nullptr)
        return std::nullopt;
    return gss_channel_bindings_struct{bindings->initiator_type, to_buffer(bindings->initiator),
                                       bindings->acceptor_type, to_buffer(bindings->acceptor),
                                       to_buffer(bindings->application)};
}

} // namespace

Status initiate(void *credential, void **context, const Name &target, Bytes mech, std::uint32_t flags,
                std::uint32_t lifetime, const Bindings *bindings, Bytes input, Leg &leg) {
    HostName name;
    Status status = name.import(target);
    if (status.failed())
        return status;
    gss_OID_desc oid = to_oid(mech);
    gss_OID actual = GSS_C_NO_OID;
    gss_buffer_desc token = to_buffer(input);
    auto channel = to_bindings(bindings);
    gss_ctx_id_t handle = to_context(*context);
    HostBuffer output;
    status.major = gss_init_sec_context(&status.minor, static_cast<gss_cred_id_t>(credential), &handle, name.get(),
                                        &oid, flags, lifetime, channel ? &*channel : GSS_C_NO_CHANNEL_BINDINGS,
                                        input.empty() ? GSS_C_NO_BUFFER : &token, &actual, output.get(), &leg.flags,
                                        &leg.lifetime);
    *context = handle;
    leg.mech = to_bytes(actual);
    return with_token(status, output, leg.token);
}

Status accept(void *credential, void **context, const Bindings *bindings, Bytes input, Leg &leg,
              Credential *delegated) {
    gss_buffer_desc token = to_buffer(input);
    auto channel = to_bindings(bindings);
    gss_ctx_id_t handle = to_context(*context);
    gss_cred_id_t given = GSS_C_NO_CREDENTIAL;
    gss_OID actual = GSS_C_NO_OID;
    HostName source;
    HostBuffer output;
    Status status;
    status.major =
        gss_accept_sec_context(&status.minor, &handle, static_cast<gss_cred_id_t>(credential), &token,
                               channel ? &*channel : GSS_C_NO_CHANNEL_BINDINGS, source.address(), &actual, output.get(),
                               &leg.flags, &leg.lifetime, delegated == nullptr ? nullptr : &given);
    *context = handle;
    leg.mech = to_bytes(actual);
    if (delegated != nullptr) {
        delegated->host = given;
        delegated->facts.usage = GSS_C_INITIATE;
    }
    const Status shown = status.failed() ? Status{} : source.display(leg.source);
    return shown.failed() ? shown : with_token(status, output, leg.token);
}

Status delete_context(void **context, Block &token) {
    gss_ctx_id_t handle = to_context(*context);
    HostBuffer output;
    Status status;
    status.major = gss_delete_sec_context(&status.minor, &handle, output.get());
    *context = handle;
    return copied(status, output, token);
}

Status inquire_context(void *context, ContextFacts &facts) {
    const gss_ctx_id_t handle = to_context(context);
    gss_OID mech = GSS_C_NO_OID;
    Status status;
    status.major = gss_inquire_context(&status.minor, handle, nullptr, nullptr, &facts.lifetime, &mech, &facts.flags,
                                       &facts.initiated, &facts.open);
    facts.mech = to_bytes(mech);
    if (status.failed())
        return status;
    const bool initiated = facts.initiated != 0;
    HostName source;
    HostName target;
    status.major = gss_inquire_context(&status.minor, handle, initiated ? source.address() : nullptr,
                                       initiated || names_acceptors(facts.mech) ? target.address() : nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr);
    if (!status.failed())
        status = source.display(facts.source);
    return status.failed() ? status : target.display(facts.target);
}

Status wrap_size_limit(void *context, int confidential, std::uint32_t qop, std::uint32_t output_size,
                       std::uint32_t *input_size) {
    Status status;
    status.major = gss_wrap_size_limit(&status.minor, to_context(context), confidential, qop, output_size, input_size);
    return status;
}

Status wrap(void *context, int confidential, std::uint32_t qop, Bytes message, int *state, Block &wrapped) {
    gss_buffer_desc input = to_buffer(message);
    HostBuffer output;
    Status status;
    status.major = gss_wrap(&status.minor, to_context(context), confidential, qop, &input, state, output.get());
    return copied(status, output, wrapped);
}

// Kerberos (1.20) writes into the token that it reads.
Status unwrap(void *context, Bytes wrapped, Block &message, int *state, std::uint32_t *qop) {
    Block copy;
    if (!copy.append(wrapped))
        return kOutOfMemory;
    gss_buffer_desc input = to_buffer(copy.view());
    HostBuffer output;
    Status status;
    status.major = gss_unwrap(&status.minor, to_context(context), &input, output.get(), state, qop);
    return copied(status, output, message);
}

Status get_mic(void *context, std::uint32_t qop, Bytes message, Block &mic) {
    gss_buffer_desc input = to_buffer(message);
    HostBuffer output;
    Status status;
    status.major = gss_get_mic(&status.minor, to_context(context), qop, &input, output.get());
    return copied(status, output, mic);
}

Status verify_mic(void *context, Bytes message, Bytes mic, std::uint32_t *qop) {
    gss_buffer_desc input = to_buffer(message);
    gss_buffer_desc token = to_buffer(mic);
    Status status;
    status.major = gss_verify_mic(&status.minor, to_context(context), &input, &token, qop);
    return status;
}

} // namespace hostgss
