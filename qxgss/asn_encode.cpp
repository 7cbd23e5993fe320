// Writes DER (X.690 10) into a block that becomes the caller's at the end: a usual token into the encoder's own, at its
// front, a longer one into one that grows. An element is begun with room for one length octet; its contents move up
// only when the length that turns out needs more.
#include <algorithm>
#include <bit>
#include <cstring>

#include "qxgss/asn_octets.h"
#include "qxgss/gsspasn.h"
#include "qxgss/internal.h"

constexpr std::size_t kFirstCapacity = 512;

struct gsspasn_encoder_struct {
    unsigned char usual[kFirstCapacity];
    unsigned char *bytes; // `usual`, or a block of their own
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

bool is_usual(const gsspasn_encoder_struct &encoder) {
    return encoder.bytes == encoder.usual;
}

// The block never has room for more than the decoder takes. Not inline, as most elements need neither this nor a length
// of several octets.
[[gnu::noinline]] bool grow(gsspasn_encoder_struct &encoder, std::size_t more) {
    if (more > GSSPASN_DECODE_MAX_TOKEN - encoder.size)
        return false;
    const std::size_t wanted = std::max(encoder.size + more, 2 * encoder.capacity);
    const std::size_t capacity = std::min<std::size_t>(wanted, GSSPASN_DECODE_MAX_TOKEN);
    const bool was_usual = is_usual(encoder);
    void *bytes = std::realloc(was_usual ? nullptr : encoder.bytes, capacity);
    if (bytes == nullptr)
        return false;
    if (was_usual)
        std::memcpy(bytes, encoder.usual, encoder.size);
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

// Writes an element but for its contents, and gives the place for those; null when the block has no room for it, or
// there are too many.
inline unsigned char *append(gsspasn_encoder_struct &encoder, OM_uint32 tag, std::size_t length) {
    const std::size_t octets = length_octets(length);
    if (length > GSSPASN_DECODE_MAX_TOKEN || encoder.elements == GSSPASN_DECODE_MAX_ELEMENTS ||
        1 + octets + length > encoder.capacity - encoder.size)
        return nullptr;
    unsigned char *at = encoder.bytes + encoder.size;
    *at = static_cast<unsigned char>(qxgss::kContextSpecific | tag);
    write_length(at + 1, length, octets);
    encoder.size += 1 + octets + length;
    ++encoder.elements;
    return at + 1 + octets;
}

// Makes room for an element for which there is none.
[[gnu::noinline]] OM_uint32 make_room(gsspasn_encoder_struct &encoder, std::size_t length) {
    if (encoder.elements == GSSPASN_DECODE_MAX_ELEMENTS)
        return GSSPASN_E_STACK_FULL;
    if (length > GSSPASN_DECODE_MAX_TOKEN)
        return GSSPASN_E_ENCODING;
    const std::size_t more = 1 + length_octets(length) + length;
    return grow(encoder, more) ? GSSPASN_E_SUCCESS : why_not(encoder, more);
}

// Puts an element, once more when that has made room. The second attempt is the last act of the first, so that the
// usual element keeps nothing over a call.
template <auto Put, typename... Arguments>
[[gnu::noinline]] OM_uint32 put_with_more_room(gsspasn_encoder_struct &encoder, std::size_t length,
                                               Arguments... arguments) {
    const OM_uint32 status = make_room(encoder, length);
    return status == GSSPASN_E_SUCCESS ? Put(encoder, arguments...) : status;
}

OM_uint32 append_bytes(gsspasn_encoder_struct &encoder, OM_uint32 tag, const void *bytes, std::size_t length) {
    if (length != 0 && bytes == nullptr)
        return GSSPASN_E_ARGUMENT;
    unsigned char *contents = append(encoder, tag, length);
    if (contents == nullptr)
        return put_with_more_room<append_bytes>(encoder, length, tag, bytes, length);
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
        return put_with_more_room<append_integer>(encoder, length, tag, pValue);
    OM_uint64 rest = value;
    for (std::size_t i = length; i != 0; --i, rest >>= 8)
        contents[i - 1] = static_cast<unsigned char>(rest);
    return GSSPASN_E_SUCCESS;
}

OM_uint32 start_sequence(gsspasn_encoder_struct &encoder, OM_uint32 tag) {
    if (append(encoder, qxgss::kConstructed | tag, 0) == nullptr)
        return put_with_more_room<start_sequence>(encoder, 0, tag);
    encoder.open[encoder.depth++] = {tag, encoder.size};
    return GSSPASN_E_SUCCESS;
}

// Moves the contents up to make room for a length of several octets, and writes it.
[[gnu::noinline]] OM_uint32 put_long_length(gsspasn_encoder_struct &encoder, std::size_t start, std::size_t length) {
    const std::size_t more = length_octets(length) - 1;
    if (!reserve(encoder, more))
        return why_not(encoder, more);
    unsigned char *contents = encoder.bytes + start;
    std::memmove(contents + more, contents, length);
    write_long_length(contents - 1, length, 1 + more);
    encoder.size += more;
    return GSSPASN_E_SUCCESS;
}

} // namespace

OM_uint32 gsspasn_open_encode_handle(gsspasn_encoding_t *pHandle) {
    if (pHandle == nullptr)
        return GSSPASN_E_ARGUMENT;
    auto *encoder = static_cast<gsspasn_encoder_struct *>(std::malloc(sizeof(gsspasn_encoder_struct)));
    *pHandle = encoder;
    if (encoder == nullptr)
        return GSSPASN_E_NO_MEMORY;
    encoder->bytes = encoder->usual;
    encoder->size = 0;
    encoder->capacity = kFirstCapacity;
    encoder->elements = 0;
    encoder->depth = 0;
    return GSSPASN_E_SUCCESS;
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
    return start_sequence(*Handle, Tag);
}

OM_uint32 gsspasn_stop_encode_sequence(gsspasn_encoding_t Handle, OM_uint32 Tag) {
    if (Handle == nullptr)
        return GSSPASN_E_NO_HANDLE;
    if (Handle->depth == 0 || Handle->open[Handle->depth - 1].tag != Tag)
        return GSSPASN_E_TAG_MISMATCH;
    const std::size_t start = Handle->open[Handle->depth - 1].contents;
    const std::size_t length = Handle->size - start;
    if (length >= qxgss::kLongLength) {
        const OM_uint32 status = put_long_length(*Handle, start, length);
        if (status != GSSPASN_E_SUCCESS)
            return status;
    } else {
        Handle->bytes[start - 1] = static_cast<unsigned char>(length);
    }
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
    const gsspasn_encoder_struct &encoder = **pHandle;
    const bool usual = is_usual(encoder);
    const bool unfinished = encoder.depth != 0;
    const std::size_t size = encoder.size;
    qxgss::Heap<unsigned char> block(reinterpret_cast<unsigned char *>(*pHandle)); // a usual token is at its front
    qxgss::Heap<unsigned char> own(usual ? nullptr : encoder.bytes);
    *pHandle = nullptr;
    if (pOutput == nullptr)
        return GSSPASN_E_SUCCESS;
    if (unfinished)
        return GSSPASN_E_TAG_MISMATCH;
    *pOutput = {size, (usual ? block : own).release()};
    return GSSPASN_E_SUCCESS;
}
