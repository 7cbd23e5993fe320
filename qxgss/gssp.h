/* What the framework offers to mechanisms: operations on buffers, names and OIDs, the registry of mechanisms with
 * their function tables, their properties and the per-user policy.
 *
 * C header. Every operation accepts a null minor-status pointer, sets minor status 0x21000064 on success and reports
 * failure by a bit of 0xFFFF0000 in its major status. What it hands out is on the C heap. */
#ifndef QXGSS_GSSP_H
#define QXGSS_GSSP_H

#include "qxgss.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Minor statuses of the framework that its callers test or set. */
#define GSSP_E_SUCCESS 0x21000064U
#define GSSP_E_NO_MEMORY 0xE1000065U
#define GSSP_E_FUNCTION_UNAVAILABLE 0xE1000067U
#define GSSP_E_NO_PROPERTY 0xE1000074U
#define GSSP_E_INVALID_ARGUMENT 0xE10000CDU
#define GSSP_E_NOT_PERMITTED 0xE10000EEU
#define GSSP_E_NO_MECH_INDEX 0xE10000FEU
#define GSSP_E_BAD_CONTEXT 0xE100010BU
#define GSSP_E_MECHANISM_DISABLED 0xA100012BU

/* ---- Buffers ---------------------------------------------------------------------------------------------------- */

/* Frees the bytes and empties the descriptor. A null descriptor and an empty one are no error. */
QXGSS_API OM_uint32 gssp_release_buffer(OM_uint32 *pMinorStatus, qxgss_buffer_t pBuffer);

/* The same, but the `length` bytes are wiped first. */
QXGSS_API OM_uint32 gssp_release_secure_buffer(OM_uint32 *pMinorStatus, qxgss_buffer_t pBuffer);

/* Deep copy; the caller releases it. An empty source gives an empty copy. On failure (GSS_S_FAILURE, 0xE1000077 for a
 * null pointer, 0xE1000065 for lack of memory) the destination is empty. */
QXGSS_API OM_uint32 gssp_duplicate_buffer(OM_uint32 *pMinorStatus, const qxgss_buffer_t pSource,
                                          qxgss_buffer_t pDestination);

/* ---- Names ------------------------------------------------------------------------------------------------------ */

/* A name's record, element array and texts are a block each and belong to the name; pNameType is borrowed (it is never
 * freed with the name) and pGssName is null in every name made here. */

/* Deep copy of all elements; the caller releases it. A null source gives a null copy. A name type that equals one of
 * the framework's constants becomes that constant; any other lies in the copy's element array and lives as long as the
 * copy. GSS_S_FAILURE with 0xE100006B (null destination) or 0xE1000065 (memory), the destination then null. */
QXGSS_API OM_uint32 gssp_duplicate_name(OM_uint32 *pMinorStatus, const qxgss_name_t pSource, qxgss_name_t *ppCopy);

/* Wipes the texts (they may hold a password), frees the name and clears the pointer. A null name is no error. */
QXGSS_API OM_uint32 gssp_release_name(OM_uint32 *pMinorStatus, qxgss_name_t *ppName);

typedef enum gssp_utf_format_e {
    GSSP_UTF_BY_NAMETYPE = 0, /* input only: as the name type says */
    GSSP_UTF8 = 1,
    GSSP_UTF16 = 2,
    GSSP_UTF32 = 3
} gssp_utf_format_t;

typedef enum gssp_utf_conversion_e { GSSP_UTF_STRICT_CONVERSION = 0 } gssp_utf_conversion_t;

typedef struct gssp_utf_convert_flags_struct {
    gssp_utf_format_t InputFormat;
    gssp_utf_format_t OutputFormat;
    gssp_utf_conversion_t ConversionType;
} gssp_utf_convert_flags_t;

/* The text of the name's first element as UTF-8, in a new buffer that the caller releases, with a NUL behind it that
 * its length does not count; the name is unchanged. A leading byte order mark is dropped, and sets the byte order of
 * UTF-16 and UTF-32, which is the host's without one. An empty text gives an empty buffer.
 * Strict: GSS_S_FAILURE with 0xE10000C1 for an invalid character, 0xE10000C2 for a text that ends inside one,
 * 0xE10000C0 for a null pointer, a name type that carries no text, or a format it does not convert (only GSSP_UTF8
 * is written), 0xE1000065 for lack of memory. The output is then empty. */
