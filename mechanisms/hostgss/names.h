// Between the framework's names and OIDs and the host's, and the mechanisms of the registry that are served here.
#ifndef HOSTGSS_NAMES_H
#define HOSTGSS_NAMES_H

#include "mechanisms/hostgss/host.h"
#include "qxgss/gssp.h"

namespace hostgss {

// A name for the host, with the text that it needs.
class HostNameText {
  public:
    // A host-based service stays one. A text "service/host" without a realm is the same service, since only that form
    // suits every mechanism; any other text ("service/host@REALM", "user@REALM") is the mechanism's own user name form.
    // False when memory is lacking.
    bool from_service(Bytes text);
    bool from_host_based(Bytes text);
    bool from_user(Bytes text);

    const Name &name() const { return name_; }

  private:
    bool keep(NameKind kind);

    Block text_;
    Name name_;
};

// Texts of refusals.
inline constexpr const char *kNotServed = "The configuration has no such mechanism in use here.";
inline constexpr const char *kNotAccepted =
    "Logons with this mechanism are not accepted: its settings do not say accept = \"yes\".";

bool is_host_based(const qxgss_name_element_desc &element);

// A framework name with that text in UTF-8, for the caller to release; null for an empty text.
Status make_name(Bytes text, qxgss_name_t *ppName);

// A framework set of the same OIDs, for the caller to release.
Status make_oid_set(const OidSet &set, qxgss_OID_set *ppSet);

// The registry's own OID of these contents octets; null when no mechanism is registered for them.
qxgss_OID registered_oid(Bytes mech);

// Whether the configuration names this library for the mechanism.
bool served_here(const MechInfo_t &mechanism);

// The mechanism's entry; null when it is not served here, or out of use.
const MechInfo_t *entry_of(Bytes mech);

// A setting of the mechanism; null when it has none of that name.
const char *setting_of(const MechInfo_t &entry, const char *key);

// Whether peers may log on with it: Kerberos unless "accept" says no, any other only if it says yes.
bool may_accept(const MechInfo_t &entry);

// How many NTLM logons a process takes: "accept_limit", from 1; 0 when that is no such number.
inline constexpr std::uint32_t kAcceptLimit = 256; // the default
std::uint32_t accept_limit(const MechInfo_t &entry);

} // namespace hostgss

#endif
