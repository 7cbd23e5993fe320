// The adapter that serves the host's own GSS-API mechanisms (Kerberos, NTLMSSP, whatever the host has installed) to the
// framework: one library and one symbol prefix for all of them, one registry entry a mechanism OID.
//
// Arguments as in RFC 2744 for the call of the same name; the framework finds the operations by their names. Null
// pointers are refused, or leave out the result. Success is minor status 0x21000064; the minor status of a failure is
// the host's, or one of the framework's where the host was not asked. Flags, lifetimes, channel bindings and qualities
// of protection pass through both ways. Every block is on the C heap.
//
// GSS_S_BAD_MECH: no mechanism of the registry that is in use with this library, or not the credential's or the
// context's. GSS_S_NO_CONTEXT: there is no context, or not one that the call can go on with; every call but
// inquire_context and delete_sec_context needs an established one.
#ifndef HOSTGSS_HOSTGSS_H
#define HOSTGSS_HOSTGSS_H

#include "qxgss/gssp.h"
#include "qxgss/operations.h"

extern "C" {

// ---- configure.cpp

// Fails with 0xA100012B, and says why in the message buffer, when the host has no mechanism for the entry's OID; when
// that is the host's own negotiator (1.3.6.1.5.5.2); when the setting "accept" is neither "yes" nor "no", or
// "accept_limit" no number from 1 to 4294967295; and, in a server, when the mechanism is not accepted. Kerberos is
// unless "accept" is "no", any other only if it is "yes". In a server the message also says what accepting NTLM costs,
// and which of the files with secrets others can open.
QXGSS_API OM_uint32 HOSTGSS_configure(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, qxgss_buffer_t pLibPathBuf,
                                      qxgss_buffer_t pConfigInfoBuf);

// The mechanisms that the host has, configured here or not. The caller releases the set, as those below.
QXGSS_API OM_uint32 HOSTGSS_indicate_mechs(OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet);

// The name types of logon texts, and the host-based service. GSS_S_BAD_MECH for a mechanism that the host lacks.
QXGSS_API OM_uint32 HOSTGSS_inquire_names_for_mech(OM_uint32 *pMinorStatus, qxgss_OID pMechanism,
                                                   qxgss_OID_set *ppNameTypes);

// ---- credentials.cpp

// For exactly one mechanism (else GSS_S_BAD_MECH). The desired name is a logon string in UTF-8, whatever text type it
// has: identity and password ("authcid=joe realm=R password=p", "joe@R@@p"), or an identity alone, which is looked up
// in the ticket cache or what else the mechanism has; without an identity, and for a null name, the default credential.
// An acceptor takes no password; it finds its keys in the file that the mechanism's setting "keytab_file" names,
// else in the host's default key table, and is named by a service (names.h). GSS_S_BAD_NAME with the parser's minor
// status for a wrong logon string, with 0xE10000CD for a password without identity. GSS_S_NO_CRED to accept with a
// mechanism that is not accepted, whatever the process is.
//
// The name may have more elements, texts "KEY=VALUE" that say where Kerberos finds what it needs, instead of the host's
// defaults: "keytab" of an acceptor; "client_keytab" and "ccache" of an initiator without a password; "credential",
// whose value is the handle, in its bytes, of an initiator's credential that a context here was delegated: a copy is
// made. GSS_S_NO_CRED for another mechanism when the tickets are to come from one of the last three.
QXGSS_API OM_uint32 HOSTGSS_acquire_cred(OM_uint32 *pMinorStatus, qxgss_name_t pDesiredName, OM_uint32 TimeReq,
                                         qxgss_OID_set pDesiredMechs, qxgss_cred_usage_t CredUsage,
                                         qxgss_cred_id_t *ppOutputCredHandle, qxgss_OID_set *ppActualMechs,
                                         OM_uint32 *pTimeRec);
QXGSS_API OM_uint32 HOSTGSS_release_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t *ppCredHandle);

// A null handle is the host's default credential. The name is null when the credential has none.
QXGSS_API OM_uint32 HOSTGSS_inquire_cred(OM_uint32 *pMinorStatus, qxgss_cred_id_t pCredHandle, qxgss_name_t *ppName,
                                         OM_uint32 *pLifetimeRec, qxgss_cred_usage_t *pCredUsage,
                                         qxgss_OID_set *ppMechanisms);

// ---- establish.cpp

// A failed call hands out nothing but the token, if the host has one for the peer, and no token either where the host
// was not asked or its success does not count (for lack of memory, for one). A first call that fails leaves no context,
// a later one a context that can only be inquired and deleted.
//
// NTLM messages are looked at before the host's library sees them (ntlm.h): GSS_S_DEFECTIVE_TOKEN.

