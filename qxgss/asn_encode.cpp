// Writes DER (X.690 10) into one growing block that becomes the caller's at the end. An element is begun with room for
// one length octet; its contents move up only when the length that turns out needs more.
#include <algorithm>
#include <bit>
#include <cstring>

#include "qxgss/asn_octets.h"
#include "qxgss/gsspasn.h"
#include "qxgss/internal.h"

struct gsspasn_encoder_struct {
    unsigned char *bytes;
    std::size_t size;
    std::size_t capacity;
    OM_uint32 elements;
    OM_uint32 depth;
    struct {
        OM_uint32 tag;
        std::size_t contents; // where they begin
    } open[GSSPASN_ENCODE_MAX_DEPTH];
};

namespace {

constexpr std::size_t kFirstCapacity = 512;

// The block never has room for more than the decoder takes. Not inline, as most elements need neither this nor a length
// of several octets.
[[gnu::noinline]] bool grow(gsspasn_encoder_struct &encoder, std::size_t more) {
    if (more > GSSPASN_DECODE_MAX_TOKEN - encoder.size)
        return false;
    const std::size_t wanted = std::max({encoder.size + more, 2 * encoder.capacity, kFirstCapacity});
    const std::size_t capacity = std::min<std::size_t>(wanted, GSSPASN_DECODE_MAX_TOKEN);
    void *bytes = std::realloc(encoder.bytes, capacity);
    if (bytes == nullptr)
        return false;
    encoder.bytes = static_cast<unsigned char *>(bytes);
    encoder.capacity = capacity;
    return true;
}

bool reserve(gsspasn_encoder_struct &encoder, std::size_t more) {
    return more <= encoder.capacity - encoder.size || grow(encoder, more);
}

// The status for bytes that found no room.
OM_uint32 why_not(const gsspasn_encoder_struct &encoder, std::size_t more) {
    return more > GSSPASN_DECODE_MAX_TOKEN - encoder.size ? GSSPASN_E_ENCODING : GSSPASN_E_NO_MEMORY;
}

std::size_t length_octets(std::size_t length) {
    return length < qxgss::kLongLength ? 1 : 1 + (static_cast<std::size_t>(std::bit_width(length)) + 7) / 8;
}

[[gnu::noinline]] void write_long_length(unsigned char *at, std::size_t length, std::size_t octets) {
    *at = static_cast<unsigned char>(qxgss::kLongLength | (octets - 1));
    for (std::size_t i = octets - 1; i != 0; --i, length >>= 8)
        at[i] = static_cast<unsigned char>(length);
}

void write_length(unsigned char *at, std::size_t length, std::size_t octets) {
    if (octets == 1)
        *at = static_cast<unsigned char>(length);
    else
        write_long_length(at, length, octets);
}

// Writes an element but for its contents, and gives the place for those; null when it is refused.
unsigned char *append(gsspasn_encoder_struct &encoder, OM_uint32 tag, std::size_t length) {
    const std::size_t octets = length_octets(length);
    if (length > GSSPASN_DECODE_MAX_TOKEN || encoder.elements == GSSPASN_DECODE_MAX_ELEMENTS ||
        !reserve(encoder, 1 + octets + length))
        return nullptr;
    unsigned char *at = encoder.bytes + encoder.size;
    *at = static_cast<unsigned char>(qxgss::kContextSpecific | tag);
    write_length(at + 1, length, octets);
    encoder.size += 1 + octets + length;
    ++encoder.elements;
    return at + 1 + octets;
}

// The status for an element that was refused.
[[gnu::noinline]] OM_uint32 why_no_element(const gsspasn_encoder_struct &encoder, std::size_t length) {
    if (encoder.elements == GSSPASN_DECODE_MAX_ELEMENTS)
        return GSSPASN_E_STACK_FULL;
    return length > GSSPASN_DECODE_MAX_TOKEN ? GSSPASN_E_ENCODING
                                             : why_not(encoder, 1 + length_octets(length) + length);
}

OM_uint32 append_bytes(gsspasn_encoder_struct &encoder, OM_uint32 tag, const void *bytes, std::size_t length) {
    if (length != 0 && bytes == nullptr)
        return GSSPASN_E_ARGUMENT;
    unsigned char *contents = append(encoder, tag, length);
    if (contents == nullptr)
        return why_no_element(encoder, length);
    if (length != 0)
        std::memcpy(contents, bytes, length);
    return GSSPASN_E_SUCCESS;
}

// Two's complement in as few octets as hold the value and a sign bit of 0 (X.690 8.3.2).
OM_uint32 append_integer(gsspasn_encoder_struct &encoder, OM_uint32 tag, const void *pValue) {
    OM_uint32 value;
    std::memcpy(&value, pValue, sizeof value);
    const std::size_t length = static_cast<std::size_t>(std::bit_width(value)) / 8 + 1;
    unsigned char *contents = append(encoder, tag, length);
    if (contents == nullptr)
        return why_no_element(encoder, length);
    OM_uint64 rest = value;
    for (std::size_t i = length; i != 0; --i, rest >>= 8)
        contents[i - 1] = static_cast<unsigned char>(rest);
    return GSSPASN_E_SUCCESS;
}

} // namespace

