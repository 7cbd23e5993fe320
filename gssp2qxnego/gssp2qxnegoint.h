// QXNEGO's records, enumerations and internal operations, these in the order in which an establishment call takes them.
//
// Every operation returns a GSS major status and writes its minor status through the first argument, which may be null;
// success is GSS_S_COMPLETE with QXNEGO_E_SUCCESSFUL. A record's memory is the C heap's. Nothing here is exported.
#ifndef QXNEGO_GSSP2QXNEGOINT_H
#define QXNEGO_GSSP2QXNEGOINT_H

#include "gssp2qxnego/gssp2qxnego.h"
#include "qxgss/gsspasn.h"
#include "qxgss/operations.h"

QXGSS_DECLARE_OPERATIONS(QXNEGO)

// ---- Status codes (qxnego_codes.def) -------------------------------------------------------------------------------

enum QxnegoMinor_et : OM_uint32 {
#define QXNEGO_CODE(value, name, text) QXNEGO_E_##name = value,
#include "gssp2qxnego/qxnego_codes.def"
#undef QXNEGO_CODE
};

// ---- Enumerations: the values are also those on the wire. A value that arrived is any number until checked. ---------

enum NegMechState_et : OM_uint32 {
    NEG_MECH_STATE_INVALID = 0,
    NEG_MECH_STATE_AVAILABLE = QXGSS_MECH_STATE_AVAILABLE,
    NEG_MECH_STATE_SELECTED = QXGSS_MECH_STATE_SELECTED,
    NEG_MECH_STATE_REJECTED = QXGSS_MECH_STATE_REJECTED,
    NEG_MECH_STATE_INVALID_LAST = 4
};

enum NegMechReason_et : OM_uint32 {
    NEG_MECH_REASON_INVALID = 0,
    NEG_MECH_REASON_AVAILABLE = QXGSS_MECH_REASON_AVAILABLE,
    NEG_MECH_REASON_GSSAPI_ERROR = QXGSS_MECH_REASON_GSSAPI_ERROR,
    NEG_MECH_REASON_NOT_AVAIL_AT_CLIENT = QXGSS_MECH_REASON_NOT_AVAIL_AT_CLIENT,
    NEG_MECH_REASON_NOT_AVAIL_AT_SERVER = QXGSS_MECH_REASON_NOT_AVAIL_AT_SERVER,
    NEG_MECH_REASON_DUE_TO_POLICY = QXGSS_MECH_REASON_DUE_TO_POLICY,
    NEG_MECH_REASON_DUE_TO_RANK = QXGSS_MECH_REASON_DUE_TO_RANK,
    NEG_MECH_REASON_SSO_REQUIRED = QXGSS_MECH_REASON_SSO_REQUIRED,
    NEG_MECH_REASON_AUTH_ID_NOT_AVAIL = QXGSS_MECH_REASON_AUTH_ID_NOT_AVAIL,
    NEG_MECH_REASON_AUTHORIZATION_REQUIRED = QXGSS_MECH_REASON_AUTHORIZATION_REQUIRED,
    NEG_MECH_REASON_INVALID_LAST = 10
};

enum NegState_et : OM_uint32 {
    NEG_STATE_INVALID = 0,
    NEG_STATE_COMPLETED = 1,
    NEG_STATE_INCOMPLETE = 2,
    NEG_STATE_REJECT = 3,
    NEG_STATE_REQUEST_MIC = 4, // not supported anywhere
    NEG_STATE_INVALID_LAST = 5
};

enum NegMechTokenType_et : OM_uint32 {
    NEG_MECH_TOKENTYPE_INVALID = 0,
    NEG_MECH_TOKENTYPE_INIT = 1, // the client's first token
    NEG_MECH_TOKENTYPE_RESP = 2, // every later one, in both directions
    NEG_MECH_TOKENTYPE_INVALID_LAST = 3
};

// ---- Records -------------------------------------------------------------------------------------------------------

