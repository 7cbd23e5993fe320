// The operations on credentials.
#include <memory>

#include "bridge/gssapi/credential.h"
#include "bridge/gssapi/store.h"
#include "common/codes.h"
#include "common/text.h"
#include "session/negotiation.h"

namespace bridge {

namespace {

using common::failed;

// What a program wants to acquire.
struct Request {
    const Name *name; // null: whose it is
    gss_cred_usage_t usage;
    Store store;
};

// ---- Names that QXNEGO acquires with -------------------------------------------------------------------------------

// A logon string and, behind it, the texts that are not empty. Null when there is nothing.
common::Name acquiring_name(std::string_view logon, std::initializer_list<std::string> texts) {
    qxgss_name_element_desc elements[3] = {{GSS_C_NT_QXAT_MECHDATA_UTF8, common::view(logon)}, {}, {}};
    qxgss_name_desc whole{1, elements, nullptr};
    for (const std::string &text : texts)
        if (!text.empty())
            elements[whole.Count++] = {GSS_C_NT_QXAT_MECHDATA_UTF8, common::view(text)};
    common::Name name;
    if (logon.empty() && whole.Count == 1)
        return name;
    OM_uint32 minor = 0;
    if (failed(gssp_duplicate_name(&minor, &whole, name.out())))
        throw std::bad_alloc();
    return name;
}

std::string item(const char *key, std::string_view value) {
    return value.empty() ? std::string() : std::string(key).append(value);
}

// With a file it says who logs on.
Secret logon_of(const Request &request, std::optional<Name> &name) {
    if (request.store.logon_file.empty())
        return logon_string(request.name, request.store.password);
    if (request.name != nullptr)
        refuse(GSS_S_BAD_NAME, "the file of the logon string says who logs on, and a name is given, too");
    Secret logon = logon_string_in(request.store.logon_file);
    const std::string identity = identity_in(logon);
    if (!identity.empty())
        name = Name{Name::Kind::kUser, identity};
    return logon;
}

common::Name initiating_name(const Request &request, std::optional<Name> &name) {
    return acquiring_name(logon_of(request, name).text(),
                          {item("client_keytab=", request.store.client_keytab), item("ccache=", request.store.ccache)});
}

common::Name accepting_name(const Request &request) {
    return acquiring_name(logon_string(request.name, {}).text(), {item("keytab=", request.store.keytab)});
}

// ---- What is there -------------------------------------------------------------------------------------------------

bool signs_on(const MechInfo_t &mechanism) {
    OM_uint32 can = 0;
    gssp_inquire_one_mech_property_boolean(nullptr, mechanism.pMechOid, GSSP_PROPERTY_SINGLE_SIGN_ON, &can);
    return can != 0;
}

void inquire(const MechInfo_t &mechanism, qxgss_cred_id_t handle, Credential &credential) {
    OM_uint32 minor = 0;
    common::Name name;
    const auto ask = mechanism.MechFtnTable.ftn_gssp_inquire_cred;
    if (ask == nullptr || failed(ask(&minor, handle, name.out(), &credential.lifetime, nullptr, nullptr)))
        return;
    if (!credential.name && name.get() != nullptr && name.get()->Count != 0)
        credential.name = Name{Name::Kind::kUser, std::string(common::bytes_of(&name.get()->pElements[0].Name))};
}

// Acquires from a mechanism what a negotiation would, so that a program hears now of what is lacking. Empty, or why
// there is nothing.
std::string try_mechanism(const MechInfo_t &mechanism, qxgss_name_t name, gss_cred_usage_t usage,
                          Credential &credential) {
    using Acquired = common::MechanismOwned<qxgss_cred_id_t, &qxgss_ftn_table_desc::ftn_gssp_release_cred>;
    const qxgss_ftn_table_desc &table = mechanism.MechFtnTable;
    if (table.ftn_gssp_acquire_cred == nullptr || table.ftn_gssp_release_cred == nullptr)
        return "it has no credentials";
    if (usage == GSS_C_INITIATE && name == nullptr && !signs_on(mechanism))
        return "it has no single sign-on";
    OM_uint32 minor = 0;
    Acquired acquired(table);
    qxgss_OID_set_desc itself{1, mechanism.pMechOid};
    if (failed(table.ftn_gssp_acquire_cred(&minor, name, GSS_C_INDEFINITE, &itself, usage, acquired.out(), nullptr,
                                           nullptr)))
        return common::minor_text(minor, &mechanism);
    inquire(mechanism, acquired.get(), credential);
    return {};
}

void try_mechanisms(qxgss_name_t name, gss_cred_usage_t usage, Credential &credential) {
    std::string causes;
    for (const MechInfo_t *mechanism : negotiable_mechanisms()) {
        const std::string cause = try_mechanism(*mechanism, name, usage, credential);
        if (cause.empty())
            return;
        causes += (causes.empty() ? "" : "; ") + common::printable(mechanism->pszMechName) + ": " + cause;
    }
    refuse(GSS_S_NO_CRED, causes.empty() ? "there is no mechanism" : causes);
}

// ---- Acquiring -----------------------------------------------------------------------------------------------------

std::unique_ptr<Credential> acquired(const Request &request) {
    if (request.usage != GSS_C_BOTH && request.usage != GSS_C_INITIATE && request.usage != GSS_C_ACCEPT)
        refuse(GSS_S_FAILURE, "a credential is to initiate, to accept or for both");
    auto credential = std::make_unique<Credential>();
    credential->usage = request.usage;
    configure(credential->accepts(), request.store.config);
    credential->confirmation = request.store.confirmation;
    wanted_confirmation(credential->confirmation);
    if (request.name != nullptr)
        credential->name = *request.name;
    if (credential->accepts()) {
        credential->acceptor = accepting_name(request);
        try_mechanisms(credential->acceptor.get(), GSS_C_ACCEPT, *credential);
    }
    if (!credential->initiates())
        return credential;
    credential->initiator = initiating_name(request, credential->name);
    // A password is tried once, by the negotiation.
    if (request.store.password.data() == nullptr && request.store.logon_file.empty())
        try_mechanisms(credential->initiator.get(), GSS_C_INITIATE, *credential);
    return credential;
}

OM_uint32 acquire(OM_uint32 *pMinorStatus, const Request &request, gss_cred_id_t *pHandle, gss_OID_set *pMechs,
                  OM_uint32 *pLifetime) {
    return guarded(pMinorStatus, [&] {
        required(pHandle) = GSS_C_NO_CREDENTIAL;
        set(pMechs, GSS_C_NO_OID_SET);
        std::unique_ptr<Credential> credential = acquired(request);
        if (pMechs != nullptr)
            *pMechs = set_of({mechanism_oid()});
        set(pLifetime, credential->lifetime_left());
        *pHandle = handle_of(credential.release());
        return GSS_S_COMPLETE;
    });
}

// The credential, or for a null handle that which the mechanisms have for the user of the process.
template <typename Operation> OM_uint32 with_credential(gss_cred_id_t handle, Operation operation) {
    if (handle != GSS_C_NO_CREDENTIAL)
        return operation(*credential_of(handle));
    const std::unique_ptr<Credential> own = acquired({nullptr, GSS_C_INITIATE, {}});
    return operation(*own);
}

// The host's library wants a name of every credential.
OM_uint32 give_facts(const Credential &credential, gss_name_t *pName, gss_cred_usage_t *pUsage, gss_OID_set *pMechs) {
    std::unique_ptr<Name> name(pName == nullptr ? nullptr
                                                : new Name(credential.name.value_or(Name{Name::Kind::kUser, "?"})));
    if (pMechs != nullptr)
        *pMechs = set_of({mechanism_oid()});
    set(pName, handle_of(name.release()));
    set(pUsage, credential.usage);
    return GSS_S_COMPLETE;
}

} // namespace

OM_uint32 Credential::lifetime_left() const {
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - made_).count();
    return lifetime == GSS_C_INDEFINITE ? lifetime : age < lifetime ? lifetime - static_cast<OM_uint32>(age) : 0;
}