// Needs a target name (GSS_S_BAD_NAME) and a mechanism (GSS_S_BAD_MECH). The actual mechanism is the registry's OID.
QXGSS_API OM_uint32 HOSTGSS_init_sec_context(OM_uint32 *pMinorStatus, qxgss_cred_id_t pInitiatorCredHandle,
                                             qxgss_ctx_id_t *ppContextHandle, qxgss_name_t pTargetName,
                                             qxgss_OID pMechType, OM_uint32 ReqFlags, OM_uint32 TimeReq,
                                             qxgss_channel_bindings_t pInputChanBindings, qxgss_buffer_t pInputToken,
                                             qxgss_OID *ppActualMechType, qxgss_buffer_t pOutputToken,
                                             OM_uint32 *pRetFlags, OM_uint32 *pTimeRec);

// The mechanism is the token's, and must be one that is accepted and that the credential is for; without a credential
// the mechanism's default one is used. GSS_S_NO_CRED for a credential that cannot accept, GSS_S_DEFECTIVE_TOKEN for an
// empty token. The actual mechanism is the registry's OID.
//
// The source name is the peer's one name, here and in every inquiry: Kerberos's principal as the host displays it;
// NTLM's account as "DOMAIN\user" in the spelling of the server's user file, however the client has spelled it, or
// GSS_S_UNAUTHORIZED when several accounts could be meant (ntlm.h).
//
// NTLM logons are counted for the life of the process, when their last message goes to the host's library; from the
// number of the setting "accept_limit" on (256 without it) they are refused with GSS_S_FAILURE.
QXGSS_API OM_uint32 HOSTGSS_accept_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                               qxgss_cred_id_t pAcceptorCredHandle, qxgss_buffer_t pInputToken,
                                               qxgss_channel_bindings_t pInputChanBindings, qxgss_name_t *ppSrcName,
                                               qxgss_OID *ppMechType, qxgss_buffer_t pOutputToken, OM_uint32 *pRetFlags,
                                               OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegatedCredHandle);
QXGSS_API OM_uint32 HOSTGSS_delete_sec_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *ppContextHandle,
                                               qxgss_buffer_t pOutputToken);
QXGSS_API OM_uint32 HOSTGSS_inquire_context(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                            qxgss_name_t *ppSourceName, qxgss_name_t *ppTargetName,
                                            OM_uint32 *pLifetimeRec, qxgss_OID *ppMechType, OM_uint32 *pCtxFlags,
                                            int *pLocallyInitiated, int *pOpen);

// ---- messages.cpp

// GSS_S_FAILURE on a context whose flags promise no protection: for MICs integrity, for the others that or
// confidentiality. Results are only those of a success. The message and the token that are read stay as they are.

QXGSS_API OM_uint32 HOSTGSS_wrap_size_limit(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                                            qxgss_qop_t QopReq, OM_uint32 ReqOutputSize, OM_uint32 *pMaxInputSize);
QXGSS_API OM_uint32 HOSTGSS_wrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, int ConfReqFlag,
                                 qxgss_qop_t QopReq, qxgss_buffer_t pInputMessageBuffer, int *pConfState,
                                 qxgss_buffer_t pOutputMessageBuffer);
QXGSS_API OM_uint32 HOSTGSS_unwrap(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                   qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer,
                                   int *pConfState, qxgss_qop_t *pQopState);
QXGSS_API OM_uint32 HOSTGSS_get_mic(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, qxgss_qop_t QopReq,
                                    qxgss_buffer_t pInputMessageBuffer, qxgss_buffer_t pOutputMessageBuffer);
QXGSS_API OM_uint32 HOSTGSS_verify_mic(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                       qxgss_buffer_t pMessageBuffer, qxgss_buffer_t pTokenBuffer,
                                       qxgss_qop_t *pQopState);

// ---- user.cpp

// User and domain of the context's source name: "DOMAIN\user" or "user@DOMAIN". Both are strings that the caller
// frees; the domain is null for a name without one.
QXGSS_API OM_uint32 HOSTGSS_get_client_domain_username(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                                       char **psUserName, char **psDomain);

// Records of the user's name (9), and of the mechanism's name (15) and OID as a string (16) and in DER (17), in the
// layout of qxgss/qxgss_records.h. The name is that of the context's source. 0xE1000092 when the mechanism is not
// registered or a text does not fit a record.
QXGSS_API OM_uint32 HOSTGSS_inquire_properties_for_user(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                                        qxgss_buffer_t pUserPropBuffer);

// ---- status.cpp

// The whole text at once. A minor status of the calling thread's last failed call is preceded by the text of that
// call's major status; the host keeps its detailed texts by thread, too, so ask on the thread of the failed call.
QXGSS_API OM_uint32 HOSTGSS_display_status(OM_uint32 *pMinorStatus, OM_uint32 StatusValue, int StatusType,
                                           qxgss_OID pMechType, OM_uint32 *pMessageContext,
                                           qxgss_buffer_t pStatusString);
}

QXGSS_DECLARE_OPERATIONS(HOSTGSS)

#endif