// One candidate mechanism. It comes from the template list (pMechOid borrowed, MechIndex a registry index), or was made
// for a mechanism that only the peer has (Rejected, MechIndex -1, pMechOid its own MechOidFromPeer, nothing acquired).
struct NegMechEntry_desc {
    OM_uint32 IsMechStateChanged; // since the entry was last sent to the peer
    qxgss_OID pMechOid;
    NegMechState_et MechState;
    NegMechReason_et MechReason;
    OM_uint32 GssMajorStatus; // of the mechanism's last failing call, here or at the peer
    OM_uint32 GssMinorStatus;
    qxgss_buffer_desc GssMinorStatusText;
    qxgss_buffer_desc InputToken;  // from the peer, for the mechanism's next call; stays until replaced
    qxgss_buffer_desc OutputToken; // of the mechanism's last call; sent with every token until the next one
    qxgss_buffer_desc SsoAuthenticationIdBuf;
    OM_uint32 IsMechLocal;
    qxgss_OID_desc MechOidFromPeer; // elements owned, in entries made for the peer only
    OM_sint32 MechIndex;
    qxgss_cred_id_t pMechCredential;
    qxgss_ctx_id_t pMechContext;
    qxgss_OID pMechType; // the mechanism's own OID: not owned
    OM_uint32 RetFlags;
    OM_uint32 TimeRec; // seconds
    qxgss_name_t pSrcName;
    qxgss_cred_id_t pDelegatedCredHandle;
    OM_uint32 IsCtxEstablished;
    OM_uint32 AuthenticationSupported;
    OM_uint32 AuthorizationSupported;
    OM_sint32 MechanismRank;
    OM_sint32 SingleSignOn;
    bool IsStateFromPeer; // state, reason and statuses are what the peer says
    bool IsFirstOfOid;    // known to be: no entry before it has the same OID
};
using NegMechEntry_t = NegMechEntry_desc *;

// Candidates in order of preference. Entries are never removed or reordered; the array grows at its end and may move.
struct NegMechList_desc {
    OM_uint32 Count;
    NegMechEntry_t pNegMech;
};
using NegMechList_t = NegMechList_desc *;

// One event: a snapshot of the entry concerned (if any) and of the negotiation. MechOid's bytes are borrowed.
struct NegLogRecord {
    qxgss_OID_desc MechOid;
    NegMechState_et MechState;
    NegMechReason_et MechReason;
    OM_uint32 GssMajorStatus;
    OM_uint32 GssMinorStatus;
    qxgss_buffer_desc GssMinorStatusText;
    OM_sint32 MechIndex;
    OM_uint32 IsCtxEstablished;
    OM_uint32 IsInitiator;
    OM_uint32 TokenNum;
    OM_uint32 IsPolicyApplied;
    NegState_et NegState;
    NegState_et NegStateFromPeer;
    char *pszLogString;    // the log's
    OM_uint64 ElapsedTime; // milliseconds since the log's BaseTime
};
using NegLogRecord_t = NegLogRecord *;

struct NegLog_desc {
    OM_uint32 Count;
    OM_uint32 MaxCount;
    NegLogRecord_t pRecords;              // null when there is no log
    OM_uint64 BaseTime;                   // milliseconds since 1 January 1970 UTC
    struct NegLogTexts *pTexts = nullptr; // what the records' texts lie in (log.cpp)
};
using NegLog_t = NegLog_desc *;

// Places of entries in a list, in the order of the entries' OIDs.
struct NegMechOrder_desc {
    OM_uint32 Count;
    OM_uint32 *pPlaces;
};

struct NegContext_desc {
    OM_uint32 IsInitiator;
    OM_uint32 TokenNum; // earlier calls of the establishment entry point
    qxgss_buffer_desc AuthenticationIdBuf;
    OM_uint32 IsSso;
    qxgss_buffer_desc UserNameBuf;
    qxgss_buffer_desc ProfileNameBuf;
    OM_uint32 IsPolicyApplied; // a side selects a mechanism only when it is 1
    NegMechList_desc NegMechList;
    NegLog_desc NegLog;
    NegState_et NegState;
    NegState_et NegStateFromPeer;
    OM_sint32 SelectedMechInfoIndex;    // registry index; -1: none
    OM_sint32 SelectedMechListIndex;    // index in NegMechList; -1: none
    NegMechOrder_desc MechOrder{};      // of what a list holds beyond a usual length (reconcile.cpp)
    OM_uint32 TraceNumber = 0;          // of the process's negotiations that were traced; 0: not yet (trace.cpp)
    OM_uint32 NextFromPeer = 0;         // the place behind the entry that the peer spoke of last
    OM_sint32 PolicyNameListIndex = -1; // the entry whose name the policy was looked up for; -1: one of the above
};
using NegContext_t = NegContext_desc *;

