#include "session/ending.h"

#include "session/failure.h"

namespace session {

namespace {

struct End {
    EndReason reason;
    qxgss_session_failure_et failure; // at a client that hears it
    const char *line;
};

constexpr End kEnds[] = {
    {EndReason::kRefused, QXGSS_SESSION_FAILURE_NEGOTIATION, "the logon is refused"},
    {EndReason::kForbidden, QXGSS_SESSION_FAILURE_POLICY,
     "the policy does not let this user log on with this mechanism"},
    {EndReason::kNotTheSameTokens, QXGSS_SESSION_FAILURE_CONFIRMATION,
     "it saw other tokens: someone in between has changed the negotiation"},
    {EndReason::kNotConfirmed, QXGSS_SESSION_FAILURE_CONFIRMATION,
     "it wants a confirmation of the negotiation, and the mechanism gives none"},
    {EndReason::kProtectionFailed, QXGSS_SESSION_FAILURE_PROTECTION, "it could not verify a message"},
};
constexpr End kUnknown = {EndReason::kDone, QXGSS_SESSION_FAILURE_PROTOCOL, "a reason that is not known here"};

const End &end_for(std::string_view contents) {
    for (const End &end : kEnds)
        if (contents.size() == 1 && contents[0] == static_cast<char>(end.reason))
            return end;
    return kUnknown;
}

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
    const End &end = end_for(contents);
    throw PeerEnded(is_client ? end.failure : QXGSS_SESSION_FAILURE_ENDED_BY_CLIENT,
                    std::string(is_client ? "the server says: " : "the client ended it: ") + end.line);
}

} // namespace session
