/* Why a negotiation went as it did, as data: the user properties that a server application gets, and the negotiation
 * log in them, read from memory or from a file in which they were saved.
 *
 * A log is text, and the status text of a mechanism stands in it as it came, line ends too: whoever wrote such a text,
 * a peer above all, can have written what reads as records of this side's own, and can have made records of this side's
 * read otherwise. No reader can tell. Show a log to people; a program decides by qxgss_session_inquire_verdict, or by
 * ftn_gssp_inquire_negotiated_mech, which no peer writes into.
 *
 * C header; libqxgss-session. No configuration is needed. Every call returns a GSS major status and writes a minor
 * status (RFC 2744 3.9.1; the null pointer is allowed). A story does not change, so that several threads may read it.
 */
#ifndef QXGSS_STORY_H
#define QXGSS_STORY_H

#include "qxgss/gssp.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qxgss_story_struct *qxgss_story_t;

/* What is in it. Everything that a story hands out is its own, stays until it is deleted, and may hold any bytes. */
typedef struct qxgss_story_facts_struct {
    OM_uint32 PropertyCount;
    OM_uint32 RecordCount; /* of the log */
    qxgss_buffer_desc Log; /* its text; length 0 without one */
    size_t Read; /* bytes that were read as properties or log: all that were given, or else the rest is none */
} qxgss_story_facts_desc;

/* A record of the user properties. */
typedef struct qxgss_story_property_struct {
    OM_uint32 Id;             /* QXGSS_DATA_ID_* of qxgss_records.h, or any number of 16 bits */
    const char *pszName;      /* "mechname_utf8"; null of an id that is unknown */
    qxgss_buffer_desc Record; /* all of it, its header included */
    qxgss_buffer_desc Data;   /* of a string record; a null value of another one, or of one that is not sound */
} qxgss_story_property_desc;

/* A record of the log: what was decided in a call of the establishment. Buffers of length 0 and numbers 0 are what it
 * does not say. */
typedef struct qxgss_story_record_struct {
    int IsInitiator;           /* of the client's log; otherwise of the server's */
    OM_uint32 Call;            /* of the establishment at this side, from 1 */
    OM_uint64 ElapsedTime;     /* milliseconds since the context was created */
    qxgss_buffer_desc Text;    /* the event, which begins with the operation that wrote it */
    qxgss_buffer_desc Mech;    /* name in the registry */
    qxgss_buffer_desc MechOid; /* in place of the name: its DER contents octets in hexadecimal, "2b.06.01" */
    int IsPeerView;            /* the mechanism as the other side sees it */
    OM_uint32 State;           /* QXGSS_MECH_STATE_* */
    OM_uint32 Reason;          /* QXGSS_MECH_REASON_* */
    OM_uint32 MajorStatus;     /* these three: only with the reason QXGSS_MECH_REASON_GSSAPI_ERROR */
    OM_uint32 MinorStatus;     /* the mechanism's own */
    qxgss_buffer_desc StatusText;
    int IsEstablished;          /* the mechanism, at this side */
    int IsPolicyApplied;        /* the server's policy of the user */
    OM_uint32 NegState;         /* of this side: 1 completed, 2 incomplete, 3 reject, 4 request MIC */
    OM_uint32 NegStateFromPeer; /* what the peer said last of its own */
} qxgss_story_record_desc;

/* Reads user properties or the text of a log; a copy is made, and *ppStory is the caller's.
 *   GSS_S_CALL_INACCESSIBLE_READ or _WRITE | GSS_S_FAILURE   a null pointer, also of a buffer that has a length
 *   GSS_S_DEFECTIVE_TOKEN with 0xE10000CD                    the bytes begin as neither
 *   GSS_S_FAILURE with 0xE1000065                            memory */
QXGSS_API OM_uint32 qxgss_story_read(OM_uint32 *pMinorStatus, const qxgss_buffer_desc *pBytes, qxgss_story_t *ppStory);

/* GSS_S_CALL_INACCESSIBLE_READ or _WRITE | GSS_S_FAILURE for a null pointer, here and below. */
QXGSS_API OM_uint32 qxgss_story_inquire(OM_uint32 *pMinorStatus, qxgss_story_t pStory, qxgss_story_facts_desc *pFacts);

/* Property 0 to PropertyCount - 1, in their order. GSS_S_UNAVAILABLE with 0xE10000FE beyond, here and below. */
QXGSS_API OM_uint32 qxgss_story_inquire_property(OM_uint32 *pMinorStatus, qxgss_story_t pStory, OM_uint32 Number,
                                                 qxgss_story_property_desc *pProperty);

/* Record 0 to RecordCount - 1, in their order. */
QXGSS_API OM_uint32 qxgss_story_inquire_record(OM_uint32 *pMinorStatus, qxgss_story_t pStory, OM_uint32 Number,
                                               qxgss_story_record_desc *pRecord);

/* Deletes the story and clears the pointer; a null story is no error. */
QXGSS_API OM_uint32 qxgss_story_delete(OM_uint32 *pMinorStatus, qxgss_story_t *ppStory);

#ifdef __cplusplus
}
#endif

#endif
