/* What both programs without sessions need: QXNEGO's function table, the texts of failures, and tokens over a stream,
 * four octets of length, most significant first, before each. */
#ifndef TABLE_H
#define TABLE_H

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <qxgss/gssp.h>

#define MAX_TOKEN (256U * 1024U) /* checked before the memory is reserved */
#define MAX_ROUNDS 16
#define MAX_SILENCE 10 /* seconds */

/* The entry of QXNEGO when it is in use; null, and why on the standard error. */
static const MechInfo_t *configure(OM_uint32 role, const char *file) {
    qxgss_buffer_desc message = {0, NULL};
    OM_uint32 minor;
    const OM_uint32 major = qxgss_configure(&minor, role, file, &message);
    if (message.length != 0)
        fprintf(stderr, "%.*s\n", (int)message.length, (char *)message.value);
    gssp_release_buffer(NULL, &message);
    for (OM_uint32 i = 0; !GSS_ERROR(major) && i < MechCount; ++i)
        if (strcmp(pMechInfo[i].pszMechName, "QXNEGO") == 0 && pMechInfo[i].fUseMech != 0)
            return &pMechInfo[i];
    fprintf(stderr, "%s: no QXNEGO that is in use\n", file);
    return NULL;
}

static int fail(const MechInfo_t *qxnego, OM_uint32 major, OM_uint32 minor) {
    qxgss_buffer_desc text = {0, NULL};
    OM_uint32 ignored, more = 0;
    qxnego->MechFtnTable.ftn_gssp_display_status(&ignored, minor, GSS_C_MECH_CODE, qxnego->pMechOid, &more, &text);
    fprintf(stderr, "%08X/%08X %.*s\n", major, minor, (int)text.length, (char *)text.value);
    gssp_release_buffer(NULL, &text);
    return 0;
}

/* A read or a write that takes too long fails. */
static void be_impatient(int socket) {
    const struct timeval silence = {.tv_sec = MAX_SILENCE};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof silence);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &silence, sizeof silence);
}

/* Releases the token, whatever comes of it. */
static int send_token(int socket, qxgss_buffer_t token) {
    const unsigned char head[4] = {(unsigned char)(token->length >> 24), (unsigned char)(token->length >> 16),
                                   (unsigned char)(token->length >> 8), (unsigned char)token->length};
    int ok = send(socket, head, sizeof head, MSG_NOSIGNAL) == sizeof head;
    for (size_t sent = 0; ok && sent != token->length;) {
        const ssize_t now = send(socket, (char *)token->value + sent, token->length - sent, MSG_NOSIGNAL);
        ok = now > 0;
        sent += ok ? (size_t)now : 0;
    }
    gssp_release_buffer(NULL, token);
    return ok;
}

static int receive_all(int socket, void *bytes, size_t length) {
    return recv(socket, bytes, length, MSG_WAITALL) == (ssize_t)length;
}

/* The token is the caller's, for gssp_release_buffer. */
static int receive_token(int socket, qxgss_buffer_t token) {
    unsigned char head[4];
    *token = (qxgss_buffer_desc){0, NULL};
    if (!receive_all(socket, head, sizeof head))
        return 0;
    const size_t length = (size_t)head[0] << 24 | (size_t)head[1] << 16 | (size_t)head[2] << 8 | head[3];
    void *bytes = length != 0 && length <= MAX_TOKEN ? malloc(length) : NULL;
    if (bytes == NULL || !receive_all(socket, bytes, length)) {
        free(bytes);
        return 0;
    }
    *token = (qxgss_buffer_desc){length, bytes};
    return 1;
}

#endif
