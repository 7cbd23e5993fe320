// Reads a token as the mechanism does: the same requests to the framework's decoder in the same order. Beside each
// request goes a cursor over the walked elements, which knows where the answer stands.
#include "tools/token/tree.h"

#include <cstdlib>

#include "common/asn.h"
#include "gssp2qxnego/gssp2qxnegoutil/words.h"
#include "tools/show/codes.h"
#include "tools/token/inner.h"
#include "tools/show/oids.h"

namespace tools {

namespace {

// ---- Values --------------------------------------------------------------------------------------------------------

std::string number_with(OM_uint32 number, std::string_view word) {
    return std::to_string(number) + ' ' + (word.empty() ? "(no such value)" : std::string(word));
}

std::string mech_state_text(OM_uint32 value) {
    return number_with(value, qxnego::word(static_cast<NegMechState_et>(value)));
}

std::string mech_reason_text(OM_uint32 value) {
    return number_with(value, qxnego::word(static_cast<NegMechReason_et>(value)));
}

std::string neg_state_text(OM_uint32 value) {
    return number_with(value, qxnego::word(static_cast<NegState_et>(value)));
}

std::string truth_text(OM_uint32 value) {
    return number_with(value, value != 0 ? "yes" : "no");
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

ByteView view_of(std::string_view bytes) {
    return {reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size()};
}

std::string inner_token_text(ByteView token) {
    return std::to_string(token.size()) + " bytes, " + kind_of_inner_token(token);
}

// ---- Fields --------------------------------------------------------------------------------------------------------

// The fields of one constructed element. The first fault of the token ends all reading.
class Fields {
  public:
    Fields(gsspasn_decoding_t handle, Element &parent, TokenTree &tree)
        : handle_(handle), parent_(parent), tree_(tree) {}

    // Each gives the field's element, or null when it is absent or a fault is known.
    Element *integer(OM_uint32 tag, const char *name, bool required, std::string (*text)(OM_uint32), OM_uint32 &value) {
        Element *field = item(tag, name, GSSPASN_INTEGER, &value, required);
        if (field != nullptr)
            field->value = text(value);
        return field;
    }
    Element *octets(OM_uint32 tag, const char *name, bool required, std::string (*text)(ByteView)) {
        common::Buffer value;
        Element *field = item(tag, name, GSSPASN_OCTET_STRING, value.out(), required);
        if (field != nullptr)
            field->value = text(view_of(value.bytes()));
        return field;
    }
    Element *oid(OM_uint32 tag, const char *name) {
        qxgss_OID_desc value{};
        Element *field = item(tag, name, GSSPASN_OBJECT_IDENTIFIER, &value, true);
        if (field != nullptr)
            field->value = oid_text({static_cast<const unsigned char *>(value.elements), value.length});
        std::free(value.elements);
        return field;
    }

    // A constructed field, of which at least one child is required, with a handle over its children.
    Element *sequence(OM_uint32 tag, const char *name, OM_uint32 status_if_empty, gsspasn_decoding_t &children) {
        OM_uint32 count = 0;
        Element *field =
            tree_.fault ? nullptr : found(tag, name, gsspasn_get_decode_sequence(handle_, tag, &children, &count));
        if (field != nullptr && count == 0)
            fail(field->offset + 1, status_if_empty, std::string("the ") + name + " is empty");
        return tree_.fault ? nullptr : field;
    }

    void refuse_empty(const Element *field, OM_uint32 status) {
        if (field != nullptr && field->length == 0 && !tree_.fault)
            fail(field->offset + 1, status, "the " + field->name + " is empty");
    }
    void fail(std::size_t offset, OM_uint32 status, const std::string &why) {
        tree_.fault = Fault{offset, status, why};
    }

  private:
    Element *item(OM_uint32 tag, const char *name, OM_uint32 type, void *value, bool required) {
        if (tree_.fault)
            return nullptr;
        const OM_uint32 status = gsspasn_get_decode_item(handle_, tag, type, value);
        return status == GSSPASN_E_TAG_NOT_FOUND && !required ? nullptr : found(tag, name, status);
    }

    // The decoder's rule: what stands in front of the element that is found is passed over. One that is missing belongs
    // in front of the first larger tag.
    Element *found(OM_uint32 tag, const char *name, OM_uint32 status) {
        std::vector<Element> &children = parent_.children;
        std::size_t at = next_;
        const bool missing = status == GSSPASN_E_TAG_NOT_FOUND;
        while (at != children.size() && (missing ? children[at].tag < tag : children[at].tag != tag))
            ++at;
        if (status == GSSPASN_E_SUCCESS) {
            next_ = at + 1;
            children[at].name = name;
            return &children[at];
        }
        const std::size_t end = at == children.size() ? parent_.contents() + parent_.length : children[at].offset;
        if (missing)
            fail(end, status, parent_.name + " has no " + name + " [" + std::to_string(tag) + "] where it belongs");
        else if (status == GSSPASN_E_NOT_SEQUENCE || status == GSSPASN_E_NOT_ITEM)
            fail(end, status,
                 std::string("the ") + name + " is " + (children[at].constructed ? "" : "not ") + "constructed");
        else
            fail(children[at].length == 0 ? end + 1 : children[at].contents(), status,
                 std::string("the ") + name + " is not the shortest form of a number of 32 bits");
        return nullptr;
    }

    gsspasn_decoding_t handle_;
    Element &parent_;
    TokenTree &tree_;
    std::size_t next_ = 0;
};

// ---- The token, as drawn at the head of the mechanism's writer
// --------------------------------------------------------

void read_mechanism(gsspasn_decoding_t handle, Element &mechanism, TokenTree &tree) {
    Fields fields(handle, mechanism, tree);
    OM_uint32 number = 0, reason = NEG_MECH_REASON_INVALID;
    const Element *oid = fields.oid(0, "OID");
    fields.integer(1, "state", true, mech_state_text, number);
    fields.integer(2, "reason", false, mech_reason_text, reason);
    if (reason == NEG_MECH_REASON_GSSAPI_ERROR) {
        fields.integer(3, "major status", true, major_text, number);
        fields.integer(4, "minor status", true, code_text, number);
        fields.octets(5, "status text", true, quoted_text);
    }
    fields.octets(6, "inner token", false, inner_token_text);
    fields.octets(7, "SSO authentication ID", false, quoted_text);
    fields.refuse_empty(oid, QXNEGO_E_BAD_NEG_MECH);
}

void read_list(Fields &outer, TokenTree &tree) {
    gsspasn_decoding_t children = nullptr;
    Element *list = outer.sequence(0, "mechanism list", QXNEGO_E_EMPTY_LIST, children);
    if (list == nullptr)
        return;
    Fields mechanisms(children, *list, tree);
    for (std::size_t i = 0; i != list->children.size(); ++i) {
        gsspasn_decoding_t handle = nullptr;
        if (Element *mechanism = mechanisms.sequence(0, "mechanism", QXNEGO_E_BAD_NEG_MECH, handle))
            read_mechanism(handle, *mechanism, tree);
    }
}

// The negotiation's state, which must be one that the form may have.
OM_uint32 read_state(Fields &fields, OM_uint32 last, const TokenTree &tree) {
    OM_uint32 state = NEG_STATE_INVALID;
    const Element *field = fields.integer(1, "negotiation state", true, neg_state_text, state);
    if (field != nullptr && state == NEG_STATE_REQUEST_MIC)
        fields.fail(field->contents(), QXNEGO_E_NEG_STATE_UNSUPPORTED, "the negotiation state is not supported");
    else if (field != nullptr && (state == NEG_STATE_INVALID || state > last))
        fields.fail(field->contents(), QXNEGO_E_BAD_NEG_STATE, "no " + tree.form + " has that negotiation state");
    return state;
}

void read_init(Fields &fields, TokenTree &tree) {
    OM_uint32 single_sign_on = 0;
    read_list(fields, tree);
    read_state(fields, NEG_STATE_INCOMPLETE, tree);
    fields.octets(2, "authentication ID", false, quoted_text);
    fields.integer(3, "single sign-on", false, truth_text, single_sign_on);
    fields.octets(4, "user name", false, quoted_text);
    fields.octets(5, "profile name", false, quoted_text);
}

void read_resp(Fields &fields, TokenTree &tree) {
    OM_uint32 policy_applied = 0;
    read_list(fields, tree);
    if (read_state(fields, NEG_STATE_REJECT, tree) == NEG_STATE_COMPLETED)
        fields.refuse_empty(fields.oid(2, "selected mechanism"), QXNEGO_E_SELECTED_OID);
    fields.integer(3, "policy applied", false, truth_text, policy_applied);
}

void read_outer(const common::Decoding &token, TokenTree &tree) {
    Element &outer = tree.elements.front();
    const bool is_init = outer.tag == 0;
    gsspasn_decoding_t children = nullptr;
    OM_uint32 count = 0;
    if (outer.tag > 1) {
        tree.fault = Fault{0, GSSPASN_E_TAG_NOT_FOUND, "the outer tag is neither [0], INIT, nor [1], RESP"};
        return;
    }
    tree.form = outer.name = is_init ? "INIT" : "RESP";
    const OM_uint32 status = gsspasn_get_top_decode_sequence(token.get(), outer.tag, &children, &count);
    if (status != GSSPASN_E_SUCCESS) {
        tree.fault = Fault{0, status, "the outer element is not constructed"};
        return;
    }
    if (count == 0) {
        tree.fault = Fault{1, is_init ? QXNEGO_E_BAD_INIT_TOKEN : QXNEGO_E_BAD_RESP_TOKEN, "the token is empty"};
        return;
    }
    Fields fields(children, outer, tree);
    is_init ? read_init(fields, tree) : read_resp(fields, tree);
}

} // namespace

TokenTree read_token(ByteView token) {
    Walk walk = walk_token(token);
    TokenTree tree{{}, std::move(walk.elements), std::move(walk.fault)};
    const common::Decoding open(as_text(token));
    if (open.status() != GSSPASN_E_SUCCESS && !tree.fault)
        tree.fault = Fault{0, open.status(), "the decoder refuses it"};
    if (!tree.fault)
        read_outer(open, tree);
    return tree;
}

} // namespace tools
