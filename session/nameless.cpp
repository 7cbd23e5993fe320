#include "session/nameless.h"

#include <algorithm>
#include <vector>

#include "common/asn.h"
#include "gssp2qxnego/token_format.h"

namespace session {

namespace {

namespace token = qxnego::token;

constexpr char kNobody = 0x7F; // a control character

using Places = std::vector<std::string_view>; // in the token

void note(gsspasn_decoding_t handle, const token::Element &element, Places &places) {
    qxgss_buffer_desc contents{};
    if (gsspasn_get_decode_contents(handle, element.tag, &contents) == GSSPASN_E_SUCCESS)
        places.push_back(common::bytes_of(&contents));
}

Places names_in(gsspasn_decoding_t handle) {
    Places places;
    gsspasn_decoding_t init = nullptr, list = nullptr, mechanism = nullptr;
    OM_uint32 count = 0, mechanisms = 0;
    if (gsspasn_get_top_decode_sequence(handle, token::kInit.tag, &init, &count) != GSSPASN_E_SUCCESS)
        return places;
    if (gsspasn_get_decode_sequence(init, token::kMechanisms.tag, &list, &mechanisms) == GSSPASN_E_SUCCESS)
        while (gsspasn_get_decode_sequence(list, token::kMechanism.tag, &mechanism, &count) == GSSPASN_E_SUCCESS)
            note(mechanism, token::mech::kSsoAuthenticationId, places);
    note(init, token::init::kAuthenticationId, places);
    note(init, token::init::kUserName, places);
    return places;
}

} // namespace

std::string nameless(std::string_view token) {
    std::string copy(token);
    const common::Decoding decoding(token);
    if (decoding.status() == GSSPASN_E_SUCCESS)
        for (const std::string_view name : names_in(decoding.get()))
            std::fill_n(copy.begin() + (name.data() - token.data()), name.size(), kNobody);
    return copy;
}

} // namespace session
