/* The null mechanism as a plugin of the system's GSS-API library: the same tokens, legs and allocations as
 * null_mechanism.cpp. It answers for the 64 OIDs 1.3.6.1.4.1.32473.k of one leg, and those from 64 on of two. */
#include <stdlib.h>
#include <string.h>

#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

#define EXPORT __attribute__((visibility("default")))
#define OIDS 128
#define OID_LENGTH 9
#define TOKEN_LENGTH 17
#define REPLY_LENGTH 5

struct context {
    gss_OID mech;
    OM_uint32 flags;
    int open;
};

static unsigned char oid_bytes[OIDS][OID_LENGTH];
static gss_OID_desc oids[OIDS];
static char handle; /* every name and every credential */

__attribute__((constructor)) static void make_oids(void) {
    static const unsigned char prefix[] = {0x2B, 6, 1, 4, 1, 0x81, 0xFD, 0x59};
    for (int i = 0; i < OIDS; ++i) {
        memcpy(oid_bytes[i], prefix, sizeof prefix);
        oid_bytes[i][OID_LENGTH - 1] = (unsigned char)i;
        oids[i].length = OID_LENGTH;
        oids[i].elements = oid_bytes[i];
    }
}

static int two_legs(const struct context *context) {
    return context->mech - oids >= OIDS / 2;
}

static OM_uint32 put(gss_buffer_t output, const void *bytes, size_t length) {
    output->value = malloc(length);
    if (output->value == NULL)
        return GSS_S_FAILURE;
    memcpy(output->value, bytes, length);
    output->length = length;
    return GSS_S_COMPLETE;
}

static struct context *make_context(gss_OID mech, OM_uint32 flags) {
    struct context *context = malloc(sizeof *context);
    if (context != NULL) {
        context->mech = mech;
        context->flags = flags;
        context->open = !two_legs(context);
    }
    return context;
}

static OM_uint32 begin(gss_ctx_id_t *pContext, gss_OID mech, OM_uint32 flags, gss_buffer_t output) {
    unsigned char token[TOKEN_LENGTH] = {0x60, TOKEN_LENGTH - 2, 0x06, OID_LENGTH};
    struct context *context = make_context(&oids[((unsigned char *)mech->elements)[OID_LENGTH - 1]], flags);
    if (context == NULL)
        return GSS_S_FAILURE;
    *pContext = (gss_ctx_id_t)context;
    memcpy(token + 4, mech->elements, OID_LENGTH);
    memcpy(token + 4 + OID_LENGTH, &flags, sizeof flags);
    return put(output, token, sizeof token);
}

EXPORT OM_uint32 gss_init_sec_context(OM_uint32 *minor, gss_cred_id_t credential, gss_ctx_id_t *pContext,
                                      gss_name_t target, gss_OID mech, OM_uint32 flags, OM_uint32 lifetime,
                                      gss_channel_bindings_t bindings, gss_buffer_t input, gss_OID *actual,
                                      gss_buffer_t output, OM_uint32 *retFlags, OM_uint32 *retLifetime) {
    *minor = 0;
    output->length = 0;
    output->value = NULL;
    if (*pContext == GSS_C_NO_CONTEXT) {
        if (begin(pContext, mech, flags, output) != GSS_S_COMPLETE)
            return GSS_S_FAILURE;
    } else {
        if (input->length != REPLY_LENGTH)
            return GSS_S_DEFECTIVE_TOKEN;
        ((struct context *)*pContext)->open = 1;
    }
    const struct context *context = (struct context *)*pContext;
    if (actual != NULL)
        *actual = context->mech;
    if (retFlags != NULL)
        *retFlags = context->flags;
    if (retLifetime != NULL)
        *retLifetime = GSS_C_INDEFINITE;
    return context->open ? GSS_S_COMPLETE : GSS_S_CONTINUE_NEEDED;
}