OM_uint32 gsspasn_open_encode_handle(gsspasn_encoding_t *pHandle) {
    if (pHandle == nullptr)
        return GSSPASN_E_ARGUMENT;
    *pHandle = qxgss::zeroed<gsspasn_encoder_struct>().release();
    return *pHandle == nullptr ? GSSPASN_E_NO_MEMORY : GSSPASN_E_SUCCESS;
}

OM_uint32 gsspasn_set_encode_tagging(gsspasn_encoding_t Handle, OM_uint32 Tagging) {
    if (Handle == nullptr)
        return GSSPASN_E_NO_HANDLE;
    return Tagging == GSSP_TAGGING_IMPLICIT ? GSSPASN_E_SUCCESS : GSSPASN_E_ARGUMENT;
}

OM_uint32 gsspasn_start_encode_sequence(gsspasn_encoding_t Handle, OM_uint32 Tag) {
    if (Handle == nullptr)
        return GSSPASN_E_NO_HANDLE;
    if (Tag > qxgss::kMaxTag)
        return GSSPASN_E_TAG_INVALID;
    if (Handle->depth == GSSPASN_ENCODE_MAX_DEPTH)
        return GSSPASN_E_STACK_FULL;
    if (append(*Handle, qxgss::kConstructed | Tag, 0) == nullptr)
        return why_no_element(*Handle, 0);
    Handle->open[Handle->depth++] = {Tag, Handle->size};
    return GSSPASN_E_SUCCESS;
}

OM_uint32 gsspasn_stop_encode_sequence(gsspasn_encoding_t Handle, OM_uint32 Tag) {
    if (Handle == nullptr)
        return GSSPASN_E_NO_HANDLE;
    if (Handle->depth == 0 || Handle->open[Handle->depth - 1].tag != Tag)
        return GSSPASN_E_TAG_MISMATCH;
    const std::size_t start = Handle->open[Handle->depth - 1].contents;
    const std::size_t length = Handle->size - start;
    const std::size_t octets = length_octets(length);
    if (octets > 1) {
        if (!reserve(*Handle, octets - 1))
            return why_not(*Handle, octets - 1);
        std::memmove(Handle->bytes + start + octets - 1, Handle->bytes + start, length);
        Handle->size += octets - 1;
    }
    write_length(Handle->bytes + start - 1, length, octets);
    --Handle->depth;
    return GSSPASN_E_SUCCESS;
}

OM_uint32 gsspasn_put_encode_item(gsspasn_encoding_t Handle, OM_uint32 Tag, OM_uint32 ItemType, const void *pValue) {
    if (Handle == nullptr)
        return GSSPASN_E_NO_HANDLE;
    if (pValue == nullptr)
        return GSSPASN_E_ARGUMENT;
    if (Tag > qxgss::kMaxTag)
        return GSSPASN_E_TAG_INVALID;
    switch (ItemType) {
    case GSSPASN_INTEGER:
        return append_integer(*Handle, Tag, pValue);
    case GSSPASN_OCTET_STRING: {
        const auto &buffer = *static_cast<const qxgss_buffer_desc *>(pValue);
        return append_bytes(*Handle, Tag, buffer.value, buffer.length);
    }
    case GSSPASN_OBJECT_IDENTIFIER: {
        const auto &oid = *static_cast<const qxgss_OID_desc *>(pValue);
        return oid.length == 0 ? GSSPASN_E_ENCODING : append_bytes(*Handle, Tag, oid.elements, oid.length);
    }
    default:
        return GSSPASN_E_ITEM_TYPE;
    }
}

OM_uint32 gsspasn_close_encode_handle(gsspasn_encoding_t *pHandle, qxgss_buffer_t pOutput) {
    if (pOutput != nullptr)
        *pOutput = {};
    if (pHandle == nullptr || *pHandle == nullptr)
        return GSSPASN_E_NO_HANDLE;
    const qxgss::Heap<gsspasn_encoder_struct> encoder(*pHandle);
    *pHandle = nullptr;
    qxgss::Heap<unsigned char> bytes(encoder->bytes);
    if (pOutput == nullptr)
        return GSSPASN_E_SUCCESS;
    if (encoder->depth != 0)
        return GSSPASN_E_TAG_MISMATCH;
    *pOutput = {encoder->size, bytes.release()};
    return GSSPASN_E_SUCCESS;
}
