// User-properties records from directory authorization data and from a mechanism's identity.
//
// Every record goes into a zeroed buffer and has a length that is a multiple of 4; what does not fit is an error, never
// cut.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "common/heap.h"
#include "common/records.h"
#include "common/status.h"
#include "qxat/qxatint.h"

namespace {

constexpr char kExternalUser[] = "extuser";

using common::Record;
using common::Status;

Status outcome(OM_uint32 minor) {
    return {minor == GSSP_E_SUCCESS ? GSS_S_COMPLETE : GSS_S_FAILURE, minor};
}

OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 minor) {
    return common::report(pMinorStatus, outcome(minor));
}

std::span<qxs_name_t> entries(qxs_namelist_t names) {
    std::size_t n = 0;
    while (names != nullptr && names[n] != nullptr)
        ++n;
    return {names, n};
}

// Takes every "extuser" out but one that moved into the place just freed; whether there was one.
bool remove_external_user(qxs_namelist_t users) {
    bool found = false;
    std::size_t n = entries(users).size();
    for (std::size_t i = 0; i < n; ++i) {
        if (qxat_stricmp(users[i], kExternalUser) != 0)
            continue;
        std::free(users[i]);
        users[i] = users[n - 1];
        users[n - 1] = nullptr;
        --n;
        found = true;
    }
    return found;
}

// The requested name when it is in the list, without a request the only name of the list or none (null). False when
// the request is not in the list, or there is none and several names to choose from.
bool choose(qxs_namelist_t names, const char *desired, const char *&chosen) {
    const std::span<qxs_name_t> list = entries(names);
    chosen = desired;
    if (desired == nullptr) {
        chosen = list.size() == 1 ? list.front() : nullptr;
        return list.size() <= 1;
    }
    return std::any_of(list.begin(), list.end(), [&](const char *name) { return qxat_stricmp(name, desired) == 0; });
}

// What the records say; a null text or list is left out.
struct Grant {
    const char *user;
    const char *domain;
    char authorized;
    const char *profile;
    qxs_namelist_t roles;
    const char *authcid;
    const char *address;
    const char *service;
};

// The records in their order; null when memory is lacking. At most a fixed number and the roles.
common::Heap<Record[]> records_of(const Grant &grant, std::size_t &n) {
    const std::span<qxs_name_t> roles = entries(grant.roles);
    common::Heap<Record[]> records = common::zeroed<Record>(8 + roles.size());
    if (records == nullptr)
        return records;
    const auto put_text = [&](qxgss_data_id_t id, const char *text) {
        if (text != nullptr)
            records[n++] = {id, text};
    };
    put_text(QXGSS_DATA_ID_USERNAME, grant.user);
    put_text(QXGSS_DATA_ID_DOMAIN, grant.domain);
    records[n++] = {QXGSS_DATA_ID_ATTRIBUTES, {&grant.authorized, 1}};
    put_text(QXGSS_DATA_ID_PROFILE, grant.profile);
    for (const char *role : roles)
        put_text(QXGSS_DATA_ID_ROLE, role);
    put_text(QXGSS_DATA_ID_MECHDATA, grant.authcid);
    put_text(QXGSS_DATA_ID_AUDITTRAIL_ID, grant.authcid);
    put_text(QXGSS_DATA_ID_AUTHUSERSTRING, grant.address);
    put_text(QXGSS_DATA_ID_SERVICE, grant.service);
    return records;
}

// A minor status: 0 when a record does not fit.
OM_uint32 write(std::span<const Record> records, qxgss_buffer_t props) {
    if (common::length_of(records) == 0)
        return 0;
    *props = common::write_records({}, records);
    return props->value != nullptr ? GSSP_E_SUCCESS : QXAT_E_MALLOC;
}

OM_uint32 write_grant(const Grant &grant, qxgss_buffer_t props) {
    std::size_t n = 0;
    const common::Heap<Record[]> records = records_of(grant, n);
    return records != nullptr ? write({records.get(), n}, props) : QXAT_E_MALLOC;
}

bool is_item(qxgss_data_id_t id) {
    return id == QXGSS_DATA_ID_MECHDATA || id == QXGSS_DATA_ID_SERVICE ||
           (id >= QXGSS_DATA_ID_ATTRIBUTES && id <= QXGSS_DATA_ID_PROFILE);
}

// A mechanism in the forms that the framework knows.
struct Identity {
    const char *name = nullptr;
    const char *oid = nullptr;
    OM_uint32 der_length = 0;
    common::Heap<unsigned char> der;

    std::string_view der_text() const { return {reinterpret_cast<const char *>(der.get()), der_length}; }
};

Status identify(qxgss_OID mechoid, Identity &mechanism) {
    Status status = common::ask<0>(gssp_oid_to_mechstr, mechoid, &mechanism.name);
    if (status.major == GSS_S_COMPLETE)
        status = common::ask<0>(gssp_mechstr_to_oidstr, mechanism.name, &mechanism.oid);
    unsigned char *der = nullptr;
    if (status.major == GSS_S_COMPLETE)
        status = common::ask<0>(gssp_oidstr_to_oidder, OM_uint32{0}, OM_uint32{0}, mechanism.oid, &mechanism.der_length,
                                &der);
    mechanism.der.reset(der);
    return status;
}