// What a context handle points to.
struct QxnegoSecCtxDescStruct {
    qxgss_buffer_desc UserProperties; // cached once the negotiation has completed
    NegContext_desc NegCtx;
};
using QxnegoSecCtx_int_t = QxnegoSecCtxDescStruct *;

// What a credential handle points to: a remembered request.
struct QxnegoCredDescStruct {
    qxgss_name_t pDesiredName; // text of the first element in UTF-8; null: default identity
    OM_uint32 TimeReq;         // seconds
    qxgss_OID_set pDesiredMechs;
    qxgss_cred_usage_t CredUsage;
};
using QxnegoCred_t = QxnegoCredDescStruct *;

extern "C" {

// ---- Module state, set by QXNEGO_configure and read-only afterwards (configure.cpp) ---------------------------------

extern qxgss_OID pQxnegoMechOid;
extern OM_sint32 QxnegoMechIndex;
extern qxgss_OID_set pQxnegoMechOidSet;
extern NegMechList_desc QxnegoMechList; // the template that every context copies
extern qxgss_OID_set pQxnegoPreferredCredNameTypes;
extern qxgss_OID_set pQxnegoSupportedCredNameTypes;
extern qxgss_OID_set pQxnegoSupportedAllNameTypes;

// Builds the template list from what QXNEGO's registry entry may negotiate: mechanisms that authenticate first, then by
// rank. 0x020D0000 with INIT_LIST (null list); GSS_S_FAILURE with NO_MECHANISM (none qualifies) or CALLOC.
OM_uint32 QXNEGO_INT_InitNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pQxnegoMechList);

// ---- Context (context.cpp) -----------------------------------------------------------------------------------------

// Makes a context with a log and a copy of the template list, unless *ppQxnegoSecCtx holds one already. 0x02080000 with
// NO_CONTEXT (null pointer), GSS_S_FAILURE with CALLOC, or the failing step's status; no context is left then.
OM_uint32 QXNEGO_INT_InitializeContext(OM_uint32 *pMinorStatus, OM_uint32 IsInitiator,
                                       QxnegoSecCtx_int_t *ppQxnegoSecCtx);

// Releases what the negotiation context owns, not the record; goes on after a failure and returns the last one.
// 0x020D0000 with NEG_CONTEXT for null.
OM_uint32 QXNEGO_INT_ReleaseNegContext(OM_uint32 *pMinorStatus, NegContext_t pNegContext);

// ---- Mechanism list (mech_list.cpp) --------------------------------------------------------------------------------

// Fills the output list with copies of the input's entries whose mechanism is in use, in order, and logs each when a
// context is given. 0x020D0000 / 0x010D0000 with COPY_LIST (null output / input); GSS_S_FAILURE with NO_MECHANISM
// (none in use) or CALLOC.
OM_uint32 QXNEGO_INT_GetNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pInputNegMechList,
                                    NegMechList_t pOutputNegMechList, NegContext_t pNegContext);

// The only way an entry's state changes; marks the entry to be sent. A given text is copied, without one the old text
// stays. 0x020D0000 with INACCESSIBLE (null entry); GSS_S_FAILURE with BAD_MECH_STATE or BAD_MECH_REASON, the entry
// then unchanged; the copy's status when it fails, the entry then changed but not marked.
OM_uint32 QXNEGO_INT_NegMechStateChange(OM_uint32 *pMinorStatus, NegMechState_et MechState, NegMechReason_et MechReason,
                                        OM_uint32 GssMajorStatus, OM_uint32 GssMinorStatus,
                                        qxgss_buffer_t pGssMinorStatusText, NegMechEntry_t pNegMechEntry);

// Releases everything the entries own and the array; goes on after a mechanism's failure and returns the last one.
// 0x020D0000 with INVALID_INPUT for null.
OM_uint32 QXNEGO_INT_ReleaseNegMechList(OM_uint32 *pMinorStatus, NegMechList_t pNegMechList);

// ---- Token decoder (token_decode.cpp) ------------------------------------------------------------------------------

