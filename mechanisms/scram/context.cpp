// Contexts: both roles' establishment calls over a GNU SASL session.
//
//     initiator                                              acceptor
//     1. n,,n=USER,r=NONCE                      ->
//                                               <-           1. r=NONCE+,s=SALT,i=ITERATIONS
//     2. c=biws,r=NONCE+,p=PROOF                ->
//                                               <-           2. v=SIGNATURE           complete
//     3. (checks the signature)      complete
#include "mechanisms/scram/scram.h"

namespace scram {
namespace {

Context &context_of(qxgss_ctx_id_t handle) {
    return *static_cast<Context *>(handle);
}

// Which field of the verifier a property is; null for a property that an acceptor has no answer to.
std::string Verifier::*field_of(Gsasl_property property) {
    switch (property) {
    case GSASL_SCRAM_ITER:
        return &Verifier::iterations;
    case GSASL_SCRAM_SALT:
        return &Verifier::salt;
    case GSASL_SCRAM_STOREDKEY:
        return &Verifier::stored_key;
    case GSASL_SCRAM_SERVERKEY:
        return &Verifier::server_key;
    default:
        return nullptr;
    }
}

int give_field(Context &context, Gsasl_session *session, Gsasl_property property, std::string Verifier::*field) {
    const char *const user = gsasl_property_fast(session, GSASL_AUTHID);
    if (user == nullptr)
        return GSASL_NO_AUTHID;
    if (context.verifier.salt.empty()) {
        if (const int rc = context.mechanism.verifiers->find(user, context.verifier); rc != GSASL_OK)
            return rc;
    }
    return gsasl_property_set(session, property, (context.verifier.*field).c_str());
}

// GNU SASL has no limit of its own. A message without a count it refuses by itself.
bool asks_too_much(std::string_view message) {
    const std::size_t count = message.find(",i=");
    if (count == std::string_view::npos)
        return false;
    message.remove_prefix(count + 3);
    return !valid_iterations(message.substr(0, message.find(',')));
}

// What a token must be like before the library sees it.
OM_uint32 check_token(OM_uint32 *pMinorStatus, const Context &context, std::string_view input) {
    const bool is_first = context.is_initiator && context.legs == 0;
    if (is_first && !input.empty())
        return report(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, E_EARLY_TOKEN);
    if (!is_first && input.empty())
        return report(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, E_NO_TOKEN);
    // The library would not see, nor the proofs cover, what stands behind a NUL.
    if (input.find('\0') != std::string_view::npos)
        return fail(pMinorStatus, GSASL_MECHANISM_PARSE_ERROR);
    if (context.is_initiator && context.legs == 1 && asks_too_much(input))
        return report(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, E_ITERATIONS);
    return succeed(pMinorStatus);
}

// The exchange has succeeded: who is it? An authorization identity is not this mechanism's to grant (RFC 5802 5.1).
OM_uint32 complete(OM_uint32 *pMinorStatus, Context &context) {
    if (!context.is_initiator) {
        const char *const user = gsasl_property_fast(context.session.get(), GSASL_AUTHID);
        const char *const other = gsasl_property_fast(context.session.get(), GSASL_AUTHZID);
        if (other != nullptr && *other != '\0' && std::strcmp(user, other) != 0)
            return report(pMinorStatus, GSS_S_UNAUTHORIZED, E_AUTHZID);
        context.user = user;
    }
    context.is_established = true;
    context.session.reset();
    return succeed(pMinorStatus);
}

OM_uint32 exchange(OM_uint32 *pMinorStatus, Context &context, qxgss_buffer_t pInputToken, qxgss_buffer_t pOutputToken) {
    const std::string_view input = common::bytes_of(pInputToken);
    if (const OM_uint32 major = check_token(pMinorStatus, context, input); GSS_ERROR(major))
        return major;
    char *bytes = nullptr;
    std::size_t length = 0;
    int rc = gsasl_step(context.session.get(), input.data(), input.size(), &bytes, &length);
    common::Heap<char> token(rc == GSASL_OK || rc == GSASL_NEEDS_MORE ? bytes : nullptr);
    // The library's client may free a block twice when it is finished after a lack of memory (GNU SASL 2.2): a session
    // that could is given up instead.
    if (rc == GSASL_MALLOC_ERROR && context.is_initiator)
        forget_password(context.session.release());
    if (context.lookup_rc != GSASL_OK)
        rc = context.lookup_rc;
    if (rc != GSASL_OK && rc != GSASL_NEEDS_MORE)
        return fail(pMinorStatus, rc);
    ++context.legs;
    OM_uint32 major = report(pMinorStatus, GSS_S_CONTINUE_NEEDED, GSASL_OK);
    if (rc == GSASL_OK)
        major = complete(pMinorStatus, context);
    if (!GSS_ERROR(major) && length != 0)
        *pOutputToken = {length, token.release()};
    return major;
}

// One call of either role. The session ends with the exchange, and with it what the library holds of the password.
OM_uint32 run(OM_uint32 *pMinorStatus, Context &context, qxgss_buffer_t pInputToken, qxgss_buffer_t pOutputToken) {
    if (context.session == nullptr)
        return fail(pMinorStatus, GSASL_MECHANISM_CALLED_TOO_MANY_TIMES);
    const OM_uint32 major = exchange(pMinorStatus, context, pInputToken, pOutputToken);
    if (GSS_ERROR(major))
        context.session.reset();
    return major;
}

void answer(Mechanism &mechanism, const Answers &answers) {
    set_if_given(answers.ppMechType, &mechanism.oid);
    set_if_given(answers.pRetFlags, GSS_C_MUTUAL_FLAG);
    set_if_given(answers.pTimeRec, GSS_C_INDEFINITE);
}

using Fresh = std::unique_ptr<Context>;

// The session of a fresh context, its hook set; the result is GNU SASL's.
int start_session(Context &context, decltype(&gsasl_client_start) start) {
    if (library() == nullptr)
        return GSASL_UNKNOWN_MECHANISM;
    Gsasl_session *session = nullptr;
    const int rc = start(library(), context.mechanism.name, &session);
    if (rc != GSASL_OK)
        return rc;
    context.session.reset(session);
    gsasl_session_hook_set(session, &context);
    return GSASL_OK;
}

int start_initiator(Context &context, const Credential &credential) {
    int rc = start_session(context, gsasl_client_start);
    if (rc == GSASL_OK)
        rc = gsasl_property_set(context.session.get(), GSASL_AUTHID, credential.identity.get());
    if (rc == GSASL_OK)
        rc = gsasl_property_set(context.session.get(), GSASL_PASSWORD, credential.password.get());
    context.user = credential.identity.get();
    return rc;
}

OM_uint32 begin_initiator(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_cred_id_t handle,
                          qxgss_name_t pTargetName, Fresh &fresh) {
    const auto *const credential = static_cast<const Credential *>(handle);
    if (credential == nullptr || credential->password == nullptr)
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_CREDENTIAL);
    fresh = std::make_unique<Context>(mechanism, true);
    if (GSS_ERROR(gssp_duplicate_name(nullptr, pTargetName, fresh->target_name.out())))
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    const int rc = start_initiator(*fresh, *credential);
    return rc == GSASL_OK ? succeed(pMinorStatus) : fail(pMinorStatus, rc);
}

OM_uint32 begin_acceptor(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_cred_id_t handle, Fresh &fresh) {
    const auto *const credential = static_cast<const Credential *>(handle);
    if (credential != nullptr && credential->usage == GSS_C_INITIATE)
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_CREDENTIAL);
    if (mechanism.verifiers == nullptr)
        return report(pMinorStatus, GSS_S_NO_CRED, E_NO_VERIFIERS);
    fresh = std::make_unique<Context>(mechanism, false);
    const int rc = start_session(*fresh, gsasl_server_start);
    return rc == GSASL_OK ? succeed(pMinorStatus) : fail(pMinorStatus, rc);
}

