/* The logon-data module: the logon string parser, and the writers of user-properties records from directory data.
 *
 * Every output string is a separate text on the C heap, owned by the caller (free). Success is minor status
 * 0x21000064. */
#ifndef QXAT_QXATLDAPAUTHORIZE_H
#define QXAT_QXATLDAPAUTHORIZE_H

#include "qxgss/gssp.h"
#include "qxgss/qxatlogon.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Logon strings (logon_string.cpp) --------------------------------------------------------------------------- */

/* Splits a logon string, "KEYWORD=VALUE" items separated by blanks, optionally a principal as the first item.
 *
 * Keywords, without regard to case: authcid, password, realm, authzid, mech, user, profile, userproperties
 * (encuserprops). A value that holds blanks or commas is quoted with ' or "; the quote itself is doubled inside. A
 * comma where an item would begin ends the list. An output may be null: its values are read and dropped. With
 * QXAT_FLAG_UNESCAPE_ALL the principal is parsed into authcid ("USER" or "USER@REALM") and password; with
 * QXAT_FLAG_UNESCAPE_PASSWORD it is split at its last "@@" into the two; otherwise it is only returned as upn.
 * GSS_S_FAILURE with 0xE3000424 (leading field), 0xE3000427/8/9 (second authcid, user, profile), 0xE300042A (unknown
 * item, bad principal, memory); every output is then null, and what was made is wiped. */
OM_uint32 qxat_parse_logon(OM_uint32 *pMinorStatus, const char *input, char **upn, char **authcid, char **password,
                           char **realm, char **authzid, char **mech, char **user, char **profile,
                           char **encuserprops, qxat_flags_t f);

/* Reads one value from `in` into `s`, which has room for all of `in` and a NUL; where the next item begins, or null
 * when `in` is used up. `s` is not written when nothing but white space is left. */
const char *GetString(const char *in, char *s);

/* Compares at most n bytes without regard to case, as the current locale lower-cases them: 0, or the difference of the
 * lower-cased bytes as signed 8-bit values at the first difference. */
int qxat_strnicmp(const char *s1, const char *s2, size_t n);

/* Compares whole strings likewise: 0, 1 or -1. */
int qxat_stricmp(const char *s1, const char *s2);

#ifdef __cplusplus
}
#endif

#endif
