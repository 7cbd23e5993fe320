// What gss-ntlmssp (1.2.0) does not do itself: look at NTLM messages before it trusts them, and say in one spelling who
// a user is.
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

// The one spelling of a user whose logon the host's library has accepted. That compares names without case, takes a
// user without domain for one of any, and `shown` is what the client wrote. The name becomes "DOMAIN\user", or "user"
// for an account without a domain, as the line of the account in `user_file` has it (null: none).
// For an account that is not there (winbind's) domain and user must both be given, as names of NetBIOS: the domain
// becomes upper case, the user lower case.
// GSS_S_UNAUTHORIZED when several lines could be meant, for names outside ASCII (which the host's library compares in
// the process's locale, so a line with such a name could be meant by any), and when the file exists but cannot be read.
Status canonical_ntlm_name(Bytes shown, const char *user_file, Block &name);

} // namespace hostgss

#endif
