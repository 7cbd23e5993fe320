// Who logs on, set once on the initiator: by the logon string of its credential, or by single sign-on with what each
// mechanism already holds. Copies of logon strings and principals are wiped on every path.
#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "qxat/qxatldapauthorize.h"

using namespace qxnego;

namespace {

bool has_text(qxgss_name_t name) {
    return name != nullptr && name->Count != 0 && name->pElements != nullptr && present(name->pElements[0].Name);
}

// Moves a NUL-terminated heap text, if there is one, into a buffer; its length is without the NUL.
void take_text(qxgss_buffer_desc &buffer, char *text) {
    if (text == nullptr)
        return;
    discard(buffer);
    buffer = {std::strlen(text), text};
}

// Takes what the logon string holds; `is_explicit` when that includes an authentication identity.
Status read_logon_string(const qxgss_buffer_desc &text, NegContext_desc &negotiation, bool &is_explicit) {
    const SecretText logon(common::bytes_of(&text));
    if (logon.get() == nullptr)
        return common::failure(QXNEGO_E_CALLOC);
    char *authcid = nullptr;
    char *user = nullptr;
    char *profile = nullptr;
    const Status parsed = ask(qxat_parse_logon, logon.get(), nullptr, &authcid, nullptr, nullptr, nullptr, nullptr,
                              &user, &profile, nullptr, QXAT_FLAG_UNESCAPE_ALL);
    if (parsed.failed())
        return parsed;
    take_text(negotiation.UserNameBuf, user);
    take_text(negotiation.ProfileNameBuf, profile);
    take_text(negotiation.AuthenticationIdBuf, authcid);
    is_explicit = authcid != nullptr;
    return kSuccess;
}

// A name of an entry's mechanism, released with the mechanism's own operation.
class MechanismName {
  public:
    explicit MechanismName(const NegMechEntry_desc &entry) : entry_(entry) {}
    MechanismName(const MechanismName &) = delete;
    MechanismName &operator=(const MechanismName &) = delete;
    ~MechanismName() {
        OM_uint32 ignored = 0;
        if (name_ != nullptr)
            release_mechanism_name(entry_, &ignored, &name_);
    }
    qxgss_name_t *get() { return &name_; }

  private:
    const NegMechEntry_desc &entry_;
    qxgss_name_t name_ = nullptr;
};

// The principal whose credential the mechanism holds; null when it does not say. `false` only when memory is lacking.
bool sso_principal(const NegMechEntry_desc &entry, Heap<char> &principal) {
    const auto inquire = table_of(entry).ftn_gssp_inquire_cred;
    if (inquire == nullptr)
        return true;
    MechanismName name(entry);
    if (ask(inquire, entry.pMechCredential, name.get(), nullptr, nullptr, nullptr).failed() || !has_text(*name.get()))
        return true;
    const SecretText logon(common::bytes_of(&(*name.get())->pElements[0].Name));
    if (logon.get() == nullptr) {
        gssp_release_name(nullptr, name.get());
        return false;
    }
    char *user = nullptr;
    if (QXNEGO_INT_get_principal(logon.get(), &user) == QXNEGO_E_SUCCESSFUL)
        principal.reset(user);
    return true;
}

// One candidate's part in single sign-on: it brings an identity, or is rejected.
Status sign_on_with(NegMechEntry_desc &entry, NegContext_desc &negotiation) {
    if (entry.SingleSignOn == 0)
        return change_state(entry, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_SSO_REQUIRED,
                            "QXNEGO_INT_SetAuthInfo: SSO required but not supported by mechanism", negotiation);
    Heap<char> principal;
    if (!sso_principal(entry, principal))
        return common::failure(QXNEGO_E_CALLOC);
    if (principal == nullptr)
        return change_state(entry, NEG_MECH_STATE_REJECTED, NEG_MECH_REASON_AUTH_ID_NOT_AVAIL,
                            "QXNEGO_INT_SetAuthInfo: Could not get Authentication ID for SSO", negotiation);
    take_text(entry.SsoAuthenticationIdBuf, principal.release());
    negotiation.IsSso = 1;
    return kSuccess;
}

Status sign_on(NegContext_desc &negotiation) {
    for (NegMechEntry_desc &entry : entries(negotiation.NegMechList))
        if (entry.MechState == NEG_MECH_STATE_AVAILABLE)
            if (const Status status = sign_on_with(entry, negotiation); status.failed())
                return status;
    return kSuccess;
}

} // namespace

OM_uint32 QXNEGO_INT_SetAuthInfo(OM_uint32 *pMinorStatus, QxnegoCred_t pCredHandle, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
    pNegContext->IsSso = 0;
    Status status = kSuccess;
    bool is_explicit = false;
    if (pCredHandle != nullptr && has_text(pCredHandle->pDesiredName))
        status = read_logon_string(pCredHandle->pDesiredName->pElements[0].Name, *pNegContext, is_explicit);
    if (!status.failed() && !is_explicit)
        status = sign_on(*pNegContext);
    return report(pMinorStatus, status.failed() ? status : kSuccess);
}

OM_uint32 QXNEGO_INT_get_principal(const char *pszLogon, char **ppszPrincipal) {
    if (ppszPrincipal != nullptr)
        *ppszPrincipal = nullptr;
    struct FreeLogon {
        void operator()(qxat_logon_t logon) const { qxat_free(logon); }
    };
    const std::unique_ptr<std::remove_pointer_t<qxat_logon_t>, FreeLogon> logon(
        qxat_parse(pszLogon, QXAT_FLAG_UNESCAPE_ALL));
    if (logon == nullptr || qxat_get_count(logon.get()) != 1)
        return QXNEGO_E_LOGON_PROPERTY;
    const qxat_buffer_t user = qxat_get_user(logon.get(), 0);
    if (user == nullptr || user->kb_value == nullptr)
        return QXNEGO_E_LOGON_PROPERTY;
    if (ppszPrincipal == nullptr)
        return QXNEGO_E_SUCCESSFUL;
    *ppszPrincipal = common::copy_text(user->kb_value).release();
    return *ppszPrincipal != nullptr ? QXNEGO_E_SUCCESSFUL : QXNEGO_E_LOGON_PROPERTY;
}
