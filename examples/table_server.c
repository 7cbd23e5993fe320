/* The server without sessions, over QXNEGO's function table: table_server CONFIGURATION PORT. It takes one client at
 * 127.0.0.1, says who it was, and sends one message back. It keeps the rules that a session keeps by itself, but for
 * the confirmation of the offer, which embedding.md shows. */
#include <unistd.h>

#include "table.h"

/* The policy once more, for the name that was proved. */
static int is_allowed(qxgss_name_t user, qxgss_OID mech) {
    char name[256];
    qxgss_OID_set allowed = NULL;
    OM_uint32 minor;
    int is_member = 0;
    if (user == NULL || mech == NULL || user->Count == 0 || user->pElements[0].Name.length >= sizeof name)
        return 0;
    memcpy(name, user->pElements[0].Name.value, user->pElements[0].Name.length);
    name[user->pElements[0].Name.length] = '\0';
    if (GSS_ERROR(gssp_inquire_mech_policy_for_user(&minor, name, &allowed)))
        return 0;
    if (allowed == NULL || allowed->count == 0)
        is_member = 1;
    else
        gssp_test_oid_set_member(&minor, mech, allowed, &is_member);
    gssp_release_oid_set(&minor, &allowed);
    const char *mechanism = "?";
    gssp_oid_to_mechstr(&minor, mech, &mechanism);
    printf("%s: user %s%s\n", mechanism, name, is_member ? "" : ", whom the policy forbids it");
    return is_member;
}

static int negotiate(int socket, const MechInfo_t *qxnego, qxgss_cred_id_t credential, qxgss_ctx_id_t *context) {
    const qxgss_ftn_table_desc *table = &qxnego->MechFtnTable;
    qxgss_name_t user = NULL;
    qxgss_OID mech = NULL;
    OM_uint32 minor = 0, major = GSS_S_CONTINUE_NEEDED;
    int ok = 1;
    for (int round = 0; ok && major == GSS_S_CONTINUE_NEEDED; ++round) {
        qxgss_buffer_desc input, output = {0, NULL};
        ok = round < MAX_ROUNDS && receive_token(socket, &input);
        if (!ok)
            break;
        gssp_release_name(NULL, &user);
        major = table->ftn_gssp_accept_sec_context(&minor, context, credential, &input, QXGSS_C_NO_CHANNEL_BINDINGS,
                                                   &user, &mech, &output, NULL, NULL, NULL);
        gssp_release_buffer(NULL, &input);
        if (GSS_ERROR(major))
            ok = fail(qxnego, major, minor); /* the context is deleted, and given no further token */
        else if (output.length != 0)
            ok = send_token(socket, &output);
    }
    ok = ok && is_allowed(user, mech);
    gssp_release_name(NULL, &user);
    return ok;
}

static int echo(int socket, const MechInfo_t *qxnego, qxgss_ctx_id_t context) {
    const qxgss_ftn_table_desc *table = &qxnego->MechFtnTable;
    qxgss_buffer_desc message, text = {0, NULL}, answer = {0, NULL};
    OM_uint32 minor, major;
    int is_sealed = 0;
    if (!receive_token(socket, &message))
        return 0;
    major = table->ftn_gssp_unwrap(&minor, context, &message, &text, &is_sealed, NULL);
    gssp_release_buffer(NULL, &message);
    if (major == GSS_S_COMPLETE && is_sealed) /* an old or a repeated message is none */
        major = table->ftn_gssp_wrap(&minor, context, 1, 0, &text, NULL, &answer);
    gssp_release_buffer(NULL, &text);
    return major == GSS_S_COMPLETE && answer.length != 0 ? send_token(socket, &answer) : fail(qxnego, major, minor);
}

int main(int argc, char **argv) {
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
    const int listener = socket(AF_INET, SOCK_STREAM, 0), on = 1;
    const MechInfo_t *qxnego = argc == 3 ? configure(QXGSS_SERVER, argv[1]) : NULL;
    qxgss_cred_id_t credential = NULL;
    qxgss_ctx_id_t context = NULL;
    OM_uint32 minor;
    if (qxnego == NULL)
        return 2;
    address.sin_port = htons((uint16_t)atoi(argv[2]));
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, (struct sockaddr *)&address, sizeof address) != 0 || listen(listener, 1) != 0)
        return 2;
    const qxgss_ftn_table_desc *table = &qxnego->MechFtnTable;
    const int client = accept(listener, NULL, NULL);
    const OM_uint32 major = table->ftn_gssp_acquire_cred(&minor, QXGSS_C_NO_NAME, GSS_C_INDEFINITE, NULL, GSS_C_ACCEPT,
                                                         &credential, NULL, NULL);
    int ok = client >= 0 && (!GSS_ERROR(major) || fail(qxnego, major, minor));
    if (ok) {
        be_impatient(client);
        ok = negotiate(client, qxnego, credential, &context) && echo(client, qxnego, context);
    }
    if (context != NULL)
        table->ftn_gssp_delete_sec_context(&minor, &context, NULL);
    if (credential != NULL)
        table->ftn_gssp_release_cred(&minor, &credential);
    close(client);
    close(listener);
    qxgss_shutdown(&minor);
    return !ok;
}
