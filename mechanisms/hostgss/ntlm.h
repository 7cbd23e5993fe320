// What gss-ntlmssp (1.2.0) does not do itself: look at NTLM messages before it trusts them.
#ifndef HOSTGSS_NTLM_H
#define HOSTGSS_NTLM_H

#include "mechanisms/hostgss/host.h"

namespace hostgss {

// [MS-NLMP] 2.2.1
enum class NtlmMessage : unsigned char { kNegotiate = 1, kChallenge = 2, kAuthenticate = 3 };

inline constexpr Bytes kNtlmSignature{"NTLMSSP\0", 8};
inline constexpr std::size_t kNtlmMicLength = 16; // also of what stands before a sealed message

// GSS_S_DEFECTIVE_TOKEN for a token that is not that message, with all fields behind its header and inside it, or
//   - that lacks a field which the host's library follows without looking: a challenge's target name, an answer's
//     session key (so an initiator that wants no key exchange is refused with it);
//   - that answers without NTLMv2 (2.2.2.8): of the older responses the host's library compares one with itself.
Status check_ntlm_message(Bytes token, NtlmMessage expected);

// The file of NTLM's users, as the host's library finds it; null: none.
const char *ntlm_user_file();

} // namespace hostgss

#endif
