#include "session/ending.h"

#include "session/failure.h"

namespace session {

namespace {

// What each side makes of the other's reason. The server has proved itself by then, or what it says decides nothing;
// what a client says is no verdict of the server's.
struct End {
    EndReason reason;
    qxgss_session_failure_et failure; // at a client
    const char *from_server;
    const char *from_client;
};

constexpr End kEnds[] = {
    {EndReason::kRefused, QXGSS_SESSION_FAILURE_NEGOTIATION, "the server refuses the logon", "the client ended it"},
    {EndReason::kForbidden, QXGSS_SESSION_FAILURE_POLICY,
     "the server says that its policy does not let this user log on with this mechanism", "the client ended it"},
    {EndReason::kNotTheSameTokens, QXGSS_SESSION_FAILURE_CONFIRMATION,
     "the server says that it saw other tokens: someone in between has changed the negotiation",
     "the client ended it; it says that it saw other tokens"},
    {EndReason::kNotConfirmed, QXGSS_SESSION_FAILURE_CONFIRMATION,
     "the server wants a confirmation of the negotiation, and the mechanism gives none",
     "the client ended it; it wants a confirmation of the negotiation, and the mechanism gives none"},
    {EndReason::kProtectionFailed, QXGSS_SESSION_FAILURE_PROTECTION,
     "the server says that it could not verify a message",
     "the client ended it; it says that it could not verify a message"},
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

void throw_end(std::string_view contents, bool is_client) {
    for (const End &end : kEnds)
        if (contents.size() == 1 && contents[0] == static_cast<char>(end.reason))
            throw PeerEnded(is_client ? end.failure : QXGSS_SESSION_FAILURE_PEER,
                            is_client ? end.from_server : end.from_client);
    throw PeerEnded(QXGSS_SESSION_FAILURE_PROTOCOL, "the peer ended the session for a reason that is not known here");
}

} // namespace session
