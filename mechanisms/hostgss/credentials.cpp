// Credentials: the logon string becomes an identity and a password for the host, and what stands behind it in the name
// says where the host finds the rest.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/status.h"
#include "qxat/qxatldapauthorize.h"

namespace hostgss {

namespace {

// A string of the logon parser; wiped when it goes.
class Secret {
  public:
    Secret() = default;
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    ~Secret() {
        qxgss_buffer_desc whole = {text().size(), text_};
        gssp_release_secure_buffer(nullptr, &whole);
    }
    bool copy(Bytes bytes) {
        text_ = static_cast<char *>(std::calloc(bytes.size() + 1, 1));
        if (text_ != nullptr)
            bytes.copy(text_, bytes.size());
        return text_ != nullptr;
    }
    char **address() { return &text_; }
    const char *get() const { return text_; }
    Bytes text() const { return text_ == nullptr ? Bytes{} : Bytes{text_}; }

  private:
    char *text_ = nullptr;
};

// What a logon string says to us.
struct Logon {
    Secret identity;
    Secret password;
    Secret realm;

    Status parse(Bytes logon) {
        Secret copy;
        if (!copy.copy(logon))
            return kOutOfMemory;
        Status status;
        status.major =
            qxat_parse_logon(&status.minor, copy.get(), nullptr, identity.address(), password.address(),
                             realm.address(), nullptr, nullptr, nullptr, nullptr, nullptr, QXAT_FLAG_UNESCAPE_ALL);
        if (status.minor == QXAT_E_CALLOC)
            return kOutOfMemory;
        return status.failed() ? Status{GSS_S_BAD_NAME, status.minor, "The logon string cannot be parsed."} : status;
    }

    // The identity with its realm, which an identity may already have ("user@REALM", "DOMAIN\user").
    bool full_identity(Block &text) const {
        if (!text.append(identity.text()))
            return false;
        const bool complete = identity.text().find_first_of("@\\") != Bytes::npos;
        return complete || realm.text().empty() || (text.append("@") && text.append(realm.text()));
    }
};

// The name asked for, as the host takes it, and the password that goes with it.
struct Desired {
    Logon logon;
    HostNameText name;

    Status read(const qxgss_name_desc *pName, bool acceptor) {
        if (pName == nullptr || pName->Count == 0 || bytes_of(&pName->pElements[0].Name).empty())
            return {};
        const qxgss_name_element_desc &element = pName->pElements[0];
        if (is_host_based(element))
            return name.from_host_based(bytes_of(&element.Name)) ? Status{} : kOutOfMemory;
        const Status status = logon.parse(bytes_of(&element.Name));
        if (status.failed())
            return status;
        if (logon.identity.text().empty())
            return logon.password.get() == nullptr
                       ? Status{}
                       : refusal(GSS_S_BAD_NAME, "The logon string has a password but no identity.");
        Block text;
        const bool kept =
            logon.full_identity(text) && (acceptor ? name.from_service(text.view()) : name.from_user(text.view()));
        return kept ? Status{} : kOutOfMemory;
    }
};

// Where a credential comes from, as the elements behind the first one say. All of it is of Kerberos alone.
class Sources {
  public:
    Status read(const qxgss_name_desc *pName) {
        for (OM_uint32 i = 1; pName != nullptr && i < pName->Count; ++i)
            if (!read(bytes_of(&pName->pElements[i].Name)))
                return kOutOfMemory;
        return {};
    }

    // Whether they are an initiator's: tickets, or keys to get them with.
    bool initiate() const { return client_keytab_.length() != 0 || ccache_.length() != 0 || given_ != nullptr; }

    void apply(CredentialRequest &request) const {
        if (request.usage != GSS_C_INITIATE && keytab_.length() != 0)
            request.keytab = keytab_.view().data();
        if (request.usage == GSS_C_ACCEPT)
            return;
        request.client_keytab = client_keytab_.view().data();
        request.ccache = ccache_.view().data();
        request.given = host_of(given_);
    }

  private:
    bool read(Bytes text) {
        const Bytes key = text.substr(0, text.find('='));
        const Bytes value = text.substr(std::min(text.size(), key.size() + 1));
        if (key == "credential" && value.size() == sizeof(void *))
            std::memcpy(&given_, value.data(), sizeof(void *));
        Block *const file = key == "keytab"          ? &keytab_
                            : key == "client_keytab" ? &client_keytab_
                            : key == "ccache"        ? &ccache_
                                                     : nullptr;
        return file == nullptr || file->length() != 0 || file->append(value);
    }

