/* QXNEGO's exported entry points, which the framework resolves by name and calls through its function table. A program
 * calls them through the table, too: the shared library is loaded, not linked. Only one that is linked with the static
 * library, where there is one, finds these names.
 *
 * C header. Every call returns a GSS major status and writes its minor status through the first argument, which may
 * be null; on success of QXNEGO's own work the minor status is 0x230003E8. QXNEGO_display_status and the
 * command "qxnego status CODE" have the text of each status. A context or a credential is used by one caller at a time;
 * different ones are independent. */
#ifndef QXNEGO_GSSP2QXNEGO_H
#define QXNEGO_GSSP2QXNEGO_H

#include "qxgss/gssp.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QXNEGO_API __attribute__((visibility("default")))
#else
#define QXNEGO_API
#endif

/* ---- Configuration and inquiry ---------------------------------------------------------------------------------- */

/* Builds the module's state from the registry; before any other call, and again for each configuration of the
 * framework, whose state replaces the one before. ClientServer and pLibPathBuf are not consulted. On failure
 * GSS_S_FAILURE with 0xA100012B, and the cause as a message appended to pConfigInfoBuf (a block of the C heap, or
 * empty; may be null); 0xE30003F8 when the message itself found no memory. */
QXNEGO_API OM_uint32 QXNEGO_configure(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, qxgss_buffer_t pLibPathBuf,
                                      qxgss_buffer_t pConfigInfoBuf);

/* The set of QXNEGO's own OID (RFC 2744 5.18); the caller releases it. A null ppMechSet gives
 * GSS_S_CALL_INACCESSIBLE_WRITE with 0xE30003F7; a failing framework call its own minor status. */
QXNEGO_API OM_uint32 QXNEGO_indicate_mechs(OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet);

/* The name types of QXNEGO (RFC 2744 5.24), whatever pMechanism is; the caller releases the set. A null ppNameTypes
 * gives 0x020D0000 with 0xE30003F7. */
QXNEGO_API OM_uint32 QXNEGO_inquire_names_for_mech(OM_uint32 *pMinorStatus, const qxgss_OID pMechanism,
                                                   qxgss_OID_set *ppNameTypes);

/* ---- Context establishment -------------------------------------------------------------------------------------- */

/* One call of the client (RFC 2744 5.19), repeated with each token of the server until GSS_S_COMPLETE.
 *
 * pInitiatorCredHandle is a credential of QXNEGO_acquire_cred, or null for single sign-on. The first call, with a null
 * *ppContextHandle, ignores pInputToken. The caller releases pOutputToken with gssp_release_buffer, also on
 * GSS_S_COMPLETE, which may still bring a token to send; it is not written by a call that fails before the token is
 * built, and empty after one that fails later. A context made by a call that then fails stays in the handle; the
 * caller deletes it.
 * GSS_S_CONTINUE_NEEDED comes with 0x230003E9. Failures: 0x02080000 with 0xE30003FF (null ppContextHandle), 0x020D0000
 * with 0xE30003FA (null pOutputToken), else the status of the failing step: GSS_S_FAILURE with 0xE3000406 when no
 * mechanism is left, 0xE3000411 when the peer names one that is not established here (GSS_S_COMPLETE and results are
 * never given for such a one), 0xE30003F9 for memory, a 0xE10000F. code or another of QXNEGO's for a defective token.
 */
QXNEGO_API OM_uint32 QXNEGO_init_sec_context(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pInitiatorCredHandle,
                                             qxgss_ctx_id_t *ppContextHandle, const qxgss_name_t pTargetName,
                                             const qxgss_OID pMechType, OM_uint32 ReqFlags, OM_uint32 TimeReq,
                                             const qxgss_channel_bindings_t pInputChanBindings,
                                             const qxgss_buffer_t pInputToken, qxgss_OID *ppActualMechType,
                                             qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec);

/* One call of the server (RFC 2744 5.1), with the client's last token; conventions as above. On GSS_S_COMPLETE the
 * caller owns *ppSrcName (gssp_release_name) and *ppDelegatedCredHandle (a credential of the selected mechanism).
 * A failing lookup of the user's policy passes its own status on. */
QXNEGO_API OM_uint32 QXNEGO_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                               const qxgss_cred_id_t pAcceptorCredHandle,
                                               const qxgss_buffer_t pInputToken,
                                               const qxgss_channel_bindings_t pInputChanBindings,
                                               qxgss_name_t *ppSrcName, qxgss_OID *ppMechType,
                                               qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec,
                                               qxgss_cred_id_t *ppDelegatedCredHandle);

