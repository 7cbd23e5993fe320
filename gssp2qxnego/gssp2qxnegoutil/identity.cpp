// Who logs on, set once on the initiator: by the logon string of its credential, or by single sign-on with what each
// mechanism already holds. Copies of logon strings and principals are wiped on every path.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"
#include "qxat/qxatldapauthorize.h"

using namespace qxnego;

namespace {

bool has_text(qxgss_name_t name) {
    return name != nullptr && name->Count != 0 && name->pElements != nullptr && present(name->pElements[0].Name);
}

// Takes what the logon string holds; `explicitLogon` when that includes an authentication identity.
OM_uint32 read_logon_string(OM_uint32 *pMinorStatus, qxgss_name_t desiredName, NegContext_desc &context,
                            bool &explicitLogon) {
    const SecretText logon(desiredName->pElements[0].Name);
    if (logon.get() == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    char *authcid = nullptr;
    char *user = nullptr;
    char *profile = nullptr;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = qxat_parse_logon(&minor, logon.get(), nullptr, &authcid, nullptr, nullptr, nullptr, nullptr,
                                             &user, &profile, nullptr, QXAT_FLAG_UNESCAPE_ALL);
    if (failed(major))
        return report(pMinorStatus, major, minor);
    if (user != nullptr)
        take_text(context.UserNameBuf, Heap<char>(user));
    if (profile != nullptr)
        take_text(context.ProfileNameBuf, Heap<char>(profile));
    if (authcid != nullptr)
        take_text(context.AuthenticationIdBuf, Heap<char>(authcid));
    explicitLogon = authcid != nullptr;
    return GSS_S_COMPLETE;
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
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    if (failed(inquire(&minor, entry.pMechCredential, name.get(), nullptr, nullptr, nullptr)) || !has_text(*name.get()))
        return true;
    const SecretText logon((*name.get())->pElements[0].Name);
    if (logon.get() == nullptr) {
        gssp_release_name(nullptr, name.get());
        return false;
    }
    char *user = nullptr;
    if (QXNEGO_INT_get_principal(logon.get(), &user) == QXNEGO_E_SUCCESSFUL)
        principal.reset(user);
    return true;
}

OM_uint32 reject(OM_uint32 *pMinorStatus, NegMechReason_et reason, const char *text, NegMechEntry_desc &entry,
                 NegContext_t context) {
    const OM_uint32 major =
        QXNEGO_INT_NegMechStateChange(pMinorStatus, NEG_MECH_STATE_REJECTED, reason, 0, 0, nullptr, &entry);
    if (!failed(major))
        QXNEGO_INT_NegLogEntry(nullptr, text, &entry, context);
    return major;
}

// One candidate's part in single sign-on: it brings an identity, or is rejected.
OM_uint32 sign_on_with(OM_uint32 *pMinorStatus, NegMechEntry_desc &entry, NegContext_t context) {
    if (entry.SingleSignOn == 0)
        return reject(pMinorStatus, NEG_MECH_REASON_SSO_REQUIRED,
                      "QXNEGO_INT_SetAuthInfo: SSO required but not supported by mechanism", entry, context);
    Heap<char> principal;
    if (!sso_principal(entry, principal))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    if (principal == nullptr)
        return reject(pMinorStatus, NEG_MECH_REASON_AUTH_ID_NOT_AVAIL,
                      "QXNEGO_INT_SetAuthInfo: Could not get Authentication ID for SSO", entry, context);
    take_text(entry.SsoAuthenticationIdBuf, std::move(principal));
    context->IsSso = 1;
    return GSS_S_COMPLETE;
}

} // namespace

OM_uint32 QXNEGO_INT_SetAuthInfo(OM_uint32 *pMinorStatus, QxnegoCred_t pCredHandle, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_CONTEXT);
    pNegContext->IsSso = 0;
    if (pCredHandle != nullptr && has_text(pCredHandle->pDesiredName)) {
        bool explicitLogon = false;
        const OM_uint32 major = read_logon_string(pMinorStatus, pCredHandle->pDesiredName, *pNegContext, explicitLogon);
        if (failed(major))
            return major;
        if (explicitLogon)
            return succeed(pMinorStatus);
    }
    const NegMechList_desc &list = pNegContext->NegMechList;
    for (OM_uint32 i = 0; list.pNegMech != nullptr && i < list.Count; ++i) {
        NegMechEntry_desc &entry = list.pNegMech[i];
        if (entry.MechState != NEG_MECH_STATE_AVAILABLE)
            continue;
        const OM_uint32 major = sign_on_with(pMinorStatus, entry, pNegContext);
        if (failed(major))
            return major;
    }
    return succeed(pMinorStatus);
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
    *ppszPrincipal = copy_text(user->kb_value).release();
    return *ppszPrincipal != nullptr ? QXNEGO_E_SUCCESSFUL : QXNEGO_E_LOGON_PROPERTY;
}