    Block keytab_, client_keytab_, ccache_;
    const Credential *given_ = nullptr;
};

Status acquire_desired(const Desired &desired, const Sources &sources, OM_uint32 lifetime, const MechInfo_t &entry,
                       int usage, Credential &credential) {
    if (usage != GSS_C_INITIATE && !may_accept(entry))
        return refusal(GSS_S_NO_CRED, kNotAccepted);
    const bool is_kerberos = bytes_of(entry.pMechOid) == kKerberos;
    if (sources.initiate() && usage != GSS_C_ACCEPT && !is_kerberos)
        return refusal(GSS_S_NO_CRED, "The tickets that are to be used are not this mechanism's.");
    CredentialRequest request;
    request.name = desired.name.name();
    request.password = usage == GSS_C_ACCEPT ? nullptr : desired.logon.password.get();
    request.keytab = usage == GSS_C_INITIATE ? nullptr : setting_of(entry, "keytab_file");
    request.usage = usage;
    if (is_kerberos)
        sources.apply(request);
    request.lifetime = lifetime;
    request.mech = bytes_of(entry.pMechOid);
    return acquire(request, credential);
}

} // namespace

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_acquire_cred(OM_uint32 *pMinorStatus, qxgss_name_t pDesiredName, OM_uint32 TimeReq,
                               qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage,
                               qxgss_cred_id_t *ppOutputCredHandle, qxgss_OID_set *ppActualMechs, OM_uint32 *pTimeRec) {
    set_if_given(ppActualMechs, nullptr);
    set_if_given(pTimeRec, 0U);
    if (ppOutputCredHandle == nullptr)
        return refuse(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CRED,
                      "There is no room for the credential.");
    *ppOutputCredHandle = nullptr;
    if (pDesiredMechs == nullptr || pDesiredMechs->count != 1)
        return refuse(pMinorStatus, GSS_S_BAD_MECH, "A credential is acquired for exactly one mechanism.");
    const MechInfo_t *const entry = entry_of(bytes_of(&pDesiredMechs->elements[0]));
    if (entry == nullptr)
        return refuse(pMinorStatus, GSS_S_BAD_MECH, kNotServed);
    std::unique_ptr<Credential> made(new (std::nothrow) Credential);
    if (made == nullptr)
        return no_memory(pMinorStatus);
    Desired desired;
    Sources sources;
    Status status = desired.read(pDesiredName, CredUsage == GSS_C_ACCEPT);
    if (!status.failed())
        status = sources.read(pDesiredName);
    if (!status.failed())
        status = acquire_desired(desired, sources, TimeReq, *entry, CredUsage, *made);
    if (status.failed())
        return finish(pMinorStatus, status);
    OM_uint32 minor;
    if (ppActualMechs != nullptr && GSS_ERROR(gssp_duplicate_oid_set(&minor, pDesiredMechs, ppActualMechs)) != 0)
        return no_memory(pMinorStatus);
    set_if_given(pTimeRec, made->facts.lifetime);
    *ppOutputCredHandle = made.release();
    return finish(pMinorStatus, status);
}

OM_uint32 HOSTGSS_release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle) {
    if (ppCredHandle == nullptr)
        return refuse(pMinorStatus, GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CRED, "There is no credential.");
    const std::unique_ptr<Credential> credential(static_cast<Credential *>(*ppCredHandle));
    *ppCredHandle = nullptr;
    return finish(pMinorStatus, credential == nullptr ? Status{} : credential->release());
}

OM_uint32 HOSTGSS_inquire_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t pCredHandle, qxgss_name_t *ppName,
                               OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage, qxgss_OID_set *ppMechanisms) {
    set_if_given(ppName, nullptr);
    set_if_given(ppMechanisms, nullptr);
    const auto *const credential = static_cast<const Credential *>(pCredHandle);
    const bool known = credential != nullptr && credential->named && pLifetimeRec == nullptr;
    CredentialFacts asked;
    Status status = known ? Status{} : inquire_credential(credential, asked);
    const CredentialFacts &facts = known ? credential->facts : asked;
    set_if_given(pLifetimeRec, facts.lifetime);
    set_if_given(pCredUsage, facts.usage);
    if (!status.failed() && ppName != nullptr)
        status = make_name(facts.name.view(), ppName);
    if (!status.failed() && ppMechanisms != nullptr)
        status = make_oid_set(facts.mechs, ppMechanisms);
    if (status.failed() && ppName != nullptr)
        gssp_release_name(nullptr, ppName);
    return finish(pMinorStatus, status);
}
