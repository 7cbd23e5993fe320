/* A negotiation log, saved or as a server application gets it, as data: of what qxgss_session_properties or
 * inquire_properties_for_user gave, or of the text of a log alone, the records by number and their fields by name.
 *
 * The log is text, lines of a label and a value, in which texts of the peer and of mechanisms stand as they came, line
 * ends too. Whoever writes such a text can write whole records with it, and NOTHING HERE TELLS A FORGED RECORD FROM ONE
 * OF THIS SIDE'S OWN. It is for people to look at: what a program decides it takes from qxgss_session_inquire and
 * qxgss_session_inquire_verdict, or from inquire_negotiated_mech, none of which a peer can write.
 *
 * C header; libqxgss-session. Every call returns a GSS major status and writes a minor status (the null pointer is
 * allowed); success is 0x21000064. A log is used by one thread at a time. */
#ifndef QXGSS_LOG_H
#define QXGSS_LOG_H

#include "qxgss/gssp.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qxgss_log_struct *qxgss_log_t;

/* Buffers in these structures belong to the log and stay until it is deleted. They hold any bytes and no NUL at their
 * end; length 0 is a text that there is not. */
typedef struct qxgss_log_facts_struct {
    OM_uint32 RecordCount;   /* of the negotiation log */
    OM_uint32 PropertyCount; /* of the user properties; 0 of a log alone */
    size_t PropertyEnd;      /* bytes up to the end of the last whole property: all of them, unless damaged */
    qxgss_buffer_desc Text;  /* the log as text */
    qxgss_buffer_desc Host;  /* where it was written */
    qxgss_buffer_desc Time;  /* when, in the local time of that host, as in "Mon Nov 23 17:39:38 2026" */
} qxgss_log_facts_desc;

/* An event of the negotiation. A number is 0 where the record does not give it. */
typedef struct qxgss_log_record_struct {
    int IsInitiator;              /* the client's */
    OM_uint32 Call;               /* of the establishment, from 1 */
    qxgss_buffer_desc Event;      /* what happened, behind the name of the operation and a colon */
    int IsPeerView;               /* the fields of the mechanism are what the other side says of it */
    qxgss_buffer_desc MechName;   /* without it and MechOid the event concerns no mechanism */
    qxgss_OID_desc MechOid;       /* in place of the name, of a mechanism that only the peer has; the log's */
    OM_uint32 MechState;          /* QXGSS_MECH_STATE_* */
    OM_uint32 MechReason;         /* QXGSS_MECH_REASON_* */
    OM_uint32 MajorStatus;        /* these three only with the reason GSSAPI_ERROR */
    OM_uint32 MinorStatus;        /* the mechanism's own */
    qxgss_buffer_desc StatusText; /* possibly several lines */
    int IsCtxEstablished;         /* the mechanism's context */
    int IsPolicyApplied;
    OM_uint32 NegState; /* 1 completed, 2 incomplete, 3 reject, 4 request MIC */
    OM_uint32 NegStateFromPeer;
    OM_uint64 ElapsedTime; /* milliseconds since the context was made */
} qxgss_log_record_desc;

/* A record of the user properties (qxgss/qxgss_records.h). */
typedef struct qxgss_log_property_struct {
    OM_uint32 Id;             /* QXGSS_DATA_ID_* */
    const char *pszName;      /* such as "username_utf8"; null for an unknown one */
    qxgss_buffer_desc Record; /* all of it */
    qxgss_buffer_desc Data;   /* of a string record */
} qxgss_log_property_desc;

/* Reads the bytes, of which a copy is made: at most some ten bytes of memory for each.
 *   GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE    pData is null
 *   GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE   ppLog is null
 *   GSS_S_DEFECTIVE_TOKEN with 0xE10000CD           they begin as neither user properties nor a log
 *   GSS_S_FAILURE with 0xE1000065                   memory */
QXGSS_API OM_uint32 qxgss_log_open(OM_uint32 *pMinorStatus, const qxgss_buffer_desc *pData, qxgss_log_t *ppLog);

/* GSS_S_CALL_INACCESSIBLE_READ or _WRITE | GSS_S_FAILURE for a null pointer, also of the next two. */
QXGSS_API OM_uint32 qxgss_log_inquire(OM_uint32 *pMinorStatus, qxgss_log_t pLog, qxgss_log_facts_desc *pFacts);

/* Record 0 to RecordCount - 1. GSS_S_UNAVAILABLE with 0xE10000FE beyond, GSS_S_FAILURE with 0xE1000065 for lack of
 * memory. */
QXGSS_API OM_uint32 qxgss_log_inquire_record(OM_uint32 *pMinorStatus, qxgss_log_t pLog, OM_uint32 Number,
                                             qxgss_log_record_desc *pRecord);

/* Property 0 to PropertyCount - 1. GSS_S_UNAVAILABLE with 0xE10000FE beyond. */
QXGSS_API OM_uint32 qxgss_log_inquire_property(OM_uint32 *pMinorStatus, qxgss_log_t pLog, OM_uint32 Number,
                                               qxgss_log_property_desc *pProperty);

/* Deletes the log and clears the pointer; a null log is no error. */
QXGSS_API OM_uint32 qxgss_log_delete(OM_uint32 *pMinorStatus, qxgss_log_t *ppLog);

#ifdef __cplusplus
}
#endif

#endif
