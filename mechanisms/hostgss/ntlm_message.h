// NTLM messages that gss-ntlmssp (1.2.0) is not given: it follows a null pointer where a field that it counts on is
// empty. An initiator that wants no key exchange is refused with them.
#ifndef HOSTGSS_NTLM_MESSAGE_H
#define HOSTGSS_NTLM_MESSAGE_H

#include "mechanisms/hostgss/host.h"

namespace hostgss {

// Whether the token is an NTLM message whose field that must not be empty is. False for tokens of other mechanisms.
inline bool lacks_ntlm_field(Bytes token) {
    constexpr Bytes kChallenge("NTLMSSP\0\2\0\0\0", 12);      // [MS-NLMP] 2.2.1.2
    constexpr Bytes kAuthenticate("NTLMSSP\0\3\0\0\0", 12);   // 2.2.1.3
    constexpr std::size_t kTargetName = 12, kSessionKey = 52; // where their lengths are
    const auto is_empty = [&](std::size_t field) { return token.substr(field, 2) == Bytes("\0\0", 2); };
    return (token.starts_with(kChallenge) && is_empty(kTargetName)) ||
           (token.starts_with(kAuthenticate) && token.size() > kSessionKey && is_empty(kSessionKey));
}

} // namespace hostgss

#endif
