/* The QXGSS framework: types, statuses and flags, and the calls an application starts with.
 *
 * C header. Statuses, flags and argument orders are those of RFC 2744. Every call accepts a null minor-status
 * pointer; success is minor status 0x21000064; all memory that crosses this interface is the C heap's.
 *
 * The host's <gssapi/gssapi.h> may be included, too, before or after: names that both headers define have the same
 * values, and where they are not the same thing (GSS_C_NT_HOSTBASED_SERVICE) such a program means the host's. */
#ifndef QXGSS_QXGSS_H
#define QXGSS_QXGSS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QXGSS_API __attribute__((visibility("default")))
#else
#define QXGSS_API
#endif

typedef uint32_t OM_uint32;
typedef int32_t OM_sint32;
typedef uint64_t OM_uint64;

/* Bytes: `length` of them at `value`. An empty buffer has length 0 and no value. */
typedef struct qxgss_buffer_desc_struct {
    size_t length;
    void *value;
} qxgss_buffer_desc, *qxgss_buffer_t;

/* The DER contents octets of an object identifier (X.690 8.19), without identifier and length octets. */
typedef struct qxgss_OID_desc_struct {
    OM_uint32 length;
    void *elements;
} qxgss_OID_desc, *qxgss_OID;

typedef struct qxgss_OID_set_desc_struct {
    size_t count;
    qxgss_OID elements;
} qxgss_OID_set_desc, *qxgss_OID_set;

typedef struct qxgss_name_element_desc_struct {
    qxgss_OID pNameType;
    qxgss_buffer_desc Name;
} qxgss_name_element_desc, *qxgss_name_element_t;

/* A framework name: `Count` elements and a pointer for the framework. The first element is the name; the others are
 * for mechanisms that know what to make of them. */
typedef struct qxgss_name_desc_struct {
    OM_uint32 Count;
    qxgss_name_element_t pElements;
    void *pGssName;
} qxgss_name_desc, *qxgss_name_t;

/* Handles of some mechanism: only the mechanism that made one knows what it points to. */
typedef void *qxgss_cred_id_t;
typedef void *qxgss_ctx_id_t;

typedef OM_uint32 qxgss_qop_t;
typedef int qxgss_cred_usage_t;

/* RFC 2744 3.11 */
typedef struct qxgss_channel_bindings_struct {
    OM_uint32 initiator_addrtype;
    qxgss_buffer_desc initiator_address;
    OM_uint32 acceptor_addrtype;
    qxgss_buffer_desc acceptor_address;
    qxgss_buffer_desc application_data;
} qxgss_channel_bindings_desc, *qxgss_channel_bindings_t;

#define QXGSS_C_NO_CREDENTIAL ((qxgss_cred_id_t)0)
#define QXGSS_C_NO_CONTEXT ((qxgss_ctx_id_t)0)
#define QXGSS_C_NO_NAME ((qxgss_name_t)0)
#define QXGSS_C_NO_CHANNEL_BINDINGS ((qxgss_channel_bindings_t)0)

#ifndef GSS_S_COMPLETE /* the host's header has not defined them all */

/* Context flags (RFC 2744 5.19) */
#define GSS_C_DELEG_FLAG 1U
#define GSS_C_MUTUAL_FLAG 2U
#define GSS_C_REPLAY_FLAG 4U
#define GSS_C_SEQUENCE_FLAG 8U
#define GSS_C_CONF_FLAG 16U
#define GSS_C_INTEG_FLAG 32U
#define GSS_C_ANON_FLAG 64U
#define GSS_C_PROT_READY_FLAG 128U
#define GSS_C_TRANS_FLAG 256U

/* Credential usage (RFC 2744 5.2) */
#define GSS_C_BOTH 0
#define GSS_C_INITIATE 1
#define GSS_C_ACCEPT 2

/* Status types (RFC 2744 5.11) */
#define GSS_C_GSS_CODE 1
#define GSS_C_MECH_CODE 2

#define GSS_C_INDEFINITE 0xFFFFFFFFU

/* Major statuses (RFC 2744 3.9.1): calling errors in bits 31-24, routine errors in 23-16, supplementary in 15-0. */
#define GSS_S_COMPLETE 0x00000000U

#define GSS_S_CALL_INACCESSIBLE_READ 0x01000000U
#define GSS_S_CALL_INACCESSIBLE_WRITE 0x02000000U
#define GSS_S_CALL_BAD_STRUCTURE 0x03000000U

#define GSS_S_BAD_MECH 0x00010000U
#define GSS_S_BAD_NAME 0x00020000U
#define GSS_S_BAD_NAMETYPE 0x00030000U
#define GSS_S_BAD_BINDINGS 0x00040000U
#define GSS_S_BAD_STATUS 0x00050000U
#define GSS_S_BAD_SIG 0x00060000U
#define GSS_S_BAD_MIC GSS_S_BAD_SIG
#define GSS_S_NO_CRED 0x00070000U
#define GSS_S_NO_CONTEXT 0x00080000U
#define GSS_S_DEFECTIVE_TOKEN 0x00090000U
#define GSS_S_DEFECTIVE_CREDENTIAL 0x000A0000U
#define GSS_S_CREDENTIALS_EXPIRED 0x000B0000U
#define GSS_S_CONTEXT_EXPIRED 0x000C0000U
#define GSS_S_FAILURE 0x000D0000U
#define GSS_S_BAD_QOP 0x000E0000U
#define GSS_S_UNAUTHORIZED 0x000F0000U
#define GSS_S_UNAVAILABLE 0x00100000U
#define GSS_S_DUPLICATE_ELEMENT 0x00110000U
#define GSS_S_NAME_NOT_MN 0x00120000U

