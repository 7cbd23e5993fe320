/* One conversation between a client and a server, from its first token to its last message, with the rules that every
 * program which strangers talk to has to keep: bounds on size, rounds and time; one failure ends it; the acceptor's
 * credential; a mechanism type that is the selected one's; the confirmation of the offer; the policy for the proved
 * name; one answer to a stranger for every refusal. Nothing in it can be done in a wrong order: such a call fails and
 * changes nothing.
 *
 * A session has no socket: messages go in and come out, and the program carries each of them whole to the other side.
 *
 *     client                                      server
 *     step(none) ── token ───────────────────▶    step
 *     step       ◀─────────────────── token ──    ...    until both are established
 *     step       ── confirmation ────────────▶    step   checks it, and the policy: the session is open
 *     step       ◀──────────── confirmation ──           the session is open
 *     wrap       ── text ────────────────────▶    unwrap ...
 *     end        ── end mark ────────────────▶    unwrap
 *
 * C header; libqxgss-session. Every call returns a GSS major status and writes a minor status (RFC 2744 3.9.1; the null
 * pointer is allowed); success is 0x21000064. What a call hands out in a buffer is released with gssp_release_buffer.
 * A session is used by one thread at a time, different sessions by different threads. Before the first session the
 * framework is configured with qxgss_configure, and qxgss_shutdown comes after the last. */
#ifndef QXGSS_SESSION_H
#define QXGSS_SESSION_H

#include "qxgss/gssp.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qxgss_session_struct *qxgss_session_t;

/* What protects what the program sends once the session is open. */
typedef enum qxgss_session_protection_enum {
    QXGSS_SESSION_PROTECTED_BY_MECHANISM, /* a mechanism that protects no messages is refused */
    QXGSS_SESSION_PROTECTED_BY_CHANNEL,   /* a channel that is bound to the session (RFC 5056), above all TLS */
    QXGSS_SESSION_UNPROTECTED             /* nothing: for a logon alone. Whoever is in between can act for the user */
} qxgss_session_protection_et;

/* Begin with QXGSS_SESSION_DEFAULTS and change what is to be different. */
typedef struct qxgss_session_options_struct {
    OM_uint32 Size;          /* of this structure, which tells its version: sizeof(qxgss_session_options_desc) */
    OM_uint32 MaxMessage;    /* bytes of one message of the peer, 1,024 to 16,777,216 */
    OM_uint32 MaxRounds;     /* tokens of the peer, 1 to 1,000 */
    OM_uint32 LogonTime;     /* milliseconds from creation until the session is open, 1 to 4,294,967,294 */
    OM_uint32 RefusalTime;   /* milliseconds from the client's last message to a refusal; of a server only */
    int RequireConfirmation; /* refuse mechanisms that have no MICs */
    qxgss_session_protection_et Protection;

    /* Of the channel that carries the messages, the same at both sides; they stay until the session is open or over.
     * Null for none, which PROTECTED_BY_CHANNEL does not allow. A mechanism that cannot bind (SCRAM here) does not look
     * at them: the client must also verify the channel's own certificate. */
    qxgss_channel_bindings_t pBindings;

    /* Called after each call of the mechanism, when it is not null, also within qxgss_session_delete; nothing may be
     * kept of what it is handed. The token is what the call produced for the peer, null without one. */
    void (*pfnObserve)(void *pContext, const char *pszCall, OM_uint32 MajorStatus, OM_uint32 MinorStatus,
                       const qxgss_buffer_desc *pToken);
    void *pObserveContext;
} qxgss_session_options_desc;

#define QXGSS_SESSION_MAX_MESSAGE 262144U
#define QXGSS_SESSION_DEFAULTS                                                                                         \
    {                                                                                                                  \
        sizeof(qxgss_session_options_desc), QXGSS_SESSION_MAX_MESSAGE, 16U, 30000U, 1000U, 0,                          \
            QXGSS_SESSION_PROTECTED_BY_MECHANISM, 0, 0, 0                                                              \
    }

