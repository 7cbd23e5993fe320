/* Messages over a stream: four octets of length, most significant first, and the message. Whoever is at the other end,
 * no more than MAX_FRAME bytes are kept of it, and no longer waited for it than the session allows. */
#ifndef FRAME_H
#define FRAME_H

#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <qxgss/qxgss_session.h>

#define MAX_FRAME QXGSS_SESSION_MAX_MESSAGE /* a greater one the session would refuse anyway */
#define MAX_SILENCE 60000U                  /* milliseconds, once the session is open */

static int receive_all(int socket, qxgss_session_t session, unsigned char *bytes, size_t length) {
    while (length != 0) {
        const OM_uint32 left = qxgss_session_time_left(session);
        struct pollfd ready = {.fd = socket, .events = POLLIN};
        if (poll(&ready, 1, (int)(left < MAX_SILENCE ? left : MAX_SILENCE)) != 1)
            return 0;
        const ssize_t got = recv(socket, bytes, length, 0);
        if (got <= 0)
            return 0;
        bytes += got;
        length -= (size_t)got;
    }
    return 1;
}

/* The message is at `storage`, which has MAX_FRAME bytes. */
static int receive_frame(int socket, qxgss_session_t session, unsigned char *storage, qxgss_buffer_desc *message) {
    unsigned char head[4];
    if (!receive_all(socket, session, head, sizeof head))
        return 0;
    message->length = (size_t)head[0] << 24 | (size_t)head[1] << 16 | (size_t)head[2] << 8 | head[3];
    message->value = storage;
    return message->length <= MAX_FRAME && receive_all(socket, session, storage, message->length);
}

/* Releases the message, whatever comes of it. An empty one is none. */
static int send_frame(int socket, qxgss_session_t session, qxgss_buffer_t message) {
    const size_t length = message->length;
    const unsigned char head[4] = {(unsigned char)(length >> 24), (unsigned char)(length >> 16),
                                   (unsigned char)(length >> 8), (unsigned char)length};
    poll(NULL, 0, (int)qxgss_session_delay(session)); /* that a refusal says nothing by its time */
    int ok = length == 0 || send(socket, head, sizeof head, MSG_NOSIGNAL) == sizeof head;
    for (size_t sent = 0; ok && sent != length;) {
        const ssize_t now = send(socket, (char *)message->value + sent, length - sent, MSG_NOSIGNAL);
        ok = now > 0;
        sent += ok ? (size_t)now : 0;
    }
    gssp_release_buffer(NULL, message);
    return ok;
}

/* From the first message until the session is open; `input` is what the first step takes. */
static int open_session(int socket, qxgss_session_t session, unsigned char *storage, int is_client) {
    qxgss_buffer_desc input = {0, NULL}, output = {0, NULL};
    OM_uint32 minor, major = GSS_S_CONTINUE_NEEDED;
    for (int is_first = is_client; major == GSS_S_CONTINUE_NEEDED; is_first = 0) {
        if (!is_first && !receive_frame(socket, session, storage, &input))
            return 0;
        major = qxgss_session_step(&minor, session, &input, &output);
        if (!send_frame(socket, session, &output)) /* also of a failure: it tells the other side that it is over */
            return 0;
    }
    return major == GSS_S_COMPLETE;
}

#endif
