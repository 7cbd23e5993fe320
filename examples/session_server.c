/* A server that sends back what an authenticated client sends: session_server CONFIGURATION PORT. It takes one client
 * at 127.0.0.1, says who it was, and ends. */
#include <arpa/inet.h>
#include <stdio.h>
#include <unistd.h>

#include "frame.h"

static unsigned char storage[MAX_FRAME];

static void serve(int socket, qxgss_session_t session) {
    qxgss_buffer_desc message, text, answer;
    OM_uint32 minor;
    while (receive_frame(socket, session, storage, &message) &&
           qxgss_session_unwrap(&minor, session, &message, &text) == GSS_S_COMPLETE) {
        if (text.length == 0) /* the client's end mark, which nobody answers: nothing is missing at the end */
            return;
        qxgss_session_wrap(&minor, session, &text, &answer);
        gssp_release_buffer(NULL, &text);
        if (!send_frame(socket, session, &answer))
            return;
    }
    if (qxgss_session_end(&minor, session, &answer) == GSS_S_COMPLETE) /* of a failure, it tells the client so */
        send_frame(socket, session, &answer);
}

int main(int argc, char **argv) {
    qxgss_session_options_desc options = QXGSS_SESSION_DEFAULTS; /* a mechanism must protect messages */
    qxgss_session_facts_desc facts;
    qxgss_session_t session = NULL;
    OM_uint32 minor;
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    const int listener = socket(AF_INET, SOCK_STREAM, 0), on = 1;
    if (argc != 3 || qxgss_configure(&minor, QXGSS_SERVER, argv[1], NULL) != GSS_S_COMPLETE)
        return 2;
    address.sin_port = htons((uint16_t)atoi(argv[2]));
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 1) != 0)
        return 2;
    const int client = accept(listener, NULL, NULL);
    if (client < 0 || qxgss_session_accept(&minor, &options, &session) != GSS_S_COMPLETE)
        return 2;
    if (open_session(client, session, storage, 0) && qxgss_session_inquire(&minor, session, &facts) == GSS_S_COMPLETE) {
        printf("%s: user %.*s\n", facts.pszMech, (int)facts.User.length, (char *)facts.User.value);
        serve(client, session);
    }
    qxgss_session_inquire(&minor, session, &facts);
    const int is_ended = facts.State == QXGSS_SESSION_ENDED;
    printf("%s\n", is_ended ? "ended" : facts.pszFailure);
    qxgss_session_delete(&minor, &session);
    close(client);
    close(listener);
    qxgss_shutdown(&minor);
    return !is_ended;
}
