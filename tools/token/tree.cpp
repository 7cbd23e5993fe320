// Reads a token as the mechanism does: the same requests to the framework's decoder in the same order. Beside each
// request goes a cursor over the elements, which knows where the answer stands.
#include "tools/token/tree.h"

#include <new>

#include "common/asn.h"
#include "gssp2qxnego/token_format.h"
#include "gssp2qxnego/words.h"
#include "tools/show/codes.h"
#include "tools/show/oids.h"
#include "tools/token/inner.h"

namespace tools {

namespace {

namespace token = qxnego::token;

// ---- Values --------------------------------------------------------------------------------------------------------

constexpr std::string_view truth_word(std::uint32_t value) {
    return value != 0 ? "yes" : "no";
}

template <std::string_view (*Word)(std::uint32_t)> std::string with_word(OM_uint32 number) {
    const std::string_view word = Word(number);
    return std::to_string(number) + ' ' + (word.empty() ? "(no such value)" : std::string(word));
}

std::string major_text(OM_uint32 value) {
    return code_text(value) + ' ' + major_name(value);
}

std::string oid_text(ByteView der) {
    const std::string dotted = dotted_oid(der), name = mechanism_name(der);
    if (der.empty())
        return "empty";
    if (dotted.empty())
        return "no object identifier: " + hex(der, " ");
    return dotted == name ? dotted : dotted + ' ' + name;
}

std::string quoted_text(ByteView text) {
    return quoted(as_text(text));
}

std::string inner_token_text(ByteView inner) {
    return std::to_string(inner.size()) + " bytes, " + kind_of_inner_token(inner);
}

// ---- The fields of one constructed element -------------------------------------------------------------------------

void refuse_empty(const Element &field, OM_uint32 status) {
    if (field.place.Length == 0)
        throw Fault{field.place.Offset + 1, status, "the " + field.name + " is empty"};
}

// Whatever is wrong is thrown as Fault.
class Fields {
  public:
    Fields(gsspasn_decoding_t handle, Element &parent) : handle_(handle), parent_(parent) {}

    std::size_t size() const { return parent_.children.size(); }

    struct Number {
        const Element *field; // null when it is absent
        OM_uint32 value = 0;
    };
    Number integer(const token::Element &row, bool required, std::string (*text)(OM_uint32)) {
        OM_uint32 value = 0;
        Element *field = found(row, required, gsspasn_get_decode_item(handle_, row.tag, row.type, &value));
        if (field != nullptr)
            field->value = text(value);
        return {field, value};
    }

    // The field, or null when it is absent.
    const Element *octets(const token::Element &row, bool required, std::string (*text)(ByteView)) {
        qxgss_buffer_desc value{};
        Element *field = found(row, required, gsspasn_get_decode_contents(handle_, row.tag, &value));
        if (field != nullptr)
            field->value = text(as_bytes(common::bytes_of(&value)));
        return field;
    }

    // Those of a constructed field, which has at least one.
    Fields sequence(const token::Element &row, OM_uint32 status_if_empty) {
        gsspasn_decoding_t children = nullptr;
        OM_uint32 count = 0;
        Element *field = found(row, true, gsspasn_get_decode_sequence(handle_, row.tag, &children, &count));
        refuse_empty(*field, status_if_empty);
        return {children, *field};
    }

  private:
    // The decoder's rule: what stands in front of the element that is found is passed over. One that is missing belongs
    // in front of the first larger tag.
    Element *found(const token::Element &row, bool required, OM_uint32 status) {
        std::vector<Element> &children = parent_.children;
        std::size_t at = next_;
        const bool missing = status == GSSPASN_E_TAG_NOT_FOUND;
        if (missing && !required)
            return nullptr;
        while (at != children.size() &&
               (missing ? children[at].place.Tag < row.tag : children[at].place.Tag != row.tag))
            ++at;
        if (status != GSSPASN_E_SUCCESS)
            refuse(row, status, at == children.size() ? nullptr : &children[at]);
        next_ = at + 1;
        children[at].name = row.name;
        return &children[at];
    }

    // `field` is the element that is not as it should be, or the one before which another is missing, if there is one.
    [[noreturn]] void refuse(const token::Element &row, OM_uint32 status, const Element *field) const {
        const std::string name = row.name;
        const std::size_t at = field == nullptr ? parent_.contents() + parent_.place.Length : field->place.Offset;
        if (status == GSSPASN_E_TAG_NOT_FOUND || field == nullptr)
            throw Fault{at, status,
                        parent_.name + " has no " + name + " [" + std::to_string(row.tag) + "] where it belongs"};
        if (status == GSSPASN_E_NOT_SEQUENCE || status == GSSPASN_E_NOT_ITEM)
            throw Fault{at, status,
                        "the " + name + " is " + (field->place.IsConstructed != 0 ? "" : "not ") + "constructed"};
        throw Fault{field->place.Length == 0 ? at + 1 : field->contents(), status,
                    "the " + name + " is not the shortest form of a number of 32 bits"};
    }

