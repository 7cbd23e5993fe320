// How the session's own code fails: with the class, the statuses and the line that the caller is told.
#ifndef QXGSS_SESSION_FAILURE_H
#define QXGSS_SESSION_FAILURE_H

#include <stdexcept>
#include <string>

#include "session/qxgss_session.h"

namespace session {

// The session ends with it.
struct Failure : std::runtime_error {
    Failure(qxgss_session_failure_et which, const std::string &line, OM_uint32 major_status = GSS_S_FAILURE,
            OM_uint32 minor_status = GSSP_E_INVALID_ARGUMENT)
        : std::runtime_error(line), kind(which), major(major_status), minor(minor_status) {}

    qxgss_session_failure_et kind;
    OM_uint32 major;
    OM_uint32 minor;
};

// The peer has ended the session: it is not told any more.
struct PeerEnded : Failure {
    using Failure::Failure;
};

// A call that the session's state or the arguments do not allow, and that has changed nothing.
struct OutOfOrder {
    OM_uint32 major = GSS_S_NO_CONTEXT;
    OM_uint32 minor = GSSP_E_BAD_CONTEXT;
};

} // namespace session

#endif
