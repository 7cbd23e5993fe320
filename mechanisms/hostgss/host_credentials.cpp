// The host's mechanisms, names and credentials.
#include <cstring>

#include "mechanisms/hostgss/host_types.h"

namespace hostgss {

OidSet::~OidSet() {
    OM_uint32 minor;
    gss_OID_set set = static_cast<gss_OID_set>(set_);
    gss_release_oid_set(&minor, &set);
}

std::size_t OidSet::count() const {
    return set_ == nullptr ? 0 : static_cast<gss_OID_set>(set_)->count;
}

Bytes OidSet::operator[](std::size_t index) const {
    return to_bytes(&static_cast<gss_OID_set>(set_)->elements[index]);
}

Status HostName::import(const Name &name) {
    if (name.text.empty())
        return {};
    gss_buffer_desc text = to_buffer(name.text);
    const gss_OID type = name.kind == NameKind::kUser ? GSS_C_NT_USER_NAME : GSS_C_NT_HOSTBASED_SERVICE;
    Status status;
    status.major = gss_import_name(&status.minor, &text, type, &name_);
    return status;
}

Status HostName::display(Block &text) const {
    if (name_ == GSS_C_NO_NAME)
        return {};
    HostBuffer shown;
    Status status;
    status.major = gss_display_name(&status.minor, name_, shown.get(), nullptr);
    Bytes whole = shown.view();
    if (!whole.empty() && whole.back() == '\0')
        whole.remove_suffix(1);
    if (!status.failed() && whole.find('\0') != Bytes::npos)
        return {GSS_S_BAD_NAME, 0, "The name has a NUL inside."};
    if (!status.failed() && !text.append(whole))
        return kOutOfMemory;
    return status;
}

Status mechanisms(OidSet &set) {
    gss_OID_set found = GSS_C_NO_OID_SET;
    Status status;
    status.major = gss_indicate_mechs(&status.minor, &found);
    *set.address() = found;
    return status;
}

namespace {

// The files that a request names, as the host takes them; nothing for its defaults. Not even an empty store may stand
// for those: some mechanisms make a user's credential whenever there is a store.
class Store {
  public:
    explicit Store(const CredentialRequest &request) {
        add("keytab", request.keytab);
        add("client_keytab", request.client_keytab);
        add("ccache", request.ccache);
    }
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;
    gss_const_key_value_set_t get() const { return store_.count == 0 ? GSS_C_NO_CRED_STORE : &store_; }

  private:
    void add(const char *key, const char *value) {
        if (value != nullptr)
            elements_[store_.count++] = {key, value};
    }

    gss_key_value_element_desc elements_[3];
    gss_key_value_set_desc store_{0, elements_};
};

// The host copies a credential by way of its exported form, which has the keys in it.
Status copy(gss_cred_id_t given, gss_cred_id_t *credential) {
    HostBuffer exported;
    Status status;
    status.major = gss_export_cred(&status.minor, given, exported.get());
    if (!status.failed())
        status.major = gss_import_cred(&status.minor, exported.get(), credential);
    if (!exported.view().empty())
        explicit_bzero(exported.get()->value, exported.view().size());
    return status;
}

Status call_acquire(const CredentialRequest &request, gss_name_t name, gss_cred_id_t *credential) {
    gss_OID_desc oid = to_oid(request.mech);
    gss_OID_set_desc mechs = {1, &oid};
    if (request.given != nullptr)
        return copy(static_cast<gss_cred_id_t>(request.given), credential);
    Status status;
    if (request.password == nullptr) {
        status.major = gss_acquire_cred_from(&status.minor, name, request.lifetime, &mechs, request.usage,
                                             Store(request).get(), credential, nullptr, nullptr);
    } else {
        gss_buffer_desc password = to_buffer(request.password);
        status.major = gss_acquire_cred_with_password(&status.minor, name, &password, request.lifetime, &mechs,
                                                      request.usage, credential, nullptr, nullptr);
    }
    return status;
}

} // namespace

Status acquire(const CredentialRequest &request, void **credential, std::uint32_t *lifetime) {
    HostName name;
    Status status = name.import(request.name);
    if (status.failed())
        return status;
    gss_cred_id_t made = GSS_C_NO_CREDENTIAL;
    CredentialFacts facts;
    status = call_acquire(request, name.get(), &made);
    *credential = made;
    if (!status.failed())
        status = inquire_credential(made, facts);
    if (!status.failed() && facts.usage != GSS_C_BOTH && facts.usage != request.usage)
        status = kNoCredential;
    *lifetime = facts.lifetime;
    if (status.failed() && made != GSS_C_NO_CREDENTIAL)
        release_credential(credential);
    return status;
}

Status release_credential(void **credential) {
    gss_cred_id_t handle = static_cast<gss_cred_id_t>(*credential);
    Status status;
    status.major = gss_release_cred(&status.minor, &handle);
    *credential = handle;
    return status;
}

Status inquire_credential(void *credential, CredentialFacts &facts) {
    const gss_cred_id_t handle = static_cast<gss_cred_id_t>(credential);
    gss_OID_set mechs = GSS_C_NO_OID_SET;
    Status status;
    status.major = gss_inquire_cred(&status.minor, handle, nullptr, &facts.lifetime, &facts.usage, &mechs);
    *facts.mechs.address() = mechs;
    const bool named = facts.usage == GSS_C_INITIATE || (facts.mechs.count() != 0 && names_acceptors(facts.mechs[0]));
    if (status.failed() || !named)
        return status;
    HostName name;
    status.major = gss_inquire_cred(&status.minor, handle, name.address(), nullptr, nullptr, nullptr);
    return status.failed() ? status : name.display(facts.name);
}

} // namespace hostgss
