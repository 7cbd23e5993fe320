// SCRAM (RFC 5802, RFC 7677) for QXGSS over GNU SASL: one implementation, a row for each mechanism of the family. The
// inner tokens are the four SCRAM messages as they are, without channel binding; the acceptor completes first.
//
// Operations take the arguments of their function-table slots and return a GSS major status. Minor statuses are 0 on
// success, GNU SASL's return code where the library refused, and a code of scram_codes.def otherwise. Memory that is
// handed out is the C heap's. Lack of memory may leave as std::bad_alloc: the entry points turn it into a status.
#ifndef SCRAM_SCRAM_H
#define SCRAM_SCRAM_H

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include <gsasl.h>

#include "common/heap.h"
#include "common/owned.h"
#include "common/status.h"
#include "mechanisms/scram/verifiers.h"
#include "qxgss/gssp.h"

namespace scram {

using common::kInaccessibleWrite;
using common::Name;
using common::OidSet;
using common::report;
using common::Secret;
using common::set_if_given;

enum Code : OM_uint32 {
#define SCRAM_CODE(value, name, text) E_##name = value,
#include "mechanisms/scram/scram_codes.def"
#undef SCRAM_CODE
};

// A mechanism of the family.
struct Mechanism {
    const char *name; // as SASL has it
    const char *dotted_oid;
    qxgss_OID_desc oid;
    const Verifiers *verifiers; // of a server process; set by configure, then only read
};

// ---- Owners --------------------------------------------------------------------------------------------------------

// Wipes what the session holds of the password; the library frees it as it is.
void forget_password(Gsasl_session *session);

struct FinishSession {
    void operator()(Gsasl_session *session) const {
        forget_password(session);
        gsasl_finish(session);
    }
};
using Session = std::unique_ptr<Gsasl_session, FinishSession>;

// ---- Records behind the handles ------------------------------------------------------------------------------------

// Identity and password are those of an initiator; an acceptor's credential has neither.
struct Credential {
    qxgss_cred_usage_t usage = GSS_C_BOTH;
    Secret identity;
    Secret password;
};

struct Context {
    Context(Mechanism &which, bool initiates) : mechanism(which), is_initiator(initiates) {}

    Mechanism &mechanism;
    bool is_initiator;
    Session session; // until the exchange has ended, one way or the other
    bool is_established = false;
    unsigned legs = 0;        // calls that succeeded
    std::string user;         // the authenticated one; an initiator's own from the start
    Name target_name;         // an initiator's, as the application gave it
    Verifier verifier;        // an acceptor's, once the client has named itself
    int lookup_rc = GSASL_OK; // of finding and handing over the verifier
};

// ---- Statuses (status.cpp) -----------------------------------------------------------------------------------------

inline OM_uint32 succeed(OM_uint32 *pMinorStatus) {
    return report(pMinorStatus, GSS_S_COMPLETE, GSASL_OK);
}

// Reports a GNU SASL failure under the major status that belongs to it: GSS_S_UNAUTHORIZED when the peer did not prove
// itself (wrong password and unknown user alike), GSS_S_DEFECTIVE_TOKEN for a message that cannot be read,
// GSS_S_DEFECTIVE_CREDENTIAL for an identity or a password outside SASLprep (RFC 4013), else GSS_S_FAILURE.
OM_uint32 fail(OM_uint32 *pMinorStatus, int rc);

// Text of a minor status, in one message: GSS_C_MECH_CODE alone, GSS_S_BAD_STATUS for any other status type, a message
// context other than 0 or a code of nobody's; GSS_S_BAD_MECH for another mechanism.
OM_uint32 display_status(const Mechanism &mechanism, OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType,
                         qxgss_OID pMechType, OM_uint32 *pMessageContext, qxgss_buffer_t pStatusString);

// ---- Configuration (configure.cpp) ---------------------------------------------------------------------------------

// The library's context, shared by all sessions and only read; null before configure.
Gsasl *library();

// Initialises GNU SASL once and, in a server, reads the file that the setting "verifiers_file" names. What is wrong is
// appended to pConfigInfoBuf, without a line end: GSS_S_FAILURE with E_NOT_CONFIGURED. A verifiers file that others can
// open is used, and the message says so.
OM_uint32 configure(Mechanism &mechanism, OM_uint32 *pMinorStatus, OM_uint32 ClientServer,
                    qxgss_buffer_t pConfigInfoBuf);

OM_uint32 indicate_mechs(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet);

// The name types that carry a logon string.
OM_uint32 inquire_names_for_mech(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_OID pMechanism,
                                 qxgss_OID_set *ppNameTypes);

// A null OID stands for any mechanism.
bool is_for(const Mechanism &mechanism, qxgss_OID pOid);

// The name that the configuration gives the mechanism; SASL's when it gives none.
const char *configured_name(Mechanism &mechanism);

// A set with the mechanism alone; null when memory is lacking.
OidSet set_of(Mechanism &mechanism);

// ---- Credentials (credentials.cpp) ---------------------------------------------------------------------------------

// To initiate, the desired name's logon string must hold identity and password: GSS_S_NO_CRED without one of them,
// GSS_S_BAD_NAME for a text that is no logon string. To accept, the process must have verifiers; the name is not read.
OM_uint32 acquire_cred(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_name_t pDesiredName,
                       qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage, qxgss_cred_id_t *ppOutputCredHandle,
                       qxgss_OID_set *ppActualMechs, OM_uint32 *pTimeRec);

OM_uint32 release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle);

