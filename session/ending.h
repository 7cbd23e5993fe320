// Why a side ends, as it tells the other.
#ifndef QXGSS_SESSION_ENDING_H
#define QXGSS_SESSION_ENDING_H

#include <string_view>

#include "session/qxgss_session.h"

namespace session {

// The octet that is sent.
enum class EndReason : unsigned char {
    kDone,    // the end mark of a side whose mechanism protects nothing
    kRefused, // all that a peer hears that has not proved who it is
    kForbidden,
    kNotTheSameTokens,
    kNotConfirmed,
    kProtectionFailed
};

// Of a failure that the peer may know more of: it has proved who it is.
EndReason reason_of(qxgss_session_failure_et failure, qxgss_session_confirmation_et confirmation);

// The peer's reason, which is an octet, becomes a PeerEnded; in this side's words.
[[noreturn]] void throw_end(std::string_view contents, bool is_client);

} // namespace session

#endif
