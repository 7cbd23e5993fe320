/* User-properties records: tagged records laid end to end in a buffer, without count, separator or terminator.
 *
 * C header. 16-bit fields are in the host's byte order and need no alignment. A record that is written here has a
 * length that is a multiple of 4; one that is read may have any. */
#ifndef QXGSS_QXGSS_RECORDS_H
#define QXGSS_QXGSS_RECORDS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint16_t qxgss_data_id_t;
typedef uint16_t qxgss_data_length_t;

/* The first 4 bytes of every record. `qxgss_Length` is the whole record's, this header included. */
typedef struct qxat_data_header_struct {
    qxgss_data_id_t qxgss_DataId;
    qxgss_data_length_t qxgss_Length;
} qxat_data_header_t;

#define QXGSS_DATA_ID_ATTRIBUTES 8

typedef struct qxgss_data_attributes_struct {
    qxgss_data_id_t qxgss_DataId;
    qxgss_data_length_t qxgss_Length;
    uint16_t qxgss_AttributesLength; /* 1: only the first flag is filled in; 2: all of them */
    unsigned char qxgss_Authorized;  /* 0 or 1, like the next two */
    unsigned char qxgss_Authenticated;
    unsigned char qxgss_MechPolicyApplied; /* the server's policy of the user was applied in the negotiation */
    unsigned char qxgss_RFU[7];            /* zero */
} qxgss_data_attributes_t;

/* The string records: DataId, constant, type, field, and the bytes a record has beside its data (7 leave at least one
 * zero byte after the data). Texts are UTF-8; MechOidDer holds DER contents octets. */
#define QXGSS_STRING_RECORDS(ROW)                                                                                      \
    ROW(5, MECHDATA, mechdata, MechData, 6)                                                                            \
    ROW(9, USERNAME, username_utf8, UserName, 7)                                                                       \
    ROW(10, DOMAIN, domain_utf8, Domain, 7)                                                                            \
    ROW(11, AUTHUSERSTRING, authuserstring_utf8, AuthUserString, 6)                                                    \
    ROW(12, AUDITTRAIL_ID, audittrail_id_utf8, AuditTrailId, 7)                                                        \
    ROW(13, ROLE, role_utf8, Role, 7)                                                                                  \
    ROW(14, PROFILE, profile_utf8, Profile, 7)                                                                         \
    ROW(15, MECHNAME, mechname_utf8, MechName, 7)                                                                      \
    ROW(16, MECHOIDSTR, mechoidstr_utf8, MechOidStr, 7)                                                                \
    ROW(17, MECHOIDDER, mechoidder, MechOidDer, 7)                                                                     \
    ROW(19, SERVICE, service, ServiceName, 6)                                                                          \
    ROW(20, QXNEGOLOG, qxnegolog, QxnegoLog, 7)

/* The data begin in the last field and go on past the two bytes declared, which make up the smallest record. */
#define QXGSS_STRING_RECORD_TYPE(id, constant, type, field, overhead)                                                  \
    enum { QXGSS_DATA_ID_##constant = id };                                                                            \
    typedef struct qxgss_data_##type##_struct {                                                                        \
        qxgss_data_id_t qxgss_DataId;                                                                                  \
        qxgss_data_length_t qxgss_Length;                                                                              \
        uint16_t qxgss_##field##Length;                                                                                \
        unsigned char qxgss_##field[2];                                                                                \
    } qxgss_data_##type##_t;
QXGSS_STRING_RECORDS(QXGSS_STRING_RECORD_TYPE)
#undef QXGSS_STRING_RECORD_TYPE

#define QXGSS_RECORD_DATA_OFFSET 6U
#define QXGSS_RECORD_MAX_LENGTH 65532U /* the largest multiple of 4 in 16 bits */

static inline uint16_t qxgss_get16(const unsigned char *from) {
    uint16_t value;
    memcpy(&value, from, sizeof value);
    return value;
}

static inline void qxgss_put16(unsigned char *to, uint16_t value) {
    memcpy(to, &value, sizeof value);
}