// Reads the peer's token into the context. What was read before a failure stays. GSS_S_FAILURE with TOKEN_TYPE,
// 0x010D0000 / 0x020D0000 with INVALID_INPUT (no token / no context), GSS_S_FAILURE with a code of the operations below
// or the framework's status.
OM_uint32 QXNEGO_INT_ProcessInputToken(OM_uint32 *pMinorStatus, OM_uint32 TokenType, qxgss_buffer_t pInputToken,
                                       NegContext_t pNegContext);

// The token's outer element, its mechanism list, the next mechanism. 0x010D0000 / 0x020D0000 with INVALID_INPUT (null
// handle / context); GSS_S_FAILURE with BAD_INIT_TOKEN, BAD_RESP_TOKEN, EMPTY_LIST or BAD_NEG_MECH (an element without
// children), BAD_NEG_STATE, NEG_STATE_UNSUPPORTED, SELECTED_OID, SELECTED_NOT_FOUND, the framework's status, or what
// reconciliation set.
OM_uint32 QXNEGO_INT_DecodeNegTokenInit(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                        NegContext_t pNegContext);
OM_uint32 QXNEGO_INT_DecodeNegTokenResp(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                        NegContext_t pNegContext);
OM_uint32 QXNEGO_INT_DecodeNegMechList(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                       NegContext_t pNegContext);
OM_uint32 QXNEGO_INT_DecodeNegMech(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle, NegContext_t pNegContext);

// ---- Reconciliation (reconcile.cpp) --------------------------------------------------------------------------------

// Merges the peer's entry into the context's list: passes its token and identity over to the local entry and adopts a
// rejection or selection, or appends the mechanism as rejected when it is not known here, with a copy of the OID unless
// it is the peer's entry's own. Whatever is taken from the peer's entry or released is cleared in it. 0x010D0000 /
// 0x020D0000 with INVALID_INPUT (null entry / context); GSS_S_FAILURE with EMPTY_LIST, BAD_NEG_MECH (no OID),
// BAD_MECH_STATE, BAD_MECH_REASON, CALLOC or the framework's.
OM_uint32 QXNEGO_INT_ProcessNegMech(OM_uint32 *pMinorStatus, NegMechEntry_t pNegMech, NegContext_t pNegContext);

// ---- Acquiring credentials (acquire.cpp) ---------------------------------------------------------------------------

// Acquires a credential from every available mechanism, by what the credential record (may be null) asks for; a
// mechanism that fails is rejected. GSS_S_FAILURE with NEG_CONTEXT, EMPTY_LIST or NO_MECHANISM, or a state change's.
OM_uint32 QXNEGO_INT_Mechs_Acquire_Creds(OM_uint32 *pMinorStatus, const QxnegoCred_t pCredHandle,
                                         NegContext_t pNegContext);

// ---- Identity (identity.cpp) ---------------------------------------------------------------------------------------

// Takes identity, user and profile from the credential's logon string, or by single sign-on an identity from each
// available mechanism, rejecting those that have none. GSS_S_FAILURE with NEG_CONTEXT or CALLOC, or the parser's.
OM_uint32 QXNEGO_INT_SetAuthInfo(OM_uint32 *pMinorStatus, QxnegoCred_t pCredHandle, NegContext_t pNegContext);

// The user of a principal, as a new text that the caller frees. Returns SUCCESSFUL or LOGON_PROPERTY.
OM_uint32 QXNEGO_INT_get_principal(const char *pszLogon, char **ppszPrincipal);

// ---- Policy and authorization (policy.cpp) -------------------------------------------------------------------------

// Rejects what the user's policy does not allow; once per context. pUserNameBuf is not consulted. 0x020D0000 with
// INACCESSIBLE (null context), GSS_S_FAILURE with CALLOC or NO_MECHANISM (none allowed), or the lookup's status.
OM_uint32 QXNEGO_INT_Apply_Policy_Info(OM_uint32 *pMinorStatus, qxgss_buffer_t pUserNameBuf, NegContext_t pNegContext);

// Rejects, when a user or profile is requested, what authenticates but cannot authorize. GSS_S_FAILURE with NEG_CONTEXT
// (null context) or EMPTY_LIST.
OM_uint32 QXNEGO_INT_Apply_Authorization_Rules(OM_uint32 *pMinorStatus, NegContext_t pNegContext);

// ---- Driving the mechanisms (drive.cpp) ----------------------------------------------------------------------------