/* What of a session is over. */
typedef enum qxgss_session_state_enum {
    QXGSS_SESSION_NEGOTIATING,
    QXGSS_SESSION_OPEN,  /* messages may be wrapped and unwrapped, if the mechanism protects them */
    QXGSS_SESSION_ENDED, /* by an end mark of either side */
    QXGSS_SESSION_FAILED /* the context is deleted */
} qxgss_session_state_et;

/* Why a session failed. A client's class may be what the server told it without proof (its line then begins with "the
 * server says"); a server's is never what a client told it. */
typedef enum qxgss_session_failure_enum {
    QXGSS_SESSION_NO_FAILURE,
    QXGSS_SESSION_FAILURE_RESOURCES,    /* this side lacks something it needs, above all memory */
    QXGSS_SESSION_FAILURE_USAGE,        /* the logon string or the service's name is wrong */
    QXGSS_SESSION_FAILURE_TIME,         /* the peer took too long */
    QXGSS_SESSION_FAILURE_PROTOCOL,     /* the peer says what is no message, or out of order, or beyond a bound */
    QXGSS_SESSION_FAILURE_NEGOTIATION,  /* no mechanism is agreed on, or it does not authenticate the user */
    QXGSS_SESSION_FAILURE_CONFIRMATION, /* the sides did not see the same tokens, or one cannot confirm that it did */
    QXGSS_SESSION_FAILURE_POLICY,       /* the user is authenticated, and may not log on with the mechanism */
    QXGSS_SESSION_FAILURE_PROTECTION,   /* a message is not protected as it should be */
    QXGSS_SESSION_FAILURE_PEER /* the client has ended it; of a server that did, a client has the classes above */
} qxgss_session_failure_et;

typedef enum qxgss_session_confirmation_enum {
    QXGSS_SESSION_NOT_CONFIRMED, /* it did not come to that */
    QXGSS_SESSION_UNCONFIRMED,   /* the mechanism has no MICs */
    QXGSS_SESSION_CONFIRMED,     /* both sides saw the same tokens */
    QXGSS_SESSION_MISMATCH       /* they did not */
} qxgss_session_confirmation_et;

/* Which name of the user the policy refused. */
typedef enum qxgss_session_refused_enum {
    QXGSS_SESSION_NONE_REFUSED,
    QXGSS_SESSION_CLAIMED_REFUSED,
    QXGSS_SESSION_PROVED_REFUSED
} qxgss_session_refused_et;

/* What is known of a session. Texts and names belong to the session and stay until its next call; texts are never null,
 * and a name that there is not has length 0. A delegated credential is the session's until it is deleted.
 * The line of a failure is UTF-8 without control characters, in which texts of others stand in quotation marks. Names
 * hold whatever bytes the mechanism or the peer gave. */
typedef struct qxgss_session_facts_struct {
    qxgss_session_state_et State;
    qxgss_session_failure_et Failure;
    const char *pszFailure;    /* one line, the first cause first; empty without a failure */
    int IsEstablished;         /* this side's negotiation was complete; the session may still have failed after that */
    qxgss_OID pMech;           /* the selected mechanism; null before it is established */
    const char *pszMech;       /* its name in the registry; empty before */
    qxgss_buffer_desc User;    /* the name that the mechanism proved; server only */
    qxgss_buffer_desc Claimed; /* the name that the client claimed before anything was proved; server only */
    qxgss_session_refused_et Refused; /* server only */
    OM_uint32 Flags;                  /* context flags (RFC 2744 5.19) of this side */
    int IsProtecting;                 /* the mechanism protects messages */
    int IsAttempt;                    /* a mechanism was run with something of the client; server only */
    qxgss_session_confirmation_et Confirmation;
    OM_uint32 Rounds;               /* establishment calls of this side */
    qxgss_cred_id_t pDelegatedCred; /* the selected mechanism's own handle; null when the client delegated none */
    OM_uint32 VerdictCount;
} qxgss_session_facts_desc;