Delegated::~Delegated() {
    OM_uint32 ignored = 0;
    if (handle_ != nullptr && mechanism_->MechFtnTable.ftn_gssp_release_cred != nullptr)
        mechanism_->MechFtnTable.ftn_gssp_release_cred(&ignored, &handle_);
}

Credential::Credential(Delegated delegated) : usage(GSS_C_INITIATE), delegated_(std::move(delegated)) {
    inquire(*delegated_.mechanism(), delegated_.handle(), *this);
    const std::string_view octets(reinterpret_cast<const char *>(&delegated_.handle()), sizeof(qxgss_cred_id_t));
    initiator = acquiring_name(logon_string(name ? &*name : nullptr, {}).text(), {item("credential=", octets)});
}

} // namespace bridge

using namespace bridge;

OM_uint32 bridge_gss_acquire_cred(OM_uint32 *pMinorStatus, gss_name_t pName, OM_uint32, gss_OID_set,
                                  gss_cred_usage_t usage, gss_cred_id_t *pHandle, gss_OID_set *pMechs,
                                  OM_uint32 *pLifetime) {
    return acquire(pMinorStatus, {name_of(pName), usage, {}}, pHandle, pMechs, pLifetime);
}

OM_uint32 bridge_gss_acquire_cred_from(OM_uint32 *pMinorStatus, gss_name_t pName, OM_uint32, gss_OID_set,
                                       gss_cred_usage_t usage, gss_const_key_value_set_t pStore, gss_cred_id_t *pHandle,
                                       gss_OID_set *pMechs, OM_uint32 *pLifetime) {
    Request request{name_of(pName), usage, {}};
    const OM_uint32 major = guarded(pMinorStatus, [&] {
        request.store = read_store(pStore);
        return GSS_S_COMPLETE;
    });
    return GSS_ERROR(major) != 0 ? major : acquire(pMinorStatus, request, pHandle, pMechs, pLifetime);
}