/* Releases a context with everything under it (RFC 2744 5.9); the handle becomes null also when a mechanism's release
 * failed, whose status is then returned. pOutputToken, when given, becomes empty. 0x02080000 for a null
 * ppContextHandle and 0x01080000 for one that holds none, both with 0xE30003FF. */
QXNEGO_API OM_uint32 QXNEGO_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                               qxgss_buffer_t pOutputToken);

/* Facts about a context (RFC 2744 5.20): the selected mechanism's answer once the negotiation is complete, before that
 * QXNEGO's own (indefinite lifetime, flags 0x30, not open; the names are then not written). 0x01080000 with 0xE30003F7
 * for a null handle, GSS_S_FAILURE with 0xE30003F2 when the mechanism has no such call, with 0xE3000400 for a context
 * whose selection is out of range; else the mechanism's failure. */
QXNEGO_API OM_uint32 QXNEGO_inquire_context(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                            qxgss_name_t *ppSourceName, qxgss_name_t *ppTargetName,
                                            OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType, OM_uint32 *pCtxFlags,
                                            int *pLocallyInitiated, int *pOpen);

/* ---- Credentials ------------------------------------------------------------------------------------------------ */

/* Records what is wanted (RFC 2744 5.2); the mechanisms' own credentials are acquired with each context. pDesiredMechs
 * restricts nothing: who wants certain mechanisms only looks at the type of the one selected.
 * pDesiredName carries a logon string, may be null; it is copied, as UTF-8. TimeReq is in seconds. The caller releases
 * *ppOutputCredHandle with QXNEGO_release_cred and *ppActualMechs with gssp_release_oid_set.
 * 0x02070000 with 0xE30003FC (null output), GSS_S_FAILURE with 0xE30003F5 (name type), GSS_S_NO_CRED with 0xE30003FD
 * (usage), GSS_S_FAILURE with 0xE30003F9 or the framework's minor status. */
QXNEGO_API OM_uint32 QXNEGO_acquire_cred(OM_uint32 *pMinorStatus, const qxgss_name_t pDesiredName, OM_uint32 TimeReq,
                                         const qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage,
                                         qxgss_cred_id_t *ppOutputCredHandle, qxgss_OID_set *ppActualMechs,
                                         OM_uint32 *pTimeRec);

/* Frees a credential (RFC 2744 5.27) and clears the handle, also when a release fails, whose status is then returned.
 * 0x02070000 for a null pointer, 0x01070000 for a null handle, both with 0xE30003FC. */
QXNEGO_API OM_uint32 QXNEGO_release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle);

/* What was recorded (RFC 2744 5.21); the caller owns the name and the set. GSS_S_NO_CRED with 0xE30003FC and cleared
 * outputs for a null handle; GSS_S_DEFECTIVE_CREDENTIAL with the framework's minor status when a copy fails. */
QXNEGO_API OM_uint32 QXNEGO_inquire_cred(OM_uint32 *pMinorStatus, const qxgss_cred_id_t pCredHandle,
                                         qxgss_name_t *ppName, OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage,
                                         qxgss_OID_set *ppMechanisms);

/* ---- Per-message calls and conversions -------------------------------------------------------------------------- */

/* The selected mechanism's operation (RFC 2744 5.33 wrap, 5.31 unwrap, 5.15 get_mic, 5.32 verify_mic), unchanged in
 * both directions: tokens, statuses, quality of protection. Valid once this side's establishment has returned
 * GSS_S_COMPLETE, and until it is called again. Checked before it, in this order: 0x020D0000 with 0xE30003FA (null
 * output buffer), 0x01080000 with 0xE30003FF (null context), 0x010D0000 with 0xE3000402 (input missing), GSS_S_FAILURE
 * with 0xE3000414 (nothing selected yet), GSS_S_UNAVAILABLE with 0xE1000067 (the mechanism has no such operation). The
 * caller releases output buffers. */
QXNEGO_API OM_uint32 QXNEGO_wrap(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                                 qxgss_qop_t QopReq, const qxgss_buffer_t pInputMessageBuffer, int *pConfState,
                                 qxgss_buffer_t pOutputMessageBuffer);
QXNEGO_API OM_uint32 QXNEGO_unwrap(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                   const qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer,
                                   int *pConfState, qxgss_qop_t *pQopState);
QXNEGO_API OM_uint32 QXNEGO_get_mic(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle, qxgss_qop_t QopReq,
                                    const qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer);
