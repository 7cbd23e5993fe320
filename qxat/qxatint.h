/* What the logon-data module is made of, for itself and its tests. */
#ifndef QXAT_QXATINT_H
#define QXAT_QXATINT_H

#include "qxat/qxatldapauthorize.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads one value from `in` into `s`, which has room for all of `in` and a NUL; where the next item begins, or null
 * when `in` is used up. `s` is not written when nothing but white space is left. */
const char *GetString(const char *in, char *s);

/* Writes one record with the string (attributes: the byte, as qxgss_Authorized) at `from`; its length, or 0 for a type
 * that it does not write, a record longer than `rem` or one that does not fit its 16-bit length. */
size_t InsertItem(void *to, qxgss_data_id_t id, const void *from, size_t rem);

/* Fills exactly `size` bytes: with the string, cut or followed by `fill`. Writes no terminator. */
void CopyString(char *to, size_t size, char fill, const char *from);

#ifdef __cplusplus
}
#endif

#endif