/* What became of a mechanism at one side; State 0 when that side never heard of it, or did not tell. */
typedef struct qxgss_session_view_struct {
    OM_uint32 State;  /* QXGSS_MECH_STATE_* */
    OM_uint32 Reason; /* QXGSS_MECH_REASON_* */
    OM_uint32 MajorStatus;
    OM_uint32 MinorStatus;
    qxgss_buffer_desc StatusText; /* any bytes, possibly the peer's */
    int IsAdopted;                /* that side took all of this from what the other said */
} qxgss_session_view_desc;

typedef enum qxgss_session_verdict_enum {
    QXGSS_SESSION_VERDICT_UNDECIDED,
    QXGSS_SESSION_VERDICT_SELECTED, /* by both sides */
    QXGSS_SESSION_VERDICT_REJECTED  /* by either */
} qxgss_session_verdict_et;

/* A mechanism as both sides see it. The other side's view is known once the session is open. */
typedef struct qxgss_session_verdict_struct {
    qxgss_OID_desc Mech;
    OM_sint32 MechIndex; /* in this side's registry; -1 for a mechanism that only the peer has */
    qxgss_session_view_desc Client;
    qxgss_session_view_desc Server;
    qxgss_session_verdict_et Verdict;
    OM_uint32 Reason; /* of the side that lacks the mechanism, or else that rejected it, unless it took that from the
                       * other: of two, the server */
    qxgss_buffer_desc StatusText;
} qxgss_session_verdict_desc;

/* Fills in Verdict, Reason and StatusText from the views of both sides. Null is nothing to judge. */
QXGSS_API void qxgss_session_judge(qxgss_session_verdict_desc *pVerdict);

/* A client's session. The logon string is pairs as in "authcid=alice password='two words'"; without one (a null or an
 * empty one) the credentials that are there are used. The service is host-based (RFC 2744 4.1), the flags are those
 * wanted (RFC 2744 5.19) beyond those that every session asks for: MUTUAL, REPLAY, SEQUENCE, CONF and INTEG. Null
 * options are the defaults. Nothing of the logon string is kept once the first token is made.
 *   GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE   ppSession is null
 *   GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE    pszService is null
 *   GSS_S_FAILURE with 0xE10000CD (an option is out of range, or the options are of another version),
 *                      0xE1000074 (QXNEGO is not in use), 0xE1000065 (memory)
 *   GSS_S_BAD_NAME   the logon string or the service's name is none
 *   GSS_S_NO_CRED    there is no credential for the logon string */
QXGSS_API OM_uint32 qxgss_session_initiate(OM_uint32 *pMinorStatus, const qxgss_buffer_desc *pLogon,
                                           const char *pszService, OM_uint32 ReqFlags,
                                           const qxgss_session_options_desc *pOptions, qxgss_session_t *ppSession);

/* A server's session. Statuses as above. */
QXGSS_API OM_uint32 qxgss_session_accept(OM_uint32 *pMinorStatus, const qxgss_session_options_desc *pOptions,
                                         qxgss_session_t *ppSession);

/* Takes the peer's next message and gives this side's, until the session is open. The client begins with a null input.
 * A message in the output is sent in every case, also when the call failed: it tells the peer that it is over. It is
 * not sent before qxgss_session_delay has passed. Input and output of any call are different descriptors.
 *   GSS_S_COMPLETE          open; the output may be empty
 *   GSS_S_CONTINUE_NEEDED   send the output and wait for the peer's next message
 *   GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE   pOutput is null; nothing happened
 *   GSS_S_NO_CONTEXT with 0xE100010B                null session, or one that is open or over; nothing happened
 *   GSS_S_FAILURE with the minor status of the cause, GSS_S_UNAUTHORIZED with 0xE10000EE for the policy   failed */
