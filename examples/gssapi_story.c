/* A program of the host's GSS-API library that negotiates with QXNEGO, both sides in one process, and then asks why:
 * gssapi_story SERVICE@HOST. The client's credentials are those that are there, a ticket for example. */
#include <stdio.h>
#include <string.h>

#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

#include <qxgss/qxnego_gssapi.h>

static gss_OID_desc mech = QXNEGO_GSS_OID(QXNEGO_GSS_MECH);

static int fail(OM_uint32 minor) {
    gss_buffer_desc text = GSS_C_EMPTY_BUFFER;
    OM_uint32 ignored, more = 0;
    gss_display_status(&ignored, minor, GSS_C_MECH_CODE, &mech, &more, &text);
    fprintf(stderr, "%.*s\n", (int)text.length, (char *)text.value);
    gss_release_buffer(&ignored, &text);
    return 0;
}

/* In turn, the client first, until both sides are complete. */
static int negotiate(gss_name_t service, gss_ctx_id_t *client, gss_ctx_id_t *server) {
    gss_buffer_desc to_server = GSS_C_EMPTY_BUFFER, to_client = GSS_C_EMPTY_BUFFER;
    OM_uint32 minor = 0, ignored, major = GSS_S_CONTINUE_NEEDED, answer = GSS_S_CONTINUE_NEEDED;
    while (major == GSS_S_CONTINUE_NEEDED || answer == GSS_S_CONTINUE_NEEDED) {
        major = gss_init_sec_context(&minor, GSS_C_NO_CREDENTIAL, client, service, &mech,
                                     GSS_C_MUTUAL_FLAG | GSS_C_INTEG_FLAG, 0, GSS_C_NO_CHANNEL_BINDINGS, &to_client,
                                     NULL, &to_server, NULL, NULL);
        gss_release_buffer(&ignored, &to_client);
        if (!GSS_ERROR(major) && to_server.length != 0)
            answer = gss_accept_sec_context(&minor, server, GSS_C_NO_CREDENTIAL, &to_server, GSS_C_NO_CHANNEL_BINDINGS,
                                            NULL, NULL, &to_client, NULL, NULL, NULL);
        gss_release_buffer(&ignored, &to_server);
        if (GSS_ERROR(major) || GSS_ERROR(answer)) {
            gss_release_buffer(&ignored, &to_client);
            return fail(minor);
        }
    }
    return 1;
}

/* Also of a context that has failed. */
static void tell(gss_ctx_id_t context) {
    gss_OID_desc story = QXNEGO_GSS_OID(QXNEGO_GSS_STORY);
    gss_buffer_set_t told = GSS_C_NO_BUFFER_SET;
    OM_uint32 minor;
    if (gss_inquire_sec_context_by_oid(&minor, context, &story, &told) == GSS_S_COMPLETE && told->count == 1)
        printf("%.*s\n", (int)told->elements[0].length, (char *)told->elements[0].value);
    gss_release_buffer_set(&minor, &told);
}

int main(int argc, char **argv) {
    gss_buffer_desc text = {argc == 2 ? strlen(argv[1]) : 0, argv[1]};
    gss_name_t service = GSS_C_NO_NAME;
    gss_ctx_id_t client = GSS_C_NO_CONTEXT, server = GSS_C_NO_CONTEXT;
    OM_uint32 minor;
    if (argc != 2 || GSS_ERROR(gss_import_name(&minor, &text, GSS_C_NT_HOSTBASED_SERVICE, &service)))
        return 2;
    const int ok = negotiate(service, &client, &server);
    if (server != GSS_C_NO_CONTEXT)
        tell(server);
    gss_release_name(&minor, &service);
    gss_delete_sec_context(&minor, &client, GSS_C_NO_BUFFER);
    gss_delete_sec_context(&minor, &server, GSS_C_NO_BUFFER);
    return !ok;
}