// Call each candidate's init or accept operation with the peer's inner token; a mechanism that fails is rejected with
// its status and text. The caller's output pointers only decide what the mechanisms are asked for. GSS_S_FAILURE with
// NEG_CONTEXT, EMPTY_LIST or NO_MECHANISM; else only the failure of deleting a failed context, or of a state change.
OM_uint32 QXNEGO_INT_Mechs_Init_Contexts(OM_uint32 *pMinorStatus, const qxgss_name_t pTargetName, OM_uint32 ReqFlags,
                                         OM_uint32 TimeReq, const qxgss_channel_bindings_t pInputChanBindings,
                                         qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                                         NegContext_t pNegContext);
OM_uint32 QXNEGO_INT_Mechs_Accept_Contexts(OM_uint32 *pMinorStatus, const qxgss_channel_bindings_t pInputChanBindings,
                                           qxgss_name_t *ppSrcName, qxgss_OID *ppMechType, OM_uint32 *pRetFlags,
                                           OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle,
                                           NegContext_t pNegContext);

// ---- Selection (select.cpp) ----------------------------------------------------------------------------------------

// Selects the first available entry once it is established and the policy applied, and rejects the other available
// ones; follows the peer's selection when the peer has completed. The outcome is in NegState. 0x020D0000 with
// INACCESSIBLE (null context), 0x010D0000 with NO_MECHANISM (empty list), GSS_S_FAILURE with INTERNAL (the peer's
// selection is not established here), BAD_NEG_STATE (an entry is already selected), NO_MECHANISM (all rejected).
OM_uint32 QXNEGO_INT_SelectMechanism(OM_uint32 *pMinorStatus, NegContext_t pNegCtx);

// ---- Token encoder (token_encode.cpp) ------------------------------------------------------------------------------

// Writes the next token into pOutputToken (released by the caller), or leaves it empty when the peer has already ended
// the negotiation. 0x020D0000 with NO_BUFFER, 0x010D0000 with INVALID_INPUT (null context), GSS_S_FAILURE with
// TOKEN_TYPE, a code of the operations below or the framework's status; the output is then empty.
OM_uint32 QXNEGO_INT_ConstructOutputToken(OM_uint32 *pMinorStatus, OM_uint32 TokenType, NegContext_t pNegContext,
                                          qxgss_buffer_t pOutputToken);

// The token's outer element, its mechanism list, one mechanism. 0x010D0000 with INVALID_INPUT (null pointer);
// GSS_S_FAILURE with INIT_NOT_FIRST, BAD_NEG_STATE, EMPTY_LIST, INTERNAL, NO_AUTHENTICATION_ID, INVALID_INPUT (an entry
// without OID), NOTHING_TO_ENCODE or the framework's status.
OM_uint32 QXNEGO_INT_EncodeNegTokenInit(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                        gsspasn_encoding_t pEncodeHandle);
OM_uint32 QXNEGO_INT_EncodeNegTokenResp(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                        gsspasn_encoding_t pEncodeHandle);
OM_uint32 QXNEGO_INT_EncodeNegMechList(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                       gsspasn_encoding_t pEncodeHandle);
OM_uint32 QXNEGO_INT_EncodeNegMech(OM_uint32 *pMinorStatus, NegMechEntry_t pNegMech, gsspasn_encoding_t pEncodeHandle);

// ---- Results (results.cpp) ------------------------------------------------------------------------------------------

// The result of an establishment call, from the negotiation's state; on completion hands out the selected mechanism's
// results. GSS_S_CONTINUE_NEEDED with CONTINUE_NEEDED while incomplete; 0x020D0000 with NO_MECHANISM (null context);
// GSS_S_FAILURE with EMPTY_LIST, NO_MECHANISM (rejected), NEG_STATE_UNSUPPORTED, NONE_SELECTED or BAD_NEG_STATE.
OM_uint32 QXNEGO_INT_SetReturns(OM_uint32 *pMinorStatus, NegContext_t pNegCtx, qxgss_name_t *ppSrcName,
                                qxgss_OID *ppActualMechType, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                                qxgss_cred_id_t *ppDelegatedCredHandle);

// ---- Log (log.cpp) -------------------------------------------------------------------------------------------------

// Makes an empty log of 64 records. 0x020D0000 with NEG_CONTEXT; GSS_S_FAILURE with CALLOC.
OM_uint32 QXNEGO_INT_InitNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext);

