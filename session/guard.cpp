#include "session/guard.h"

#include "gssp2qxnego/token_format.h"
#include "qxgss/gsspasn.h"

namespace session {

namespace {

namespace token = qxnego::token;

constexpr char kNobody = 0x7F; // a control character

// An element, and behind it those within.
using Element = std::span<const gsspasn_place_desc>;

template <typename Use> void each_child(Element element, Use use) {
    for (std::size_t at = 1; at < element.size(); at += element[at].Span)
        use(element.subspan(at, element[at].Span));
}

bool is(Element element, const token::Element &kind) {
    return element.front().Tag == kind.tag;
}

void blank(Element element, std::string &token) {
    const gsspasn_place_desc &place = element.front();
    if (place.IsConstructed == 0)
        std::fill_n(token.data() + place.Offset + place.Header, place.Length, kNobody);
}

void blank_names(Element mechanism, std::string &token) {
    each_child(mechanism, [&](Element item) {
        if (is(item, token::mech::kSsoAuthenticationId))
            blank(item, token);
    });
}

} // namespace

// Every one of them, whichever of several its reader takes.
std::string nameless(std::string_view token) {
    std::string copy(token);
    common::Buffer places;
    gsspasn_fault_desc fault{};
    qxgss_buffer_desc input = common::view(token);
    if (gsspasn_inspect_token(&input, places.out(), &fault) != GSSPASN_E_SUCCESS)
        return copy;
    const auto *const first = static_cast<const gsspasn_place_desc *>(places.out()->value);
    const Element init(first, places.bytes().size() / sizeof *first);
    each_child(init, [&](Element item) {
        if (is(item, token::init::kAuthenticationId) || is(item, token::init::kUserName))
            blank(item, copy);
        else if (is(item, token::kMechanisms))
            each_child(item, [&](Element mechanism) { blank_names(mechanism, copy); });
    });
    return copy;
}

} // namespace session