#define GSS_S_CONTINUE_NEEDED 0x00000001U
#define GSS_S_DUPLICATE_TOKEN 0x00000002U
#define GSS_S_OLD_TOKEN 0x00000004U
#define GSS_S_UNSEQ_TOKEN 0x00000008U
#define GSS_S_GAP_TOKEN 0x00000010U

/* A major status is a failure when it carries a calling or a routine error; supplementary bits are none. */
#define GSS_ERROR(major) ((major)&0xFFFF0000U)

#endif

/* Name types: logon data as plain text and in the UTF encodings (host byte order), and RFC 2744 4.1 host-based. */
extern QXGSS_API qxgss_OID GSS_C_NT_QXAT_MECHDATA;
extern QXGSS_API qxgss_OID GSS_C_NT_QXAT_MECHDATA_UTF8;
extern QXGSS_API qxgss_OID GSS_C_NT_QXAT_MECHDATA_UTF16;
extern QXGSS_API qxgss_OID GSS_C_NT_QXAT_MECHDATA_UTF32;
extern QXGSS_API qxgss_OID QXGSS_C_NT_HOSTBASED_SERVICE;

/* The last one's name in RFC 2744. Once the host's header is there, the macro that guards it is defined, and empty: what
 * is pasted here is then the name itself, which is the host's variable. */
#ifndef GSS_C_NT_HOSTBASED_SERVICE
#define QXGSS_PASTE(a, b) a##b
#define QXGSS_PASTE_EXPANDED(a, b) QXGSS_PASTE(a, b)
#define GSS_C_NT_HOSTBASED_SERVICE_GSSAPI_H_ QXGSS_C_NT_HOSTBASED_SERVICE
#define GSS_C_NT_HOSTBASED_SERVICE QXGSS_PASTE_EXPANDED(GSS_C_NT_HOSTBASED_SERVICE, _GSSAPI_H_)
#endif

/* What a process is; the framework hands it to each mechanism's configure operation. */
#define QXGSS_CLIENT 1U
#define QXGSS_SERVER 2U

/* Reads the configuration file, loads every mechanism it names and configures them. Once per process, before
 * anything else; a second call fails with 0xE1000094 and changes nothing until qxgss_shutdown.
 *   ClientServer   QXGSS_CLIENT or QXGSS_SERVER
 *   pszConfigFile  TOML; every key is explained in qxgss.conf.sample
 *   pMessage       may be null; receives, on failure, one line "FILE:LINE: KEY: what is wrong" (or "FILE: cannot be
 *                  read: why"), and on success a line "MECHANISM: message" for each mechanism that could not be put to
 *                  use or reported something, then a line for each file or folder that others than its owner can
 *                  write, and one for each account of the policy that lacks a name of the form that a negotiable
 *                  mechanism gives (empty when there is nothing to say); the caller releases it
 * A mechanism that cannot be put to use stays in the registry with fUseMech 0 and the cause in pszMessage.
 * GSS_S_FAILURE with 0xE1000094 (already configured), 0xE1000091 (ClientServer), 0xE1000099 (no file name),
 * 0xE10000A8 (the file cannot be read or is wrong), 0xE1000096 (it names no mechanism), 0xE1000065 (memory). */
QXGSS_API OM_uint32 qxgss_configure(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, const char *pszConfigFile,
                                    qxgss_buffer_t pMessage);

/* Empties the registry and forgets the configuration; qxgss_configure may be called again. No context or credential of
 * any mechanism may be left. The libraries stay loaded, with the state that their mechanisms keep until they are
 * configured again. Always GSS_S_COMPLETE. */
QXGSS_API OM_uint32 qxgss_shutdown(OM_uint32 *pMinorStatus);

/* Makes a name of one element from a text and a name type, both copied (RFC 2744 5.16). The caller releases it with
 * gssp_release_name. GSS_S_FAILURE with 0xE1000069 when a pointer is null, 0xE1000065 when memory is lacking. */
QXGSS_API OM_uint32 qxgss_import_name(OM_uint32 *pMinorStatus, const qxgss_buffer_t pInputName,
                                      const qxgss_OID pInputNameType, qxgss_name_t *ppOutputName);

/* Frees a set of OIDs and clears the pointer; a null set is no error (RFC 2744 5.29). */
QXGSS_API OM_uint32 qxgss_release_oid_set(OM_uint32 *pMinorStatus, qxgss_OID_set *ppSet);

#ifdef __cplusplus
}
#endif

#endif