// The name is the initiator's identity, null for an acceptor; there is no default credential (GSS_S_NO_CRED).
OM_uint32 inquire_cred(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_cred_id_t pCredHandle, qxgss_name_t *ppName,
                       OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage, qxgss_OID_set *ppMechanisms);

// ---- Contexts (context.cpp) ----------------------------------------------------------------------------------------

// What both establishment calls answer; any pointer may be null.
struct Answers {
    qxgss_OID *ppMechType;
    OM_uint32 *pRetFlags;
    OM_uint32 *pTimeRec;
};

// Both calls refuse a context of the other role or of another mechanism: GSS_S_NO_CONTEXT.

// Three calls: client-first, client-final, and the check of server-final, which completes without a token. A failed
// first call leaves no context, a later one a context that can only be inquired and deleted.
OM_uint32 init_sec_context(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_cred_id_t pInitiatorCredHandle,
                           qxgss_ctx_id_t *ppContextHandle, qxgss_name_t pTargetName, qxgss_OID pMechType,
                           qxgss_buffer_t pInputToken, qxgss_buffer_t pOutputToken, const Answers &answers);

// Two calls: server-first, and server-final, which completes. Works without a credential. The source name, given on
// completion, is the authenticated user.
OM_uint32 accept_sec_context(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                             qxgss_cred_id_t pAcceptorCredHandle, qxgss_buffer_t pInputToken, qxgss_name_t *ppSrcName,
                             qxgss_buffer_t pOutputToken, const Answers &answers,
                             qxgss_cred_id_t *ppDelegatedCredHandle);

OM_uint32 delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle, qxgss_buffer_t pOutputToken);

OM_uint32 inquire_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_name_t *ppSourceName,
                          qxgss_name_t *ppTargetName, OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType,
                          OM_uint32 *pCtxFlags, int *pLocallyInitiated, int *pOpen);

// GNU SASL's callback: hands an acceptor's session the verifier of the user that the client has named.
int give_verifier(Gsasl *library, Gsasl_session *session, Gsasl_property property) noexcept;

// Stores a new name of the user, or null for an empty one; false when memory is lacking.
bool make_name(std::string_view user, qxgss_name_t *ppName);

// ---- User properties (user_properties.cpp) -------------------------------------------------------------------------

// Records of an established context: user name, mechanism name, mechanism OID as text and in DER.
OM_uint32 inquire_properties_for_user(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                      qxgss_buffer_t pUserPropBuffer);

} // namespace scram

#endif
