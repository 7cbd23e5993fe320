// The token dumper, on any bytes: it refuses what the mechanism refuses, and with the same status; the elements that it
// shows fill the token, each as its octets say; and what it shows is safe for a terminal.
#include <cstdlib>

#include "fuzz/input.h"
#include "gssp2qxnego/gssp2qxnegoint.h"
#include "gssp2qxnego/token_format.h"
#include "tools/token/tree.h"

using fuzz::require;

namespace {

OM_uint32 decoder_status(tools::ByteView token) {
    qxgss_buffer_desc bytes{token.size(), const_cast<unsigned char *>(token.data())};
    gsspasn_decoding_t decoder = nullptr;
    const OM_uint32 status = gsspasn_open_decode_handle(&decoder, &bytes);
    gsspasn_close_decode_handle(&decoder);
    return status;
}

// The status with which a receiver refuses the token. Its one mechanism is rejected already, so that it adopts no
// state.
OM_uint32 mechanism_status(tools::ByteView token, OM_uint32 type) {
    static unsigned char oid[] = {1};
    static qxgss_OID_desc local_oid{1, oid};
    NegContext_desc context{};
    context.NegMechList = {1, static_cast<NegMechEntry_t>(std::calloc(1, sizeof(NegMechEntry_desc)))};
    context.NegMechList.pNegMech[0].pMechOid = &local_oid;
    context.NegMechList.pNegMech[0].MechState = NEG_MECH_STATE_REJECTED;
    context.NegMechList.pNegMech[0].MechIndex = -1;
    unsigned char nothing = 0; // the address of an empty token
    qxgss_buffer_desc input{token.size(), token.empty() ? &nothing : const_cast<unsigned char *>(token.data())};
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = QXNEGO_INT_ProcessInputToken(&minor, type, &input, &context);
    QXNEGO_INT_ReleaseNegContext(nullptr, &context);
    return GSS_ERROR(major) == 0 ? OM_uint32{QXNEGO_E_SUCCESSFUL} : minor;
}

// Elements that fill the token from `begin` to `end`. Two octets follow the contents of an indefinite length.
void check(const std::vector<tools::Element> &elements, tools::ByteView token, std::size_t begin, std::size_t end) {
    for (const tools::Element &element : elements) {
        const gsspasn_place_desc &place = element.place;
        require(place.Offset == begin && place.Header >= 2 && element.contents() + place.Length <= end,
                "an element begins where the one before it ends, and ends in its parent");
        require(token[begin] == (0x80 | (place.IsConstructed != 0 ? 0x20 : 0) | place.Tag), "it is the one it says");
        for (const char byte : element.value)
            require(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F, "a value is safe for a terminal");
        if (place.IsConstructed != 0)
            check(element.children, token, element.contents(), element.contents() + place.Length);
        begin = element.contents() + place.Length + (token[begin + 1] == 0x80 ? 2 : 0);
    }
    require(begin == end, "elements fill their parent");
}

// Those that were read before the decoder refused the token.
void check_begun(const std::vector<tools::Element> &elements, std::size_t begin, std::size_t fault) {
    for (const tools::Element &element : elements) {
        require(element.place.Offset >= begin, "an element begins behind the one before it");
        require(element.place.Offset <= fault, "what is shown begins before the fault");
        check_begun(element.children, element.contents(), fault);
        begin = element.contents() + element.place.Length;
    }
}

bool is_behind_selected(const tools::Fault &fault, const tools::Element &outer) {
    for (const tools::Element &field : outer.children)
        if (field.name == qxnego::token::resp::kSelected.name)
            return fault.offset >= field.contents() + field.place.Length;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const tools::ByteView token(data, size);
    const tools::TokenTree tree = tools::read_token(token);
    const OM_uint32 decoder = decoder_status(token);
    if (decoder == GSSPASN_E_SUCCESS)
        check(tree.elements, token, 0, size);
    else
        check_begun(tree.elements, 0, tree.fault ? tree.fault->offset : 0);
    require(!tree.fault || tree.fault->offset <= size, "a fault has a place in the token");
    const OM_uint32 type = tree.form == "RESP" ? NEG_MECH_TOKENTYPE_RESP : NEG_MECH_TOKENTYPE_INIT;
    const OM_uint32 status = mechanism_status(token, type);
    if (status == QXNEGO_E_SELECTED_NOT_FOUND) // its own list decides that, and it reads no further
        require(!tree.fault || is_behind_selected(*tree.fault, tree.elements.front()), "it is faulty behind that");
    else
        require((tree.fault ? tree.fault->status : OM_uint32{QXNEGO_E_SUCCESSFUL}) == status,
                "it refuses what the mechanism refuses");
    return 0;
}
