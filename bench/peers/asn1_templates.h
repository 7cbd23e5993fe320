/* The message of codec_bench through OpenSSL's ASN.1 templates, from and into flat records. */
#ifndef QXNEGO_ASN1_TEMPLATES_H
#define QXNEGO_ASN1_TEMPLATES_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TEMPLATES_MAX_ENTRIES 64

struct template_message {
    int entries;
    struct {
        unsigned char oid[9];
        long state, reason;
        unsigned char token[64];
    } entry[TEMPLATES_MAX_ENTRIES];
    long state;
    unsigned char identity[8];
};

/* The encoding, in a block that OPENSSL_free releases; 0 on failure. */
size_t templates_encode(const struct template_message *message, unsigned char **bytes);
void templates_free(unsigned char *bytes);

/* Whether the bytes are a message. */
int templates_decode(struct template_message *message, const unsigned char *bytes, size_t length);

#ifdef __cplusplus
}
#endif

#endif