// A context goes on with the role and the mechanism that it began with.
bool is_other(const Mechanism &mechanism, bool initiates, qxgss_ctx_id_t handle) {
    return handle != QXGSS_C_NO_CONTEXT &&
           (context_of(handle).is_initiator != initiates || &context_of(handle).mechanism != &mechanism);
}

// Runs a call on the fresh context, which is handed out if it succeeds, or on the caller's.
OM_uint32 drive(OM_uint32 *pMinorStatus, Fresh fresh, qxgss_ctx_id_t *ppContextHandle, qxgss_buffer_t pInputToken,
                qxgss_buffer_t pOutputToken) {
    Context &context = fresh != nullptr ? *fresh : context_of(*ppContextHandle);
    const OM_uint32 major = run(pMinorStatus, context, pInputToken, pOutputToken);
    if (!GSS_ERROR(major) && fresh != nullptr)
        *ppContextHandle = fresh.release();
    return major;
}

OM_uint32 give_source_name(OM_uint32 *pMinorStatus, Context &context, qxgss_name_t *ppSrcName,
                           qxgss_buffer_t pOutputToken) {
    if (make_name(context.user, ppSrcName))
        return succeed(pMinorStatus);
    context.is_established = false;
    gssp_release_buffer(nullptr, pOutputToken);
    return fail(pMinorStatus, GSASL_MALLOC_ERROR);
}

} // namespace

int give_verifier(Gsasl *, Gsasl_session *session, Gsasl_property property) noexcept {
    auto *const context = static_cast<Context *>(gsasl_session_hook_get(session));
    std::string Verifier::*const field = field_of(property);
    if (context == nullptr || context->is_initiator || field == nullptr)
        return GSASL_NO_CALLBACK;
    // The library goes on with a default where it got no answer, so the first failure is kept for exchange().
    int rc = GSASL_MALLOC_ERROR;
    try {
        rc = give_field(*context, session, property, field);
    } catch (const std::bad_alloc &) {
    }
    if (context->lookup_rc == GSASL_OK)
        context->lookup_rc = rc;
    return rc;
}