/* ---- Reading ---------------------------------------------------------------------------------------------------- */

/* Whether a whole record begins at `offset` of the `size` bytes; if so *header is its header. A walk ends where it
 * does not, be it at the end or at a record that is cut off or shorter than its header:
 *
 *     for (size_t at = 0; qxgss_record_at(bytes, size, at, &header); at += header.qxgss_Length) */
static inline int qxgss_record_at(const unsigned char *bytes, size_t size, size_t offset, qxat_data_header_t *header) {
    if (offset > size || size - offset < sizeof *header)
        return 0;
    memcpy(header, bytes + offset, sizeof *header);
    return header->qxgss_Length >= sizeof *header && header->qxgss_Length <= size - offset;
}

/* The data of a string record that qxgss_record_at found, *length bytes; null when they do not lie within it. */
static inline const unsigned char *qxgss_record_data(const unsigned char *record, const qxat_data_header_t *header,
                                                     size_t *length) {
    if (header->qxgss_Length < QXGSS_RECORD_DATA_OFFSET)
        return NULL;
    *length = qxgss_get16(record + sizeof *header);
    return *length <= header->qxgss_Length - QXGSS_RECORD_DATA_OFFSET ? record + QXGSS_RECORD_DATA_OFFSET : NULL;
}

/* ---- Writing ---------------------------------------------------------------------------------------------------- */

/* The length of a string record with `n` bytes of data; 0 when it does not fit 16 bits, or the id is no string
 * record's. */
static inline size_t qxgss_record_length(qxgss_data_id_t id, size_t n) {
    size_t overhead = 0;
    switch (id) {
#define QXGSS_STRING_RECORD_OVERHEAD(value, constant, type, field, bytes)                                              \
    case value:                                                                                                        \
        overhead = bytes;                                                                                              \
        break;
        QXGSS_STRING_RECORDS(QXGSS_STRING_RECORD_OVERHEAD)
#undef QXGSS_STRING_RECORD_OVERHEAD
    default:
        return 0;
    }
    if (n > QXGSS_RECORD_MAX_LENGTH - overhead)
        return 0;
    return (n + overhead + 3) & ~(size_t)3;
}

/* The three fields that every record begins with; the third is the data length or the attribute count. */
static inline void qxgss_put_head(unsigned char *to, qxgss_data_id_t id, size_t length, size_t third) {
    qxgss_put16(to, id);
    qxgss_put16(to + 2, (uint16_t)length);
    qxgss_put16(to + 4, (uint16_t)third);
}

/* Writes a string record of `length` bytes (as above); the bytes after its data stay as they are. */
static inline void qxgss_put_record(unsigned char *to, qxgss_data_id_t id, size_t length, const void *data, size_t n) {
    qxgss_put_head(to, id, length, n);
    if (n != 0)
        memcpy(to + QXGSS_RECORD_DATA_OFFSET, data, n);
}

/* Writes the fields before the flags of an attributes record; the flags and what follows stay as they are. */
static inline void qxgss_put_attributes(unsigned char *to, uint16_t count) {
    qxgss_put_head(to, QXGSS_DATA_ID_ATTRIBUTES, sizeof(qxgss_data_attributes_t), count);
}

/* Sets a flag, given by its offset, and the attribute count 2 in every attributes record of the buffer; whether there
 * was one. Stops, without touching it, at a record that is not whole or too short for its flags. */
static inline int qxgss_mark_attributes(unsigned char *bytes, size_t size, size_t flag, unsigned char value) {
    int found = 0;
    qxat_data_header_t header;
    for (size_t at = 0; qxgss_record_at(bytes, size, at, &header); at += header.qxgss_Length) {
        if (header.qxgss_DataId != QXGSS_DATA_ID_ATTRIBUTES)
            continue;
        if (header.qxgss_Length < offsetof(qxgss_data_attributes_t, qxgss_RFU))
            break;
        qxgss_put16(bytes + at + 4, 2);
        bytes[at + flag] = value;
        found = 1;
    }
    return found;
}

#ifdef __cplusplus
}
#endif

#endif
