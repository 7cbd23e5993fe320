/* The framework's ASN.1 codec: DER is written and BER is read (X.690), with context-specific tags 0 to 30 and
 * implicit tagging.
 *
 * C header. Each operation returns a framework minor status, 0x21000064 on success. */
#ifndef QXGSS_GSSPASN_H
#define QXGSS_GSSPASN_H

#include "qxgss.h"

#ifdef __cplusplus
extern "C" {
#endif

#define GSSPASN_E_SUCCESS 0x21000064U
#define GSSPASN_E_NO_MEMORY 0xE1000065U
#define GSSPASN_E_ARGUMENT 0xE10000CDU      /* a pointer is null */
#define GSSPASN_E_ENCODING 0xE10000F3U      /* lengths or contents break the encoding rules; token too large */
#define GSSPASN_E_TAG_INVALID 0xE10000F4U   /* tag number of 31 or above */
#define GSSPASN_E_STACK_FULL 0xE10000F5U    /* nested too deeply; too many elements */
#define GSSPASN_E_TAG_MISMATCH 0xE10000F6U  /* stop with another tag than start, or without one */
#define GSSPASN_E_NO_HANDLE 0xE10000F7U     /* the handle is null, or is not of the kind the call needs */
#define GSSPASN_E_CLASS_INVALID 0xE10000F8U /* an element whose class is not context-specific */
#define GSSPASN_E_NOT_SEQUENCE 0xE10000F9U
#define GSSPASN_E_NOT_ITEM 0xE10000FAU
#define GSSPASN_E_TAG_NOT_FOUND 0xE10000FBU
#define GSSPASN_E_ITEM_TYPE 0xE10000FCU

#define GSSP_TAGGING_IMPLICIT 0U

/* Item types and what their value points to. */
#define GSSPASN_INTEGER 2U           /* OM_uint32 */
#define GSSPASN_OCTET_STRING 4U      /* qxgss_buffer_desc */
#define GSSPASN_OBJECT_IDENTIFIER 5U /* qxgss_OID_desc */

/* Limits, and the status beyond them. The decoder refuses a token when it is opened: nested constructed elements,
 * elements in all, size in bytes. The encoder refuses the element that would pass one; it has room for fewer levels,
 * and keeps the other two, so that what is written can be read. 16,384 elements hold a list of 1,000 mechanisms, each
 * with all of its eight items (9,006 with those around it). */
#define GSSPASN_ENCODE_MAX_DEPTH 11U        /* GSSPASN_E_STACK_FULL */
#define GSSPASN_DECODE_MAX_DEPTH 16U        /* GSSPASN_E_STACK_FULL */
#define GSSPASN_DECODE_MAX_ELEMENTS 16384U  /* GSSPASN_E_STACK_FULL */
#define GSSPASN_DECODE_MAX_TOKEN (1U << 20) /* GSSPASN_E_ENCODING */

typedef struct gsspasn_encoder_struct *gsspasn_encoding_t;
typedef struct gsspasn_element_struct *gsspasn_decoding_t;

/* ---- Encoder ---------------------------------------------------------------------------------------------------- */

QXGSS_API OM_uint32 gsspasn_open_encode_handle(gsspasn_encoding_t *pHandle);
QXGSS_API OM_uint32 gsspasn_set_encode_tagging(gsspasn_encoding_t Handle, OM_uint32 Tagging);

/* Opens a constructed element inside the innermost open one. */
QXGSS_API OM_uint32 gsspasn_start_encode_sequence(gsspasn_encoding_t Handle, OM_uint32 Tag);

/* Closes the innermost open element, whose tag must be this one. */
QXGSS_API OM_uint32 gsspasn_stop_encode_sequence(gsspasn_encoding_t Handle, OM_uint32 Tag);

/* Appends a primitive element; the value is read, not taken over. An OCTET STRING may be empty, an OBJECT IDENTIFIER
 * not (GSSPASN_E_ENCODING); a length without a pointer is GSSPASN_E_ARGUMENT. An element that is refused is not there;
 * the encoder goes on. */
QXGSS_API OM_uint32 gsspasn_put_encode_item(gsspasn_encoding_t Handle, OM_uint32 Tag, OM_uint32 ItemType,
                                            const void *pValue);

/* Frees the encoder and clears the handle, in every case. With an output descriptor the encoding is stored in it
 * (released with gssp_release_buffer); elements still open then give GSSPASN_E_TAG_MISMATCH and an empty output. */
QXGSS_API OM_uint32 gsspasn_close_encode_handle(gsspasn_encoding_t *pHandle, qxgss_buffer_t pOutput);

/* ---- Decoder ---------------------------------------------------------------------------------------------------- */

/* Checks the whole token, in one pass without recursion, and makes a decoder over it: exactly one element, definite
 * or indefinite lengths (X.690 8.1.3). The decoder reads the token's bytes, which must stay until it is closed. */
QXGSS_API OM_uint32 gsspasn_open_decode_handle(gsspasn_decoding_t *pHandle, const qxgss_buffer_t pToken);
QXGSS_API OM_uint32 gsspasn_set_decode_tagging(gsspasn_decoding_t Handle, OM_uint32 Tagging);

/* A handle over the children of the token's outer element, which must be constructed and have this tag, and their
 * number. Handles over children belong to the decoder and are never closed by themselves. */
QXGSS_API OM_uint32 gsspasn_get_top_decode_sequence(gsspasn_decoding_t Handle, OM_uint32 Tag,
                                                    gsspasn_decoding_t *pChildren, OM_uint32 *pCount);

/* Within one parent tags are asked for in ascending order; children with the same tag come one per request, in order;
 * children not asked for are passed over. An absent tag gives GSSPASN_E_TAG_NOT_FOUND, leaves the outputs unchanged
 * and disturbs no later request; so does every other failure. */
QXGSS_API OM_uint32 gsspasn_get_decode_sequence(gsspasn_decoding_t Handle, OM_uint32 Tag, gsspasn_decoding_t *pChildren,
                                                OM_uint32 *pCount);

/* Decodes a primitive child: INTEGER must be the minimal contents of a 32-bit unsigned value; OCTET STRING comes with
 * new storage (gssp_release_buffer; an empty string gives an empty buffer), OBJECT IDENTIFIER with new `elements`
 * (free), none when it is empty: its reader refuses it. */
QXGSS_API OM_uint32 gsspasn_get_decode_item(gsspasn_decoding_t Handle, OM_uint32 Tag, OM_uint32 ItemType, void *pValue);

/* Where the contents of a primitive child stand in the token, whatever its type: nothing is copied, and the bytes are
 * the token's. An empty one has length 0. */
QXGSS_API OM_uint32 gsspasn_get_decode_contents(gsspasn_decoding_t Handle, OM_uint32 Tag, qxgss_buffer_t pContents);

/* Frees the decoder with every handle it delivered and clears the handle. A null handle is GSSPASN_E_NO_HANDLE. */
QXGSS_API OM_uint32 gsspasn_close_decode_handle(gsspasn_decoding_t *pHandle);

/* ---- Places, for whoever shows a token -------------------------------------------------------------------------- */

typedef struct gsspasn_place_struct {
    size_t Offset; /* of the identifier octet */
    size_t Header; /* identifier and length octets */
    size_t Length; /* contents octets, without those that end an indefinite length */
    OM_uint32 Tag;
    OM_uint32 Span; /* number of elements that it is, with all below it */
    int IsConstructed;
} gsspasn_place_desc;

typedef struct gsspasn_fault_struct {
    size_t Offset;   /* of the first wrong octet; the token's length when octets are missing */
    char szWhy[128]; /* one line, empty when nothing is wrong */
} gsspasn_fault_desc;

/* Checks a token as gsspasn_open_decode_handle does, and returns the same. Also when it is refused, pPlaces gets the
 * elements that were read, in the order in which they begin, as an array of gsspasn_place_desc (its length is in
 * bytes; gssp_release_buffer). One that the fault lies in spans the elements that were read of it, and ends where
 * reading did if its length is indefinite. GSSPASN_E_ARGUMENT for a null pointer and GSSPASN_E_NO_MEMORY: the outputs
 * are then empty. */
QXGSS_API OM_uint32 gsspasn_inspect_token(const qxgss_buffer_t pToken, qxgss_buffer_t pPlaces,
                                          gsspasn_fault_desc *pFault);

#ifdef __cplusplus
}
#endif

#endif