QXGSS_API OM_uint32 qxgss_session_step(OM_uint32 *pMinorStatus, qxgss_session_t pSession,
                                       const qxgss_buffer_desc *pInput, qxgss_buffer_t pOutput);

/* Milliseconds from now before which the last output is not to be sent, so that a refusal says nothing by its time. */
QXGSS_API OM_uint32 qxgss_session_delay(qxgss_session_t pSession);

/* Milliseconds that are left to open the session; 0 when it is too late, GSS_C_INDEFINITE once it is open or over. */
QXGSS_API OM_uint32 qxgss_session_time_left(qxgss_session_t pSession);

/* For a program that has waited in vain, or whose connection broke: ends the session with that failure and this line,
 * of which a copy is made. GSS_S_NO_CONTEXT with 0xE100010B when it is over. */
QXGSS_API OM_uint32 qxgss_session_abandon(OM_uint32 *pMinorStatus, qxgss_session_t pSession,
                                          qxgss_session_failure_et Failure, const char *pszFailure);

/* A message with this text, protected, and confidential where the flags say so. The text is not empty.
 *   GSS_S_NO_CONTEXT with 0xE100010B    the session is not open
 *   GSS_S_UNAVAILABLE with 0xE1000067   the mechanism protects no messages
 *   GSS_S_FAILURE with 0xE10000CD       the text is null or empty
 *   any other failure is the mechanism's and fails the session */
QXGSS_API OM_uint32 qxgss_session_wrap(OM_uint32 *pMinorStatus, qxgss_session_t pSession,
                                       const qxgss_buffer_desc *pText, qxgss_buffer_t pMessage);

/* The text of the peer's message. An empty text with GSS_S_COMPLETE is the peer's end mark: the session has ended.
 * A message that was changed, comes twice or in another order (RFC 2743 1.2.3) fails the session. Statuses as above. */
QXGSS_API OM_uint32 qxgss_session_unwrap(OM_uint32 *pMinorStatus, qxgss_session_t pSession,
                                         const qxgss_buffer_desc *pMessage, qxgss_buffer_t pText);

/* This side's end mark, after which it sends nothing; protected where the mechanism protects messages. A stream that
 * ends without one was cut. Of a session that failed in wrap or unwrap it is the message that says so to the peer.
 *   GSS_S_NO_CONTEXT with 0xE100010B   there is nothing to say
 *   any other failure is the mechanism's: the end mark could not be protected, and the session has failed */
QXGSS_API OM_uint32 qxgss_session_end(OM_uint32 *pMinorStatus, qxgss_session_t pSession, qxgss_buffer_t pMessage);

/* GSS_S_CALL_INACCESSIBLE_READ or _WRITE | GSS_S_FAILURE for a null pointer. */
QXGSS_API OM_uint32 qxgss_session_inquire(OM_uint32 *pMinorStatus, qxgss_session_t pSession,
                                          qxgss_session_facts_desc *pFacts);

/* Verdict 0 to VerdictCount - 1 of the last qxgss_session_inquire; also of a session that failed. GSS_S_UNAVAILABLE
 * with 0xE10000FE beyond. */
QXGSS_API OM_uint32 qxgss_session_inquire_verdict(OM_uint32 *pMinorStatus, qxgss_session_t pSession, OM_uint32 Number,
                                                  qxgss_session_verdict_desc *pVerdict);

/* The user properties with the rendered negotiation log in them, also of a session that failed; asked for before the
 * session is open or over, they stay as they are then. Empty when there are none. */
QXGSS_API OM_uint32 qxgss_session_properties(OM_uint32 *pMinorStatus, qxgss_session_t pSession,
                                             qxgss_buffer_t pProperties);

/* Deletes the session and clears the pointer; a null session is no error. */
QXGSS_API OM_uint32 qxgss_session_delete(OM_uint32 *pMinorStatus, qxgss_session_t *ppSession);

#ifdef __cplusplus
}
#endif

#endif
