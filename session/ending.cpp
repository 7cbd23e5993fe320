#include "session/ending.h"

#include "session/failure.h"

namespace session {

namespace {

struct End {
    EndReason reason;
    qxgss_session_failure_et failure;
    const char *line; // at the side that hears it
};

constexpr End kEnds[] = {
    {EndReason::kRefused, QXGSS_SESSION_FAILURE_NEGOTIATION, "the peer refuses the logon"},
    {EndReason::kForbidden, QXGSS_SESSION_FAILURE_POLICY,
     "the server's policy does not let this user log on with this mechanism"},
    {EndReason::kNotTheSameTokens, QXGSS_SESSION_FAILURE_CONFIRMATION,
     "the peer saw other tokens: someone in between has changed the negotiation"},
    {EndReason::kNotConfirmed, QXGSS_SESSION_FAILURE_CONFIRMATION,
     "the peer wants a confirmation of the negotiation, and the mechanism gives none"},
    {EndReason::kProtectionFailed, QXGSS_SESSION_FAILURE_PROTECTION, "the peer could not verify a message"},
};

} // namespace

EndReason reason_of(qxgss_session_failure_et failure, qxgss_session_confirmation_et confirmation) {
    switch (failure) {
    case QXGSS_SESSION_FAILURE_POLICY:
        return EndReason::kForbidden;
    case QXGSS_SESSION_FAILURE_CONFIRMATION:
        return confirmation == QXGSS_SESSION_MISMATCH ? EndReason::kNotTheSameTokens : EndReason::kNotConfirmed;
    case QXGSS_SESSION_FAILURE_PROTECTION:
        return EndReason::kProtectionFailed;
    default:
        return EndReason::kRefused;
    }
}

void throw_end(std::string_view contents) {
    for (const End &end : kEnds)
        if (contents.size() == 1 && contents[0] == static_cast<char>(end.reason))
            throw PeerEnded(end.failure, end.line);
    throw PeerEnded(QXGSS_SESSION_FAILURE_PROTOCOL, "the peer ended the session for a reason that is not known here");
}

} // namespace session