QXNEGO_API OM_uint32 QXNEGO_verify_mic(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                       const qxgss_buffer_t pMessageBuffer, const qxgss_buffer_t pTokenBuffer,
                                       qxgss_qop_t *pQopState);

/* The largest message, in bytes, whose wrapping is at most ReqOutputSize bytes (RFC 2744 5.34). 0x01080000 with
 * 0xE30003F6 (null context), 0x02000000 with 0xE30003F7 (null output), GSS_S_NO_CONTEXT with 0xE3000401 (not complete),
 * GSS_S_FAILURE with 0xE3000400 (selection out of range) or 0xE30003F2 (no such operation), else the mechanism's
 * failure. */
QXNEGO_API OM_uint32 QXNEGO_wrap_size_limit(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                            int ConfReqFlag, qxgss_qop_t QopReq, OM_uint32 ReqOutputSize,
                                            OM_uint32 *pMaxInputSize);

/* Always succeeds and touches neither the context nor the outputs. */
QXNEGO_API OM_uint32 QXNEGO_get_client_domain_username(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                                       char **psUserName, char **psDomain);

/* Not implemented: GSS_S_UNAVAILABLE with 0xE30003F2. */
QXNEGO_API OM_uint32 QXNEGO_qop_string_to_int(OM_uint32 *pMinorStatus, const qxgss_OID pMechTypeOid,
                                              const qxgss_buffer_t pQopValueBuffer, qxgss_qop_t *pQopValueInt);
QXNEGO_API OM_uint32 QXNEGO_qop_int_to_string(OM_uint32 *pMinorStatus, const qxgss_OID pMechTypeOid,
                                              qxgss_qop_t QopValueInt, qxgss_buffer_t pQopValueBuffer);

/* ---- What became of it --------------------------------------------------------------------------------------------
 */

/* What is known of a negotiation, and of mechanism `Number` of it in order of preference; also of one that goes on or
 * has failed. What the records point to belongs to the context and stays until its next call. 0x01080000 (null context)
 * and 0x020D0000 (null record), both with 0xE30003F7; GSS_S_UNAVAILABLE with 0xE3000414 for a number at or beyond the
 * count. */
QXNEGO_API OM_uint32 QXNEGO_inquire_negotiation(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                                qxgss_negotiation_desc *pNegotiation);
QXNEGO_API OM_uint32 QXNEGO_inquire_negotiated_mech(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                                    OM_uint32 Number, qxgss_negotiated_mech_desc *pMech);

/* Why the mechanism of that index in the registry is not negotiated: a constant text, null when it is. 0x020D0000 with
 * 0xE30003F7 (null ppszWhyNot); GSS_S_UNAVAILABLE with 0xE3000406 when QXNEGO is not registered. */
QXNEGO_API OM_uint32 QXNEGO_inquire_candidate(OM_uint32 *pMinorStatus, OM_sint32 MechIndex, const char **ppszWhyNot);

/* ---- User properties and status texts --------------------------------------------------------------------------- */

/* The user's properties as tagged records (layout: qxgss/qxgss_records.h): the selected mechanism's own, whether the
 * server's policy was applied, and the negotiation log as text; before completion the last two only. The caller
 * releases the buffer with gssp_release_buffer. 0x01080000 (null context) and 0x020D0000 (null buffer), both with
 * 0xE30003F7; else the failing step's status, the buffer then empty. */
QXNEGO_API OM_uint32 QXNEGO_inquire_properties_for_user(OM_uint32 *pMinorStatus, const qxgss_ctx_id_t pContextHandle,
                                                        qxgss_buffer_t pUserPropBuffer);

/* Text of one of QXNEGO's minor statuses (RFC 2744 5.11); the caller releases it. 0x010D0000 with 0x230003E8 (null
 * pMechType), GSS_S_FAILURE with the framework's minor status (QXNEGO not registered), GSS_S_BAD_MECH with 0xE30003F4,
 * GSS_S_BAD_STATUS with 0xE30003F4 (StatusType is not GSS_C_MECH_CODE) or 0xA3000403 (no such status), GSS_S_FAILURE
 * with 0xE30003FA (null pStatusString) or 0xE30003F8 (memory). */
QXNEGO_API OM_uint32 QXNEGO_display_status(OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType,
                                           const qxgss_OID pMechType, OM_uint32 *pMessageContext,
                                           qxgss_buffer_t pStatusString);

#ifdef __cplusplus
}
#endif

#endif
