/* The logon-data module: the logon string parser, and the writers of user-properties records from directory data.
 *
 * Every output string is a separate text on the C heap, owned by the caller (free). Success is minor status
 * 0x21000064. For mechanisms: libqxgss exports it. */
#ifndef QXAT_QXATLDAPAUTHORIZE_H
#define QXAT_QXATLDAPAUTHORIZE_H

#include "qxgss/gssp.h"
#include "qxgss/qxatlogon.h"
#include "qxgss/qxgss_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Minor statuses of this module; their texts are QXNEGO's (QXNEGO_display_status). */
#define QXAT_E_INVALID_INPUT 0xE30003F6U
#define QXAT_E_MALLOC 0xE30003F8U
#define QXAT_E_CALLOC 0xE30003F9U
#define QXAT_E_LOGON_SYNTAX 0xE3000424U
#define QXAT_E_LOGON_AUTHCIDS 0xE3000427U
#define QXAT_E_LOGON_USERS 0xE3000428U
#define QXAT_E_LOGON_PROFILES 0xE3000429U
#define QXAT_E_LOGON_PROPERTY 0xE300042AU

/* ---- Logon strings (logon_string.cpp) --------------------------------------------------------------------------- */

/* Splits a logon string, "KEYWORD=VALUE" items separated by blanks, optionally a principal as the first item.
 *
 * Keywords, without regard to case: authcid, password, realm, authzid, mech, user, profile, userproperties
 * (encuserprops). A value that holds blanks or commas is quoted with ' or "; the quote itself is doubled inside. A
 * comma where an item would begin ends the list. An output may be null: its values are read and dropped. With
 * QXAT_FLAG_UNESCAPE_ALL the principal is parsed into authcid ("USER" or "USER@REALM") and password; with
 * QXAT_FLAG_UNESCAPE_PASSWORD it is split at its last "@@" into the two; otherwise it is only returned as upn.
 * A value that is only white space up to the end is empty. GSS_S_FAILURE with LOGON_SYNTAX (leading field),
 * LOGON_AUTHCIDS, LOGON_USERS, LOGON_PROFILES (second one), LOGON_PROPERTY (unknown item, bad principal, no memory for
 * a principal's parts), CALLOC (no memory for another value), 0xE10000CD (null input); every output is then null, and
 * what was made is wiped. */
QXGSS_API OM_uint32 qxat_parse_logon(OM_uint32 *pMinorStatus, const char *input, char **upn, char **authcid,
                                     char **password, char **realm, char **authzid, char **mech, char **user,
                                     char **profile, char **encuserprops, qxat_flags_t f);

/* Compares at most n bytes without regard to case, as the current locale lower-cases them: 0, or the difference of the
 * lower-cased bytes (0 to 255, so that 0x80 and above order behind ASCII) at the first difference or at the end of the
 * shorter string. */
QXGSS_API int qxat_strnicmp(const char *s1, const char *s2, size_t n);

/* Compares whole strings likewise, but the lower-cased bytes order as signed 8-bit values (0x80 and above before ASCII
 * and the end of a string): 0, 1 or -1. */
QXGSS_API int qxat_stricmp(const char *s1, const char *s2);

/* ---- Directory authorization data (directory_records.cpp) ------------------------------------------------------- */

typedef char *qxs_name_t;           /* a heap string */
typedef qxs_name_t *qxs_namelist_t; /* ended by a null entry; a null list is empty */

typedef enum qxs_authorizeas_e {
    QXS_AUTHZ_ILLEGAL = -1,
    QXS_AUTHZ_DEFAULT = 0,
    QXS_AUTHZ_NONE = 1,
    QXS_AUTHZ_USER = 2,
    QXS_AUTHZ_SERVICE = 3
} qxs_authorizeas_t;

typedef enum qxs_authtype_e { QXS_AUTHTYPE_LEGACY = 0, QXS_AUTHTYPE_LIGHTWEIGHT = 1 } qxs_authtype_t;

/* What a directory says about a user. */
typedef struct qxs_authorizations_struct {
    qxs_authorizeas_t ta_authorizeas;
    char *ta_service;
    char *ta_userfqdn;
    char *ta_ldapurl;      /* required */
    char *ta_databasename; /* required */
    qxs_namelist_t ta_roles;
    qxs_namelist_t ta_profile;
    qxs_namelist_t ta_user; /* the database users the user may log on as; "extuser" stands for none of them */
    qxs_authtype_t ta_authtype;
} qxs_authorizations_t;

/* Writes a user-properties buffer (qxgss/qxgss_records.h), which the caller releases. domain, desired_user and
 * desired_profile may be null; takes "extuser" out of authz->ta_user. GSS_S_FAILURE with 0xE10000CD (something required
 * is null), MALLOC, or 0: a user or profile that is requested but not allowed, or not requested but ambiguous, or a
 * text too long for its record. The buffer is then empty. */
QXGSS_API OM_uint32 qxat_fill_authorizations(OM_uint32 *pMinorStatus, qxgss_buffer_t props, const char *authcid,
                                             const char *domain, qxs_authorizations_t *authz, const char *desired_user,
                                             const char *desired_profile, unsigned fill_service);

/* Writes the records that are to follow `props` (may be null or empty): the mechanism's name, its OID as text and in
 * DER. Sets *authenticated (one byte) in the attributes records of `props`, or in a new one before those three. The
 * caller releases newprops. GSS_S_FAILURE with INVALID_INPUT (null newprops, authenticated or mechoid), MALLOC, 0 (a
 * text too long for its record) or the framework's minor status. */
QXGSS_API OM_uint32 qxat_fill_mechinfo(OM_uint32 *pMinorStatus, qxgss_buffer_t props, qxgss_buffer_t newprops,
                                       const unsigned char *authenticated, qxgss_OID mechoid);

/* Writes a whole user-properties buffer, which the caller releases, for a user whom the mechanism has authenticated:
 * the name (`length` bytes of UTF-8), attributes that say so, and the mechanism as above. GSS_S_FAILURE with MALLOC, 0
 * (a text too long for its record) or the framework's minor status for a mechanism that it does not know; the buffer is
 * then as it was, or empty. */
QXGSS_API OM_uint32 qxat_describe_user(OM_uint32 *pMinorStatus, const char *user, size_t length, qxgss_OID mechoid,
                                       qxgss_buffer_t props);

/* Refuses, with LOGON_PROPERTY, a logon string in which "authcid=" or "password=" occurs (case matters). */
QXGSS_API OM_uint32 qxat_validate_kerberos_logdata(OM_uint32 *pMinorStatus, const char *pLogdata);

#ifdef __cplusplus
}
#endif

#endif
