/* The framework's logon-data operations: principals, split into user, realm and password.
 *
 * C header. A text is a list of logon items separated by commas; an item is
 *
 *     USER [ "@" REALM ] [ "@@" PASSWORD ]
 *
 * The last "@@" begins the password and the last "@" before it the realm. A backslash before one of \ @ , ' " and
 * blank makes that character an ordinary one of its part; before any other character it stands for itself. */
#ifndef QXGSS_QXATLOGON_H
#define QXGSS_QXATLOGON_H

#include "qxgss.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum qxat_flags_e {
    QXAT_FLAG_NONE = 0,
    QXAT_FLAG_UNESCAPE_USER = 1,
    QXAT_FLAG_UNESCAPE_PASSWORD = 2,
    QXAT_FLAG_UNESCAPE_REALM = 4,
    QXAT_FLAG_UNESCAPE_ALL = 7
} qxat_flags_t;

/* A NUL-terminated text: `kb_length` bytes without the NUL, `kb_characters` characters of UTF-8. */
typedef struct qxat_buffer_struct {
    char *kb_value;
    size_t kb_length;
    size_t kb_characters;
} qxat_buffer_desc, *qxat_buffer_t;

typedef struct qxat_logon_struct *qxat_logon_t;

/* Parses a text; null when an item has no user, or memory is lacking. The parts that the flags name are unescaped. */
QXGSS_API qxat_logon_t qxat_parse(const char *pszText, qxat_flags_t Flags);

/* Number of logon items, at least 1; 0 for null. */
QXGSS_API int qxat_get_count(qxat_logon_t Logon);

/* The parts of an item; null when the item has none, which is another thing than an empty realm ("joe@") or password
 * ("joe@@"). They stay valid until qxat_free, which wipes them. */
QXGSS_API qxat_buffer_t qxat_get_user(qxat_logon_t Logon, int Item);
QXGSS_API qxat_buffer_t qxat_get_realm(qxat_logon_t Logon, int Item);
QXGSS_API qxat_buffer_t qxat_get_password(qxat_logon_t Logon, int Item);

/* Unescapes a text in place; `kb_value` (a heap string) may be replaced by another. Updates both lengths. */
QXGSS_API void qxat_unescape(qxat_buffer_t Buffer);

/* Wipes and frees; null is no error. */
QXGSS_API void qxat_free(qxat_logon_t Logon);

#ifdef __cplusplus
}
#endif

#endif