// Appends a record; the text is copied, the entry (either may be null) read. No caller looks at the result. 0x020D0000
// with NEG_CONTEXT or NO_LOG; GSS_S_FAILURE with MALLOC, CALLOC, BAD_MECH_OID or the framework's; nothing is added.
OM_uint32 QXNEGO_INT_NegLogEntry(OM_uint32 *pMinorStatus, const char *pszLogString, NegMechEntry_t pNegMechEntry,
                                 NegContext_t pNegContext);

// Enlarges the array by n zeroed records; without memory the log stays as it was.
void QXNEGO_INT_GrowNegLog(NegLog_t pNegLog, OM_uint32 n);

// Milliseconds of the wall clock since the epoch, less BaseTime, modulo 2^64.
OM_uint64 QXNEGO_INT_GetElapsedTime(OM_uint64 BaseTime);

// Frees records and array. 0x010D0000 with NEG_CONTEXT.
OM_uint32 QXNEGO_INT_ReleaseNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext);

// ---- Log text (log_text.cpp) ---------------------------------------------------------------------------------------

// The whole log as text: a banner and one block of lines per record. The buffer holds exactly the text, without a NUL;
// the caller releases it. LogLevel changes nothing. 0x020D0000 with NO_BUFFER (null buffer), 0x010D0000 with
// NEG_CONTEXT (null context) or NO_LOG; GSS_S_FAILURE with MALLOC; the buffer is then empty.
OM_uint32 QXNEGO_INT_GetNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext, OM_uint32 LogLevel,
                               qxgss_buffer_t pNegLogBuf);

// The banner (package, version, host, time), at most 4095 characters in an area of 4096 that the caller frees, and its
// length (may be null). 0x020D0000 with INVALID_INPUT (null area pointer); GSS_S_FAILURE with MALLOC.
OM_uint32 QXNEGO_INT_NegLogBanner(OM_uint32 *pMinorStatus, OM_uint32 LogLevel, char **ppszLogBanner,
                                  size_t *pcbLogBanner);

// One record's lines likewise; a line that does not fit ends them. Without a record or an area pointer nothing is made
// and the length is 0. GSS_S_FAILURE with MALLOC.
OM_uint32 QXNEGO_INT_FormatOneNegLogRecord(OM_uint32 *pMinorStatus, NegLogRecord_t pLogRecord, OM_uint32 RecordNum,
                                           OM_uint32 LogLevel, char **ppszLogRecord, size_t *pcbLogRecord);

// The OID's octets as "2a.86.48", at most 126 characters, in an area that the caller frees; null without an OID or
// memory.
char *QXNEGO_INT_oid_to_string(qxgss_OID pOid);

// ---- User properties (user_properties.cpp) -------------------------------------------------------------------------

// Builds the context's user properties, which the caller releases. 0x01080000 with INVALID_INPUT (null context),
// 0x020D0000 with INACCESSIBLE (null buffer), GSS_S_FAILURE with NEG_CONTEXT (selection out of range), or the status of
// the selected mechanism, GetNegLog or FillQxnegoInfo; the buffer is then empty.
OM_uint32 QXNEGO_INT_FillUserProperties(OM_uint32 *pMinorStatus, QxnegoSecCtx_int_t pQxnegoSecCtx,
                                        qxgss_buffer_t pUserProps);

// A mechanism's records (may be null or empty), the policy mark and the log (may be null) as a new buffer, which the
// caller releases; marks the attributes records of pProps in place. Untouched when there is nothing to report. A log
// of more than 65,525 bytes ends with its last whole record within them. GSS_S_FAILURE with INVALID_INPUT (null
// pNewprops) or CALLOC.
OM_uint32 QXNEGO_INT_FillQxnegoInfo(OM_uint32 *pMinorStatus, qxgss_buffer_t pProps, OM_uint32 IsPolicyApplied,
                                    qxgss_buffer_t pNeglog, qxgss_buffer_t pNewprops);

// ---- Status texts (qxnegoerrtostr.cpp, qxgsserrtostr.cpp) ----------------------------------------------------------

// Constant text of a minor status of QXNEGO or of the framework; "?" for any other value.
const char *qxnegoerrtostr(OM_uint32 errcode);
const char *qxgsserrtostr(OM_uint32 errcode);

} // extern "C"

#endif
