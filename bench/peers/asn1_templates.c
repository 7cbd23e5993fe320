/* The templates, and the copying between them and the flat records. */
#include "bench/peers/asn1_templates.h"

#include <string.h>

#include <openssl/asn1t.h>
#include <openssl/objects.h>

typedef struct {
    ASN1_OBJECT *oid;
    ASN1_INTEGER *state, *reason;
    ASN1_OCTET_STRING *token;
} ENTRY;
DEFINE_STACK_OF(ENTRY)
typedef struct {
    STACK_OF(ENTRY) * list;
    ASN1_INTEGER *state;
    ASN1_OCTET_STRING *identity;
} MESSAGE;

ASN1_SEQUENCE(ENTRY_BODY) = {
    ASN1_IMP(ENTRY, oid, ASN1_OBJECT, 0),
    ASN1_IMP(ENTRY, state, ASN1_INTEGER, 1),
    ASN1_IMP(ENTRY, reason, ASN1_INTEGER, 2),
    ASN1_IMP(ENTRY, token, ASN1_OCTET_STRING, 6),
} static_ASN1_SEQUENCE_END_name(ENTRY, ENTRY_BODY)
ASN1_ITEM_TEMPLATE(ENTRY) =
    ASN1_EX_TEMPLATE_TYPE(ASN1_TFLG_IMPTAG | ASN1_TFLG_CONTEXT, 0, ENTRY, ENTRY_BODY)
static_ASN1_ITEM_TEMPLATE_END(ENTRY)

ASN1_SEQUENCE(MESSAGE_BODY) = {
    ASN1_IMP_SEQUENCE_OF(MESSAGE, list, ENTRY, 0),
    ASN1_IMP(MESSAGE, state, ASN1_INTEGER, 1),
    ASN1_IMP(MESSAGE, identity, ASN1_OCTET_STRING, 2),
} static_ASN1_SEQUENCE_END_name(MESSAGE, MESSAGE_BODY)
ASN1_ITEM_TEMPLATE(MESSAGE) =
    ASN1_EX_TEMPLATE_TYPE(ASN1_TFLG_IMPTAG | ASN1_TFLG_CONTEXT, 0, MESSAGE, MESSAGE_BODY)
static_ASN1_ITEM_TEMPLATE_END(MESSAGE)

static MESSAGE *build(const struct template_message *from) {
    MESSAGE *message = (MESSAGE *)ASN1_item_new(ASN1_ITEM_rptr(MESSAGE));
    for (int i = 0; message != NULL && i < from->entries; ++i) {
        ENTRY *entry = (ENTRY *)ASN1_item_new(ASN1_ITEM_rptr(ENTRY));
        unsigned char der[2 + sizeof from->entry[i].oid] = {6, sizeof from->entry[i].oid};
        const unsigned char *at = der;
        memcpy(der + 2, from->entry[i].oid, sizeof from->entry[i].oid);
        if (entry == NULL || d2i_ASN1_OBJECT(&entry->oid, &at, sizeof der) == NULL ||
            !ASN1_INTEGER_set(entry->state, from->entry[i].state) ||
            !ASN1_INTEGER_set(entry->reason, from->entry[i].reason) ||
            !ASN1_OCTET_STRING_set(entry->token, from->entry[i].token, sizeof from->entry[i].token) ||
            !sk_ENTRY_push(message->list, entry))
            return NULL;
    }
    if (message == NULL || !ASN1_INTEGER_set(message->state, from->state) ||
        !ASN1_OCTET_STRING_set(message->identity, from->identity, sizeof from->identity))
        return NULL;
    return message;
}

size_t templates_encode(const struct template_message *from, unsigned char **bytes) {
    MESSAGE *message = build(from);
    *bytes = NULL;
    const int length = message != NULL ? ASN1_item_i2d((ASN1_VALUE *)message, bytes, ASN1_ITEM_rptr(MESSAGE)) : 0;
    ASN1_item_free((ASN1_VALUE *)message, ASN1_ITEM_rptr(MESSAGE));
    return length > 0 ? (size_t)length : 0;
}

void templates_free(unsigned char *bytes) {
    OPENSSL_free(bytes);
}

int templates_decode(struct template_message *to, const unsigned char *bytes, size_t length) {
    MESSAGE *message = (MESSAGE *)ASN1_item_d2i(NULL, &bytes, (long)length, ASN1_ITEM_rptr(MESSAGE));
    if (message == NULL)
        return 0;
    to->entries = sk_ENTRY_num(message->list);
    for (int i = 0; i < to->entries && i < TEMPLATES_MAX_ENTRIES; ++i) {
        const ENTRY *entry = sk_ENTRY_value(message->list, i);
        memcpy(to->entry[i].oid, OBJ_get0_data(entry->oid), sizeof to->entry[i].oid);
        to->entry[i].state = ASN1_INTEGER_get(entry->state);
        to->entry[i].reason = ASN1_INTEGER_get(entry->reason);
        memcpy(to->entry[i].token, ASN1_STRING_get0_data(entry->token), sizeof to->entry[i].token);
    }
    to->state = ASN1_INTEGER_get(message->state);
    memcpy(to->identity, ASN1_STRING_get0_data(message->identity), sizeof to->identity);
    ASN1_item_free((ASN1_VALUE *)message, ASN1_ITEM_rptr(MESSAGE));
    return 1;
}