OM_uint32 bridge_gssspi_acquire_cred_with_password(OM_uint32 *pMinorStatus, const gss_name_t pName,
                                                   const gss_buffer_t pPassword, OM_uint32, const gss_OID_set,
                                                   gss_cred_usage_t usage, gss_cred_id_t *pHandle, gss_OID_set *pMechs,
                                                   OM_uint32 *pLifetime) {
    Request request{name_of(pName), usage, {}};
    request.store.password =
        pPassword == GSS_C_NO_BUFFER || pPassword->value == nullptr ? std::string_view("") : bytes_of(pPassword);
    return acquire(pMinorStatus, request, pHandle, pMechs, pLifetime);
}

OM_uint32 bridge_gss_release_cred(OM_uint32 *pMinorStatus, gss_cred_id_t *pHandle) {
    return guarded(pMinorStatus, [&] {
        delete credential_of(std::exchange(required(pHandle), GSS_C_NO_CREDENTIAL));
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_inquire_cred(OM_uint32 *pMinorStatus, gss_cred_id_t handle, gss_name_t *pName,
                                  OM_uint32 *pLifetime, gss_cred_usage_t *pUsage, gss_OID_set *pMechs) {
    return guarded(pMinorStatus, [&] {
        set(pName, GSS_C_NO_NAME);
        set(pMechs, GSS_C_NO_OID_SET);
        return with_credential(handle, [&](const Credential &credential) {
            set(pLifetime, credential.lifetime_left());
            return give_facts(credential, pName, pUsage, pMechs);
        });
    });
}

OM_uint32 bridge_gss_inquire_cred_by_mech(OM_uint32 *pMinorStatus, gss_cred_id_t handle, gss_OID, gss_name_t *pName,
                                          OM_uint32 *pInitiatorLifetime, OM_uint32 *pAcceptorLifetime,
                                          gss_cred_usage_t *pUsage) {
    return guarded(pMinorStatus, [&] {
        set(pName, GSS_C_NO_NAME);
        return with_credential(handle, [&](const Credential &credential) {
            set(pInitiatorLifetime, credential.initiates() ? credential.lifetime_left() : 0);
            set(pAcceptorLifetime, credential.accepts() ? credential.lifetime_left() : 0);
            return give_facts(credential, pName, pUsage, nullptr);
        });
    });
}
