// User-properties records from directory authorization data and from a mechanism's identity.
//
// Every record goes into a zeroed buffer and has a length that is a multiple of 4; what does not fit is an error, never
// cut.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "common/heap.h"
#include "common/status.h"
#include "qxat/qxatldapauthorize.h"

namespace {

constexpr char kExternalUser[] = "extuser";

using Bytes = common::Heap<unsigned char>;

OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 minor) {
    return common::report(pMinorStatus, minor == GSSP_E_SUCCESS ? GSS_S_COMPLETE : GSS_S_FAILURE, minor);
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
    unsigned char authorized;
    const char *profile;
    qxs_namelist_t roles;
    const char *authcid;
    const char *address;
    const char *service;
};

template <typename F> void each_item(const Grant &grant, F put) {
    const auto put_text = [&](qxgss_data_id_t id, const char *text) {
        if (text != nullptr)
            put(id, text);
    };
    put_text(QXGSS_DATA_ID_USERNAME, grant.user);
    put_text(QXGSS_DATA_ID_DOMAIN, grant.domain);
    put(QXGSS_DATA_ID_ATTRIBUTES, &grant.authorized);
    put_text(QXGSS_DATA_ID_PROFILE, grant.profile);
    for (const char *role : entries(grant.roles))
        put_text(QXGSS_DATA_ID_ROLE, role);
    put_text(QXGSS_DATA_ID_MECHDATA, grant.authcid);
    put_text(QXGSS_DATA_ID_AUDITTRAIL_ID, grant.authcid);
    put_text(QXGSS_DATA_ID_AUTHUSERSTRING, grant.address);
    put_text(QXGSS_DATA_ID_SERVICE, grant.service);
}

bool is_item(qxgss_data_id_t id) {
    return id == QXGSS_DATA_ID_MECHDATA || id == QXGSS_DATA_ID_SERVICE ||
           (id >= QXGSS_DATA_ID_ATTRIBUTES && id <= QXGSS_DATA_ID_PROFILE);
}

std::size_t item_length(qxgss_data_id_t id, const void *from) {
    if (id == QXGSS_DATA_ID_ATTRIBUTES)
        return sizeof(qxgss_data_attributes_t);
    return qxgss_record_length(id, std::strlen(static_cast<const char *>(from)));
}

// Returns a minor status: 0 when an item does not fit its record.
OM_uint32 write_grant(const Grant &grant, qxgss_buffer_t props) {
    std::size_t size = 0;
    each_item(grant, [&](qxgss_data_id_t id, const void *from) { size += item_length(id, from); });
    Bytes bytes(static_cast<unsigned char *>(std::calloc(size, 1)));
    if (bytes == nullptr)
        return QXAT_E_MALLOC;
    bool fits = true;
    std::size_t at = 0;
    each_item(grant, [&](qxgss_data_id_t id, const void *from) {
        const std::size_t length = InsertItem(bytes.get() + at, id, from, size - at);
        fits = fits && length != 0;
        at += length;
    });
    if (!fits)
        return 0;
    *props = {at, bytes.release()};
    return GSSP_E_SUCCESS;
}

struct Identity {
    const char *name = nullptr;
    const char *oid = nullptr;
    OM_uint32 der_length = 0;
    Bytes der;
};

OM_uint32 identify(OM_uint32 *pMinorStatus, qxgss_OID mechoid, Identity &mechanism) {
    OM_uint32 major = gssp_oid_to_mechstr(pMinorStatus, mechoid, &mechanism.name);
    if (major == GSS_S_COMPLETE)
        major = gssp_mechstr_to_oidstr(pMinorStatus, mechanism.name, &mechanism.oid);
    unsigned char *der = nullptr;
    if (major == GSS_S_COMPLETE)
        major = gssp_oidstr_to_oidder(pMinorStatus, 0, 0, mechanism.oid, &mechanism.der_length, &der);
    mechanism.der.reset(der);
    return major;
}

struct Item {
    qxgss_data_id_t id;
    const void *data;
    std::size_t size;
    std::size_t length() const { return qxgss_record_length(id, size); }
};

// The new records, of which the first is an attributes record unless `props` had one to mark.
OM_uint32 write_identity(const Identity &mechanism, unsigned char authenticated, qxgss_buffer_t props,
                         qxgss_buffer_t newprops) {
    const Item items[] = {{QXGSS_DATA_ID_MECHNAME, mechanism.name, std::strlen(mechanism.name)},
                          {QXGSS_DATA_ID_MECHOIDSTR, mechanism.oid, std::strlen(mechanism.oid)},
                          {QXGSS_DATA_ID_MECHOIDDER, mechanism.der.get(), mechanism.der_length}};
    std::size_t size = 0;
    for (const Item &item : items) {
        if (item.length() == 0)
            return 0;
        size += item.length();
    }
    constexpr std::size_t kFlag = offsetof(qxgss_data_attributes_t, qxgss_Authenticated);
    const bool marked =
        props != nullptr && props->value != nullptr &&
        qxgss_mark_attributes(static_cast<unsigned char *>(props->value), props->length, kFlag, authenticated) != 0;
    size += marked ? 0 : sizeof(qxgss_data_attributes_t);
    auto *at = static_cast<unsigned char *>(std::calloc(size, 1));
    if (at == nullptr)
        return QXAT_E_MALLOC;
    *newprops = {size, at};
    if (!marked) {
        qxgss_put_attributes(at, 2);
        at[kFlag] = authenticated;
        at += sizeof(qxgss_data_attributes_t);
    }
    for (const Item &item : items) {
        qxgss_put_record(at, item.id, item.length(), item.data, item.size);
        at += item.length();
    }
    return GSSP_E_SUCCESS;
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
                      .authorized = static_cast<unsigned char>(authorized),
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
    OM_uint32 minor = GSSP_E_SUCCESS;
    if (identify(&minor, mechoid, mechanism) != GSS_S_COMPLETE) {
        report(pMinorStatus, minor);
        return GSS_S_FAILURE;
    }
    return report(pMinorStatus, write_identity(mechanism, *authenticated, props, newprops));
}

OM_uint32 qxat_validate_kerberos_logdata(OM_uint32 *pMinorStatus, const char *pLogdata) {
    const bool forbidden = pLogdata != nullptr && (std::strstr(pLogdata, "authcid=") != nullptr ||
                                                   std::strstr(pLogdata, "password=") != nullptr);
    return report(pMinorStatus, forbidden ? QXAT_E_LOGON_PROPERTY : GSSP_E_SUCCESS);
}

size_t InsertItem(void *to, qxgss_data_id_t id, const void *from, size_t rem) {
    const std::size_t length = is_item(id) ? item_length(id, from) : 0;
    if (length == 0 || length > rem)
        return 0;
    auto *record = static_cast<unsigned char *>(to);
    if (id == QXGSS_DATA_ID_ATTRIBUTES) {
        qxgss_put_attributes(record, 1);
        record[offsetof(qxgss_data_attributes_t, qxgss_Authorized)] = *static_cast<const unsigned char *>(from);
        return length;
    }
    const auto *text = static_cast<const char *>(from);
    const std::size_t n = std::strlen(text);
    qxgss_put_head(record, id, length, n);
    CopyString(reinterpret_cast<char *>(record + QXGSS_RECORD_DATA_OFFSET), n, '\0', text);
    return length;
}

void CopyString(char *to, size_t size, char fill, const char *from) {
    const std::size_t n = strnlen(from, size);
    std::memcpy(to, from, n);
    std::memset(to + n, fill, size - n);
}
