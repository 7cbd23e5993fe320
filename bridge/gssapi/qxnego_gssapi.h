/* QXNEGO as a mechanism of the host's GSS-API library (RFC 2744): what a program may want to know that calls it there.
 * Most need nothing of this. C header; includes nothing, and goes with <gssapi/gssapi.h>. How it is installed and what
 * it does is in docs/gssapi-bridge.md.
 *
 * OIDs are octets to be put into a gss_OID_desc: gss_OID_desc oid = QXNEGO_GSS_OID(QXNEGO_GSS_MECH); */
#ifndef QXNEGO_GSSAPI_H
#define QXNEGO_GSSAPI_H

#define QXNEGO_GSS_OID(octets)                                                                                         \
    { sizeof(octets) - 1, (void *)(octets) }

/* The mechanism: 1.3.6.1.4.1.32473.1.1 */
#define QXNEGO_GSS_MECH "\x2b\x06\x01\x04\x01\x81\xfd\x59\x01\x01"

/* What gss_inquire_sec_context_by_oid tells of a context, also of one that failed, in a set of one buffer:
 *   LOG        1.3.6.1.4.1.32473.1.1.1.1   the negotiation log, as text
 *   STORY      1.3.6.1.4.1.32473.1.1.1.2   what was decided and why, as a JSON object
 *   SELECTED   1.3.6.1.4.1.32473.1.1.1.3   the name of the selected mechanism; empty before there is one
 * GSS_S_UNAVAILABLE for any other OID. A context whose first call fails is gone when the call returns: of the last one
 * in the calling thread gssspi_mech_invoke(&minor, mech, oid, &buffer) tells the same. The caller releases the buffer.
 */
#define QXNEGO_GSS_LOG "\x2b\x06\x01\x04\x01\x81\xfd\x59\x01\x01\x01\x01"
#define QXNEGO_GSS_STORY "\x2b\x06\x01\x04\x01\x81\xfd\x59\x01\x01\x01\x02"
#define QXNEGO_GSS_SELECTED "\x2b\x06\x01\x04\x01\x81\xfd\x59\x01\x01\x01\x03"

/* Keys of the store of gss_acquire_cred_from, beside "keytab", "client_keytab", "ccache" and "password" as the host's
 * Kerberos has them. Unknown keys are passed over: they may be another mechanism's.
 *   CONFIG         the framework's configuration file; a process has one, and another one is refused
 *   LOGON_FILE     a file whose first line is a logon string, qxnego(1)
 *   CONFIRMATION   "if-offered", "if-possible" or "required"; cannot make weaker what the configuration says */
#define QXNEGO_GSS_CONFIG "qxnego_config"
#define QXNEGO_GSS_LOGON_FILE "qxnego_logon_file"
#define QXNEGO_GSS_CONFIRMATION "qxnego_confirmation"

#endif
