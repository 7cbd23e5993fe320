// The token dumper: what it says of any bytes is what the decoder says, lies within them, and is safe for a terminal.
#include "fuzz/input.h"
#include "qxgss/gsspasn.h"
#include "tools/token/tree.h"

using fuzz::require;

namespace {

OM_uint32 decoder_status(tools::ByteView token) {
    qxgss_buffer_desc bytes{token.size(), const_cast<unsigned char *>(token.data())};
    gsspasn_decoding_t decoder = nullptr;
    const OM_uint32 status = gsspasn_open_decode_handle(&decoder, &bytes);
    if (status == GSSPASN_E_SUCCESS)
        gsspasn_close_decode_handle(&decoder);
    return status;
}

void check(const std::vector<tools::Element> &elements, std::size_t begin, std::size_t end) {
    for (const tools::Element &element : elements) {
        require(element.offset >= begin && element.contents() + element.length <= end, "an element lies in its parent");
        for (const char byte : element.value)
            require(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F, "a value is safe for a terminal");
        check(element.children, element.contents(), element.contents() + element.length);
        begin = element.contents() + element.length;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const tools::ByteView token(data, size);
    const tools::Walk walk = tools::walk_token(token);
    require((walk.fault ? walk.fault->status : GSSPASN_E_SUCCESS) == decoder_status(token), "both walks agree");
    require(!walk.fault || walk.fault->offset <= size, "a fault has a place in the token");
    const tools::TokenTree tree = tools::read_token(token);
    require(!walk.fault || tree.fault, "what the decoder refuses is faulty");
    if (!walk.fault)
        check(tree.elements, 0, size);
    return 0;
}