// User, attributes and mechanism, over what they are made from.
std::array<Record, 5> records_of(std::string_view user, std::string_view attributes, const Identity &mechanism) {
    return {{{QXGSS_DATA_ID_USERNAME, user},
             {QXGSS_DATA_ID_ATTRIBUTES, attributes},
             {QXGSS_DATA_ID_MECHNAME, mechanism.name},
             {QXGSS_DATA_ID_MECHOIDSTR, mechanism.oid},
             {QXGSS_DATA_ID_MECHOIDDER, mechanism.der_text()}}};
}

} // namespace

OM_uint32 qxat_fill_authorizations(OM_uint32 *pMinorStatus, qxgss_buffer_t props, const char *authcid,
                                   const char *domain, qxs_authorizations_t *authz, const char *desired_user,
                                   const char *desired_profile, unsigned fill_service) {
    if (props != nullptr)
        *props = {};
    if (props == nullptr || authcid == nullptr || authz == nullptr || authz->ta_ldapurl == nullptr ||
        authz->ta_databasename == nullptr)
        return report(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    const bool none = authz->ta_authorizeas == QXS_AUTHZ_NONE;
    const bool external = !none && remove_external_user(authz->ta_user);
    const char *user = nullptr;
    const char *profile = nullptr;
    if (!choose(none ? nullptr : authz->ta_profile, desired_profile, profile))
        return report(pMinorStatus, 0);
    const bool wants_external = external && desired_user != nullptr && qxat_stricmp(desired_user, kExternalUser) == 0;
    if (!wants_external && !choose(none ? nullptr : authz->ta_user, desired_user, user))
        return report(pMinorStatus, 0);
    const bool authorized = !none && authz->ta_authtype != QXS_AUTHTYPE_LIGHTWEIGHT && user == nullptr;
    const Grant grant{.user = user != nullptr ? user : authz->ta_databasename,
                      .domain = domain,
                      .authorized = static_cast<char>(authorized),
                      .profile = profile,
                      .roles = none ? nullptr : authz->ta_roles,
                      .authcid = authcid,
                      .address = authz->ta_ldapurl,
                      .service = fill_service != 0 ? authz->ta_service : nullptr};
    return report(pMinorStatus, write_grant(grant, props));
}

OM_uint32 qxat_fill_mechinfo(OM_uint32 *pMinorStatus, qxgss_buffer_t props, qxgss_buffer_t newprops,
                             const unsigned char *authenticated, qxgss_OID mechoid) {
    if (newprops != nullptr)
        *newprops = {};
    if (newprops == nullptr || authenticated == nullptr || mechoid == nullptr)
        return report(pMinorStatus, QXAT_E_INVALID_INPUT);
    Identity mechanism;
    const Status status = identify(mechoid, mechanism);
    if (status.major != GSS_S_COMPLETE)
        return common::report(pMinorStatus, common::failure(status.minor));
    constexpr std::size_t kFlag = offsetof(qxgss_data_attributes_t, qxgss_Authenticated);
    const char attributes[] = {0, static_cast<char>(*authenticated)};
    const auto records = records_of({}, {attributes, sizeof attributes}, mechanism);
    const bool has_attributes = common::mark_attributes(props, kFlag, *authenticated);
    return report(pMinorStatus, write(std::span(records).subspan(has_attributes ? 2 : 1), newprops));
}

OM_uint32 qxat_describe_user(OM_uint32 *pMinorStatus, const char *user, size_t length, qxgss_OID mechoid,
                             qxgss_buffer_t props) {
    Identity mechanism;
    const Status status = identify(mechoid, mechanism);
    if (status.failed())
        return report(pMinorStatus, status.minor == GSSP_E_NO_MEMORY ? QXAT_E_MALLOC : status.minor);
    const char attributes[] = {0, 1};
    return report(pMinorStatus, write(records_of({user, length}, {attributes, sizeof attributes}, mechanism), props));
}

OM_uint32 qxat_validate_kerberos_logdata(OM_uint32 *pMinorStatus, const char *pLogdata) {
    const bool forbidden = pLogdata != nullptr && (std::strstr(pLogdata, "authcid=") != nullptr ||
                                                   std::strstr(pLogdata, "password=") != nullptr);
    return report(pMinorStatus, forbidden ? QXAT_E_LOGON_PROPERTY : GSSP_E_SUCCESS);
}

size_t InsertItem(void *to, qxgss_data_id_t id, const void *from, size_t rem) {
    if (!is_item(id))
        return 0;
    const auto *text = static_cast<const char *>(from);
    const Record record{id, id == QXGSS_DATA_ID_ATTRIBUTES ? std::string_view(text, 1) : std::string_view(text)};
    const std::size_t length = common::length_of(record);
    return length != 0 && length <= rem ? common::put(static_cast<unsigned char *>(to), record) : 0;
}

void CopyString(char *to, size_t size, char fill, const char *from) {
    const std::size_t n = strnlen(from, size);
    std::memcpy(to, from, n);
    std::memset(to + n, fill, size - n);
}
