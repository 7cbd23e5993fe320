// Names: of a user, or of a service on a host. What the module hands out as a gss_name_t.
#ifndef BRIDGE_GSSAPI_NAME_H
#define BRIDGE_GSSAPI_NAME_H

#include <string>

#include "bridge/gssapi/call.h"

namespace bridge {

struct Name {
    enum class Kind : char { kUser = 'U', kService = 'S' };

    Kind kind = Kind::kUser;
    std::string text; // "user", "user@REALM", "DOMAIN\user", or "service@host" (RFC 2744 4.1), "service"

    bool operator==(const Name &) const = default;

    // As a mechanism takes it for an identity: of a service "service/host".
    std::string identity() const;

    // For the framework, as a peer's name.
    common::Name as_target() const;
};

inline const Name *name_of(gss_name_t handle) {
    return reinterpret_cast<const Name *>(handle);
}
inline gss_name_t handle_of(Name *name) {
    return reinterpret_cast<gss_name_t>(name);
}

// A name for the caller, who releases it; none without a place for it. Throws std::bad_alloc.
void give_name(const Name &name, gss_name_t *pHandle);

} // namespace bridge

#endif
