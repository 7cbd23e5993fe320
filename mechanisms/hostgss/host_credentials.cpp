// The host's mechanisms, names and credentials.
#include <cstring>

#include "mechanisms/hostgss/host_types.h"

namespace hostgss {

void OidSet::take(void *set) {
    OM_uint32 minor;
    gss_OID_set held = static_cast<gss_OID_set>(set_);
    gss_release_oid_set(&minor, &held);
    set_ = set;
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
    set.take(found);
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

// What the host says of a credential that it makes goes into the facts.
Status call_acquire(const CredentialRequest &request, gss_name_t name, gss_cred_id_t *credential,
                    CredentialFacts &facts) {
    gss_OID_desc oid = to_oid(request.mech);
    gss_OID_set_desc mechs = {1, &oid};
    gss_OID_set actual = GSS_C_NO_OID_SET;
    if (request.given != nullptr)
        return copy(static_cast<gss_cred_id_t>(request.given), credential);
    Status status;
    if (request.password == nullptr) {
        status.major = gss_acquire_cred_from(&status.minor, name, request.lifetime, &mechs, request.usage,
                                             Store(request).get(), credential, &actual, &facts.lifetime);
    } else {
        gss_buffer_desc password = to_buffer(request.password);
        status.major = gss_acquire_cred_with_password(&status.minor, name, &password, request.lifetime, &mechs,
                                                      request.usage, credential, &actual, &facts.lifetime);
    }
    facts.mechs.take(actual);
    facts.usage = request.usage;
    return status;
}

// All facts but the text of the name, which is only asked for when there is a place for it.
Status inquire(gss_cred_id_t handle, CredentialFacts &facts, gss_name_t *name) {
    gss_OID_set mechs = GSS_C_NO_OID_SET;
    Status status;
    status.major = gss_inquire_cred(&status.minor, handle, name, &facts.lifetime, &facts.usage, &mechs);
    facts.mechs.take(mechs);
    return status;
}

Status inquire_with_name(gss_cred_id_t handle, CredentialFacts &facts) {
    HostName owner;
    const Status status = inquire(handle, facts, owner.address());
    return status.failed() ? status : owner.display(facts.name);
}

bool has_name(const CredentialFacts &facts) {
    return facts.usage == GSS_C_INITIATE || (facts.mechs.count() != 0 && names_acceptors(facts.mechs[0]));
}

} // namespace

// A credential is asked for all it has, an initiator's name with it: what is wrong with any of that is told here, too.
// Not so with Kerberos (1.20): it reads the tickets to say their lifetime while it acquires, only an expired one is
// told by a question, its names have a text always, and a question costs 70,000 instructions or more.
Status acquire(const CredentialRequest &request, Credential &credential) {
    HostName name;
    Status status = name.import(request.name);
    if (status.failed())
        return status;
    gss_cred_id_t made = GSS_C_NO_CREDENTIAL;
    CredentialFacts &facts = credential.facts;
    status = call_acquire(request, name.get(), &made, facts);
    credential.host = made;
    if (status.failed() || (request.mech == kKerberos && facts.lifetime != 0))
        return status;
    credential.named = request.usage == GSS_C_INITIATE;
    status = credential.named ? inquire_with_name(made, facts) : inquire(made, facts, nullptr);
    if (!status.failed() && facts.usage != GSS_C_BOTH && facts.usage != request.usage)
        status = kNoCredential;
    return status;
}

Status Credential::release() {
    gss_cred_id_t handle = static_cast<gss_cred_id_t>(host);
    host = nullptr;
    Status status;
    if (handle != GSS_C_NO_CREDENTIAL)
        status.major = gss_release_cred(&status.minor, &handle);
    return status;
}

Status inquire_credential(const Credential *credential, CredentialFacts &facts) {
    const gss_cred_id_t handle = static_cast<gss_cred_id_t>(host_of(credential));
    if (credential != nullptr && has_name(credential->facts))
        return inquire_with_name(handle, facts);
    const Status status = inquire(handle, facts, nullptr);
    return status.failed() || !has_name(facts) ? status : inquire_with_name(handle, facts);
}

} // namespace hostgss