EXPORT OM_uint32 gss_accept_sec_context(OM_uint32 *minor, gss_ctx_id_t *pContext, gss_cred_id_t credential,
                                        gss_buffer_t input, gss_channel_bindings_t bindings, gss_name_t *source,
                                        gss_OID *mech, gss_buffer_t output, OM_uint32 *retFlags, OM_uint32 *retLifetime,
                                        gss_cred_id_t *delegated) {
    *minor = 0;
    output->length = 0;
    output->value = NULL;
    const unsigned char *token = input->value;
    if (input->length != TOKEN_LENGTH || token[4 + OID_LENGTH - 1] >= OIDS)
        return GSS_S_DEFECTIVE_TOKEN;
    OM_uint32 flags;
    memcpy(&flags, token + 4 + OID_LENGTH, sizeof flags);
    struct context *context = make_context(&oids[token[4 + OID_LENGTH - 1]], flags);
    if (context == NULL)
        return GSS_S_FAILURE;
    *pContext = (gss_ctx_id_t)context;
    context->open = 1;
    if (source != NULL)
        *source = (gss_name_t)&handle;
    if (mech != NULL)
        *mech = context->mech;
    if (retFlags != NULL)
        *retFlags = flags;
    if (retLifetime != NULL)
        *retLifetime = GSS_C_INDEFINITE;
    if (delegated != NULL)
        *delegated = GSS_C_NO_CREDENTIAL;
    unsigned char reply[REPLY_LENGTH] = {'R'};
    memcpy(reply + 1, &flags, sizeof flags);
    return two_legs(context) ? put(output, reply, sizeof reply) : GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_delete_sec_context(OM_uint32 *minor, gss_ctx_id_t *pContext, gss_buffer_t output) {
    *minor = 0;
    free(*pContext);
    *pContext = GSS_C_NO_CONTEXT;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_wrap(OM_uint32 *minor, gss_ctx_id_t context, int confidential, gss_qop_t qop, gss_buffer_t input,
                          int *state, gss_buffer_t output) {
    *minor = 0;
    if (state != NULL)
        *state = confidential;
    return put(output, input->value, input->length);
}

EXPORT OM_uint32 gss_get_mic(OM_uint32 *minor, gss_ctx_id_t context, gss_qop_t qop, gss_buffer_t message,
                             gss_buffer_t mic) {
    *minor = 0;
    return put(mic, "null-mech-mic-01", 16);
}

EXPORT OM_uint32 gss_acquire_cred(OM_uint32 *minor, gss_name_t name, OM_uint32 lifetime, gss_OID_set mechs, int usage,
                                  gss_cred_id_t *credential, gss_OID_set *actual, OM_uint32 *retLifetime) {
    *minor = 0;
    *credential = (gss_cred_id_t)&handle;
    if (actual != NULL)
        *actual = GSS_C_NO_OID_SET;
    if (retLifetime != NULL)
        *retLifetime = GSS_C_INDEFINITE;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_release_cred(OM_uint32 *minor, gss_cred_id_t *credential) {
    *minor = 0;
    *credential = GSS_C_NO_CREDENTIAL;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_inquire_cred(OM_uint32 *minor, gss_cred_id_t credential, gss_name_t *name, OM_uint32 *lifetime,
                                  int *usage, gss_OID_set *mechs) {
    *minor = 0;
    if (name != NULL)
        *name = (gss_name_t)&handle;
    if (lifetime != NULL)
        *lifetime = GSS_C_INDEFINITE;
    if (usage != NULL)
        *usage = GSS_C_BOTH;
    if (mechs != NULL)
        *mechs = GSS_C_NO_OID_SET;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_import_name(OM_uint32 *minor, gss_buffer_t text, gss_OID type, gss_name_t *name) {
    *minor = 0;
    *name = (gss_name_t)&handle;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_release_name(OM_uint32 *minor, gss_name_t *name) {
    *minor = 0;
    *name = GSS_C_NO_NAME;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_duplicate_name(OM_uint32 *minor, const gss_name_t name, gss_name_t *copy) {
    *minor = 0;
    *copy = name;
    return GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_display_name(OM_uint32 *minor, gss_name_t name, gss_buffer_t text, gss_OID *type) {
    *minor = 0;
    if (type != NULL)
        *type = GSS_C_NT_USER_NAME;
    return put(text, "null@example", 12);
}

EXPORT OM_uint32 gss_inquire_names_for_mech(OM_uint32 *minor, gss_OID mech, gss_OID_set *types) {
    OM_uint32 major = gss_create_empty_oid_set(minor, types);
    return major != GSS_S_COMPLETE ? major : gss_add_oid_set_member(minor, GSS_C_NT_HOSTBASED_SERVICE, types);
}

EXPORT OM_uint32 gss_indicate_mechs(OM_uint32 *minor, gss_OID_set *mechs) {
    OM_uint32 major = gss_create_empty_oid_set(minor, mechs);
    for (int i = 0; i < OIDS && major == GSS_S_COMPLETE; ++i)
        major = gss_add_oid_set_member(minor, &oids[i], mechs);
    return major;
}

EXPORT OM_uint32 gss_inquire_attrs_for_mech(OM_uint32 *minor, gss_const_OID mech, gss_OID_set *attributes,
                                            gss_OID_set *known) {
    *minor = 0;
    if (known != NULL)
        *known = GSS_C_NO_OID_SET;
    return attributes != NULL ? gss_create_empty_oid_set(minor, attributes) : GSS_S_COMPLETE;
}

EXPORT OM_uint32 gss_internal_release_oid(OM_uint32 *minor, gss_OID *oid) {
    *minor = 0;
    if (*oid < oids || *oid >= oids + OIDS)
        return GSS_S_CONTINUE_NEEDED;
    *oid = GSS_C_NO_OID;
    return GSS_S_COMPLETE;
}
