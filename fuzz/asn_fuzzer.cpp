// The decoder: opens any bytes as a token and asks for every element of it, and writes what it reads anew.
#include <string>

#include "fuzz/input.h"
#include "qxgss/gssp.h"
#include "qxgss/gsspasn.h"

using fuzz::require;

namespace {

constexpr OM_uint32 kTags = 31;

// A token's elements as they are found; the encoder nests less deeply than the decoder, so what is deeper is not
// written.
struct Copy {
    gsspasn_encoding_t encoder = nullptr;
    OM_uint32 depth = 0;
    bool whole = true;

    void put(OM_uint32 tag, OM_uint32 type, const void *value) {
        if (depth <= GSSPASN_ENCODE_MAX_DEPTH)
            require(gsspasn_put_encode_item(encoder, tag, type, value) == GSSPASN_E_SUCCESS, "what is read is written");
    }
    void start(OM_uint32 tag) {
        if (++depth <= GSSPASN_ENCODE_MAX_DEPTH)
            gsspasn_start_encode_sequence(encoder, tag);
        else
            whole = false;
    }
    void stop(OM_uint32 tag) {
        if (depth-- <= GSSPASN_ENCODE_MAX_DEPTH)
            gsspasn_stop_encode_sequence(encoder, tag);
    }
};

void walk(gsspasn_decoding_t parent, OM_uint32 count, Copy &copy);

bool take_item(gsspasn_decoding_t parent, OM_uint32 tag, Copy &copy) {
    OM_uint32 number = 0;
    if (gsspasn_get_decode_item(parent, tag, GSSPASN_INTEGER, &number) == GSSPASN_E_SUCCESS) {
        copy.put(tag, GSSPASN_INTEGER, &number);
        return true;
    }
    qxgss_buffer_desc text{};
    if (gsspasn_get_decode_item(parent, tag, GSSPASN_OCTET_STRING, &text) != GSSPASN_E_SUCCESS)
        return false;
    copy.put(tag, GSSPASN_OCTET_STRING, &text);
    gssp_release_buffer(nullptr, &text);
    return true;
}

bool take_child(gsspasn_decoding_t parent, OM_uint32 tag, Copy &copy) {
    gsspasn_decoding_t children = nullptr;
    OM_uint32 count = 0;
    if (gsspasn_get_decode_sequence(parent, tag, &children, &count) != GSSPASN_E_SUCCESS)
        return take_item(parent, tag, copy);
    copy.start(tag);
    walk(children, count, copy);
    copy.stop(tag);
    return true;
}

// In ascending order of the tags; what comes out of order is passed over.
void walk(gsspasn_decoding_t parent, OM_uint32 count, Copy &copy) {
    OM_uint32 found = 0;
    for (OM_uint32 tag = 0; tag < kTags; ++tag)
        while (take_child(parent, tag, copy))
            ++found;
    require(found <= count, "no child is found twice");
    copy.whole = copy.whole && found == count;
}

std::string copied(const std::uint8_t *data, std::size_t size, bool *pWhole) {
    std::string bytes(reinterpret_cast<const char *>(data), size);
    qxgss_buffer_desc token{bytes.size(), bytes.data()}, output{};
    gsspasn_decoding_t decoder = nullptr;
    Copy copy;
    copy.whole = false;
    if (gsspasn_open_decode_handle(&decoder, &token) != GSSPASN_E_SUCCESS)
        return {};
    gsspasn_open_encode_handle(&copy.encoder);
    for (OM_uint32 tag = 0; tag < kTags; ++tag) {
        gsspasn_decoding_t children = nullptr;
        OM_uint32 count = 0;
        if (gsspasn_get_top_decode_sequence(decoder, tag, &children, &count) != GSSPASN_E_SUCCESS)
            continue;
        copy.whole = true;
        copy.start(tag);
        walk(children, count, copy);
        copy.stop(tag);
    }
    require(gsspasn_close_encode_handle(&copy.encoder, &output) == GSSPASN_E_SUCCESS, "what was opened is closed");
    require(gsspasn_close_decode_handle(&decoder) == GSSPASN_E_SUCCESS, "the decoder is closed");
    std::string out(static_cast<const char *>(output.value), output.length);
    gssp_release_buffer(nullptr, &output);
    *pWhole = copy.whole;
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    bool whole = false, again = false;
    const std::string once = copied(data, size, &whole);
    if (!whole)
        return 0;
    const std::string twice = copied(reinterpret_cast<const std::uint8_t *>(once.data()), once.size(), &again);
    require(again && once == twice, "a token that was written reads back as what was written");
    return 0;
}