QXGSS_API OM_uint32 gssp_convertname_utf(OM_uint32 *pMinorStatus, const qxgss_name_t pName, qxgss_buffer_t pOutput,
                                         const gssp_utf_convert_flags_t *pFlags);

/* ---- OIDs and sets of OIDs -------------------------------------------------------------------------------------- */

/* *pResult is 0 when the OIDs are equal, else non-zero. GSS_S_FAILURE with 0xE10000CD for a null pointer or an OID
 * without bytes. */
QXGSS_API OM_uint32 gssp_compare_oids(OM_uint32 *pMinorStatus, const qxgss_OID pOid1, const qxgss_OID pOid2,
                                      OM_sint32 *pResult);

/* A set's record, its array and each member's bytes are a block each, so that sets may also be made by hand. */

/* A new set without members; the caller releases it. 0xE1000070 for a null pointer, 0xE1000065 for memory. */
QXGSS_API OM_uint32 gssp_create_empty_oid_set(OM_uint32 *pMinorStatus, qxgss_OID_set *ppSet);

/* Appends a copy of the OID; the order is kept. 0xE1000070 for a null set, 0xE10000CD for an OID without bytes,
 * 0xE1000065 for memory; the set is then as it was. */
QXGSS_API OM_uint32 gssp_add_oid_set_member(OM_uint32 *pMinorStatus, const qxgss_OID pOid, qxgss_OID_set *ppSet);

/* *pPresent becomes 1 or 0. 0xE1000071 for a null flag, 0xE1000070 for a null set, 0xE10000CD for an OID without
 * bytes; the flag is then untouched. */
QXGSS_API OM_uint32 gssp_test_oid_set_member(OM_uint32 *pMinorStatus, const qxgss_OID pOid, const qxgss_OID_set pSet,
                                             int *pPresent);

/* Deep copy; a null source gives a null copy. 0xE1000079 for a null destination, 0xE1000065 for memory. */
QXGSS_API OM_uint32 gssp_duplicate_oid_set(OM_uint32 *pMinorStatus, const qxgss_OID_set pSource, qxgss_OID_set *ppCopy);

/* Frees the set and clears the pointer; a null set is no error. */
QXGSS_API OM_uint32 gssp_release_oid_set(OM_uint32 *pMinorStatus, qxgss_OID_set *ppSet);

/* The DER contents octets of a dotted OID string, on the C heap: the caller frees them. At least two arcs, each below
 * 2^32 and without needless zeros. The two reserved arguments are 0. 0xE1000081 for a null pointer or a string that is
 * no OID, 0xE1000065 for memory. */
QXGSS_API OM_uint32 gssp_oidstr_to_oidder(OM_uint32 *pMinorStatus, OM_uint32 Reserved1, OM_uint32 Reserved2,
                                          const char *pszOid, OM_uint32 *pLength, unsigned char **ppElements);

/* ---- Mechanisms ------------------------------------------------------------------------------------------------- */

/* The results of these look-ups belong to the framework and stay until qxgss_shutdown. Each fails with GSS_S_FAILURE
 * and 0xE100007B (no such mechanism, or a null pointer) unless said otherwise. */

/* OID of the registered mechanism of that name (case matters). */
QXGSS_API OM_uint32 gssp_mechstr_to_oid(OM_uint32 *pMinorStatus, const char *pszMechName, qxgss_OID *ppOid);

/* OID for a dotted OID string, whether a mechanism of it is registered or not. 0xE1000081 for a string that is none. */
QXGSS_API OM_uint32 gssp_mechoidstr_to_oid(OM_uint32 *pMinorStatus, const char *pszOid, qxgss_OID *ppOid);

/* Registry index; -1 with success when no registered mechanism has that OID. 0xE10000CD for an OID without bytes. */
QXGSS_API OM_uint32 gssp_oid_to_mechindex(OM_uint32 *pMinorStatus, const qxgss_OID pOid, OM_sint32 *pIndex);

/* Name of the registered mechanism with that OID; 0xE100007C for every failure. */
QXGSS_API OM_uint32 gssp_oid_to_mechstr(OM_uint32 *pMinorStatus, const qxgss_OID pOid, const char **ppszMechName);

/* Dotted OID of the registered mechanism of that name; 0xE10000DB for every failure. */
QXGSS_API OM_uint32 gssp_mechstr_to_oidstr(OM_uint32 *pMinorStatus, const char *pszMechName, const char **ppszOid);