    gsspasn_decoding_t handle_;
    Element &parent_;
    std::size_t next_ = 0;
};

// ---- The token, as drawn in token_format.h -------------------------------------------------------------------------

void read_mechanism(Fields fields) {
    const Element *oid = fields.octets(token::mech::kOid, true, oid_text);
    fields.integer(token::mech::kState, true, with_word<qxnego::state_word>);
    const auto reason = fields.integer(token::mech::kReason, false, with_word<qxnego::reason_word>);
    if (reason.value == QXGSS_MECH_REASON_GSSAPI_ERROR) {
        fields.integer(token::mech::kMajorStatus, true, major_text);
        fields.integer(token::mech::kMinorStatus, true, code_text);
        fields.octets(token::mech::kStatusText, true, quoted_text);
    }
    fields.octets(token::mech::kInnerToken, false, inner_token_text);
    fields.octets(token::mech::kSsoAuthenticationId, false, quoted_text);
    refuse_empty(*oid, QXNEGO_E_BAD_NEG_MECH);
}

void read_list(Fields &fields) {
    Fields list = fields.sequence(token::kMechanisms, QXNEGO_E_EMPTY_LIST);
    for (std::size_t i = 0; i != list.size(); ++i)
        read_mechanism(list.sequence(token::kMechanism, QXNEGO_E_BAD_NEG_MECH));
}

// The negotiation's state, which must be one that the form may have.
OM_uint32 read_state(Fields &fields, OM_uint32 last, const char *form) {
    const auto [field, state] = fields.integer(token::kNegState, true, with_word<qxnego::neg_state_word>);
    if (state == QXGSS_NEG_STATE_REQUEST_MIC)
        throw Fault{field->contents(), QXNEGO_E_NEG_STATE_UNSUPPORTED, "the negotiation state is not supported"};
    if (state == 0 || state > last)
        throw Fault{field->contents(), QXNEGO_E_BAD_NEG_STATE,
                    std::string("no ") + form + " has that negotiation state"};
    return state;
}

void read_init(Fields fields) {
    read_list(fields);
    read_state(fields, QXGSS_NEG_STATE_INCOMPLETE, token::kInit.name);
    fields.octets(token::init::kAuthenticationId, false, quoted_text);
    fields.integer(token::init::kIsSso, false, with_word<truth_word>);
    fields.octets(token::init::kUserName, false, quoted_text);
    fields.octets(token::init::kProfileName, false, quoted_text);
}

void read_resp(Fields fields) {
    read_list(fields);
    if (read_state(fields, QXGSS_NEG_STATE_REJECT, token::kResp.name) == QXGSS_NEG_STATE_COMPLETED)
        refuse_empty(*fields.octets(token::resp::kSelected, true, oid_text), QXNEGO_E_SELECTED_OID);
    fields.integer(token::resp::kIsPolicyApplied, false, with_word<truth_word>);
}

void read_outer(const common::Decoding &decoder, TokenTree &tree) {
    Element &outer = tree.elements.front();
    const bool is_init = outer.place.Tag == token::kInit.tag;
    if (!is_init && outer.place.Tag != token::kResp.tag)
        throw Fault{0, GSSPASN_E_TAG_NOT_FOUND, "the outer tag is neither [0], INIT, nor [1], RESP"};
    tree.form = outer.name = (is_init ? token::kInit : token::kResp).name;
    gsspasn_decoding_t children = nullptr;
    OM_uint32 count = 0;
    const OM_uint32 status = gsspasn_get_top_decode_sequence(decoder.get(), outer.place.Tag, &children, &count);
    if (status != GSSPASN_E_SUCCESS)
        throw Fault{0, status, "the outer element is not constructed"};
    if (count == 0)
        throw Fault{1, is_init ? QXNEGO_E_BAD_INIT_TOKEN : QXNEGO_E_BAD_RESP_TOKEN, "the token is empty"};
    is_init ? read_init({children, outer}) : read_resp({children, outer});
}

std::vector<Element> tree_of(std::span<const gsspasn_place_desc> places) {
    std::vector<Element> elements;
    for (; !places.empty(); places = places.subspan(places.front().Span))
        elements.push_back({places.front(), tree_of(places.subspan(1, places.front().Span - 1))});
    return elements;
}

} // namespace

TokenTree read_token(ByteView bytes) {
    TokenTree tree;
    const common::Decoding decoder(as_text(bytes));
    qxgss_buffer_desc input = common::view(as_text(bytes));
    common::Buffer places;
    gsspasn_fault_desc fault;
    const OM_uint32 status = gsspasn_inspect_token(&input, places.out(), &fault);
    if (status == GSSPASN_E_NO_MEMORY || decoder.status() != status)
        throw std::bad_alloc();
    tree.elements = tree_of({static_cast<const gsspasn_place_desc *>(places.out()->value),
                             places.out()->length / sizeof(gsspasn_place_desc)});
    try {
        if (status != GSSPASN_E_SUCCESS)
            throw Fault{fault.Offset, status, fault.szWhy};
        read_outer(decoder, tree);
    } catch (const Fault &found) {
        tree.fault = found;
    }
    return tree;
}

} // namespace tools
