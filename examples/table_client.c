/* The client of table_server: table_client CONFIGURATION PORT SERVICE TEXT. The logon string is the line at its
 * standard input; none: the credentials that are there. */
#include <unistd.h>

#include "table.h"

static qxgss_name_t name_of(char *text, qxgss_OID type) {
    qxgss_buffer_desc buffer = {strlen(text), text};
    qxgss_name_t name = NULL;
    qxgss_import_name(NULL, &buffer, type, &name);
    return name;
}

/* Every token that a call gives is sent, also that of the last one. */
static int negotiate(int socket, const MechInfo_t *qxnego, qxgss_cred_id_t credential, qxgss_name_t target,
                     qxgss_ctx_id_t *context) {
    const qxgss_ftn_table_desc *table = &qxnego->MechFtnTable;
    qxgss_buffer_desc input = {0, NULL};
    OM_uint32 minor = 0, major = GSS_S_CONTINUE_NEEDED;
    for (int round = 0; major == GSS_S_CONTINUE_NEEDED; ++round) {
        qxgss_buffer_desc output = {0, NULL};
        if (round == MAX_ROUNDS || (round != 0 && !receive_token(socket, &input)))
            return 0;
        major = table->ftn_gssp_init_sec_context(&minor, credential, context, target, NULL,
                                                 GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG |
                                                     GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG,
                                                 0, QXGSS_C_NO_CHANNEL_BINDINGS, &input, NULL, &output, NULL, NULL);
        gssp_release_buffer(NULL, &input);
        if (GSS_ERROR(major))
            return fail(qxnego, major, minor);
        if (output.length != 0 && !send_token(socket, &output))
            return 0;
    }
    return 1;
}

static int talk(int socket, const MechInfo_t *qxnego, qxgss_ctx_id_t context, char *words) {
    const qxgss_ftn_table_desc *table = &qxnego->MechFtnTable;
    qxgss_buffer_desc text = {strlen(words), words}, message = {0, NULL};
    OM_uint32 minor, major;
    int is_sealed = 0;
    major = table->ftn_gssp_wrap(&minor, context, 1, 0, &text, NULL, &message);
    if (GSS_ERROR(major))
        return fail(qxnego, major, minor);
    if (!send_token(socket, &message) || !receive_token(socket, &message))
        return 0;
    text = (qxgss_buffer_desc){0, NULL};
    major = table->ftn_gssp_unwrap(&minor, context, &message, &text, &is_sealed, NULL);
    gssp_release_buffer(NULL, &message);
    if (major == GSS_S_COMPLETE && is_sealed)
        printf("%.*s\n", (int)text.length, (char *)text.value);
    gssp_release_buffer(NULL, &text);
    return (major == GSS_S_COMPLETE && is_sealed) || fail(qxnego, major, minor);
}

int main(int argc, char **argv) {
    char line[1024] = "";
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    const MechInfo_t *qxnego = argc == 5 ? configure(QXGSS_CLIENT, argv[1]) : NULL;
    qxgss_cred_id_t credential = NULL; /* none: single sign-on */
    qxgss_ctx_id_t context = NULL;
    OM_uint32 minor, major = GSS_S_COMPLETE;
    if (qxnego == NULL)
        return 2;
    address.sin_port = htons((uint16_t)atoi(argv[2]));
    if (connect(server, (struct sockaddr *)&address, sizeof address) != 0)
        return 2;
    be_impatient(server);
    const qxgss_ftn_table_desc *table = &qxnego->MechFtnTable;
    if (fgets(line, sizeof line, stdin) != NULL) {
        line[strcspn(line, "\n")] = '\0';
        qxgss_name_t user = name_of(line, GSS_C_NT_QXAT_MECHDATA_UTF8);
        major =
            table->ftn_gssp_acquire_cred(&minor, user, GSS_C_INDEFINITE, NULL, GSS_C_INITIATE, &credential, NULL, NULL);
        gssp_release_name(NULL, &user); /* which wipes it */
        memset(line, 0, sizeof line);
    }
    qxgss_name_t target = name_of(argv[3], QXGSS_C_NT_HOSTBASED_SERVICE);
    const int ok = (!GSS_ERROR(major) || fail(qxnego, major, minor)) &&
                   negotiate(server, qxnego, credential, target, &context) && talk(server, qxnego, context, argv[4]);
    gssp_release_name(NULL, &target);
    if (context != NULL)
        table->ftn_gssp_delete_sec_context(&minor, &context, NULL);
    if (credential != NULL)
        table->ftn_gssp_release_cred(&minor, &credential);
    close(server);
    qxgss_shutdown(&minor);
    return !ok;
}