/* Numbers of the properties of a mechanism. */
#define GSSP_PROPERTY_AUTHENTICATION_SUPPORTED 2U /* boolean: it authenticates the user */
#define GSSP_PROPERTY_AUTHORIZATION_SUPPORTED 3U  /* boolean: it also establishes as whom the user acts */
#define GSSP_PROPERTY_SINGLE_SIGN_ON 8U           /* boolean: it can use the credentials the user already holds */
#define GSSP_PROPERTY_RANK 17U                    /* integer: order of preference, smaller first */

/* The property's value; 0xE1000074 when the mechanism is unknown, or has no such property of that kind. */
QXGSS_API OM_uint32 gssp_inquire_one_mech_property_boolean(OM_uint32 *pMinorStatus, const qxgss_OID pMech,
                                                           OM_uint32 Property, OM_uint32 *pValue);
QXGSS_API OM_uint32 gssp_inquire_one_mech_property_int(OM_uint32 *pMinorStatus, const qxgss_OID pMech,
                                                       OM_uint32 Property, OM_sint32 *pValue);

/* A mechanism's own setting from the configuration file, as text; 0xE1000074 when it is not set. */
QXGSS_API OM_uint32 gssp_inquire_mech_setting(OM_uint32 *pMinorStatus, const char *pszMechName, const char *pszKey,
                                              const char **ppszValue);

/* The mechanisms that a user may log on with: a set that the caller releases, or null when nothing restricts the user
 * (an empty set would say the same; it is never given). For a user who may not log on at all the set has the one member
 * GSSP_C_NO_MECHANISM.
 * pszUser is a name as a mechanism gives it: "user", "user@REALM" or "DOMAIN\user". A name that the file lists has
 * what its account allows; one with a domain is compared without case. Any other has what the default allows, less what
 * is not allowed by an account whose key is the user's name alone, without case, and that lists no name of this form.
 * Only the letters of ASCII have a case that is known: of a listed name the others must be the same, where an account
 * restricts they are left out, but for those that have another case in ASCII.
 * 0xE10000CB for a null or empty user, 0xE10000CD for a null ppMechs, 0xE10000F2 when nothing is configured,
 * 0xE1000065 for memory. */
QXGSS_API OM_uint32 gssp_inquire_mech_policy_for_user(OM_uint32 *pMinorStatus, const char *pszUser,
                                                      qxgss_OID_set *ppMechs);

/* An OID that no mechanism has: its octets are those of none. */
extern QXGSS_API qxgss_OID GSSP_C_NO_MECHANISM;

/* ---- What a negotiating mechanism tells of a negotiation -------------------------------------------------------- */

/* States of a mechanism in a negotiation. */
#define QXGSS_MECH_STATE_AVAILABLE 1U
#define QXGSS_MECH_STATE_SELECTED 2U
#define QXGSS_MECH_STATE_REJECTED 3U

/* Reasons for them. */
#define QXGSS_MECH_REASON_AVAILABLE 1U
#define QXGSS_MECH_REASON_GSSAPI_ERROR 2U /* a call of the mechanism failed */
#define QXGSS_MECH_REASON_NOT_AVAIL_AT_CLIENT 3U
#define QXGSS_MECH_REASON_NOT_AVAIL_AT_SERVER 4U
#define QXGSS_MECH_REASON_DUE_TO_POLICY 5U /* the server's policy does not allow it for the user */
#define QXGSS_MECH_REASON_DUE_TO_RANK 6U   /* selected as the first available, or rejected because one before it was */
#define QXGSS_MECH_REASON_SSO_REQUIRED 7U  /* single sign-on is required and not supported */
#define QXGSS_MECH_REASON_AUTH_ID_NOT_AVAIL 8U      /* no identity could be obtained for single sign-on */
#define QXGSS_MECH_REASON_AUTHORIZATION_REQUIRED 9U /* a user or profile is requested, and it cannot authorize */

/* How a negotiation stands at one side. */
#define QXGSS_NEG_STATE_COMPLETED 1U
#define QXGSS_NEG_STATE_INCOMPLETE 2U
#define QXGSS_NEG_STATE_REJECT 3U
#define QXGSS_NEG_STATE_REQUEST_MIC 4U /* not supported anywhere */

