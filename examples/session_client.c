/* Logs on at 127.0.0.1, sends a text and prints what comes back: session_client CONFIGURATION PORT SERVICE TEXT. The
 * logon string is the line at its standard input; none: the credentials that are there. */
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "frame.h"

static unsigned char storage[MAX_FRAME];

static int talk(int socket, qxgss_session_t session, char *words) {
    qxgss_buffer_desc text = {strlen(words), words}, message;
    OM_uint32 minor;
    if (qxgss_session_wrap(&minor, session, &text, &message) != GSS_S_COMPLETE ||
        !send_frame(socket, session, &message) || !receive_frame(socket, session, storage, &message) ||
        qxgss_session_unwrap(&minor, session, &message, &text) != GSS_S_COMPLETE)
        return 0;
    printf("%.*s\n", (int)text.length, (char *)text.value);
    gssp_release_buffer(NULL, &text);
    return qxgss_session_end(&minor, session, &message) == GSS_S_COMPLETE && send_frame(socket, session, &message);
}

int main(int argc, char **argv) {
    char line[1024] = "";
    qxgss_session_facts_desc facts;
    qxgss_session_t session = NULL;
    OM_uint32 minor;
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    if (argc != 5 || qxgss_configure(&minor, QXGSS_CLIENT, argv[1], NULL) != GSS_S_COMPLETE)
        return 2;
    if (fgets(line, sizeof line, stdin) != NULL)
        line[strcspn(line, "\n")] = '\0';
    const qxgss_buffer_desc logon = {strlen(line), line};
    address.sin_port = htons((uint16_t)atoi(argv[2]));
    if (connect(server, (struct sockaddr *)&address, sizeof address) != 0 ||
        qxgss_session_initiate(&minor, &logon, argv[3], 0, NULL, &session) != GSS_S_COMPLETE)
        return 2;
    const int is_done = open_session(server, session, storage, 1) && talk(server, session, argv[4]);
    if (!is_done && qxgss_session_inquire(&minor, session, &facts) == GSS_S_COMPLETE)
        fprintf(stderr, "%s\n", facts.pszFailure);
    qxgss_session_delete(&minor, &session);
    close(server);
    qxgss_shutdown(&minor);
    return !is_done;
}
