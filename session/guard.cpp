#include "session/guard.h"

#include <algorithm>
#include <optional>

#include "common/asn.h"
#include "common/status.h"
#include "gssp2qxnego/token_format.h"

namespace session {

namespace {

namespace token = qxnego::token;

constexpr char kNobody = 0x7F; // a control character

// ---- Reading as the mechanism does ---------------------------------------------------------------------------------

// Items of one element. As in the mechanism they are asked for in the order of their tags, so that both come upon the
// same ones among repeated and misplaced elements; a defective one ends the reading.
class Items {
  public:
    explicit Items(gsspasn_decoding_t handle) : handle_(handle) {}

    std::string_view octets(const token::Element &element) {
        qxgss_buffer_desc contents{};
        note(gsspasn_get_decode_contents(handle_, element.tag, &contents));
        return common::bytes_of(&contents);
    }
    OM_uint32 integer(const token::Element &element) {
        OM_uint32 value = 0;
        note(gsspasn_get_decode_item(handle_, element.tag, element.type, &value));
        return value;
    }
    bool ok() const { return is_ok_; }

  private:
    void note(OM_uint32 status) {
        is_ok_ = is_ok_ && (status == GSSPASN_E_SUCCESS || status == GSSPASN_E_TAG_NOT_FOUND);
    }

    gsspasn_decoding_t handle_;
    bool is_ok_ = true;
};

bool is_negotiated(std::string_view oid, const qxgss_ftn_table_desc &negotiator) {
    const qxgss_buffer_desc bytes = common::view(oid);
    qxgss_OID_desc desc = {static_cast<OM_uint32>(bytes.length), bytes.value};
    OM_sint32 index = -1;
    const char *why_not = nullptr;
    if (oid.empty() || common::failed(gssp_oid_to_mechindex(nullptr, &desc, &index)) || index < 0)
        return false;
    const auto ask = negotiator.ftn_gssp_inquire_candidate;
    return ask == nullptr || (!common::failed(ask(nullptr, index, &why_not)) && why_not == nullptr);
}

// A mechanism of the token; false for a defective one. The first name of a mechanism that is negotiated here is that
// of single sign-on.
bool read_mechanism(gsspasn_decoding_t handle, const qxgss_ftn_table_desc &negotiator, Claim &claim,
                    std::string &sso_name) {
    Items items(handle);
    const std::string oid(items.octets(token::mech::kOid));
    const OM_uint32 state = items.integer(token::mech::kState);
    if (items.integer(token::mech::kReason) == QXGSS_MECH_REASON_GSSAPI_ERROR) {
        items.integer(token::mech::kMajorStatus);
        items.integer(token::mech::kMinorStatus);
        items.octets(token::mech::kStatusText);
    }
    items.octets(token::mech::kInnerToken);
    const std::string_view name = items.octets(token::mech::kSsoAuthenticationId);
    if (state != QXGSS_MECH_STATE_REJECTED) {
        claim.offer.push_back(oid);
        if (sso_name.empty() && is_negotiated(oid, negotiator))
            sso_name = name;
    }
    return items.ok();
}

std::string name_in(gsspasn_decoding_t init, const std::string &sso_name, bool &is_ok) {
    Items items(init);
    items.integer(token::kNegState);
    const std::string_view authentication_id = items.octets(token::init::kAuthenticationId);
    const bool is_sso = items.integer(token::init::kIsSso) == 1;
    const std::string_view user = items.octets(token::init::kUserName);
    is_ok = items.ok();
    if (!user.empty())
        return std::string(user);
    return is_sso && !sso_name.empty() ? sso_name : std::string(authentication_id);
}

// ---- Overwriting ---------------------------------------------------------------------------------------------------

// The next child with the tag, whatever it holds: every one is passed over in turn.
struct Child {
    gsspasn_decoding_t children; // null for a primitive one
    std::string_view contents;
};
std::optional<Child> next_child(gsspasn_decoding_t parent, const token::Element &element) {
    Child child{};
    qxgss_buffer_desc contents{};
    OM_uint32 count = 0;
    if (gsspasn_get_decode_contents(parent, element.tag, &contents) == GSSPASN_E_SUCCESS)
        child.contents = common::bytes_of(&contents);
    else if (gsspasn_get_decode_sequence(parent, element.tag, &child.children, &count) != GSSPASN_E_SUCCESS)
        return std::nullopt;
    return child;
}

template <typename Action>
void for_each(gsspasn_decoding_t parent, const token::Element &element, const Action &action) {
    while (const std::optional<Child> child = next_child(parent, element))
        action(*child);
}

// For elements with that tag of the token's outer one, from the first: what was asked for before is passed over again.
template <typename Action>
void for_each_item(std::string_view token, const token::Element &element, const Action &action) {
    const common::Decoding decoding(token);
    gsspasn_decoding_t init = nullptr;
    OM_uint32 count = 0;
    if (decoding.status() == GSSPASN_E_SUCCESS &&
        gsspasn_get_top_decode_sequence(decoding.get(), token::kInit.tag, &init, &count) == GSSPASN_E_SUCCESS)
        for_each(init, element, action);
}

} // namespace

Claim claim_of(std::string_view token, const qxgss_ftn_table_desc &negotiator) {
    const common::Decoding decoding(token);
    gsspasn_decoding_t init = nullptr, list = nullptr, mechanism = nullptr;
    OM_uint32 count = 0, mechanisms = 0;
    Claim claim;
    std::string sso_name;
    bool is_ok =
        decoding.status() == GSSPASN_E_SUCCESS &&
        gsspasn_get_top_decode_sequence(decoding.get(), token::kInit.tag, &init, &count) == GSSPASN_E_SUCCESS &&
        gsspasn_get_decode_sequence(init, token::kMechanisms.tag, &list, &mechanisms) == GSSPASN_E_SUCCESS;
    for (OM_uint32 i = 0; is_ok && i != mechanisms; ++i)
        is_ok = gsspasn_get_decode_sequence(list, token::kMechanism.tag, &mechanism, &count) == GSSPASN_E_SUCCESS &&
                read_mechanism(mechanism, negotiator, claim, sso_name);
    if (is_ok)
        claim.name = name_in(init, sso_name, is_ok);
    return is_ok ? claim : Claim{};
}

bool is_forbidden(const Claim &claim, const qxgss_ftn_table_desc &negotiator) {
    if (claim.name.empty())
        return false;
    const Policy policy(claim.name);
    bool is_any_common = false;
    for (const std::string &oid : claim.offer) {
        if (!is_negotiated(oid, negotiator))
            continue;
        if (policy.allows(oid))
            return false;
        is_any_common = true;
    }
    return is_any_common;
}

std::string nameless(std::string_view token) {
    std::string copy(token);
    const auto blank = [&](const Child &item) {
        if (!item.contents.empty())
            std::fill_n(copy.begin() + (item.contents.data() - token.data()), item.contents.size(), kNobody);
    };
    for_each_item(token, token::init::kAuthenticationId, blank);
    for_each_item(token, token::init::kUserName, blank);
    for_each_item(token, token::kMechanisms, [&](const Child &list) {
        if (list.children != nullptr)
            for_each(list.children, token::kMechanism, [&](const Child &mechanism) {
                if (mechanism.children != nullptr)
                    for_each(mechanism.children, token::mech::kSsoAuthenticationId, blank);
            });
    });
    return copy;
}

} // namespace session