/* A mechanism as one side sees it. What it points to belongs to the context and stays until the next call on it. */
typedef struct qxgss_negotiated_mech_struct {
    qxgss_OID pMechOid;
    OM_sint32 MechIndex;                      /* in the registry; -1 for a mechanism that only the peer has */
    OM_uint32 MechState;                      /* QXGSS_MECH_STATE_* */
    OM_uint32 MechReason;                     /* QXGSS_MECH_REASON_* */
    OM_uint32 GssMajorStatus, GssMinorStatus; /* of the mechanism's last failing call, here or at the peer */
    qxgss_buffer_desc GssMinorStatusText;     /* any bytes, possibly the peer's */
    int IsCtxEstablished;                     /* its own context, on this side */
    int IsSelected;                           /* it is the one that the negotiation's selection designates */
    int IsStateFromPeer;                      /* state, reason and statuses are what the peer says */
    int IsOffered;                            /* the peer has sent an inner token for it */
} qxgss_negotiated_mech_desc;

/* A negotiation as a whole. */
typedef struct qxgss_negotiation_struct {
    OM_uint32 MechCount;
    OM_sint32 SelectedNumber; /* of the mechanism that the context's selection designates; -1 for none */
    OM_uint32 NegState;       /* of this side: QXGSS_NEG_STATE_* */
    OM_uint32 NegStateFromPeer;
    OM_uint32 IsPolicyApplied;
    int IsOffered;                /* the peer has sent an inner token for a mechanism that this side has */
    qxgss_buffer_desc PolicyName; /* whom the policy was looked up for, a mere claim; borrowed; empty for nobody */
} qxgss_negotiation_desc;

/* ---- Function table --------------------------------------------------------------------------------------------- */

/* Version of this interface: the function table, the records and the calls. A mechanism's library may have a function
 * OM_uint32 PREFIX_interface_version(void); one that returns another number is not put to use. */
#define QXGSS_INTERFACE_VERSION 1U

/* A mechanism's operations. The framework resolves slot ftn_gssp_X as the symbol PREFIX_X of the mechanism's library;
 * any slot may be null. Arguments as in RFC 2744 for the call of the same name, where there is one. */