void forget_password(Gsasl_session *session) {
    for (const Gsasl_property property : {GSASL_PASSWORD, GSASL_SCRAM_SALTED_PASSWORD}) {
        char *const secret = const_cast<char *>(gsasl_property_fast(session, property));
        if (secret != nullptr)
            explicit_bzero(secret, std::strlen(secret));
    }
}

bool make_name(std::string_view user, qxgss_name_t *ppName) {
    *ppName = QXGSS_C_NO_NAME;
    if (user.empty())
        return true;
    qxgss_buffer_desc text{user.size(), const_cast<char *>(user.data())};
    return !GSS_ERROR(qxgss_import_name(nullptr, &text, GSS_C_NT_QXAT_MECHDATA_UTF8, ppName));
}

OM_uint32 init_sec_context(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_cred_id_t pInitiatorCredHandle,
                           qxgss_ctx_id_t *ppContextHandle, qxgss_name_t pTargetName, qxgss_OID pMechType,
                           qxgss_buffer_t pInputToken, qxgss_buffer_t pOutputToken, const Answers &answers) {
    if (ppContextHandle == nullptr || pOutputToken == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *pOutputToken = {};
    answer(mechanism, answers);
    if (!is_for(mechanism, pMechType))
        return report(pMinorStatus, GSS_S_BAD_MECH, E_OTHER_MECHANISM);
    if (is_other(mechanism, true, *ppContextHandle))
        return report(pMinorStatus, GSS_S_NO_CONTEXT, E_NO_CONTEXT);
    Fresh fresh;
    OM_uint32 major = GSS_S_COMPLETE;
    if (*ppContextHandle == QXGSS_C_NO_CONTEXT)
        major = begin_initiator(mechanism, pMinorStatus, pInitiatorCredHandle, pTargetName, fresh);
    return GSS_ERROR(major) ? major : drive(pMinorStatus, std::move(fresh), ppContextHandle, pInputToken, pOutputToken);
}

OM_uint32 accept_sec_context(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                             qxgss_cred_id_t pAcceptorCredHandle, qxgss_buffer_t pInputToken, qxgss_name_t *ppSrcName,
                             qxgss_buffer_t pOutputToken, const Answers &answers,
                             qxgss_cred_id_t *ppDelegatedCredHandle) {
    if (ppContextHandle == nullptr || pOutputToken == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *pOutputToken = {};
    set_if_given(ppSrcName, QXGSS_C_NO_NAME);
    set_if_given(ppDelegatedCredHandle, QXGSS_C_NO_CREDENTIAL);
    answer(mechanism, answers);
    if (is_other(mechanism, false, *ppContextHandle))
        return report(pMinorStatus, GSS_S_NO_CONTEXT, E_NO_CONTEXT);
    Fresh fresh;
    OM_uint32 major = GSS_S_COMPLETE;
    if (*ppContextHandle == QXGSS_C_NO_CONTEXT)
        major = begin_acceptor(mechanism, pMinorStatus, pAcceptorCredHandle, fresh);
    if (GSS_ERROR(major))
        return major;
    major = drive(pMinorStatus, std::move(fresh), ppContextHandle, pInputToken, pOutputToken);
    if (major == GSS_S_COMPLETE && ppSrcName != nullptr)
        major = give_source_name(pMinorStatus, context_of(*ppContextHandle), ppSrcName, pOutputToken);
    return major;
}

OM_uint32 delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle, qxgss_buffer_t pOutputToken) {
    if (pOutputToken != nullptr)
        *pOutputToken = {};
    if (ppContextHandle == nullptr)
        return report(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CONTEXT, E_ARGUMENT);
    if (*ppContextHandle == QXGSS_C_NO_CONTEXT)
        return report(pMinorStatus, GSS_S_NO_CONTEXT, E_NO_CONTEXT);
    delete static_cast<Context *>(*ppContextHandle);
    *ppContextHandle = QXGSS_C_NO_CONTEXT;
    return succeed(pMinorStatus);
}

OM_uint32 inquire_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_name_t *ppSourceName,
                          qxgss_name_t *ppTargetName, OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType,
                          OM_uint32 *pCtxFlags, int *pLocallyInitiated, int *pOpen) {
    set_if_given(ppSourceName, QXGSS_C_NO_NAME);
    set_if_given(ppTargetName, QXGSS_C_NO_NAME);
    if (pContextHandle == QXGSS_C_NO_CONTEXT)
        return report(pMinorStatus, GSS_S_NO_CONTEXT, E_NO_CONTEXT);
    Context &context = context_of(pContextHandle);
    if (ppSourceName != nullptr && !make_name(context.user, ppSourceName))
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    if (ppTargetName != nullptr && GSS_ERROR(gssp_duplicate_name(nullptr, context.target_name.get(), ppTargetName))) {
        if (ppSourceName != nullptr)
            gssp_release_name(nullptr, ppSourceName);
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    }
    answer(context.mechanism, {ppMechType, pCtxFlags, pLifetimeRec});
    set_if_given(pLocallyInitiated, context.is_initiator);
    set_if_given(pOpen, context.is_established);
    return succeed(pMinorStatus);
}

} // namespace scram