typedef struct qxgss_ftn_table_desc_struct {
    OM_uint32 (*ftn_gssp_configure)(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, qxgss_buffer_t pLibPathBuf,
                                    qxgss_buffer_t pConfigInfoBuf);
    OM_uint32 (*ftn_gssp_indicate_mechs)(OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet);
    OM_uint32 (*ftn_gssp_inquire_names_for_mech)(OM_uint32 *pMinorStatus, qxgss_OID pMechanism,
                                                 qxgss_OID_set *ppNameTypes);
    OM_uint32 (*ftn_gssp_acquire_cred)(OM_uint32 *pMinorStatus, qxgss_name_t pDesiredName, OM_uint32 TimeReq,
                                       qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage,
                                       qxgss_cred_id_t *ppOutputCredHandle, qxgss_OID_set *ppActualMechs,
                                       OM_uint32 *pTimeRec);
    OM_uint32 (*ftn_gssp_release_cred)(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle);
    OM_uint32 (*ftn_gssp_inquire_cred)(OM_uint32 *pMinorStatus, qxgss_cred_id_t pCredHandle, qxgss_name_t *ppName,
                                       OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage,
                                       qxgss_OID_set *ppMechanisms);
    OM_uint32 (*ftn_gssp_init_sec_context)(OM_uint32 *pMinorStatus, qxgss_cred_id_t pInitiatorCredHandle,
                                           qxgss_ctx_id_t *ppContextHandle, qxgss_name_t pTargetName,
                                           qxgss_OID pMechType, OM_uint32 ReqFlags, OM_uint32 TimeReq,
                                           qxgss_channel_bindings_t pInputChanBindings, qxgss_buffer_t pInputToken,
                                           qxgss_OID *ppActualMechType, qxgss_buffer_t pOutputToken,
                                           OM_uint32 *pRetFlags, OM_uint32 *pTimeRec);
    OM_uint32 (*ftn_gssp_accept_sec_context)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                             qxgss_cred_id_t pAcceptorCredHandle, qxgss_buffer_t pInputToken,
                                             qxgss_channel_bindings_t pInputChanBindings, qxgss_name_t *ppSrcName,
                                             qxgss_OID *ppMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                             OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle);
    OM_uint32 (*ftn_gssp_delete_sec_context)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                             qxgss_buffer_t pOutputToken);
    OM_uint32 (*ftn_gssp_inquire_context)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                          qxgss_name_t *ppSourceName, qxgss_name_t *ppTargetName,
                                          OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType, OM_uint32 *pCtxFlags,
                                          int *pLocallyInitiated, int *pOpen);
    OM_uint32 (*ftn_gssp_wrap_size_limit)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                                          qxgss_qop_t QopReq, OM_uint32 ReqOutputSize, OM_uint32 *pMaxInputSize);
    OM_uint32 (*ftn_gssp_wrap)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                               qxgss_qop_t QopReq, qxgss_buffer_t pInputMessageBuffer, int *pConfState,
                               qxgss_buffer_t pOutputMessageBuffer);
    OM_uint32 (*ftn_gssp_unwrap)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                 qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer,
                                 int *pConfState, qxgss_qop_t *pQopState);
    OM_uint32 (*ftn_gssp_get_mic)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_qop_t QopReq,
                                  qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer);
    OM_uint32 (*ftn_gssp_verify_mic)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                     qxgss_buffer_t pMessageBuffer, qxgss_buffer_t pTokenBuffer,
                                     qxgss_qop_t *pQopState);
    OM_uint32 (*ftn_gssp_get_client_domain_username)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                                     char **psUserName, char **psDomain);
    OM_uint32 (*ftn_gssp_qop_string_to_int)(OM_uint32 *pMinorStatus, qxgss_OID pMechTypeOid,
                                            qxgss_buffer_t pQopValueBuffer, qxgss_qop_t *pQopValueInt);
    OM_uint32 (*ftn_gssp_qop_int_to_string)(OM_uint32 *pMinorStatus, qxgss_OID pMechTypeOid, qxgss_qop_t QopValueInt,
                                            qxgss_buffer_t pQopValueBuffer);
    OM_uint32 (*ftn_gssp_inquire_properties_for_user)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                                      qxgss_buffer_t pUserPropBuffer);
    OM_uint32 (*ftn_gssp_display_status)(OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType,
                                         qxgss_OID pMechType, OM_uint32 *pMessageContext, qxgss_buffer_t pStatusString);
    OM_uint32 (*ftn_gssp_release_name)(OM_uint32 *pMinorStatus, qxgss_name_t *ppName);
    /* A negotiating mechanism's: entry `Number` of the context's list, and the negotiation as a whole. */
    OM_uint32 (*ftn_gssp_inquire_negotiated_mech)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                                  OM_uint32 Number, qxgss_negotiated_mech_desc *pMech);
    OM_uint32 (*ftn_gssp_inquire_negotiation)(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                              qxgss_negotiation_desc *pNegotiation);
    /* Why a negotiating mechanism does not negotiate the one of that index in the registry: a constant text, null when
     * it does. Also of one whose configuration has failed. */
    OM_uint32 (*ftn_gssp_inquire_candidate)(OM_uint32 *pMinorStatus, OM_sint32 MechIndex, const char **ppszWhyNot);
} qxgss_ftn_table_desc;

/* A mechanism that a negotiating mechanism may negotiate. */
typedef struct NegMechInfo_struct {
    OM_uint32 fEnabled;
    char *pNegotiatedMech; /* dotted OID string, as the configuration has it */
} NegMechInfo_t;

/* Values of fUseMech. While a mechanism's configure operation runs its entry has the last one, by which a library that
 * serves several entries knows which of them the call is for. */
#define GSSP_MECH_UNUSED 0
#define GSSP_MECH_IN_USE 1
#define GSSP_MECH_BEING_CONFIGURED 2

/* One configured mechanism. */
typedef struct MechInfo_struct {
    char *pszMechName;
    qxgss_OID pMechOid;
    char *pszMechOid; /* dotted */
    OM_uint32 NegotiatedMechCount;
    NegMechInfo_t *pNegMechInfo; /* in configuration order */
    int fUseMech;                /* non-zero when the mechanism is in use; see GSSP_MECH_* */
    qxgss_ftn_table_desc MechFtnTable;
    char *pszLibrary; /* file it was loaded from; null when it is part of the program */
    char *pszMessage; /* why it is not in use; null when it is */
} MechInfo_t;

/* The registry: MechCount mechanisms, read-only once qxgss_configure has returned. */
extern QXGSS_API MechInfo_t *pMechInfo;
extern QXGSS_API OM_uint32 MechCount;

#ifdef __cplusplus
}
#endif

#endif
